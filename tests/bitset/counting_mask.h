// counting_mask.h: a derived mask that notes which operations are called on it through the virtual table.
#pragma once

#include "bitset.h"

#include <map>
#include <string>
#include <vector>

class CountingMask : public CBitMask
{
public:
    CountingMask() = default;
    explicit CountingMask(unsigned bits)
    {
        CBitMask::init(bits);
    } // virtual, and of this class by now

    // Times that an operation was called; by the name and number of its slot.
    int calls(const std::string &slot) const
    {
        const auto found = calls_.find(slot);
        return found == calls_.end() ? 0 : found->second;
    }

    void forget()
    {
        calls_.clear();
    }

    using CBitMask::findClrBit;
    using CBitMask::findSetBit;

    void reset(unsigned count = 0, unsigned start = 0) override
    {
        note("reset 6");
        CBitMask::reset(count, start);
    }
    bool setBit(unsigned bit) override
    {
        note("setBit 18");
        return CBitMask::setBit(bit);
    }
    bool clrBit(unsigned bit) override
    {
        note("clrBit 19");
        return CBitMask::clrBit(bit);
    }
    bool assignBit(unsigned bit, bool value) override
    {
        note("assignBit 20");
        return CBitMask::assignBit(bit, value);
    }
    bool chkBit(unsigned bit) const override
    {
        note("chkBit 23");
        return CBitMask::chkBit(bit);
    }
    unsigned numBitsSet() const override
    {
        note("numBitsSet 25");
        return CBitMask::numBitsSet();
    }
    unsigned findSetBit(unsigned start = 0) const override
    {
        note("findSetBit 28");
        return CBitMask::findSetBit(start);
    }
    unsigned findClrBit(unsigned start = 0) const override
    {
        note("findClrBit 29");
        return CBitMask::findClrBit(start);
    }
    unsigned operator[](unsigned index) const override
    {
        note("[] 32");
        return CBitMask::operator[](index);
    }
    bool operator==(CBitMask const &other) const override
    {
        note("== 38");
        return CBitMask::operator==(other);
    }

private:
    void note(const char *slot) const
    {
        ++calls_[slot];
    }

    mutable std::map<std::string, int> calls_;
};

// A derived mask whose data hooks carry something, and note what they were given.
class HookedMask : public CBitMask
{
public:
    struct Call {
        std::string hook;
        const void *buffer;
        unsigned wordCount;
        unsigned firstWord;
        bool operator==(const Call &) const = default;
    };

    using CBitMask::CBitMask;

    bool data_in(unsigned char const *src, unsigned wordCount, unsigned firstWord) override
    {
        calls.push_back({"data_in", src, wordCount, firstWord});
        return true;
    }
    bool data_or_in(unsigned char const *src, unsigned wordCount, unsigned firstWord) override
    {
        calls.push_back({"data_or_in", src, wordCount, firstWord});
        return true;
    }
    unsigned data_out(unsigned char *dst, unsigned wordCount, unsigned firstWord) const override
    {
        calls.push_back({"data_out", dst, wordCount, firstWord});
        return wordCount;
    }

    mutable std::vector<Call> calls;
};
