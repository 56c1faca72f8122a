// bit_mask_import.cpp: CBitMask from and to bytes.
//
// Policy:     octet strings move whole masks; bit ranges move part of one. A range that starts and ends on a word
//             boundary belongs to the data hooks, which carry nothing here: only a derived class gives them meaning.
// Locking:    none.
// Invariants: no byte outside the stated range of a buffer is read or written, none through a wider type; bits of a
//             buffer around a range stay.
// Cost:       one pass, a word at a time; octet strings many words at a time.
#include "bitset.h"

#include "bitset/bit_buffer.h"
#include "bitset/mask_words.h"
#include "bitset/word_loops.h"

#include <algorithm>

namespace
{
constexpr unsigned char reversed(unsigned char octet)
{
    constexpr unsigned char nibble[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
    return static_cast<unsigned char>(nibble[octet >> 4] | nibble[octet & 15] << 4);
}

constexpr unsigned shiftOfOctet(unsigned index)
{
    return 24 - 8 * (index % 4);
}

// The end of a range; the sum wraps at 32 bits, which may put the end in front of the start.
unsigned endOfRange(const CBitMask &mask, unsigned start, unsigned count)
{
    return std::min(start + count, bitsOf(mask));
}

constexpr bool areWordAligned(unsigned start, unsigned end)
{
    return start % 32 == 0 && end % 32 == 0;
}
} // namespace

void CBitMask::init(unsigned char const *bytes, unsigned int numBytes)
{
    releaseWords(*this);
    becomeEmpty(*this);
    if (numBytes == 0 || !ownWords(*this, (numBytes * 8 - 1) / 32 + 1))
        return;
    std::fill_n(maskPtr, numWords, 0U);
    // Kept: the bytes reach the mask through a derived class's hook only; this class starts cleared
    // (BitMaskFromBytes.TheBaseClassTakesNothingFromTheBytesAndStartsClear).
    data_in(bytes, 0xFFFFFFFF, 0);
    tailBits = (0U - 8 * numBytes) & 31U;
}

void CBitMask::octet_string_in(unsigned char const *src, unsigned int *len, bool reverse)
{
    const unsigned total = numWords * 4U;
    unsigned moved = total;
    if (len != nullptr && *len != 0) {
        moved = std::min(*len, total);
        // Kept: the mask's size, not the octets moved (BitMaskOctetString.LenBecomesTheMasksSizeInBothDirections).
        *len = total;
    }
    const unsigned whole = moved / 4;
    wordLoops().fromOctets(maskPtr, src, whole, reverse);
    std::fill(maskPtr + whole, maskPtr + numWords, 0U);
    for (unsigned i = 4 * whole; i < moved; ++i)
        maskPtr[whole] |= unsigned{reverse ? reversed(src[i]) : src[i]} << shiftOfOctet(i);
}

void CBitMask::octet_string_out(unsigned char *dst, unsigned int *len, bool reverse) const
{
    const unsigned total = numWords * 4U;
    unsigned moved = total;
    if (len != nullptr && *len != 0) {
        moved = std::min(*len, total);
        std::fill(dst + moved, dst + *len, static_cast<unsigned char>(0));
        *len = total;
    }
    const unsigned whole = moved / 4;
    wordLoops().toOctets(dst, maskPtr, whole, reverse);
    for (unsigned i = 4 * whole; i < moved; ++i) {
        const auto octet = static_cast<unsigned char>(maskPtr[whole] >> shiftOfOctet(i));
        dst[i] = reverse ? reversed(octet) : octet;
    }
}

bool CBitMask::data_in(unsigned char const *, unsigned int, unsigned int)
{
    return false;
}

bool CBitMask::data_or_in(unsigned char const *, unsigned int, unsigned int)
{
    return false;
}

unsigned int CBitMask::data_out(unsigned char *, unsigned int, unsigned int) const
{
    return 0;
}

bool CBitMask::bits_in(unsigned char const *src, unsigned int count, unsigned int start)
{
    if (count == 0 || start > bitsOf(*this))
        return false;
    const unsigned end = endOfRange(*this, start, count);
    // Kept: judged on the clamped end, while the hook gets the count that was asked for
    // (BitMaskBitsIn.WordAlignedRangesGoToTheHookWithTheUnclampedCount).
    if (areWordAligned(start, end))
        return data_in(src, (count - 1) / 32 + 1, start / 32);
    return replaceBits(maskPtr, start, end, [&](size_t done, unsigned bits) { return loadBits(src, done, bits); });
}

bool CBitMask::bits_or_in(unsigned char const *src, unsigned int count, unsigned int start)
{
    if (count == 0 || start > bitsOf(*this))
        return false;
    const unsigned end = endOfRange(*this, start, count);
    if (areWordAligned(start, end))
        return data_or_in(src, (count - 1) / 32 + 1, start / 32);
    bool changed = false;
    forEachPiece(start, end, 0, [&](unsigned index, unsigned offset, unsigned bits, size_t from) {
        const unsigned old = maskPtr[index];
        maskPtr[index] = old | loadBits(src, from, bits) >> offset;
        changed |= maskPtr[index] != old;
    });
    return changed;
}

unsigned int CBitMask::bits_out(unsigned char *dst, unsigned int count, unsigned int start) const
{
    if (count == 0 || start > bitsOf(*this))
        return 0;
    // Kept: exactly at the end the count of bytes wraps (BitMaskBitsOut.AtTheEndReturns0x20000000AndWritesNothing).
    if (start == bitsOf(*this))
        return bytesOfNoBits;
    const unsigned end = endOfRange(*this, start, count);
    if (areWordAligned(start, end))
        return 4 * data_out(dst, (end - start - 1) / 32 + 1, start / 32);
    if (end > start)
        copyOut(dst, 0, maskPtr, start, end - start);
    return bytesTouched(end - start);
}
