// bits_model.h: what a named-bit set holds, as a vector of bits, and what its searches find there.
//
// Shared by the tests and the fuzzers.
#pragma once

#include "mgmt_types.h"

#include <algorithm>
#include <vector>

struct BitsAndModel {
    struct Found {
        int result; // 0 is found
        unsigned int pos;

        bool operator==(const Found &) const = default;
    };

    SuBITS real;
    std::vector<bool> model;

    explicit BitsAndModel(const std::vector<unsigned char> &octets) : real(0)
    {
        real.setData(octets.data(), static_cast<int>(octets.size()));
        for (unsigned char octet : octets)
            for (int bit = 7; bit >= 0; bit--)
                model.push_back((octet >> bit & 1) != 0);
    }

    Found up(unsigned int pos) const
    {
        const int result = real.findSetBit(pos);
        return {result, pos};
    }

    Found down(unsigned int pos) const
    {
        const int result = real.nextBitLexico(pos);
        return {result, pos};
    }

    Found upModel(unsigned int pos) const
    {
        if (pos >= model.size())
            return {1, pos};
        while (pos < model.size() && !model[pos])
            pos++;
        return {pos < model.size() ? 0 : 1, pos};
    }

    Found downModel(unsigned int pos) const
    {
        for (size_t i = std::min<size_t>(size_t{pos} + 1, model.size()); i > 0; i--)
            if (model[i - 1])
                return {0, static_cast<unsigned int>(i - 1)};
        return {1, pos};
    }

    // -1, or the first start from which a search differs; 0 also when a count differs.
    int firstDifference() const
    {
        if (real.numBitsSet() != std::count(model.begin(), model.end(), true) ||
            real.bitsAreSet() != (upModel(0).result == 0))
            return 0;
        for (unsigned int pos = 0; pos < model.size() + 20; pos++)
            if (up(pos) != upModel(pos) || down(pos) != downModel(pos))
                return static_cast<int>(pos);
        return -1;
    }
};
