// Rectangles of a CBitMatrix from and to bytes.
#include "bitset.h"

#include <gtest/gtest.h>

TEST(BitMatrixHooks, DataInTakesNothing)
{
    CBitMatrix matrix(3, 40, nullptr);
    const unsigned char source[24] = {0xFF};
    EXPECT_FALSE(matrix.data_in(source));
    EXPECT_FALSE(matrix.bitsAreSet());
}

TEST(BitMatrixHooks, DataOutWritesNothingAndReturnsTheStorageSize)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    unsigned char target[24] = {};
    EXPECT_EQ(24U, matrix.data_out(target));
    for (const unsigned char byte : target)
        EXPECT_EQ(0, byte);
    EXPECT_EQ(0U, CBitMatrix().data_out(nullptr));
}

TEST(BitMatrixRectangle, RowsFollowEachOtherInTheBufferWithoutPadding)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(0, 1);
    matrix.setBit(1, 0);
    matrix.setBit(1, 3);
    unsigned char target[2] = {0, 0x77};
    EXPECT_EQ(1U, matrix.bits_out(target, 0, 1, 0, 3));
    EXPECT_EQ(0x49, target[0]) << "0100 of row 0, 1001 of row 1";
    EXPECT_EQ(0x77, target[1]);

    CBitMatrix copy(3, 40, nullptr);
    EXPECT_TRUE(copy.bits_in(target, 0, 1, 0, 3));
    EXPECT_TRUE(copy.chkBit(0, 1) && copy.chkBit(1, 0) && copy.chkBit(1, 3));
    EXPECT_EQ(3U, copy.numBitsSet());
    EXPECT_FALSE(copy.bits_in(target, 0, 1, 0, 3));
}

TEST(BitMatrixRectangle, KeepsTheBitsOfTheBufferAroundItAndCrossesWords)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    unsigned char target[3] = {0, 0, 0x15};
    EXPECT_EQ(3U, matrix.bits_out(target, 0, 2, 30, 35)) << "18 bits";
    EXPECT_EQ(0xFF, target[0]);
    EXPECT_EQ(0xFF, target[1]);
    EXPECT_EQ(0xD5, target[2]);
}

TEST(BitMatrixRectangle, MakesTheMatrixEqualToTheBufferAndLeavesTheRest)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    const unsigned char source[2] = {0, 0};
    EXPECT_TRUE(matrix.bits_in(source, 1, 2, 31, 38));
    EXPECT_EQ(192U - 16, matrix.numBitsSet());
    EXPECT_EQ(31U, matrix.findRowClrBit(1, 0, false));
    EXPECT_EQ(39U, matrix.findRowSetBit(2, 31, false));
    EXPECT_EQ(0xFFFFFFFFU, matrix.findRowClrBit(0, 0, false));
}

TEST(BitMatrixRectangle, SpareColumnsCount)
{
    CBitMatrix matrix(2, 40, nullptr);
    const unsigned char source[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_TRUE(matrix.bits_in(source, 0, 1, 40, 63));
    EXPECT_EQ(48U, matrix.numBitsSet());
}

// Several rows do not go to the word hooks, whatever their columns.
TEST(BitMatrixRectangle, SeveralRowsTransferWholeWordsToo)
{
    CBitMatrix matrix(2, 64, nullptr);
    matrix.setBit(0, 32);
    matrix.setBit(1, 63);
    unsigned char target[8] = {};
    EXPECT_EQ(8U, matrix.bits_out(target, 0, 1, 32, 63));
    EXPECT_EQ(0x80, target[0]);
    EXPECT_EQ(0x01, target[7]);
}

TEST(BitMatrixRectangle, SingleRowBetweenWordBoundariesTransfersNothing)
{
    CBitMatrix matrix(3, 64, nullptr);
    const unsigned char source[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_FALSE(matrix.bits_in(source, 1, 1, 0, 31));
    EXPECT_FALSE(matrix.bitsAreSet());
    EXPECT_TRUE(matrix.bits_in(source, 1, 1, 0, 30));
    EXPECT_EQ(31U, matrix.numBitsSet());
    unsigned char target[8] = {};
    EXPECT_EQ(0U, matrix.bits_out(target, 1, 1, 0, 63));
    EXPECT_EQ(0, target[0]);
    EXPECT_EQ(1U, matrix.bits_out(target, 1, 1, 0, 2));
    EXPECT_EQ(0xE0, target[0]);
}

TEST(BitMatrixRectangle, SingleRowIsCutAtTheEndOfItsWords)
{
    CBitMatrix matrix(3, 40, nullptr);
    const unsigned char source[2] = {0xFF, 0xFF};
    EXPECT_TRUE(matrix.bits_in(source, 1, 1, 60, 99));
    EXPECT_EQ(4U, matrix.numBitsSet());
    EXPECT_FALSE(matrix.rowBitsAreSet(2));
    unsigned char target[2] = {};
    EXPECT_EQ(1U, matrix.bits_out(target, 1, 1, 60, 99));
    EXPECT_EQ(0xF0, target[0]);
    EXPECT_EQ(0x20000000U, matrix.bits_out(target, 1, 1, 64, 70)) << "exactly at the end of the row's words";
    EXPECT_EQ(0U, matrix.bits_out(target, 1, 1, 65, 70));
}

TEST(BitMatrixRectangle, WithoutBitsReturns0x20000000)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    unsigned char buffer[1] = {0x5A};
    EXPECT_EQ(0x20000000U, matrix.bits_out(buffer, 2, 1, 0, 3));
    EXPECT_EQ(0x20000000U, matrix.bits_out(buffer, 0, 1, 3, 2));
    EXPECT_FALSE(matrix.bits_in(buffer, 2, 1, 0, 3));
    EXPECT_FALSE(matrix.bits_in(buffer, 0, 1, 3, 2));
    EXPECT_EQ(0x5A, buffer[0]);
    EXPECT_EQ(192U, matrix.numBitsSet());
}

TEST(BitMatrixRectangle, RowsAndColumnsWithoutWordsAreRefused)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    unsigned char buffer[32] = {};
    EXPECT_FALSE(matrix.bits_in(buffer, 1, 3, 0, 3));
    EXPECT_FALSE(matrix.bits_in(buffer, 0, 1, 60, 64));
    EXPECT_FALSE(matrix.bits_in(buffer, 0, 0xFFFFFFFF, 0, 0xFFFFFFFF));
    EXPECT_FALSE(matrix.bits_in(buffer, 3, 3, 0, 3));
    EXPECT_EQ(0x20000000U, matrix.bits_out(buffer, 1, 3, 0, 3));
    EXPECT_EQ(0x20000000U, matrix.bits_out(buffer, 0, 1, 60, 64));
    EXPECT_EQ(0U, matrix.bits_out(buffer, 3, 3, 0, 3));
    EXPECT_EQ(0, buffer[0]);
    EXPECT_EQ(192U, matrix.numBitsSet());
}
