// oid_model.h: what an object identifier holds, as a vector and a number; how its texts read, character by character.
//
// Shared by the tests and the fuzzers.
#pragma once

#include "mgmt_types.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace model
{
// Reads one number with base 0 at `text[at]` and leaves `at` behind it, at the start when there is none.
inline uint32_t readNumber(std::string_view text, size_t &at)
{
    const auto character = [&](size_t i) { return i < text.size() ? text[i] : '\0'; };
    const auto digit = [&](size_t i, unsigned base) -> int {
        const char c = character(i);
        int value = -1;
        if (c >= '0' && c <= '9')
            value = c - '0';
        else if (c >= 'a' && c <= 'f')
            value = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value = c - 'A' + 10;
        return value < static_cast<int>(base) ? value : -1;
    };
    size_t i = at;
    while (character(i) == ' ' || (character(i) >= '\t' && character(i) <= '\r'))
        i++;
    const bool negative = character(i) == '-';
    if (negative || character(i) == '+')
        i++;
    unsigned base = 10;
    if (character(i) == '0') {
        const bool hex = (character(i + 1) == 'x' || character(i + 1) == 'X') && digit(i + 2, 16) >= 0;
        base = hex ? 16 : 8;
        i += hex ? 2 : 0;
    }
    if (digit(i, base) < 0)
        return 0;
    uint64_t number = 0;
    bool overflow = false;
    for (; digit(i, base) >= 0; i++) {
        overflow |= __builtin_mul_overflow(number, uint64_t{base}, &number);
        overflow |= __builtin_add_overflow(number, static_cast<uint64_t>(digit(i, base)), &number);
    }
    at = i;
    if (overflow)
        return UINT32_MAX;
    return static_cast<uint32_t>(negative ? 0 - number : number);
}

// `text` ends before any zero byte.
inline std::vector<uint32_t> parsedOid(std::string_view text)
{
    std::vector<uint32_t> value;
    const auto fields = std::count(text.begin(), text.end(), '.') + 1;
    size_t at = 0;
    for (auto i = 0; i < fields; i++) {
        value.push_back(readNumber(text, at));
        at++;
    }
    return value;
}

inline std::string dotted(const std::vector<uint32_t> &value)
{
    std::string text;
    for (uint32_t number : value)
        text += (text.empty() ? "" : ".") + std::to_string(number);
    return text;
}
} // namespace model

struct OidModel {
    std::vector<uint32_t> value;
    int size = 0;

    void take(std::vector<uint32_t> taken)
    {
        value = std::move(taken);
        size = std::max(size, static_cast<int>(value.size()));
    }

    // -1, -2 or -3 for a size, a length or nothing that differs; otherwise the first sub-identifier that differs.
    static constexpr int Same = -3;
    int firstDifference(SuOID const &real) const
    {
        if (real.size != size)
            return -1;
        if (real.oid.len != static_cast<int>(value.size()))
            return -2;
        for (int i = 0; i < real.oid.len; i++)
            if (real.oid.ptr[i] != value[static_cast<size_t>(i)])
                return i;
        return Same;
    }
};
