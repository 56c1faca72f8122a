// bit_mask_model.h: what a bit mask has to hold, one bool a bit, and programs of calls made on both.
//
// The model knows nothing of words but their size: every operation is written out bit by bit. A program has two masks,
// each its own or a view of words that start random between guard words; BitMaskProgram::step() makes one call on mask
// and model and says whether they agree.
// Choices come from a Chooser (below() and word()), so tests feed them from a seed and fuzzers from their input.
#pragma once

#include "bitset.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

// Names the first invariant of a live mask that does not hold; null when all do.
inline const char *brokenInvariant(const CBitMask &mask)
{
    if (mask.signature != 0xA5)
        return "a live mask carries its signature";
    if ((mask.maskPtr == nullptr) != (mask.numWords == 0))
        return "the word pointer is null exactly when there are no words";
    if (mask.numWords == 0 && mask.autoDelete != 0)
        return "an empty mask owns nothing";
    if (mask.numWords == 0 && mask.tailBits != 0)
        return "an empty mask has no tail";
    return nullptr;
}

struct BitMaskModel {
    std::vector<bool> bits; // whole words
    unsigned tail = 0;
    bool owned = false;

    static constexpr unsigned none = 0xFFFFFFFF;

    unsigned size() const
    {
        return static_cast<unsigned>(bits.size());
    }
    unsigned words() const
    {
        return size() / 32;
    }
    bool get(unsigned bit) const
    {
        return bit < size() && bits[bit];
    }

    bool put(unsigned bit, bool value)
    {
        if (bit >= size() || bits[bit] == value)
            return false;
        bits[bit] = value;
        return true;
    }

    unsigned word(unsigned index) const
    {
        unsigned value = 0;
        for (unsigned i = 0; i < 32; ++i)
            value = value << 1 | (get(index * 32 + i) ? 1U : 0U);
        return value;
    }

    bool putWord(unsigned index, unsigned value)
    {
        bool changed = false;
        for (unsigned i = 0; i < 32; ++i)
            changed |= put(index * 32 + i, (value >> (31 - i) & 1) != 0);
        return changed;
    }

    void range(unsigned count, unsigned start, bool value)
    {
        if (start > size())
            start = 0;
        for (unsigned i = start; i < size() && (count == 0 || i - start < count); ++i)
            bits[i] = value;
    }

    unsigned find(unsigned start, bool value) const
    {
        for (unsigned i = start; i < size(); ++i)
            if (bits[i] == value)
                return i;
        return none;
    }

    unsigned findAndFlip(unsigned start, bool value, bool take)
    {
        const unsigned found = find(start, value);
        if (take && found != none)
            bits[found] = !value;
        return found;
    }

    // As put(), for the last word of a word-wise copy.
    bool mergeWord(unsigned index, const std::vector<bool> &with, unsigned cleared)
    {
        bool changed = false;
        for (unsigned i = 0; i < 32; ++i)
            changed |= put(index * 32 + i, i < 32 - cleared && (get(index * 32 + i) || with[i]));
        return changed;
    }

    bool assign(const BitMaskModel &src, unsigned from, unsigned to, unsigned count)
    {
        if (from >= src.size() || to >= size())
            return false;
        unsigned n = std::min(src.size() - from, size() - to);
        n = count != 0 ? std::min(n, count) : n;
        bool changed = false;
        if (from % 32 == 0 && to % 32 == 0) {
            const unsigned whole = (n - 1) / 32 * 32;
            for (unsigned i = 0; i < whole; ++i)
                changed |= put(to + i, src.get(from + i));
            std::vector<bool> last;
            for (unsigned i = 0; i < 32; ++i)
                last.push_back(src.get(from + whole + i));
            return mergeWord((to + whole) / 32, last, src.tail) || changed;
        }
        for (unsigned i = 0; i < n; ++i)
            changed |= put(to + i, src.get(from + i));
        return changed;
    }

    bool assignWords(const std::vector<unsigned> &words, unsigned to)
    {
        BitMaskModel src;
        src.bits.resize(words.size() * 32);
        for (unsigned i = 0; i < words.size(); ++i)
            src.putWord(i, words[i]);
        src.tail = tail;
        const bool changed = assign(src, 0, to, 0);
        return changed && to % 32 != 0;
    }

