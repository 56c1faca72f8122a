// Construction, layout, bits, rows and columns of CBitMatrix.
#include "bitset.h"

#include "bitset/counting_mask.h"
#include "bitset/mask_without_type_info.h"
#include "bitset/slot_of.h"
#include "harness/instrumented.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

namespace
{
constexpr unsigned none = 0xFFFFFFFF;

// Notes the calls that the convenience operations forward.
class NotingMatrix : public CBitMatrix
{
public:
    NotingMatrix()
    {
        CBitMatrix::init(3, 40, nullptr);
    }

    std::string last;

    using CBitMatrix::setCol;
    using CBitMatrix::setRow;

    void set(bool value) override
    {
        last = value ? "set true" : "set false";
        CBitMatrix::set(value);
    }
    void setRow(unsigned row, bool value, unsigned count, unsigned start) override
    {
        last = "setRow " + std::to_string(row) + (value ? " true " : " false ") + std::to_string(count) + " " +
               std::to_string(start);
    }
    void setCol(unsigned col, bool value, unsigned count, unsigned start) override
    {
        last = "setCol " + std::to_string(col) + (value ? " true " : " false ") + std::to_string(count) + " " +
               std::to_string(start);
    }
    bool setBit(unsigned, unsigned) override
    {
        last = "setBit";
        return true;
    }
    bool clrBit(unsigned, unsigned) override
    {
        last = "clrBit";
        return true;
    }
    void reset() override
    {
        ++resets;
        CBitMatrix::reset();
    }

    int resets = 0;
};
} // namespace

TEST(BitMatrixLayout, FieldsStandWhereProcessesLinkedEarlierLookForThem)
{
    unsigned words[6];
    const CBitMatrix matrix(3, 40, words);
    unsigned char bytes[sizeof matrix];
    memcpy(bytes, static_cast<const void *>(&matrix), sizeof bytes);
    ASSERT_EQ(40U, sizeof matrix);
    unsigned sizes[3];
    memcpy(sizes, bytes + 8, sizeof sizes);
    EXPECT_EQ(3U, sizes[0]);
    EXPECT_EQ(40U, sizes[1]);
    EXPECT_EQ(2U, sizes[2]);
    unsigned *stored;
    memcpy(&stored, bytes + 24, sizeof stored);
    EXPECT_EQ(words, stored);
    EXPECT_EQ(0, bytes[32]) << "autoDelete";
    EXPECT_EQ(0x5A, bytes[33]) << "signature";
}

TEST(BitMatrixLayout, VirtualOperationsStandInTheirSlots)
{
    using M = CBitMatrix;
    EXPECT_EQ(2U, (slotOf<void (M::*)(unsigned, unsigned, unsigned *)>(&M::init)));
    EXPECT_EQ(3U, (slotOf<void (M::*)(M const &)>(&M::init)));
    EXPECT_EQ(4U, slotOf(&M::size));
    EXPECT_EQ(5U, slotOf(&M::data_in));
    EXPECT_EQ(6U, slotOf(&M::data_out));
    EXPECT_EQ(7U, slotOf(&M::bits_in));
    EXPECT_EQ(8U, slotOf(&M::bits_out));
    EXPECT_EQ(9U, slotOf(&M::set));
    EXPECT_EQ(10U, (slotOf<void (M::*)(unsigned, bool, unsigned, unsigned)>(&M::setRow)));
    EXPECT_EQ(11U, (slotOf<void (M::*)(unsigned, bool, unsigned, unsigned)>(&M::setCol)));
    EXPECT_EQ(12U, slotOf(&M::reset));
    EXPECT_EQ(13U, slotOf(&M::resetRow));
    EXPECT_EQ(14U, slotOf(&M::resetCol));
    EXPECT_EQ(15U, slotOf(&M::bitwiseNotEqual));
    EXPECT_EQ(16U, slotOf(&M::setBit));
    EXPECT_EQ(17U, slotOf(&M::clrBit));
    EXPECT_EQ(18U, slotOf(&M::assignBit));
    EXPECT_EQ(19U, slotOf(&M::chkBit));
    EXPECT_EQ(20U, slotOf(&M::bitsAreSet));
    EXPECT_EQ(21U, slotOf(&M::rowBitsAreSet));
    EXPECT_EQ(22U, slotOf(&M::colBitsAreSet));
    EXPECT_EQ(23U, slotOf(&M::numBitsSet));
    EXPECT_EQ(24U, slotOf(&M::findRowSetBit));
    EXPECT_EQ(25U, slotOf(&M::findColSetBit));
    EXPECT_EQ(26U, slotOf(&M::findRowClrBit));
    EXPECT_EQ(27U, slotOf(&M::findColClrBit));
    EXPECT_EQ(28U, slotOf(&M::getRow));
    EXPECT_EQ(29U, (slotOf<bool (M::*)(unsigned, CBitMask *)>(&M::setRow)));
    EXPECT_EQ(30U, slotOf(&M::getCol));
    EXPECT_EQ(31U, (slotOf<bool (M::*)(unsigned, CBitMask *)>(&M::setCol)));
}

