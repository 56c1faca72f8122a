// bit_mask_range.cpp: ranges, searches, counts, range copies and shifts of CBitMask.
//
// Policy:     ranges are cut at the end of the mask. A start beyond the end means bit 0; a start exactly at the end
//             means an empty range.
// Locking:    none. The searches read words with relaxed atomics, like the single-bit operations; all else is plain.
// Invariants: no word at or past numWords is touched; whatever one operation does through another goes through the
//             virtual table.
// Cost:       one pass over the words; searches skip whole words. Only unaligned copies go bit by bit.
#include "bitset.h"

#include "bitset/mask_words.h"
#include "bitset/word_loops.h"
#include "vxw_shim/unlocked_access.h"

#include <kel_platform.h>

#include <algorithm>

namespace
{
constexpr unsigned allOnes = 0xFFFFFFFFU;

struct Range {
    unsigned start;
    unsigned length; // bits
};

Range clampRange(const CBitMask &mask, unsigned count, unsigned start)
{
    // Kept: a start beyond the end means the start of the mask (BitMaskRange.StartBeyondTheEndMeansBitZero).
    if (start > bitsOf(mask))
        start = 0;
    const unsigned room = bitsOf(mask) - start;
    return {start, count != 0 && count < room ? count : room};
}

constexpr unsigned leadingBits(unsigned count) // 1 to 31
{
    return ~(allOnes >> count);
}

// Calls partial(word, bits) for the words that a range covers in part, and whole(first, last) for those it fills.
template <class Partial, class Whole>
void forEachWordOf(CBitMask &mask, Range range, Partial partial, Whole whole)
{
    if (range.length == 0)
        return;
    unsigned *word = mask.maskPtr + range.start / 32;
    const unsigned offset = range.start % 32;
    const unsigned inFirst = std::min(range.length, 32 - offset);
    partial(*word++, allOnes << (32 - inFirst) >> offset);
    const unsigned rest = range.length - inFirst;
    whole(word, word + rest / 32);
    if (rest % 32 != 0)
        partial(word[rest / 32], leadingBits(rest % 32));
}

// The last word of a word-wise copy.
// Kept: it is merged, not copied, and loses its `tail` lowest bits, wherever in the mask it lies
// (BitMaskAssign.WordPathOrsTheLastWordAndClearsTheSourcesTailEvenMidMask).
bool mergeWord(unsigned &word, unsigned with, unsigned tail)
{
    const unsigned old = word;
    word = (old | with) & allOnes << tail;
    return word != old;
}
// Moves the bits of `total` words to numbers that are higher by 32 * `words` + `bits`; `words` is less than `total`.
void shiftUp(unsigned *array, unsigned total, unsigned words, unsigned bits)
{
    if (bits != 0) {
        wordLoops().shiftBackwards(array + words + 1, array, total - words - 1, 32 - bits);
        array[words] = array[0] >> bits;
    } else {
        std::copy_backward(array, array + total - words, array + total);
    }
    std::fill_n(array, words, 0U);
}

// The other way, to lower numbers.
void shiftDown(unsigned *array, unsigned total, unsigned words, unsigned bits)
{
    const unsigned last = total - words - 1;
    if (bits != 0) {
        wordLoops().shiftForwards(array, array + words, last, bits);
        array[last] = array[total - 1] << bits;
    } else {
        std::copy(array + words, array + total, array);
    }
    std::fill_n(array + last + 1, words, 0U);
}
} // namespace

int CBitMask::scanbit(unsigned int word)
{
    return bitarray_scanbit(word);
}

int CBitMask::scanclrbit(unsigned int word)
{
    return scanbit(~word);
}

void CBitMask::reset(unsigned int count, unsigned int start)
{
    forEachWordOf(
        *this, clampRange(*this, count, start), [](unsigned &word, unsigned bits) { word &= ~bits; },
        [](unsigned *first, unsigned *last) { std::fill(first, last, 0U); });
}

void CBitMask::set(unsigned int count, unsigned int start)
{
    forEachWordOf(
        *this, clampRange(*this, count, start), [](unsigned &word, unsigned bits) { word |= bits; },
        [](unsigned *first, unsigned *last) { std::fill(first, last, allOnes); });
}

bool CBitMask::bitsAreSet() const
{
    return std::any_of(maskPtr, maskPtr + numWords, [](unsigned word) { return word != 0; });
}