    void shift(unsigned count, bool up)
    {
        const std::vector<bool> old = bits;
        for (unsigned i = 0; i < size(); ++i) {
            const bool inside = up ? i >= count : count < size() - i;
            bits[i] = inside && old[up ? i - count : i + count];
        }
    }

    template <class Combine>
    void combine(const BitMaskModel &other, Combine of)
    {
        for (unsigned i = 0; i < std::min(size(), other.size()); ++i)
            bits[i] = of(bits[i], other.bits[i]);
    }
};

// Bit j of a byte buffer, and bit j of its bit-reversed bytes.
inline bool bitOf(const unsigned char *bytes, size_t j, bool reverse = false)
{
    return (bytes[j / 8] >> (reverse ? j % 8 : 7 - j % 8) & 1) != 0;
}

// A mask, its model, and the memory that it views when it is a view.
class BitMaskAndModel
{
public:
    static constexpr unsigned guards = 2; // words on either side of a view's
    static constexpr unsigned spareBits = 2;

    explicit BitMaskAndModel(unsigned bits)
    {
        own(bits);
    }

    template <class Chooser>
    BitMaskAndModel(unsigned words, Chooser &choose)
    {
        mask.spare = spareBits;
        view(words, choose);
    }

    void own(unsigned bits)
    {
        mask.spare = spareBits;
        mask.init(bits);
        model.bits.assign((bits + 31) / 32 * 32, false);
        model.tail = (32 - bits % 32) % 32;
        model.owned = bits != 0;
    }

    // Views at least one word of random memory.
    template <class Chooser>
    void view(unsigned words, Chooser &choose)
    {
        std::vector<unsigned> fresh(words + 2 * guards);
        for (unsigned &word : fresh)
            word = choose.word();
        before_ = fresh;
        mask.init(words, fresh.data() + guards);
        memory_.swap(fresh); // the mask's old words, if it viewed any, go only now
        model.bits.assign(words * 32, false);
        for (unsigned i = 0; i < words; ++i)
            model.putWord(i, before_[guards + i]);
        model.tail = 0;
        model.owned = false;
    }

    // The first bit in which the mask differs from its model; -1 when none does.
    long firstDifference() const
    {
        for (unsigned i = 0; i < model.words(); ++i)
            if (mask.maskPtr[i] != model.word(i))
                for (unsigned bit = 32 * i; bit < 32 * i + 32; ++bit)
                    if ((mask.maskPtr[i] >> (31 - bit % 32) & 1) != (model.bits[bit] ? 1U : 0U))
                        return bit;
        return -1;
    }

    // Names what else is wrong; null when nothing is.
    const char *broken() const
    {
        if (const char *invariant = brokenInvariant(mask))
            return invariant;
        if (mask.numWords != model.words())
            return "the number of words";
        if (mask.tailBits != model.tail)
            return "the number of tail bits";
        if ((mask.autoDelete != 0) != model.owned)
            return "who owns the words";
        if (mask.spare != spareBits)
            return "the spare bits stay";
        for (size_t i = 0; i < memory_.size(); ++i)
            if ((i < guards || i >= memory_.size() - guards) && memory_[i] != before_[i])
                return "the memory around a view stays";
        return nullptr;
    }

    CBitMask mask;
    BitMaskModel model;

private:
    std::vector<unsigned> memory_;
    std::vector<unsigned> before_; // memory_ as it started
};

template <class Chooser>
class BitMaskProgram
{
public:
    using Both = BitMaskAndModel;

    BitMaskProgram(Both &first, Both &second, Chooser &choose) : a_(first), b_(second), choose_(choose) {}

    struct Operation {
        const char *name;
        bool (BitMaskProgram::*agrees)();
        bool resizes = false;
    };

    // Makes one call on the first mask and its model, perhaps with the second mask. False when the results differ.
    bool step(const Operation &operation)
    {
        return (this->*operation.agrees)();
    }

