// bit_matrix_print.cpp: CBitMatrix on standard output.
//
// Policy:     people and field scripts read these texts; every byte stays.
// Locking:    none. One call is several writes, so text of other threads may come between.
// Invariants: printing ends, whatever the spare columns hold.
// Cost:       one write for some hundred characters; nothing allocates.
#include "bitset.h"

#include "bitset/mask_words.h"
#include "bitset/matrix_words.h"
#include "bitset/text_batch.h"

#include <cstdio>

namespace
{
// Destroyed matrices are asked, too: that is what the signature is for, so the type checks of the sanitizers stay out.
__attribute__((no_sanitize("vptr"))) bool isLive(const CBitMatrix *matrix)
{
    return matrix != nullptr && matrix->signature == liveMatrixSignature;
}

void printHeader(const CBitMatrix &matrix)
{
    printf("wordsPerRow= %u ", matrix.wordsPerRow);
    printf("numRows    = %u ", matrix.numRows);
    printf("numColumns = %u\n", matrix.numColumns);
    printf("numBitsSet = %u ", matrix.numBitsSet());
    printf("numWords   = %u, ", static_cast<unsigned>(wordsOf(matrix)));
    printf("autoDelete = %c, ", matrix.autoDelete ? 'Y' : 'N');
    printf("maskPtr= %p, bits ...\n", static_cast<void *>(matrix.maskPtr));
}

// Lines of eight words are counted over the whole storage, so they do not start anew with a row.
void printWords(const CBitMatrix &matrix)
{
    TextBatch text;
    for (size_t i = 0, n = wordsOf(matrix); i < n; ++i) {
        if (i % matrix.wordsPerRow == 0) {
            text.add("Row ");
            text.addNumber(static_cast<int>(i / matrix.wordsPerRow));
            text.add('\n');
        }
        text.addWord(matrix.maskPtr[i]);
        if (i % 8 == 7)
            text.add('\n');
    }
}

void addPlace(TextBatch &text, unsigned column, unsigned row)
{
    text.addNumber(column);
    text.add(',');
    text.addNumber(row);
}

void printRuns(TextBatch &text, const CBitMatrix &matrix, unsigned row)
{
    for (unsigned first = matrix.findRowSetBit(row, 0, false); first != bitNotFound;) {
        unsigned end = matrix.findRowClrBit(row, first, false);
        if (end == bitNotFound)
            end = matrix.numColumns;
        if (end <= first)
            return; // only spare columns that are set to the last are left
        text.add('[');
        addPlace(text, first, row);
        if (end - first > 1) {
            text.add("..");
            addPlace(text, end - 1, row);
        }
        text.add("],");
        first = matrix.findRowSetBit(row, end, false);
    }
}
} // namespace

void printCBitMatrix(CBitMatrix const *m, bool ranges)
{
    if (!isLive(m)) {
        printf("Invalid CBitMatrix ptr\n");
        return;
    }
    printHeader(*m);
    if (ranges) {
        TextBatch text;
        for (unsigned row = 0; row < m->numRows; ++row)
            printRuns(text, *m, row);
    } else {
        printWords(*m);
    }
    putchar('\n');
}
