// bit_buffer.h: runs of bits in byte buffers, up to a word at a time.
//
// Bit j of a buffer is 0x80 >> (j % 8) of byte j / 8. Only bytes that hold bits of a run are read or written, one at a
// time, so a buffer needs no alignment and no room to spare.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

// What bytesTouched() comes to for no bits at all.
inline constexpr unsigned bytesOfNoBits = 0x20000000;

// The bytes that hold `bits` bits, in 32-bit arithmetic that wraps for none.
constexpr unsigned bytesTouched(unsigned bits)
{
    return (bits - 1) / 8 + 1;
}
static_assert(bytesTouched(0) == bytesOfNoBits);

// The bits of a word from `offset` on, `count` (1 to 32 - offset) of them.
constexpr unsigned bitsAt(unsigned offset, unsigned count)
{
    return 0xFFFFFFFFU << (32 - count) >> offset;
}

// Reads `count` (1 to 32) bits of a buffer from bit `first` on, into the most significant bits of a word.
inline unsigned loadBits(const unsigned char *bytes, size_t first, unsigned count)
{
    const size_t lastByte = (first + count - 1) / 8; // at most four further on
    uint64_t window = 0;
    unsigned shift = 56;
    for (size_t i = first / 8; i <= lastByte; ++i, shift -= 8)
        window |= uint64_t{bytes[i]} << shift;
    return static_cast<unsigned>(window << (first % 8) >> 32) & bitsAt(0, count);
}

// Writes the `count` (1 to 32) most significant bits of a word into a buffer from bit `first` on.
inline void storeBits(unsigned char *bytes, size_t first, unsigned count, unsigned bits)
{
    const uint64_t value = uint64_t{bits} << 32 >> (first % 8);
    const uint64_t cover = uint64_t{bitsAt(0, count)} << 32 >> (first % 8);
    const size_t lastByte = (first + count - 1) / 8;
    unsigned shift = 56;
    for (size_t i = first / 8; i <= lastByte; ++i, shift -= 8) {
        const uint64_t kept = bytes[i] & ~(cover >> shift);
        bytes[i] = static_cast<unsigned char>(kept | (value >> shift & cover >> shift));
    }
}

// Calls piece(wordIndex, offsetInWord, bitCount, bitOfBuffer) for each word that holds some of the bits start to
// end - 1; they lie in the buffer from `bufferBit` on.
template <class Piece>
void forEachPiece(unsigned start, unsigned end, size_t bufferBit, Piece piece)
{
    while (start < end) {
        const unsigned count = std::min(32 - start % 32, end - start);
        piece(start / 32, start % 32, count, bufferBit);
        start += count;
        bufferBit += count;
    }
}
