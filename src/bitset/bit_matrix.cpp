// bit_matrix.cpp: construction, bits, rows and columns of CBitMatrix.
//
// Policy:     rows are handed to a CBitMask that views them, columns are walked row by row. Rows and columns without
//             words are refused everywhere; the spare columns only where a single bit or a column is asked for.
// Locking:    none.
// Invariants: maskPtr has numRows * wordsPerRow words; an owner's array came from new[]; nothing outside is touched.
// Cost:       rows and the whole matrix one pass over their words, as a mask's; a column one word a row.
#include "bitset.h"

#include "bitset/mask_words.h"
#include "bitset/matrix_words.h"
#include "bitset/word_loops.h"
#include "bitset/word_runs.h"

#include <algorithm>

namespace
{
constexpr size_t objectBytes = 40;

void becomeEmpty(CBitMatrix &matrix)
{
    matrix.numRows = 0;
    matrix.numColumns = 0;
    matrix.wordsPerRow = 0;
    matrix.maskPtr = nullptr;
    matrix.autoDelete = 0;
}

void becomeLiveAndEmpty(CBitMatrix &matrix)
{
    matrix.signature = liveMatrixSignature;
    becomeEmpty(matrix);
}

// Frees the words that `matrix` owns; one on the caller's words is left as it is.
void releaseWords(CBitMatrix &matrix)
{
    if (!matrix.autoDelete)
        return;
    delete[] matrix.maskPtr;
    becomeEmpty(matrix);
}

bool hasBit(const CBitMatrix &matrix, unsigned row, unsigned col)
{
    return row < matrix.numRows && col < matrix.numColumns;
}

unsigned &wordOf(const CBitMatrix &matrix, unsigned row, unsigned col)
{
    return rowWords(matrix, row)[col / 32];
}

bool bitOf(const CBitMatrix &matrix, unsigned row, unsigned col)
{
    return (wordOf(matrix, row, col) & bitInWord(col)) != 0;
}

// Makes a bit that has a word equal to `value`; tells whether it changed.
bool changeBit(const CBitMatrix &matrix, unsigned row, unsigned col, bool value)
{
    if (bitOf(matrix, row, col) == value)
        return false;
    wordOf(matrix, row, col) ^= bitInWord(col);
    return true;
}

// The words of a row that a mask over it views: their number is cut to 16 bits.
unsigned maskWords(const CBitMatrix &matrix)
{
    return matrix.wordsPerRow & 0xFFFFU;
}

// Calls row(word) with the word that holds a column's bit, for the rows `first` to `end` - 1.
template <class Row>
void forEachRow(const CBitMatrix &matrix, unsigned col, unsigned first, unsigned end, Row row)
{
    // Read once: for all the compiler knows, a word that is written is one of these.
    unsigned *const words = matrix.maskPtr;
    const size_t stride = matrix.wordsPerRow;
    size_t at = first * stride + col / 32;
    for (unsigned i = first; i < end; ++i, at += stride)
        row(words[at]);
}

// Copies the bits that the rows from `first` on have in a column to the front of a word, as many as it holds.
void gatherColumn(const CBitMatrix &matrix, unsigned col, unsigned first, unsigned &to)
{
    const unsigned count = std::min(matrix.numRows - first, 32U);
    unsigned bits = 0;
    forEachRow(matrix, col, first, first + count,
               [&](unsigned word) { bits = bits << 1 | (word >> (31 - col % 32) & 1); });
    const unsigned shift = 32 - count;
    to = bits << shift | (to & ~(allOnes << shift));
}

// Whether `value` is the bit that one of four words has, which are `stride` words apart.
template <bool value>
bool oneOfFourHas(const unsigned *words, size_t stride, unsigned bit)
{
    const unsigned some = words[0], next = words[stride], third = words[2 * stride], last = words[3 * stride];
    return value ? ((some | next | third | last) & bit) != 0 : (some & next & third & last & bit) == 0;
}

// A column's first row from `row` on whose bit is `value`; with `take` the bit is flipped.
template <bool value>
unsigned findInColumn(const CBitMatrix &matrix, unsigned col, unsigned row, bool take)
{
    if (col >= matrix.numColumns || row >= matrix.numRows)
        return bitNotFound;
    const unsigned bit = bitInWord(col);
    const size_t stride = matrix.wordsPerRow;
    unsigned *const words = matrix.maskPtr + col / 32;
    while (matrix.numRows - row >= 4 && !oneOfFourHas<value>(words + row * stride, stride, bit))
        row += 4;
    while (row < matrix.numRows && ((words[row * stride] & bit) != 0) != value)
        ++row;
    if (row == matrix.numRows)
        return bitNotFound;
    if (take)
        words[row * stride] ^= bit;
    return row;
}

bool fitsColumn(const CBitMatrix &matrix, unsigned col, const CBitMask *mask)
{
    return mask != nullptr && matrix.numRows <= bitsOf(*mask) && col < matrix.numColumns;
}
} // namespace