    static const std::vector<Operation> &operations()
    {
        using P = BitMaskProgram;
        static const std::vector<Operation> all = {
            {"setBit", &P::setBit},
            {"clrBit", &P::clrBit},
            {"assignBit", &P::assignBit},
            {"setWrd32", &P::setWrd32},
            {"setWrd8", &P::setWrd8},
            {"chkBit", &P::chkBit},
            {"bitsAreSet, numBitsSet, size", &P::count},
            {"findSetBit", &P::findSetBit},
            {"findClrBit", &P::findClrBit},
            {"findSetBit const, findClrBit const", &P::findOnly},
            {"set", &P::set},
            {"reset", &P::reset},
            {"assign", &P::assign},
            {"assign to itself", &P::assignToItself},
            {"assign words", &P::assignWords},
            {"= mask", &P::copy},
            {"= words", &P::copyWords},
            {"[]", &P::index},
            {"&=", &P::andWith},
            {"^=", &P::xorWith},
            {"|=", &P::orWith},
            {">>=", &P::shiftUp},
            {"<<=", &P::shiftDown},
            {"==, !=", &P::compare},
            {"~", &P::complement},
            {"bitwiseNotEqual", &P::invert},
            {"bitwiseNotEqual mask", &P::invertOf},
            {"octet_string_in", &P::octetsIn},
            {"octet_string_out", &P::octetsOut},
            {"bits_in", &P::bitsIn},
            {"bits_or_in", &P::bitsOrIn},
            {"bits_out", &P::bitsOut},
            {"init bits", &P::initBits, true},
            {"init copy", &P::initCopy, true},
            {"init words", &P::initWords, true},
            {"init bytes", &P::initBytes, true},
        };
        return all;
    }

private:
    // A bit number: mostly inside, often on a word boundary or at the end, sometimes far outside.
    unsigned position()
    {
        const unsigned size = a_.model.size();
        switch (choose_.below(8)) {
        case 0:
            return choose_.below(size / 32 + 2) * 32;
        case 1:
            return size - 1 + choose_.below(3);
        case 2:
            return choose_.word();
        default:
            return choose_.below(size + 1);
        }
    }

    unsigned anyCount()
    {
        return choose_.below(8) == 0 ? 0 : position();
    }
    bool coin()
    {
        return choose_.below(2) != 0;
    }

    std::vector<unsigned char> bytes(size_t count)
    {
        std::vector<unsigned char> random(count);
        for (unsigned char &byte : random)
            byte = static_cast<unsigned char>(choose_.word() >> 24);
        return random;
    }

    std::vector<unsigned> words(size_t count)
    {
        std::vector<unsigned> random(count);
        for (unsigned &word : random)
            word = choose_.word();
        return random;
    }

    bool setBit()
    {
        const unsigned bit = position();
        return a_.mask.setBit(bit) == a_.model.put(bit, true);
    }

    bool clrBit()
    {
        const unsigned bit = position();
        return a_.mask.clrBit(bit) == a_.model.put(bit, false);
    }

    bool assignBit()
    {
        const unsigned bit = position();
        const bool value = coin();
        return a_.mask.assignBit(bit, value) == a_.model.put(bit, value);
    }

    bool setWrd32()
    {
        const unsigned index = coin() ? position() / 32 : choose_.word();
        const unsigned value = choose_.below(4) == 0 ? a_.mask[index] : choose_.word();
        return a_.mask.setWrd32(index, value) == (index < a_.model.words() && a_.model.putWord(index, value));
    }

    bool setWrd8()
    {
        const unsigned index = coin() ? position() / 8 : choose_.word();
        const unsigned value = choose_.below(256);
        bool changed = false;
        for (unsigned i = 0; i < 8 && index < a_.model.size() / 8; ++i)
            changed |= a_.model.put(index * 8 + i, (value >> (7 - i) & 1) != 0);
        return a_.mask.setWrd8(index, static_cast<unsigned char>(value)) == changed;
    }

    bool chkBit()
    {
        const unsigned bit = position();
        return a_.mask.chkBit(bit) == a_.model.get(bit);
    }

    bool count()
    {
        const auto set = std::count(a_.model.bits.begin(), a_.model.bits.end(), true);
        return a_.mask.numBitsSet() == set && a_.mask.bitsAreSet() == (set != 0) &&
               a_.mask.size() == a_.model.size() / 8 + 24;
    }

    bool findSetBit()
    {
        const unsigned start = position();
        const bool take = coin();
        return a_.mask.findSetBit(start, take) == a_.model.findAndFlip(start, true, take);
    }

    bool findClrBit()
    {
        const unsigned start = position();
        const bool take = coin();
        return a_.mask.findClrBit(start, take) == a_.model.findAndFlip(start, false, take);
    }

