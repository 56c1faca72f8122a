// bits.cpp: the named-bit set.
//
// Policy:     only octets in use are looked at; bits behind them are clear.
// Locking:    none; callers serialise access to one object.
// Invariants: those of the octet string.
// Cost:       one step an octet; a count eight octets at once.
#include "mgmt_types.h"

#include <algorithm>
#include <bit>
#include <stdint.h>
#include <string.h>

namespace
{
constexpr unsigned int BitsEach = 8;
constexpr int EightOctets = sizeof(uint64_t);

uint64_t bitsInUse(SuBITS const &set)
{
    return uint64_t{BitsEach} * static_cast<unsigned int>(set.os.len);
}

// What is left of `octet` from bit `first` (0 is the most significant) on.
constexpr uint8_t from(uint8_t octet, unsigned int first)
{
    return static_cast<uint8_t>(octet & (0xFFU >> first));
}

// What is left of `octet` up to and including bit `last`.
constexpr uint8_t upTo(uint8_t octet, unsigned int last)
{
    return static_cast<uint8_t>(octet & ~(0x7FU >> last));
}

// Sums of 2, of 4, of 8 bits side by side; the multiplication adds the eight octets up in the top one. The compiler's
// own count is a library call on x86-64.
constexpr unsigned int onesIn(uint64_t octets)
{
    octets -= octets >> 1 & 0x5555555555555555;
    octets = (octets & 0x3333333333333333) + (octets >> 2 & 0x3333333333333333);
    octets = (octets + (octets >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<unsigned int>(octets * 0x0101010101010101 >> 56);
}
static_assert(onesIn(UINT64_MAX) == 64 && onesIn(0x8000000000000001) == 2);

constexpr unsigned int firstBit(uint8_t octet)
{
    return static_cast<unsigned int>(std::countl_zero(octet));
}

constexpr unsigned int lastBit(uint8_t octet)
{
    return BitsEach - 1 - static_cast<unsigned int>(std::countr_zero(octet));
}
} // namespace

SuBITS::SuBITS(unsigned char highestBit) : SuOctetString(highestBit / static_cast<int>(BitsEach) + 1)
{
    os.len = size;
}

SuBITS::SuBITS(SuBITS const &other) : SuOctetString(other.os.len)
{
    setData(other.os.ptr, other.os.len);
}

void SuBITS::clear()
{
    if (os.len > 0)
        memset(os.ptr, 0, static_cast<size_t>(os.len));
}

bool SuBITS::bitsAreSet() const
{
    return std::any_of(os.ptr, os.ptr + os.len, [](uint8_t octet) { return octet != 0; });
}

int SuBITS::numBitsSet() const
{
    unsigned int count = 0; // above 256 MiB of octets it wraps
    int i = 0;
    for (; os.len - i >= EightOctets; i += EightOctets) {
        uint64_t octets;
        memcpy(&octets, os.ptr + i, EightOctets);
        count += onesIn(octets);
    }
    for (; i < os.len; i++)
        count += onesIn(os.ptr[i]);
    return static_cast<int>(count);
}

// Kept: 0 is success in both searches, the other way round than a truth value, and a search that fails moves `pos` to
// the end; callers loop on it (BitsSearchUp.FailedSearchLeavesPosBehindTheLastOctet).
int SuBITS::findSetBit(unsigned int &pos) const
{
    const uint64_t end = bitsInUse(*this);
    if (pos >= end)
        return 1;
    uint64_t octet = pos / BitsEach;
    uint8_t left = from(os.ptr[octet], pos % BitsEach);
    while (left == 0) {
        octet++;
        if (octet * BitsEach == end) {
            pos = static_cast<unsigned int>(end);
            return 1;
        }
        left = os.ptr[octet];
    }
    pos = static_cast<unsigned int>(octet * BitsEach + firstBit(left));
    return 0;
}

// Kept: 0 is success here too, but a search that fails leaves `pos` alone
// (BitsSearchDown.ZeroMeansFoundAndAFailureLeavesPosAlone).
int SuBITS::nextBitLexico(unsigned int &pos) const
{
    const uint64_t end = bitsInUse(*this);
    if (end == 0)
        return 1;
    const uint64_t start = std::min<uint64_t>(pos, end - 1); // behind the last octet no bit is set
    uint64_t octet = start / BitsEach;
    uint8_t left = upTo(os.ptr[octet], start % BitsEach);
    while (left == 0) {
        if (octet == 0)
            return 1;
        octet--;
        left = os.ptr[octet];
    }
    pos = static_cast<unsigned int>(octet * BitsEach + lastBit(left));
    return 0;
}