CBitMatrix::CBitMatrix()
{
    becomeLiveAndEmpty(*this);
    CBitMatrix::init(0, 0, nullptr);
}

CBitMatrix::CBitMatrix(unsigned int rows, unsigned int columns, unsigned int *words)
{
    becomeLiveAndEmpty(*this);
    CBitMatrix::init(rows, columns, words);
}

CBitMatrix::CBitMatrix(CBitMatrix const &other)
{
    becomeLiveAndEmpty(*this);
    CBitMatrix::init(other);
}

CBitMatrix::~CBitMatrix()
{
    // The object ends here, so the compiler drops plain stores to it; printCBitMatrix() relies on this one.
    static_cast<volatile CBitMatrix *>(this)->signature = 0;
    if (autoDelete)
        delete[] maskPtr;
}

void CBitMatrix::init(unsigned int rows, unsigned int columns, unsigned int *words)
{
    releaseWords(*this);
    becomeEmpty(*this);
    const unsigned rowLength = columns / 32 + (columns % 32 != 0 ? 1 : 0);
    if (rows != 0 && columns != 0 && words == nullptr) {
        maskPtr = new unsigned[size_t{rows} * rowLength];
        autoDelete = 1;
    } else {
        maskPtr = words;
    }
    numRows = rows;
    numColumns = columns;
    wordsPerRow = rowLength;
    // Kept: also when the words are the caller's (BitMatrixInit.ClearsTheCallersWords).
    reset(); // NOLINT(*.VirtualCall): a derived class's own, once it is constructed
}

void CBitMatrix::init(CBitMatrix const &other)
{
    releaseWords(*this);
    // Read before this matrix, which may itself be the other, lets go of the words that it views.
    const unsigned rows = other.numRows;
    const unsigned columns = other.numColumns;
    const unsigned rowLength = other.wordsPerRow;
    const unsigned *const from = other.maskPtr;
    const size_t words = wordsOf(other);
    becomeEmpty(*this);
    if (words != 0) {
        maskPtr = new unsigned[words];
        autoDelete = 1;
        std::copy_n(from, words, maskPtr);
    }
    numRows = rows;
    numColumns = columns;
    wordsPerRow = rowLength;
}

size_t CBitMatrix::size() const
{
    return wordsOf(*this) * 4 + objectBytes;
}

void CBitMatrix::set(bool value)
{
    std::fill_n(maskPtr, wordsOf(*this), value ? 0xFFFFFFFFU : 0U);
}

void CBitMatrix::reset()
{
    set(false); // NOLINT(*.VirtualCall): as in init()
}

void CBitMatrix::bitwiseNotEqual()
{
    wordLoops().complement(maskPtr, maskPtr, wordsOf(*this));
}

bool CBitMatrix::bitsAreSet() const
{
    return anyBit(maskPtr, maskPtr + wordsOf(*this));
}

unsigned int CBitMatrix::numBitsSet() const
{
    const unsigned counted = maskWords(*this);
    if (counted == wordsPerRow)
        return countBits(maskPtr, wordsOf(*this));
    unsigned count = 0;
    for (unsigned row = 0; row < numRows; ++row)
        count += countBits(rowWords(*this, row), counted);
    return count;
}

bool CBitMatrix::setBit(unsigned int row, unsigned int col)
{
    return hasBit(*this, row, col) && changeBit(*this, row, col, true);
}

bool CBitMatrix::clrBit(unsigned int row, unsigned int col)
{
    return hasBit(*this, row, col) && changeBit(*this, row, col, false);
}

bool CBitMatrix::assignBit(unsigned int row, unsigned int col, bool value)
{
    return value ? setBit(row, col) : clrBit(row, col);
}

bool CBitMatrix::chkBit(unsigned int row, unsigned int col) const
{
    return hasBit(*this, row, col) && bitOf(*this, row, col);
}