    bool findOnly()
    {
        const unsigned start = position();
        return a_.mask.findSetBit(start) == a_.model.find(start, true) &&
               a_.mask.findClrBit(start) == a_.model.find(start, false);
    }

    bool set()
    {
        const unsigned count = anyCount();
        const unsigned start = position();
        a_.mask.set(count, start);
        a_.model.range(count, start, true);
        return true;
    }

    bool reset()
    {
        const unsigned count = anyCount();
        const unsigned start = position();
        a_.mask.reset(count, start);
        a_.model.range(count, start, false);
        return true;
    }

    bool assign()
    {
        const unsigned from = position();
        const unsigned to = position();
        const unsigned count = anyCount();
        return a_.mask.assign(b_.mask, from, to, count) == a_.model.assign(b_.model, from, to, count);
    }

    bool assignToItself()
    {
        const unsigned from = position();
        const unsigned to = position();
        const unsigned count = anyCount();
        return a_.mask.assign(a_.mask, from, to, count) == a_.model.assign(a_.model, from, to, count);
    }

    bool assignWords()
    {
        const std::vector<unsigned> source = words(choose_.below(a_.model.words() + 3));
        const unsigned to = position();
        return a_.mask.assign(source.data(), static_cast<unsigned>(source.size()), to) ==
               a_.model.assignWords(source, to);
    }

    bool copy()
    {
        a_.model.combine(b_.model, [](bool, bool theirs) { return theirs; });
        return &(a_.mask = b_.mask) == &a_.mask;
    }

    bool copyWords()
    {
        const std::vector<unsigned> source = words(a_.model.words());
        for (unsigned i = 0; i < a_.model.words(); ++i)
            a_.model.putWord(i, source[i]);
        return &(a_.mask = source.data()) == &a_.mask;
    }

    bool index()
    {
        const unsigned i = coin() ? position() / 32 : choose_.word();
        return a_.mask[i] == (i < a_.model.words() ? a_.model.word(i) : 0);
    }

    bool andWith()
    {
        a_.model.combine(b_.model, [](bool ours, bool theirs) { return ours && theirs; });
        return &(a_.mask &= b_.mask) == &a_.mask;
    }

    bool xorWith()
    {
        a_.model.combine(b_.model, [](bool ours, bool theirs) { return ours != theirs; });
        return &(a_.mask ^= b_.mask) == &a_.mask;
    }

    bool orWith()
    {
        a_.model.combine(b_.model, [](bool ours, bool theirs) { return ours || theirs; });
        return &(a_.mask |= b_.mask) == &a_.mask;
    }

    bool shiftUp()
    {
        const unsigned count = position();
        a_.mask >>= count;
        a_.model.shift(count, true);
        return true;
    }

    bool shiftDown()
    {
        const unsigned count = position();
        a_.mask <<= count;
        a_.model.shift(count, false);
        return true;
    }

    bool compare()
    {
        CBitMask same(a_.mask);
        const bool equal = a_.model.bits == b_.model.bits;
        const bool right = (a_.mask == b_.mask) == equal && (a_.mask != b_.mask) == !equal && a_.mask == same;
        const unsigned bit = choose_.below(a_.model.size() + 1);
        const bool differs = same.assignBit(bit, !same.chkBit(bit));
        return right && (a_.mask != same) == differs && (a_.mask == same) == !differs;
    }

    bool complement()
    {
        const CBitMask inverted = ~a_.mask;
        bool agrees = inverted.numWords == a_.model.words() && inverted.tailBits == a_.model.tail &&
                      (inverted.autoDelete != 0) == (inverted.numWords != 0);
        for (unsigned i = 0; agrees && i < a_.model.words(); ++i)
            agrees = inverted[i] == ~a_.model.word(i);
        return agrees;
    }

    bool invert()
    {
        a_.mask.bitwiseNotEqual();
        a_.model.bits.flip();
        return true;
    }

    bool invertOf()
    {
        a_.mask.bitwiseNotEqual(b_.mask);
        a_.model.combine(b_.model, [](bool, bool theirs) { return !theirs; });
        return true;
    }

