// bit_mask_range.cpp: ranges, searches, counts, range copies and shifts of CBitMask.
//
// Policy:     ranges are cut at the end of the mask. A start beyond the end means bit 0; a start exactly at the end
//             means an empty range.
// Locking:    none. The searches read words with relaxed atomics, like the single-bit operations; all else is plain.
// Invariants: no word at or past numWords is touched; whatever one operation does through another goes through the
//             virtual table, where a derived class might tell.
// Cost:       one pass over the words; searches skip whole words. An unaligned copy goes bit by bit only when
//             a derived class may have a say in it or when its two ranges overlap.
#include "bitset.h"

#include "bitset/bit_buffer.h"
#include "bitset/mask_words.h"
#include "bitset/word_loops.h"
#include "bitset/word_runs.h"

#include <kel_platform.h>

#include <algorithm>

namespace
{
// The last word of a word-wise copy.
// Kept: it is merged, not copied, and loses its `tail` lowest bits, wherever in the mask it lies
// (BitMaskAssign.WordPathOrsTheLastWordAndClearsTheSourcesTailEvenMidMask).
bool mergeWord(unsigned &word, unsigned with, unsigned tail)
{
    const unsigned old = word;
    word = (old | with) & allOnes << tail;
    return word != old;
}

// The words with `length` bits from bit `start` on.
Words wordsWith(const unsigned *array, unsigned start, unsigned length)
{
    return {array + start / 32, array + (start + length - 1) / 32 + 1};
}

bool copyBits(unsigned *toWords, unsigned to, const unsigned *fromWords, unsigned from, unsigned length)
{
    return replaceBits(toWords, to, to + length, [=](size_t done, unsigned count) {
        return bitsFrom(fromWords, from + static_cast<unsigned>(done), count);
    });
}

// The compiler calls the C library for a fill, which one word, the most that most shifts leave, is not worth.
void clear(unsigned *first, unsigned *last)
{
    if (first == last)
        return;
    *first = 0;
    std::fill(first + 1, last, 0U);
}

// Moves the bits of `total` words to numbers that are higher by 32 * `words` + `bits`; `words` is less than `total`.
void shiftUp(unsigned *array, unsigned total, unsigned words, unsigned bits)
{
    if (bits != 0) {
        wordLoops().shiftBackwards(array + words + 1, array, total - words - 1, 32 - bits);
        array[words] = array[0] >> bits;
    } else if (words != 0) { // the library may not be asked to copy words onto themselves
        std::copy_backward(array, array + total - words, array + total);
    }
    clear(array, array + words);
}

// The other way, to lower numbers.
void shiftDown(unsigned *array, unsigned total, unsigned words, unsigned bits)
{
    const unsigned last = total - words - 1;
    if (bits != 0) {
        wordLoops().shiftForwards(array, array + words, last, bits);
        array[last] = array[total - 1] << bits;
    } else if (words != 0) {
        std::copy(array + words, array + total, array);
    }
    clear(array + last + 1, array + total);
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
    resetRange(maskPtr, numWords, count, start);
}

void CBitMask::set(unsigned int count, unsigned int start)
{
    setRange(maskPtr, numWords, count, start);
}

bool CBitMask::bitsAreSet() const
{
    return anyBit(maskPtr, maskPtr + numWords);
}

unsigned int CBitMask::numBitsSet() const
{
    return countBits(maskPtr, numWords);
}

unsigned int CBitMask::findSetBit(unsigned int start) const
{
    return firstSetBit(maskPtr, numWords, start);
}

unsigned int CBitMask::findClrBit(unsigned int start) const
{
    return firstClearBit(maskPtr, numWords, start);
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
        if (isPlain(*this) && isPlain(src) &&
            areApart(wordsWith(maskPtr, dstStart, length), wordsWith(src.maskPtr, srcStart, length)))
            return copyBits(maskPtr, dstStart, src.maskPtr, srcStart, length);
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
        const auto length = static_cast<unsigned>(std::min<unsigned long>(sourceBits, bitsOf(*this) - dstStart));
        if (isPlain(*this) && areApart(wordsWith(maskPtr, dstStart, length), wordsWith(words, 0, length)))
            return copyBits(maskPtr, dstStart, words, 0, length);
        bool changed = false;
        for (unsigned i = 0; i < length; ++i)
            changed |= assignBit(dstStart + i, (words[i / 32] & bitInWord(i)) != 0);
        return changed;
    }
    unsigned *const word = maskPtr + dstStart / 32;
    const unsigned last = std::min(numWords - dstStart / 32, numSrcWords) - 1;
    copyWords(word, words, last);
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
