// matrix_words.h: the words behind a matrix, for the sources of this room.
#pragma once

#include "bitset.h"

inline constexpr unsigned liveMatrixSignature = 0x5A;

inline size_t wordsOf(const CBitMatrix &matrix)
{
    return size_t{matrix.numRows} * matrix.wordsPerRow;
}

// The first word of a row that exists.
inline unsigned *rowWords(const CBitMatrix &matrix, unsigned row)
{
    return matrix.maskPtr + size_t{row} * matrix.wordsPerRow;
}

// A mask that views a row that exists; its number of words is cut to 16 bits.
inline CBitMask rowMask(const CBitMatrix &matrix, unsigned row)
{
    return CBitMask(matrix.wordsPerRow, rowWords(matrix, row));
}