TEST(BitMatrixInit, RowsArePaddedToWholeWords)
{
    const CBitMatrix matrix(3, 40, nullptr);
    EXPECT_EQ(2U, matrix.wordsPerRow);
    EXPECT_EQ(64U, matrix.size());
    EXPECT_EQ(1, matrix.autoDelete);
    EXPECT_FALSE(matrix.bitsAreSet());
    EXPECT_EQ(1U, CBitMatrix(1, 32, nullptr).wordsPerRow);
    EXPECT_EQ(2U, CBitMatrix(1, 33, nullptr).wordsPerRow);
    EXPECT_EQ(0x8000000U, CBitMatrix(0, 0xFFFFFFFF, nullptr).wordsPerRow);
}

TEST(BitMatrixInit, WithoutRowsOrColumnsThereAreNoWords)
{
    for (const CBitMatrix &matrix :
         {CBitMatrix(), CBitMatrix(0, 0, nullptr), CBitMatrix(0, 5, nullptr), CBitMatrix(5, 0, nullptr)}) {
        EXPECT_EQ(nullptr, matrix.maskPtr);
        EXPECT_EQ(0, matrix.autoDelete);
        EXPECT_EQ(0x5A, matrix.signature);
        EXPECT_EQ(40U, matrix.size());
        EXPECT_EQ(0U, matrix.numBitsSet());
    }
}

TEST(BitMatrixInit, ClearsTheCallersWords)
{
    unsigned words[4] = {1, 2, 3, 4};
    CBitMatrix matrix;
    matrix.init(2, 8, words);
    EXPECT_EQ(0U, words[0] | words[1]);
    EXPECT_EQ(3U, words[2]);
    EXPECT_EQ(0, matrix.autoDelete);
    EXPECT_EQ(words, matrix.maskPtr);
    const CBitMatrix again(2, 33, words);
    EXPECT_EQ(0U, words[2] | words[3]);
}

TEST(BitMatrixInit, ClearsThroughTheVirtualReset)
{
    NotingMatrix matrix;
    matrix.resets = 0;
    matrix.init(2, 2, nullptr);
    EXPECT_EQ(1, matrix.resets);
    EXPECT_EQ("set false", matrix.last);
}

TEST(BitMatrixInit, CopyOwnsItsWordsSpareColumnsIncluded)
{
    unsigned words[2] = {};
    CBitMatrix from(2, 8, words);
    from.set(true);
    CBitMatrix copy(from);
    EXPECT_EQ(1, copy.autoDelete);
    EXPECT_NE(words, copy.maskPtr);
    EXPECT_EQ(64U, copy.numBitsSet());
    copy.init(CBitMatrix());
    EXPECT_EQ(nullptr, copy.maskPtr);
    EXPECT_EQ(0, copy.autoDelete);
    EXPECT_EQ(0U, copy.numRows);
    static_assert(!std::is_copy_assignable<CBitMatrix>::value, "no shallow copy by accident");
}

