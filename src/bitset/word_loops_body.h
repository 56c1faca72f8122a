// word_loops_body.h: the loops of word_loops.h, included once by the source of each kind of processor.
//
// Plain loops, which the compiler turns into vector instructions: those sources are built with -O3. No function that
// they share with other sources is called where a processor has its own instruction, lest theirs ends up elsewhere.
#pragma once

#include "bitset/word_loops.h"

#include <stdint.h>
#include <string.h>

namespace
{
void andInto(unsigned *to, const unsigned *from, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        to[i] &= from[i];
}

void orInto(unsigned *to, const unsigned *from, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        to[i] |= from[i];
}

void xorInto(unsigned *to, const unsigned *from, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        to[i] ^= from[i];
}

void complement(unsigned *to, const unsigned *from, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        to[i] = ~from[i];
}

#ifdef __POPCNT__
inline unsigned bitsSetInPair(const unsigned *words)
{
    uint64_t pair;
    memcpy(&pair, words, sizeof pair);
    return static_cast<unsigned>(__builtin_popcountl(pair));
}
#endif

unsigned bitsSet(const unsigned *words, size_t count)
{
#ifdef __POPCNT__
    // Two words at a time, in four sums that do not wait for each other.
    unsigned sum0 = 0;
    unsigned sum1 = 0;
    unsigned sum2 = 0;
    unsigned sum3 = 0;
    const unsigned *const end = words + count;
    for (; end - words >= 8; words += 8) {
        sum0 += bitsSetInPair(words);
        sum1 += bitsSetInPair(words + 2);
        sum2 += bitsSetInPair(words + 4);
        sum3 += bitsSetInPair(words + 6);
    }
    for (; words < end; ++words)
        sum0 += static_cast<unsigned>(__builtin_popcount(*words));
    return sum0 + sum1 + sum2 + sum3;
#else
    unsigned bits = 0;
    for (size_t i = 0; i < count; ++i)
        bits += bitsSetIn(words[i]);
    return bits;
#endif
}

inline unsigned bigEndian(unsigned word)
{
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap32(word) : word;
}

// Each octet with its bits the other way round: halves, quarters, eighths change places.
inline unsigned turned(unsigned word)
{
    word = (word >> 4 & 0x0F0F0F0F) | (word & 0x0F0F0F0F) << 4;
    word = (word >> 2 & 0x33333333) | (word & 0x33333333) << 2;
    return (word >> 1 & 0x55555555) | (word & 0x55555555) << 1;
}

void toOctets(unsigned char *octets, const unsigned *words, size_t count, bool reverse)
{
    for (size_t i = 0; i < count; ++i) {
        const unsigned word = bigEndian(reverse ? turned(words[i]) : words[i]);
        memcpy(octets + 4 * i, &word, 4);
    }
}

void fromOctets(unsigned *words, const unsigned char *octets, size_t count, bool reverse)
{
    for (size_t i = 0; i < count; ++i) {
        unsigned word;
        memcpy(&word, octets + 4 * i, 4);
        words[i] = bigEndian(reverse ? turned(word) : word);
    }
}

typedef unsigned Block __attribute__((vector_size(32)));
typedef unsigned HalfBlock __attribute__((vector_size(16)));
constexpr size_t blockWords = sizeof(Block) / sizeof(unsigned);
constexpr size_t halfBlockWords = sizeof(HalfBlock) / sizeof(unsigned);

// Shifts as many words as a vector holds. All of them are read before any is written.
template <class Vector>
inline void shiftBlock(unsigned *to, const unsigned *from, unsigned offset)
{
    Vector first;
    Vector second;
    memcpy(&first, from, sizeof first);
    memcpy(&second, from + 1, sizeof second);
    const Vector shifted = first << offset | second >> (32 - offset);
    memcpy(to, &shifted, sizeof shifted);
}

inline void shiftWord(unsigned *to, const unsigned *from, unsigned offset)
{
    *to = from[0] << offset | from[1] >> (32 - offset);
}

void shiftForwards(unsigned *to, const unsigned *from, size_t count, unsigned offset)
{
    size_t i = 0;
    for (; count - i >= blockWords; i += blockWords)
        shiftBlock<Block>(to + i, from + i, offset);
    if (count - i >= halfBlockWords) {
        shiftBlock<HalfBlock>(to + i, from + i, offset);
        i += halfBlockWords;
    }
    for (; i < count; ++i)
        shiftWord(to + i, from + i, offset);
}

void shiftBackwards(unsigned *to, const unsigned *from, size_t count, unsigned offset)
{
    size_t i = count;
    for (; i >= blockWords; i -= blockWords)
        shiftBlock<Block>(to + i - blockWords, from + i - blockWords, offset);
    if (i >= halfBlockWords) {
        i -= halfBlockWords;
        shiftBlock<HalfBlock>(to + i, from + i, offset);
    }
    for (; i > 0; --i)
        shiftWord(to + i - 1, from + i - 1, offset);
}

constexpr WordLoops loops = {andInto,  orInto,     xorInto,       complement,    bitsSet,
                             toOctets, fromOctets, shiftForwards, shiftBackwards};
} // namespace
