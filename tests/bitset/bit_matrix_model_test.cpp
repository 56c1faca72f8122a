// Every operation of CBitMatrix against one bool a bit, on owned matrices and on borrowed words between guards.
#include "models/bit_matrix_model.h"

#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

namespace
{
using Program = BitMatrixProgram<SeededChooser>;

#ifdef __OPTIMIZE__
constexpr unsigned programs = 1500;
#else
constexpr unsigned programs = 300;
#endif

void run(BitMatrixAndModel &both, SeededChooser &choose)
{
    Program program(both, choose);
    const auto &operations = Program::operations();
    ASSERT_STREQ(nullptr, both.broken());
    ASSERT_EQ(-1, both.firstDifference()) << "a fresh matrix is clear";
    for (int i = 0; i < 150; ++i) {
        const auto &operation = operations[choose.below(static_cast<unsigned>(operations.size()))];
        ASSERT_TRUE(program.step(operation)) << operation.name << ", call " << i;
        ASSERT_STREQ(nullptr, both.broken()) << operation.name << ", call " << i;
        ASSERT_EQ(-1, both.firstDifference()) << operation.name << ", call " << i;
    }
}
} // namespace

TEST(BitMatrixModel, OwnedMatrixAgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < programs; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SeededChooser choose(seed);
        const unsigned rows = choose.below(7);
        BitMatrixAndModel both(rows, choose.below(130));
        ASSERT_NO_FATAL_FAILURE(run(both, choose));
    }
}

TEST(BitMatrixModel, MatrixOnTheCallersWordsAgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < programs; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SeededChooser choose(seed);
        const unsigned rows = choose.below(7);
        BitMatrixAndModel both(rows, choose.below(130), choose);
        ASSERT_NO_FATAL_FAILURE(run(both, choose));
    }
}

TEST(BitMatrixModel, LargeMatrixAgreesAfterAnyProgram)
{
    SeededChooser choose(4711);
    BitMatrixAndModel tall(400, 33);
    ASSERT_NO_FATAL_FAILURE(run(tall, choose));
    BitMatrixAndModel wide(3, 4001, choose);
    ASSERT_NO_FATAL_FAILURE(run(wide, choose));
}

TEST(BitMatrixModel, NoticesABitChangedBehindItsBack)
{
    BitMatrixAndModel both(3, 40);
    both.matrix.setBit(1, 5);
    EXPECT_EQ(64 + 5, both.firstDifference());
    both.bits[1][5] = true;
    EXPECT_EQ(-1, both.firstDifference());
    both.matrix.maskPtr[5] ^= 1; // the last spare column of row 2
    EXPECT_EQ(2 * 64 + 63, both.firstDifference());
}

TEST(BitMatrixModel, NoticesEveryOtherChangeBehindItsBack)
{
    SeededChooser choose(1);
    BitMatrixAndModel size(3, 40);
    size.matrix.init(3, 41, nullptr);
    EXPECT_STREQ("the size", size.broken());
    BitMatrixAndModel around(3, 40, choose);
    around.matrix.maskPtr[6] ^= 1;
    EXPECT_STREQ("the memory around borrowed words stays", around.broken());
}

TEST(BitMatrixModel, NamesTheInvariantOfAMatrixThatIsBroken)
{
    CBitMatrix matrix;
    EXPECT_STREQ(nullptr, brokenInvariant(matrix));
    matrix.autoDelete = 1;
    EXPECT_STREQ("an owner has words", brokenInvariant(matrix));
    matrix.numRows = 1;
    matrix.wordsPerRow = 1;
    matrix.numColumns = 32;
    EXPECT_STREQ("a matrix with bits has words", brokenInvariant(matrix));
    matrix.numColumns = 33;
    EXPECT_STREQ("a row has the words that its columns need", brokenInvariant(matrix));
    matrix.signature = 0xA5;
    EXPECT_STREQ("a live matrix carries its signature", brokenInvariant(matrix));
    matrix.autoDelete = 0;
}