TEST(BitMatrixInit, CopyOfItselfEmptiesAnOwnerAndMakesAViewAnOwner)
{
    CBitMatrix owner(3, 40, nullptr);
    owner.init(owner);
    EXPECT_EQ(nullptr, owner.maskPtr);
    EXPECT_EQ(0U, owner.numRows);

    unsigned words[2] = {};
    CBitMatrix view(2, 8, words);
    view.setBit(1, 1);
    view.init(view);
    EXPECT_EQ(1, view.autoDelete);
    EXPECT_NE(words, view.maskPtr);
    EXPECT_TRUE(view.chkBit(1, 1));
}

TEST(BitMatrixDestructor, ClearsTheSignatureInMemory)
{
    alignas(CBitMatrix) unsigned char storage[sizeof(CBitMatrix)];
    auto *matrix = new (storage) CBitMatrix(3, 40, nullptr);
    matrix->~CBitMatrix();
    const volatile unsigned char *after = storage; // what is really there, whatever the compiler knows of lifetimes
    EXPECT_EQ(0, after[33]);
}

TEST(BitMatrixSingleBit, TrueOnlyWhenTheBitChanged)
{
    CBitMatrix matrix(3, 40, nullptr);
    EXPECT_TRUE(matrix.setBit(1, 33));
    EXPECT_FALSE(matrix.setBit(1, 33));
    EXPECT_TRUE(matrix.chkBit(1, 33));
    EXPECT_EQ(0x40000000U, matrix.maskPtr[3]);
    EXPECT_TRUE(matrix.clrBit(1, 33));
    EXPECT_FALSE(matrix.clrBit(1, 33));
    EXPECT_TRUE(matrix.assignBit(2, 0, true));
    EXPECT_FALSE(matrix.assignBit(2, 0, true));
    EXPECT_TRUE(matrix.assignBit(2, 0, false));
    EXPECT_FALSE(matrix.bitsAreSet());
}

TEST(BitMatrixSingleBit, SpareColumnsAreRefusedButARowSearchReachesThem)
{
    CBitMatrix matrix(3, 40, nullptr);
    EXPECT_FALSE(matrix.setBit(0, 40));
    EXPECT_FALSE(matrix.setBit(3, 0));
    EXPECT_FALSE(matrix.setBit(none, none));
    matrix.setRow(0, true, 0, 0);
    EXPECT_EQ(40U, matrix.findRowClrBit(0, 39, false));
    EXPECT_EQ(40U, matrix.findRowClrBit(0, 39, true));
    EXPECT_EQ(41U, matrix.findRowClrBit(0, 0, false));
    EXPECT_EQ(40U, matrix.findRowSetBit(0, 40, true));
    matrix.set(true);
    EXPECT_FALSE(matrix.chkBit(0, 40));
    EXPECT_FALSE(matrix.clrBit(0, 40));
    EXPECT_EQ(none, matrix.findRowClrBit(0, 0, false));
}

TEST(BitMatrixWhole, SetAndComplementReachTheSpareColumns)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    EXPECT_EQ(192U, matrix.numBitsSet());
    matrix.bitwiseNotEqual();
    EXPECT_FALSE(matrix.bitsAreSet());
    matrix.bitwiseNotEqual();
    matrix.reset();
    EXPECT_FALSE(matrix.bitsAreSet());
}

// A row is counted as by a mask over it, whose number of words is cut to 16 bits: of 65,537 it has one.
TEST(BitMatrixWhole, RowsOfMoreWordsThanAMaskCanHaveAreCountedInPart)
{
    CBitMatrix matrix(2, 65537 * 32, nullptr);
    matrix.set(true);
    EXPECT_EQ(64U, matrix.numBitsSet());
    EXPECT_EQ(0U, matrix.findRowSetBit(1, 0, true));
    EXPECT_EQ(63U, matrix.numBitsSet());
}

