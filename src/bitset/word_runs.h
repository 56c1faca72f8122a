// word_runs.h: ranges and searches of bits in an array of words, for a mask and for the rows of a matrix.
//
// Searches read words with relaxed atomics, like the operations on single bits; ranges are written plainly.
#pragma once

#include "bitset/mask_words.h"
#include "vxw_shim/unlocked_access.h"

#include <kel_platform.h>

#include <algorithm>

inline constexpr unsigned allOnes = 0xFFFFFFFFU;

struct Range {
    unsigned start;
    unsigned length; // bits
};

inline Range clampRange(unsigned words, unsigned count, unsigned start)
{
    // Kept: a start beyond the end means the start of the mask (BitMaskRange.StartBeyondTheEndMeansBitZero).
    if (start > words * 32)
        start = 0;
    const unsigned room = words * 32 - start;
    return {start, count != 0 && count < room ? count : room};
}

constexpr unsigned leadingBits(unsigned count) // 1 to 31
{
    return ~(allOnes >> count);
}

// Calls partial(word, bits) for the words that a range covers in part, and whole(first, last) for those it fills.
template <class Partial, class Whole>
void forEachWordOf(unsigned *array, Range range, Partial partial, Whole whole)
{
    if (range.length == 0)
        return;
    unsigned *word = array + range.start / 32;
    const unsigned offset = range.start % 32;
    const unsigned inFirst = std::min(range.length, 32 - offset);
    partial(*word++, allOnes << (32 - inFirst) >> offset);
    const unsigned rest = range.length - inFirst;
    whole(word, word + rest / 32);
    if (rest % 32 != 0)
        partial(word[rest / 32], leadingBits(rest % 32));
}

inline void setRange(unsigned *array, unsigned words, unsigned count, unsigned start)
{
    forEachWordOf(
        array, clampRange(words, count, start), [](unsigned &word, unsigned bits) { word |= bits; },
        [](unsigned *first, unsigned *last) { std::fill(first, last, allOnes); });
}

inline void resetRange(unsigned *array, unsigned words, unsigned count, unsigned start)
{
    forEachWordOf(
        array, clampRange(words, count, start), [](unsigned &word, unsigned bits) { word &= ~bits; },
        [](unsigned *first, unsigned *last) { std::fill(first, last, 0U); });
}

// The first bit from `start` on whose word, once `flip` is XORed to it, has it set; bitNotFound when there is none.
// `scan` finds it in a word as it stands; it is a lambda, not a pointer, so that the platform's scan is compiled in.
template <unsigned flip, class Scan>
unsigned firstBit(const unsigned *array, unsigned words, unsigned start, Scan scan)
{
    const auto wordAt = [array](unsigned i) { return readUnlocked(array[i]) ^ flip; };
    unsigned i = start / 32;
    if (i >= words)
        return bitNotFound;
    unsigned word = wordAt(i) & allOnes >> (start % 32);
    while (word == 0) {
        if (++i == words)
            return bitNotFound;
        word = wordAt(i);
        // From an empty word on, four at a time; that with the bit is read again, for it may change meanwhile.
        while (word == 0 && words - i > 4 && (wordAt(i + 1) | wordAt(i + 2) | wordAt(i + 3) | wordAt(i + 4)) == 0)
            i += 4;
    }
    return static_cast<unsigned>(scan(word ^ flip)) + 32 * i;
}

inline unsigned firstSetBit(const unsigned *array, unsigned words, unsigned start)
{
    return firstBit<0>(array, words, start, [](unsigned word) { return bitarray_scanbit(word); });
}

inline unsigned firstClearBit(const unsigned *array, unsigned words, unsigned start)
{
    return firstBit<allOnes>(array, words, start, [](unsigned word) { return bitarray_scanclrbit(word); });
}

inline bool anyBit(const unsigned *first, const unsigned *last)
{
    for (; last - first >= 4; first += 4)
        if ((first[0] | first[1] | first[2] | first[3]) != 0)
            return true;
    unsigned rest = 0;
    for (; first != last; ++first)
        rest |= *first;
    return rest != 0;
}
