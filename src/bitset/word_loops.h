// word_loops.h: passes over many words, in the widest steps that the processor has.
//
// Each loop stands once in word_loops_body.h and is compiled for every kind of processor that is worth it; the first
// call finds out which of them this one is. Nothing runs when the library is loaded.
#pragma once

#include "bitset/mask_words.h"

#include <algorithm>
#include <atomic>
#include <cstddef>

// The loops for one kind of processor; `count` is in words. Arrays may be the same or overlap where nothing else is
// said: the outcome is that of a plain loop from the first word to the last.
struct WordLoops {
    void (*andInto)(unsigned *to, const unsigned *from, size_t count);
    void (*orInto)(unsigned *to, const unsigned *from, size_t count);
    void (*xorInto)(unsigned *to, const unsigned *from, size_t count);
    void (*complement)(unsigned *to, const unsigned *from, size_t count);
    unsigned (*bitsSet)(const unsigned *words, size_t count);

    // Octets, the most significant of a word first; `reverse` turns each octet round. The arrays do not overlap.
    void (*toOctets)(unsigned char *octets, const unsigned *words, size_t count, bool reverse);
    void (*fromOctets)(unsigned *words, const unsigned char *octets, size_t count, bool reverse);

    // to[i] = the 32 bits that start `offset` (1 to 31) bits into from[i], so count + 1 words of `from` are read. The
    // first goes from the first word to the last, for a `to` in front of `from` or the same; the other the other way.
    void (*shiftForwards)(unsigned *to, const unsigned *from, size_t count, unsigned offset);
    void (*shiftBackwards)(unsigned *to, const unsigned *from, size_t count, unsigned offset);
};

extern const WordLoops anyProcessorsLoops;
extern const WordLoops avx2Loops; // x86-64 only

extern std::atomic<const WordLoops *> chosenLoops; // null before the first call
const WordLoops &chooseLoops();

// Up to so many words are done before the wider loops would be under way.
inline constexpr size_t fewWords = 8;

// Those for this processor.
inline const WordLoops &wordLoops()
{
    const WordLoops *const loops = chosenLoops.load(std::memory_order_relaxed);
    return loops != nullptr ? *loops : chooseLoops();
}

// Copies words from the first to the last: where the arrays overlap, each is written before the next one is read. The
// C library's copy, which is as if all were read first, serves only where that makes no difference.
inline void copyWords(unsigned *to, const unsigned *from, size_t count)
{
    if (count > fewWords && (to <= from || from + count <= to))
        std::copy_n(from, count, to);
    else
        for (size_t i = 0; i < count; ++i)
            to[i] = from[i];
}

// The bits that are set in `count` words.
inline unsigned countBits(const unsigned *words, size_t count)
{
    if (count > fewWords)
        return wordLoops().bitsSet(words, count);
    unsigned bits = 0;
    for (size_t i = 0; i < count; ++i)
        bits += bitsSetIn(words[i]);
    return bits;
}