TEST(BitMatrixRow, Count0MeansTheColumnsAndLeavesTheSpareOnesAlone)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setRow(1, true, 0, 0);
    EXPECT_EQ(40U, matrix.numBitsSet());
    EXPECT_TRUE(matrix.rowBitsAreSet(1));
    EXPECT_FALSE(matrix.rowBitsAreSet(0));
    EXPECT_FALSE(matrix.rowBitsAreSet(2));
    EXPECT_EQ(40U, matrix.findRowClrBit(1, 0, false));
    matrix.resetRow(1, 0, 0);
    EXPECT_FALSE(matrix.bitsAreSet());
}

TEST(BitMatrixRow, RangesFollowTheRulesOfTheMask)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setRow(1, true, 5, 30);
    EXPECT_EQ(5U, matrix.numBitsSet());
    EXPECT_EQ(30U, matrix.findRowSetBit(1, 0, false));
    matrix.reset();
    matrix.setRow(1, true, 0, 65);
    EXPECT_EQ(40U, matrix.numBitsSet()) << "a start behind the words means column 0";
    matrix.reset();
    matrix.setRow(1, true, 0, 64);
    EXPECT_FALSE(matrix.bitsAreSet()) << "exactly at their end nothing happens";
    matrix.setRow(1, true, 0, 50);
    EXPECT_EQ(14U, matrix.numBitsSet()) << "spare columns, cut at the end of the row";
}

TEST(BitMatrixRow, RowsThatDoNotExistAreRefused)
{
    CBitMatrix matrix(3, 40, nullptr);
    CBitMask mask(64);
    mask.set();
    matrix.setRow(3, true, 0, 0);
    matrix.setRow(none, true, 0, 0);
    matrix.resetRow(3, 0, 0);
    EXPECT_FALSE(matrix.rowBitsAreSet(3));
    EXPECT_EQ(none, matrix.findRowSetBit(3, 0, true));
    EXPECT_EQ(none, matrix.findRowClrBit(3, 0, true));
    EXPECT_FALSE(matrix.getRow(3, &mask));
    EXPECT_FALSE(matrix.setRow(3, &mask));
    EXPECT_FALSE(matrix.bitsAreSet());
    EXPECT_EQ(64U, mask.numBitsSet());
}

TEST(BitMatrixRow, GetRowNeedsAMaskOfARowsWords)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(1, 33);
    CBitMask shorter(32);
    CBitMask exact(33);
    exact.set();
    EXPECT_FALSE(matrix.getRow(1, nullptr));
    EXPECT_FALSE(matrix.getRow(1, &shorter));
    EXPECT_TRUE(matrix.getRow(1, &exact));
    EXPECT_EQ(0U, exact[0]);
    EXPECT_EQ(0x40000000U, exact[1]);
}

TEST(BitMatrixRow, LongerMaskGetsTheFollowingRowsToo)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(1, 1);
    matrix.setBit(2, 2);
    CBitMask longer(128);
    EXPECT_TRUE(matrix.getRow(1, &longer));
    EXPECT_EQ(0x40000000U, longer[0]);
    EXPECT_EQ(0x20000000U, longer[2]);
}

// The words of the last row are the last there are.
TEST(BitMatrixRow, LongerMaskGetsNothingFromBehindTheLastRow)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(2, 2);
    CBitMask longer(128);
    longer.set();
    EXPECT_TRUE(matrix.getRow(2, &longer));
    EXPECT_EQ(0x20000000U, longer[0]);
    EXPECT_EQ(0U, longer[1]);
    EXPECT_EQ(0xFFFFFFFFU, longer[2] & longer[3]);
}

TEST(BitMatrixRow, SetRowMergesTheLastWordOfTheMask)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setRow(1, true, 0, 0);
    CBitMask in(40);
    in.setBit(3);
    in.setBit(35);
    EXPECT_TRUE(matrix.setRow(1, &in));
    EXPECT_EQ(0x10000000U, matrix.maskPtr[2]) << "copied";
    EXPECT_EQ(0xFF000000U, matrix.maskPtr[3]) << "merged";
    EXPECT_FALSE(matrix.setRow(1, &in));
    EXPECT_FALSE(matrix.setRow(1, nullptr));
    EXPECT_EQ(0U, matrix.maskPtr[1] | matrix.maskPtr[4]);
}