unsigned int CBitMask::numBitsSet() const
{
    return countBits(maskPtr, numWords);
}

unsigned int CBitMask::findSetBit(unsigned int start) const
{
    if (start >= bitsOf(*this))
        return bitNotFound;
    unsigned i = start / 32;
    unsigned word = readUnlocked(maskPtr[i]) & allOnes >> (start % 32);
    while (word == 0) {
        if (++i >= numWords)
            return bitNotFound;
        word = readUnlocked(maskPtr[i]);
    }
    return static_cast<unsigned>(bitarray_scanbit(word)) + 32 * i;
}

unsigned int CBitMask::findClrBit(unsigned int start) const
{
    if (start >= bitsOf(*this))
        return bitNotFound;
    unsigned i = start / 32;
    unsigned word = readUnlocked(maskPtr[i]) | ~(allOnes >> (start % 32));
    while (word == allOnes) {
        if (++i >= numWords)
            return bitNotFound;
        word = readUnlocked(maskPtr[i]);
    }
    return static_cast<unsigned>(bitarray_scanclrbit(word)) + 32 * i;
}

unsigned int CBitMask::findSetBit(unsigned int start, bool take)
{
    const unsigned found = findSetBit(start);
    if (take && found != bitNotFound)
        clrBit(found);
    return found;
}

unsigned int CBitMask::findClrBit(unsigned int start, bool take)
{
    const unsigned found = findClrBit(start);
    if (take && found != bitNotFound)
        setBit(found);
    return found;
}

bool CBitMask::assign(CBitMask const &src, unsigned int srcStart, unsigned int dstStart, unsigned int count)
{
    if (srcStart >= bitsOf(src) || dstStart >= bitsOf(*this))
        return false;
    const unsigned room = std::min(bitsOf(src) - srcStart, bitsOf(*this) - dstStart);
    const unsigned length = count != 0 && count < room ? count : room;

    bool changed = false;
    if (srcStart % 32 != 0 || dstStart % 32 != 0) {
        for (unsigned i = 0; i < length; ++i)
            changed |= assignBit(dstStart + i, src.chkBit(srcStart + i));
        return changed;
    }
    unsigned *word = maskPtr + dstStart / 32;
    unsigned from = srcStart / 32;
    for (const unsigned last = from + (length - 1) / 32; from < last; ++from, ++word) {
        const unsigned value = src[from];
        changed |= *word != value;
        *word = value;
    }
    changed |= mergeWord(*word, src[from], src.tailBits);
    return changed;
}

bool CBitMask::assign(unsigned int const *words, unsigned int numSrcWords, unsigned int dstStart)
{
    if (dstStart >= bitsOf(*this) || numSrcWords == 0)
        return false;
    if (dstStart % 32 != 0) {
        const unsigned long sourceBits = 32UL * numSrcWords;
        const unsigned long length = std::min<unsigned long>(sourceBits, bitsOf(*this) - dstStart);
        bool changed = false;
        for (unsigned i = 0; i < length; ++i)
            changed |= assignBit(dstStart + i, (words[i / 32] & bitInWord(i)) != 0);
        return changed;
    }
    unsigned *const word = maskPtr + dstStart / 32;
    const unsigned last = std::min(numWords - dstStart / 32, numSrcWords) - 1;
    std::copy_n(words, last, word);
    mergeWord(word[last], words[last], tailBits);
    // Kept: never true, even when bits changed (BitMaskAssign.AlignedCopyFromWordsReturnsFalseAlthoughItChangedBits).
    return false;
}

void CBitMask::operator>>=(unsigned int count)
{
    const unsigned words = count / 32;
    const unsigned bits = count % 32;
    const unsigned total = numWords;
    if (total == 0)
        return;
    if (words >= total) {
        shiftUp(maskPtr, total, 0, bits);
        reset(0, 0);
    } else {
        shiftUp(maskPtr, total, words, bits);
    }
}

void CBitMask::operator<<=(unsigned int count)
{
    const unsigned words = count / 32;
    const unsigned bits = count % 32;
    const unsigned total = numWords;
    if (total == 0)
        return;
    if (words >= total) {
        shiftDown(maskPtr, total, 0, bits);
        reset(0, 0);
    } else {
        shiftDown(maskPtr, total, words, bits);
    }
}