void CBitMatrix::setRow(unsigned int row, bool value, unsigned int count, unsigned int start)
{
    if (row >= numRows)
        return;
    const unsigned length = count != 0 ? count : numColumns;
    if (value)
        setRange(rowWords(*this, row), maskWords(*this), length, start);
    else
        resetRange(rowWords(*this, row), maskWords(*this), length, start);
}

void CBitMatrix::resetRow(unsigned int row, unsigned int count, unsigned int start)
{
    setRow(row, false, count, start);
}

bool CBitMatrix::rowBitsAreSet(unsigned int row) const
{
    if (row >= numRows)
        return false;
    const unsigned *const words = rowWords(*this, row);
    return anyBit(words, words + wordsPerRow);
}

unsigned int CBitMatrix::findRowSetBit(unsigned int row, unsigned int start, bool take) const
{
    if (row >= numRows)
        return bitNotFound;
    unsigned *const words = rowWords(*this, row);
    const unsigned found = firstSetBit(words, maskWords(*this), start);
    if (take && found != bitNotFound)
        words[found / 32] &= ~bitInWord(found);
    return found;
}

unsigned int CBitMatrix::findRowClrBit(unsigned int row, unsigned int start, bool take) const
{
    if (row >= numRows)
        return bitNotFound;
    unsigned *const words = rowWords(*this, row);
    const unsigned found = firstClearBit(words, maskWords(*this), start);
    if (take && found != bitNotFound)
        words[found / 32] |= bitInWord(found);
    return found;
}

bool CBitMatrix::getRow(unsigned int row, CBitMask *out) const
{
    if (out == nullptr || row >= numRows || out->numWords < wordsPerRow)
        return false;
    // Kept: a longer mask gets the words of the following rows too (BitMatrixRow.LongerMaskGetsTheFollowingRowsToo).
    const size_t toTheEnd = wordsOf(*this) - size_t{row} * wordsPerRow;
    if (out->numWords <= toTheEnd)
        *out = rowWords(*this, row);
    else
        *out = CBitMask(static_cast<unsigned>(toTheEnd), rowWords(*this, row));
    return true;
}

bool CBitMatrix::setRow(unsigned int row, CBitMask *in)
{
    return in != nullptr && row < numRows && rowMask(*this, row).assign(*in, 0, 0, 0xFFFFFFFF);
}

void CBitMatrix::setCol(unsigned int col, bool value, unsigned int count, unsigned int start)
{
    if (col / 32 >= wordsPerRow)
        return;
    const unsigned first = start > numRows ? 0 : start;
    const unsigned room = numRows - first;
    const unsigned end = first + (count != 0 && count < room ? count : room);
    const unsigned bit = bitInWord(col);
    if (value)
        forEachRow(*this, col, first, end, [=](unsigned &word) { word |= bit; });
    else
        forEachRow(*this, col, first, end, [=](unsigned &word) { word &= ~bit; });
}

void CBitMatrix::resetCol(unsigned int col, unsigned int count, unsigned int start)
{
    setCol(col, false, count, start);
}

bool CBitMatrix::colBitsAreSet(unsigned int col) const
{
    return findInColumn<true>(*this, col, 0, false) != bitNotFound;
}

unsigned int CBitMatrix::findColSetBit(unsigned int col, unsigned int startRow, bool take) const
{
    return findInColumn<true>(*this, col, startRow, take);
}

unsigned int CBitMatrix::findColClrBit(unsigned int col, unsigned int startRow, bool take) const
{
    return findInColumn<false>(*this, col, startRow, take);
}

bool CBitMatrix::getCol(unsigned int col, CBitMask *out) const
{
    if (!fitsColumn(*this, col, out))
        return false;
    if (isPlain(*out) && areApart({out->maskPtr, out->maskPtr + out->numWords}, {maskPtr, maskPtr + wordsOf(*this)})) {
        for (unsigned row = 0; row < numRows; row += 32)
            gatherColumn(*this, col, row, out->maskPtr[row / 32]);
        return true;
    }
    for (unsigned row = 0; row < numRows; ++row) {
        if (bitOf(*this, row, col))
            out->setBit(row);
        else
            out->clrBit(row);
    }
    return true;
}

bool CBitMatrix::setCol(unsigned int col, CBitMask *in)
{
    if (!fitsColumn(*this, col, in))
        return false;
    bool changed = false;
    for (unsigned row = 0; row < numRows; ++row)
        changed |= changeBit(*this, row, col, in->chkBit(row));
    return changed;
}