TEST(BitMatrixColumn, SetAndClearARangeOfRows)
{
    CBitMatrix matrix(5, 40, nullptr);
    matrix.setCol(33, true, 2, 1);
    EXPECT_EQ(2U, matrix.numBitsSet());
    EXPECT_TRUE(matrix.chkBit(1, 33) && matrix.chkBit(2, 33));
    matrix.setCol(33, true, 0, 3);
    EXPECT_EQ(4U, matrix.numBitsSet());
    matrix.setCol(33, true, 0, 6);
    EXPECT_EQ(5U, matrix.numBitsSet()) << "a start beyond the rows means row 0";
    matrix.resetCol(33, 0, 5);
    EXPECT_EQ(5U, matrix.numBitsSet()) << "exactly at the end nothing happens";
    matrix.resetCol(33, 100, 1);
    EXPECT_EQ(1U, matrix.numBitsSet());
}

TEST(BitMatrixColumn, SpareColumnsAreReachedByRangesAndThoseWithoutWordsIgnored)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setCol(40, true, 0, 0);
    EXPECT_EQ(3U, matrix.numBitsSet());
    matrix.reset();
    matrix.setCol(64, true, 0, 0);
    matrix.setCol(none, true, 0, 0);
    EXPECT_FALSE(matrix.bitsAreSet());
}

TEST(BitMatrixColumn, SearchesRefuseColumnsAndRowsThatDoNotExist)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.set(true);
    EXPECT_FALSE(matrix.colBitsAreSet(40));
    EXPECT_TRUE(matrix.colBitsAreSet(39));
    EXPECT_EQ(none, matrix.findColSetBit(40, 0, true));
    EXPECT_EQ(none, matrix.findColSetBit(0, 3, true));
    EXPECT_EQ(none, matrix.findColSetBit(0, none, true));
    matrix.reset();
    EXPECT_EQ(none, matrix.findColClrBit(40, 0, true));
    EXPECT_EQ(none, matrix.findColClrBit(0, 3, true));
    EXPECT_FALSE(matrix.bitsAreSet());
    EXPECT_FALSE(CBitMatrix(0, 40, nullptr).colBitsAreSet(0));
}

TEST(BitMatrixColumn, SearchesFindTheFirstRowAndTakeItsBit)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(1, 39);
    matrix.setBit(2, 39);
    EXPECT_EQ(1U, matrix.findColSetBit(39, 0, false));
    EXPECT_EQ(2U, matrix.findColSetBit(39, 2, false));
    EXPECT_EQ(1U, matrix.findColSetBit(39, 0, true));
    EXPECT_EQ(2U, matrix.findColSetBit(39, 0, true));
    EXPECT_EQ(none, matrix.findColSetBit(39, 0, true));
    EXPECT_EQ(0U, matrix.findColClrBit(39, 0, true));
    EXPECT_EQ(1U, matrix.findColClrBit(39, 0, false));
    EXPECT_EQ(1U, matrix.numBitsSet());
}

TEST(BitMatrixColumn, GetColWritesOneBitARowAndKeepsTheRest)
{
    CBitMatrix matrix(3, 40, nullptr);
    matrix.setBit(1, 39);
    CBitMask out(32);
    out.set();
    EXPECT_TRUE(matrix.getCol(39, &out));
    EXPECT_EQ(0x5FFFFFFFU, out[0]);
    EXPECT_FALSE(matrix.getCol(40, &out));
    EXPECT_FALSE(matrix.getCol(0, nullptr));
    const CBitMatrix tall(33, 2, nullptr);
    EXPECT_FALSE(tall.getCol(0, &out)) << "more rows than bits";
    EXPECT_TRUE(CBitMatrix(0, 5, nullptr).getCol(0, &out)) << "nothing to write";
    EXPECT_EQ(0x5FFFFFFFU, out[0]);
}