    bool octetsIn()
    {
        const unsigned total = a_.model.size() / 8;
        unsigned len = choose_.below(4) == 0 ? 0 : choose_.below(total + 4);
        const bool passed = coin();
        const bool reverse = coin();
        const unsigned given = passed && len != 0 ? len : total;
        const unsigned lenAfter = passed && len != 0 ? total : len;
        const std::vector<unsigned char> source = bytes(given);
        a_.mask.octet_string_in(source.data(), passed ? &len : nullptr, reverse);
        for (unsigned i = 0; i < a_.model.size(); ++i)
            a_.model.bits[i] = i / 8 < given && bitOf(source.data(), i, reverse);
        return len == lenAfter;
    }

    bool octetsOut()
    {
        const unsigned total = a_.model.size() / 8;
        unsigned len = choose_.below(4) == 0 ? 0 : choose_.below(total + 4);
        const bool passed = coin();
        const bool reverse = coin();
        const unsigned given = passed && len != 0 ? len : total;
        const unsigned lenAfter = passed && len != 0 ? total : len;
        std::vector<unsigned char> target = bytes(given);
        a_.mask.octet_string_out(target.data(), passed ? &len : nullptr, reverse);
        bool agrees = len == lenAfter;
        for (unsigned i = 0; i < given * 8; ++i)
            agrees = agrees && bitOf(target.data(), i, reverse) == a_.model.get(i);
        return agrees;
    }

    // The end of a bit range, or the start when nothing is to be moved bit by bit.
    unsigned endOfBits(unsigned count, unsigned start) const
    {
        const unsigned size = a_.model.size();
        if (count == 0 || start > size)
            return start;
        const unsigned end = std::min(start + count, size);
        return (start % 32 == 0 && end % 32 == 0) || end < start ? start : end;
    }

    bool bitsIn()
    {
        const unsigned start = position();
        const unsigned count = anyCount();
        const unsigned length = endOfBits(count, start) - start;
        const std::vector<unsigned char> source = bytes((length + 7) / 8);
        bool changed = false;
        for (unsigned i = 0; i < length; ++i)
            changed |= a_.model.put(start + i, bitOf(source.data(), i));
        return a_.mask.bits_in(source.data(), count, start) == changed;
    }

    bool bitsOrIn()
    {
        const unsigned start = position();
        const unsigned count = anyCount();
        const unsigned length = endOfBits(count, start) - start;
        const std::vector<unsigned char> source = bytes((length + 7) / 8);
        bool changed = false;
        for (unsigned i = 0; i < length; ++i)
            changed |= bitOf(source.data(), i) && a_.model.put(start + i, true);
        return a_.mask.bits_or_in(source.data(), count, start) == changed;
    }

    bool bitsOut()
    {
        const unsigned start = position();
        const unsigned count = anyCount();
        const unsigned size = a_.model.size();
        const unsigned length = endOfBits(count, start) - start;
        std::vector<unsigned char> target = bytes((length + 7) / 8);
        const std::vector<unsigned char> before = target;
        const unsigned result = a_.mask.bits_out(target.data(), count, start);
        bool agrees = true;
        for (unsigned i = 0; i < target.size() * 8; ++i)
            agrees =
                agrees && bitOf(target.data(), i) == (i < length ? a_.model.get(start + i) : bitOf(before.data(), i));
        if (length != 0)
            return agrees && result == target.size();
        if (count == 0 || start > size)
            return result == 0;
        if (start == size)
            return result == 0x20000000;
        return start % 32 == 0 && std::min(start + count, size) % 32 == 0 ? result == 0 : agrees;
    }

    bool initBits()
    {
        a_.own(choose_.below(8) == 0 ? 0 : choose_.below(201));
        return true;
    }

    bool initCopy()
    {
        const bool inverted = coin();
        a_.mask.init(b_.mask, inverted);
        a_.model = b_.model;
        a_.model.owned = a_.model.size() != 0;
        if (a_.model.size() == 0)
            a_.model.tail = 0;
        if (inverted)
            a_.model.bits.flip();
        return true;
    }

    bool initWords()
    {
        a_.view(1 + choose_.below(7), choose_);
        return true;
    }

    bool initBytes()
    {
        const unsigned count = choose_.below(26);
        const std::vector<unsigned char> ignored = bytes(count);
        a_.mask.init(ignored.data(), count);
        a_.model.bits.assign((count * 8 + 31) / 32 * 32, false);
        a_.model.tail = (32 - count * 8 % 32) % 32;
        a_.model.owned = count != 0;
        return true;
    }

    Both &a_;
    Both &b_;
    Chooser &choose_;
};
