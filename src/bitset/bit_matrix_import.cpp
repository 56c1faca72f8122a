// bit_matrix_import.cpp: rectangles of a CBitMatrix from and to bytes.
//
// Policy:     a single row follows the rules of the bit mask, whose word-aligned ranges move nothing; several rows are
//             packed one behind the other, without padding. A rectangle that leaves the words is refused as a whole.
// Locking:    none.
// Invariants: no byte outside the rectangle's bits in the buffer is read or written; bits around them stay.
// Cost:       one pass, a word at a time.
#include "bitset.h"

#include "bitset/bit_buffer.h"
#include "bitset/matrix_words.h"

namespace
{
struct Rectangle { // both ends included
    unsigned rowFirst;
    unsigned rowLast;
    unsigned colFirst;
    unsigned colLast;
};

bool holdsWords(const CBitMatrix &matrix, const Rectangle &area)
{
    return area.rowFirst <= area.rowLast && area.rowLast < matrix.numRows && area.colFirst <= area.colLast &&
           area.colLast / 32 < matrix.wordsPerRow;
}

// Calls row(words, bitOfBuffer) for each row of the rectangle; returns the bits in it.
template <class Row>
size_t forEachRowIn(const CBitMatrix &matrix, const Rectangle &area, Row row)
{
    const unsigned columns = area.colLast + 1 - area.colFirst;
    size_t bufferBit = 0;
    for (unsigned i = area.rowFirst; i <= area.rowLast; ++i, bufferBit += columns)
        row(rowWords(matrix, i), bufferBit);
    return bufferBit;
}
} // namespace

bool CBitMatrix::data_in(unsigned char const *)
{
    return false;
}

unsigned int CBitMatrix::data_out(unsigned char *) const
{
    // Kept: nothing is written, the size alone is told (BitMatrixHooks.DataOutWritesNothingAndReturnsTheStorageSize).
    return static_cast<unsigned>(wordsOf(*this) * 4);
}

bool CBitMatrix::bits_in(unsigned char const *src, unsigned int rowFirst, unsigned int rowLast, unsigned int colFirst,
                         unsigned int colLast)
{
    // Kept: one row moves as a mask's bits do, so nothing moves when it starts and ends on a word boundary
    // (BitMatrixRectangle.SingleRowBetweenWordBoundariesTransfersNothing).
    if (rowFirst == rowLast)
        return rowFirst < numRows && rowMask(*this, rowFirst).bits_in(src, colLast + 1 - colFirst, colFirst);
    const Rectangle area{rowFirst, rowLast, colFirst, colLast};
    if (!holdsWords(*this, area))
        return false;
    bool changed = false;
    forEachRowIn(*this, area, [&](unsigned *row, size_t from) {
        changed |= replaceBits(row, colFirst, colLast + 1,
                               [&](size_t done, unsigned count) { return loadBits(src, from + done, count); });
    });
    return changed;
}

unsigned int CBitMatrix::bits_out(unsigned char *dst, unsigned int rowFirst, unsigned int rowLast,
                                  unsigned int colFirst, unsigned int colLast) const
{
    if (rowFirst == rowLast)
        return rowFirst < numRows ? rowMask(*this, rowFirst).bits_out(dst, colLast + 1 - colFirst, colFirst) : 0;
    const Rectangle area{rowFirst, rowLast, colFirst, colLast};
    // Kept: the count of bytes wraps when there are no bits (BitMatrixRectangle.WithoutBitsReturns0x20000000).
    if (!holdsWords(*this, area))
        return bytesOfNoBits;
    const size_t bits = forEachRowIn(
        *this, area, [&](const unsigned *row, size_t to) { copyOut(dst, to, row, colFirst, colLast + 1 - colFirst); });
    return bytesTouched(static_cast<unsigned>(bits));
}
