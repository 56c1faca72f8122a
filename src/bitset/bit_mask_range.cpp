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

// Sums of 2, of 4, of 8 bits side by side; the multiplication adds the four octets up in the top one. The compiler's
// own count is a library call on x86-64, ten times as slow.
constexpr unsigned bitsSetIn(unsigned word)
{
    word -= word >> 1 & 0x55555555;
    word = (word & 0x33333333) + (word >> 2 & 0x33333333);
    return ((word + (word >> 4)) & 0x0F0F0F0F) * 0x01010101 >> 24;
}
static_assert(bitsSetIn(allOnes) == 32 && bitsSetIn(0x80000001) == 2);

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
    unsigned count = 0;
    for (unsigned i = 0, n = numWords; i < n; ++i)
        if (maskPtr[i] != 0)
            count += bitsSetIn(maskPtr[i]);
    return count;
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
    if (numWords == 0)
        return;
    if (bits != 0) {
        for (unsigned i = numWords - 1U; i > 0; --i)
            maskPtr[i] = maskPtr[i] >> bits | maskPtr[i - 1] << (32 - bits);
        maskPtr[0] >>= bits;
    }
    if (words >= numWords) {
        reset(0, 0);
    } else if (words != 0) {
        std::copy_backward(maskPtr, maskPtr + numWords - words, maskPtr + numWords);
        std::fill_n(maskPtr, words, 0U);
    }
}

void CBitMask::operator<<=(unsigned int count)
{
    const unsigned words = count / 32;
    const unsigned bits = count % 32;
    if (numWords == 0)
        return;
    const unsigned last = numWords - 1U;
    if (bits != 0) {
        for (unsigned i = 0; i < last; ++i)
            maskPtr[i] = maskPtr[i] << bits | maskPtr[i + 1] >> (32 - bits);
        maskPtr[last] <<= bits;
    }
    if (words >= numWords) {
        reset(0, 0);
    } else if (words != 0) {
        std::copy(maskPtr + words, maskPtr + numWords, maskPtr);
        std::fill_n(maskPtr + numWords - words, words, 0U);
    }
}
