// Every byte that printCBitMatrix prints.
#include "bitset.h"

#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <new>

namespace
{
std::string header(const CBitMatrix &matrix, unsigned set, char owner)
{
    return formatted("wordsPerRow= %u numRows    = %u numColumns = %u\n"
                     "numBitsSet = %u numWords   = %u, autoDelete = %c, maskPtr= %p, bits ...\n",
                     matrix.wordsPerRow, matrix.numRows, matrix.numColumns, set, matrix.numRows * matrix.wordsPerRow,
                     owner, static_cast<void *>(matrix.maskPtr));
}

std::string printed(const CBitMatrix &matrix, bool ranges)
{
    return printedBy([&] { printCBitMatrix(&matrix, ranges); });
}
} // namespace

TEST(BitMatrixPrint, RangesOfAllRowsOnOneLine)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(0, 2);
    matrix.setBit(0, 3);
    matrix.setBit(1, 5);
    EXPECT_EQ(header(matrix, 3, 'Y') + "[2,0..3,0],[5,1],\n", printed(matrix, true));
}

TEST(BitMatrixPrint, WithoutSetBitsOnlyANewlineFollowsTheHeader)
{
    unsigned words[6];
    const CBitMatrix matrix(3, 40, words);
    EXPECT_EQ(header(matrix, 0, 'N') + "\n", printed(matrix, true));
    EXPECT_EQ("wordsPerRow= 0 numRows    = 0 numColumns = 0\n"
              "numBitsSet = 0 numWords   = 0, autoDelete = N, maskPtr= (nil), bits ...\n\n",
              printed(CBitMatrix(), false));
    EXPECT_EQ(header(CBitMatrix(), 0, 'N') + "\n", printed(CBitMatrix(), true));
    EXPECT_EQ(header(CBitMatrix(7, 0, nullptr), 0, 'N') + "\n", printed(CBitMatrix(7, 0, nullptr), false));
}

// A run that reaches the end of the row's words ends at the last column, and the search goes on from there.
TEST(BitMatrixPrint, EndsAlsoWhenAllSpareColumnsAreSet)
{
    CBitMatrix matrix(2, 40, nullptr);
    matrix.set(true);
    EXPECT_EQ(header(matrix, 128, 'Y') + "[0,0..39,0],[0,1..39,1],\n", printed(matrix, true));
    matrix.resetRow(0, 50, 0); // only spare columns are left, to the last
    EXPECT_EQ(header(matrix, 78, 'Y') + "[0,1..39,1],\n", printed(matrix, true));
    matrix.resetRow(1, 39, 0);
    EXPECT_EQ(header(matrix, 39, 'Y') + "[39,1],\n", printed(matrix, true));
}

TEST(BitMatrixPrint, ARunOfSpareColumnsWithAnEndIsPrinted)
{
    CBitMatrix matrix(1, 40, nullptr);
    matrix.setRow(0, true, 4, 38);
    matrix.setRow(0, true, 1, 50);
    EXPECT_EQ(header(matrix, 5, 'Y') + "[38,0..41,0],[50,0],\n", printed(matrix, true));
}

TEST(BitMatrixPrint, FullRowWithoutSpareColumnsEndsAtTheLast)
{
    CBitMatrix matrix(1, 32, nullptr);
    matrix.set(true);
    EXPECT_EQ(header(matrix, 32, 'Y') + "[0,0..31,0],\n", printed(matrix, true));
}

// Eight words a line are counted over the whole storage, not anew for each row.
TEST(BitMatrixPrint, WordsUnderTheirRowAndEightToALineOfTheStorage)
{
    CBitMatrix matrix(3, 70, nullptr);
    matrix.setBit(0, 31);
    matrix.setBit(2, 69);
    EXPECT_EQ(header(matrix, 2, 'Y') + "Row 0\n00000001 00000000 00000000 Row 1\n00000000 00000000 00000000 "
                                       "Row 2\n00000000 00000000 \n04000000 \n",
              printed(matrix, false));
    const CBitMatrix eight(4, 64, nullptr);
    EXPECT_EQ(header(eight, 0, 'Y') + "Row 0\n00000000 00000000 Row 1\n00000000 00000000 Row 2\n00000000 00000000 "
                                      "Row 3\n00000000 00000000 \n\n",
              printed(eight, false));
}

TEST(BitMatrixPrint, NullIsInvalid)
{
    EXPECT_EQ("Invalid CBitMatrix ptr\n", printedBy([] { printCBitMatrix(nullptr, true); }));
}

// The library must really clear the signature: a store to an object that ends is dead to an optimiser.
TEST(BitMatrixPrint, DestroyedMatrixIsInvalid)
{
    alignas(CBitMatrix) unsigned char storage[sizeof(CBitMatrix)];
    auto *matrix = new (storage) CBitMatrix(3, 40, nullptr);
    EXPECT_EQ(header(*matrix, 0, 'Y') + "\n", printed(*matrix, true));
    matrix->~CBitMatrix();
    EXPECT_EQ("Invalid CBitMatrix ptr\n", printedBy([&] { printCBitMatrix(matrix, true); }));
    unsigned word; // a destructor that frees nothing: no call keeps the store alive
    matrix = new (storage) CBitMatrix(1, 1, &word);
    matrix->~CBitMatrix();
    EXPECT_EQ("Invalid CBitMatrix ptr\n", printedBy([&] { printCBitMatrix(matrix, true); }));
}
