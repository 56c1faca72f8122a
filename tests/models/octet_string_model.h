// octet_string_model.h: what a grow-only byte string holds, as a vector and a number.
//
// Shared by the tests and the fuzzers.
#pragma once

#include "mgmt_types.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct OctetStringModel {
    std::vector<unsigned char> value;
    int size;

    explicit OctetStringModel(int room) : size(std::max(room, 0)) {}

    void setData(const unsigned char *data, int n)
    {
        if (data == nullptr || n < 0)
            value.clear();
        else
            value.assign(data, data + n);
        size = std::max(size, static_cast<int>(value.size()));
    }

    std::string_view text() const
    {
        return {reinterpret_cast<const char *>(value.data()), value.size()};
    }

    // -1, -2 or -3 for a size, a length or nothing that differs; otherwise the first byte that differs.
    static constexpr int Same = -3;
    int firstDifference(SuOctetString const &real) const
    {
        if (real.size != size)
            return -1;
        if (real.os.len != static_cast<int>(value.size()))
            return -2;
        for (int i = 0; i < real.os.len; i++)
            if (real.os.ptr[i] != value[static_cast<size_t>(i)])
                return i;
        return Same;
    }
};

// The hexadecimal or character lines of a dump, behind "os.ptr[] =".
inline std::string dumpedOctets(SuOctetString const &value, bool asChars)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < value.size; i++) {
        const unsigned char octet = value.os.ptr[i];
        if (asChars) {
            if (octet != 0) // a zero ends the text it stands in
                text += static_cast<char>(octet);
            continue;
        }
        text += i == value.os.len ? '|' : ' ';
        text += digits[octet >> 4];
        text += digits[octet & 15];
        if ((i + 1) % 20 == 0)
            text += "\n          ";
        else if ((i + 1) % 4 == 0)
            text += ' ';
    }
    return text + "\n";
}
