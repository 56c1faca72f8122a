// bits.cpp: the named-bit set.
//
// Policy:     only octets in use are looked at; bits behind them are clear.
// Locking:    none; callers serialise access to one object.
// Invariants: those of the octet string.
// Cost:       one step an octet.
#include "mgmt_types.h"

#include <algorithm>
#include <bit>
#include <stdint.h>
#include <string.h>

namespace
{
constexpr unsigned int BitsEach = 8;

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
    int count = 0;
    for (int i = 0; i < os.len; i++)
        count += std::popcount(os.ptr[i]);
    return count;
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