TEST(BitMatrixColumn, GetColOfMoreThanAWordOfRowsKeepsTheBitsBehind)
{
    CBitMatrix matrix(67, 70, nullptr);
    for (unsigned row = 0; row < 67; row += 3)
        matrix.setBit(row, 69);
    CBitMask out(96);
    out.set();
    EXPECT_TRUE(matrix.getCol(69, &out));
    for (unsigned row = 0; row < 96; ++row)
        ASSERT_EQ(row >= 67 || row % 3 == 0, out.chkBit(row)) << row;
}

TEST(BitMatrixColumn, GetColAsksSetBitAndClrBitOfADerivedMask)
{
    CBitMatrix matrix(5, 3, nullptr);
    matrix.setBit(1, 2);
    matrix.setBit(4, 2);
    CountingMask out(32);
    out.forget();
    EXPECT_TRUE(matrix.getCol(2, &out));
    EXPECT_EQ(2, out.calls("setBit 18"));
    EXPECT_EQ(3, out.calls("clrBit 19"));
    EXPECT_EQ(0x48000000U, out[0]);
}

TEST(BitMatrixColumn, GetColAsksADerivedMaskThatHasNoTypeInformation)
{
    if (UnderAddressSanitizer)
        GTEST_SKIP() << "the sanitizer of virtual calls takes a class without type information for a broken object";
    CBitMatrix matrix(5, 3, nullptr);
    matrix.setBit(1, 2);
    MaskWithoutTypeInfo out(32);
    EXPECT_TRUE(matrix.getCol(2, &out));
    EXPECT_EQ(5, out.calls);
    EXPECT_EQ(0x40000000U, out[0]);
}

// Row 0 becomes the column, which the later rows' bits are not part of.
TEST(BitMatrixColumn, GetColIntoTheMatrixItselfGoesRowByRow)
{
    CBitMatrix matrix(3, 32, nullptr);
    matrix.setBit(1, 0);
    matrix.setBit(2, 0);
    CBitMask out(1, matrix.maskPtr);
    EXPECT_TRUE(matrix.getCol(0, &out));
    EXPECT_EQ(0x60000000U, matrix.maskPtr[0]);
    CBitMask all(3, matrix.maskPtr);
    all.reset();
    all.set(32, 32);
    EXPECT_TRUE(matrix.getCol(31, &all));
    EXPECT_EQ(0x40000000U, matrix.maskPtr[0]);
    EXPECT_EQ(0xFFFFFFFFU, matrix.maskPtr[1]);
}

TEST(BitMatrixColumn, SetColTellsWhetherABitChangedAndWritesThemAll)
{
    CBitMatrix matrix(3, 40, nullptr);
    CBitMask in(32);
    in.setBit(0);
    in.setBit(2);
    EXPECT_TRUE(matrix.setCol(39, &in));
    EXPECT_TRUE(matrix.chkBit(0, 39) && !matrix.chkBit(1, 39) && matrix.chkBit(2, 39));
    EXPECT_FALSE(matrix.setCol(39, &in));
    EXPECT_FALSE(matrix.setCol(40, &in));
    EXPECT_FALSE(matrix.setCol(0, nullptr));
    EXPECT_FALSE(CBitMatrix(33, 2, nullptr).setCol(0, &in));
    EXPECT_FALSE(CBitMatrix(0, 5, nullptr).setCol(0, &in));
    EXPECT_EQ(2U, matrix.numBitsSet());
}

TEST(BitMatrixConvenience, ForwardsThroughTheVirtualTable)
{
    NotingMatrix matrix;
    matrix.reset();
    EXPECT_EQ("set false", matrix.last);
    matrix.resetRow(1, 2, 3);
    EXPECT_EQ("setRow 1 false 2 3", matrix.last);
    matrix.resetCol(4, 5, 6);
    EXPECT_EQ("setCol 4 false 5 6", matrix.last);
    EXPECT_TRUE(matrix.assignBit(9, 9, true));
    EXPECT_EQ("setBit", matrix.last);
    EXPECT_TRUE(matrix.assignBit(9, 9, false));
    EXPECT_EQ("clrBit", matrix.last);
}
