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

constexpr unsigned loadBigEndian32(const unsigned char *from)
{
    return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | uint32_t{from[3]};
}

constexpr void storeBigEndian32(unsigned char *to, unsigned value)
{
    to[0] = static_cast<unsigned char>(value >> 24);
    to[1] = static_cast<unsigned char>(value >> 16);
    to[2] = static_cast<unsigned char>(value >> 8);
    to[3] = static_cast<unsigned char>(value);
}

// Reads `count` (1 to 32) bits of a buffer from bit `first` on, into the most significant bits of a word.
inline unsigned loadBits(const unsigned char *bytes, size_t first, unsigned count)
{
    const unsigned char *const from = bytes + first / 8;
    const unsigned offset = first % 8;
    if (count == 32)
        return offset == 0 ? loadBigEndian32(from)
                           : loadBigEndian32(from) << offset | unsigned{from[4]} >> (8 - offset);
    const size_t lastByte = (offset + count - 1) / 8; // at most four further on
    uint64_t window = 0;
    unsigned shift = 56;
    for (size_t i = 0; i <= lastByte; ++i, shift -= 8)
        window |= uint64_t{from[i]} << shift;
    return static_cast<unsigned>(window << offset >> 32) & bitsAt(0, count);
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

// Reads `count` (1 to 32) bits of an array of words from bit `first` on, into the most significant bits of a word. No
// word is read that holds none of them.
inline unsigned bitsFrom(const unsigned *words, unsigned first, unsigned count)
{
    const unsigned offset = first % 32;
    unsigned bits = words[first / 32] << offset;
    if (offset + count > 32)
        bits |= words[first / 32 + 1] >> (32 - offset);
    return bits & bitsAt(0, count);
}

// Writes `count` (1 or more) bits of an array of words, from bit `first` on, into a buffer from bit `bufferBit` on.
inline void copyOut(unsigned char *bytes, size_t bufferBit, const unsigned *words, unsigned first, unsigned count)
{
    if (bufferBit % 8 != 0) {
        const unsigned toTheByte = std::min(8 - static_cast<unsigned>(bufferBit % 8), count);
        storeBits(bytes, bufferBit, toTheByte, bitsFrom(words, first, toTheByte));
        bufferBit += toTheByte;
        first += toTheByte;
        count -= toTheByte;
    }
    for (; count >= 32; count -= 32, first += 32, bufferBit += 32)
        storeBigEndian32(bytes + bufferBit / 8, bitsFrom(words, first, 32));
    if (count != 0)
        storeBits(bytes, bufferBit, count, bitsFrom(words, first, count));
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

// Gives the bits start to end - 1 of an array of words new values: next(done, count) is asked for the `count` (1 to 32)
// bits behind the first `done` ones, as the most significant bits of a word. Tells whether a bit changed.
template <class Next>
bool replaceBits(unsigned *words, unsigned start, unsigned end, Next next)
{
    unsigned changed = 0;
    forEachPiece(start, end, 0, [&](unsigned index, unsigned offset, unsigned count, size_t done) {
        const unsigned old = words[index];
        words[index] = (old & ~bitsAt(offset, count)) | next(done, count) >> offset;
        changed |= words[index] ^ old;
    });
    return changed != 0;
}
