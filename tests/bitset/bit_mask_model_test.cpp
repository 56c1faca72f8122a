// Every operation of CBitMask against one bool a bit, on owned masks and on views of random memory between guards.
#include "models/bit_mask_model.h"

#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
using Program = BitMaskProgram<SeededChooser>;

// The model is slow where the compiler does not optimise: fewer rounds there, and the largest masks only elsewhere.
#ifdef __OPTIMIZE__
constexpr int rounds = 40;
constexpr unsigned programs = 1000;
constexpr unsigned largeSizes[] = {4096, 32767, 65535 * 32 - 7, 65535 * 32};
#else
constexpr int rounds = 8;
constexpr unsigned programs = 200;
constexpr unsigned largeSizes[] = {4096, 32767};
#endif

testing::AssertionResult agreesAfter(const Program::Operation &operation, Program &program,
                                     const BitMaskAndModel &target)
{
    if (!program.step(operation))
        return testing::AssertionFailure() << operation.name << ": result";
    if (const char *broken = target.broken())
        return testing::AssertionFailure() << operation.name << ": " << broken;
    if (target.firstDifference() != -1)
        return testing::AssertionFailure() << operation.name << ": bit " << target.firstDifference();
    return testing::AssertionSuccess();
}

void makeEveryCall(BitMaskAndModel &target, BitMaskAndModel &other, SeededChooser &choose, int times)
{
    Program program(target, other, choose);
    ASSERT_STREQ(nullptr, target.broken());
    ASSERT_EQ(-1, target.firstDifference());
    for (int round = 0; round < times; ++round)
        for (const auto &operation : Program::operations()) {
            if (operation.resizes)
                continue;
            ASSERT_TRUE(agreesAfter(operation, program, target)) << "round " << round;
        }
}
} // namespace

TEST(BitMaskModel, AgreesOnEveryCallForOwnedMasksOfEverySizeUpTo200)
{
    for (unsigned size = 0; size <= 200; ++size) {
        SCOPED_TRACE("size and seed " + std::to_string(size));
        SeededChooser choose(size);
        BitMaskAndModel target(size);
        BitMaskAndModel other(choose.below(201));
        ASSERT_NO_FATAL_FAILURE(makeEveryCall(target, other, choose, rounds));
    }
}

// The words start random and have guards around them, so a write outside shows.
TEST(BitMaskModel, AgreesOnEveryCallForViewsOfRandomWords)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SeededChooser choose(seed);
        BitMaskAndModel target(1 + seed % 7, choose);
        BitMaskAndModel other(1 + choose.below(7), choose);
        ASSERT_NO_FATAL_FAILURE(makeEveryCall(target, other, choose, rounds));
    }
}

TEST(BitMaskModel, AgreesOnEveryCallForLargeMasks)
{
    for (const unsigned bits : largeSizes) {
        SCOPED_TRACE("size and seed " + std::to_string(bits));
        SeededChooser choose(bits);
        BitMaskAndModel target(bits);
        BitMaskAndModel other((bits + 31) / 32, choose);
        ASSERT_NO_FATAL_FAILURE(makeEveryCall(target, other, choose, 1));
    }
}

// Two masks that are resized, owned and viewed in turn, each the other's argument.
TEST(BitMaskModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < programs; ++seed) {
        SeededChooser choose(seed);
        BitMaskAndModel first(choose.below(201));
        BitMaskAndModel second(1 + choose.below(7), choose);
        Program onFirst(first, second, choose);
        Program onSecond(second, first, choose);
        const auto &operations = Program::operations();
        for (int i = 0; i < 200; ++i) {
            const bool which = choose.below(2) != 0;
            const auto &operation = operations[choose.below(static_cast<unsigned>(operations.size()))];
            ASSERT_TRUE(agreesAfter(operation, which ? onFirst : onSecond, which ? first : second))
                << "seed " << seed << ", call " << i;
        }
    }
}

TEST(BitMaskModel, NoticesABitChangedBehindItsBack)
{
    BitMaskAndModel both(96);
    both.mask.setBit(37);
    EXPECT_EQ(37, both.firstDifference());
}

TEST(BitMaskModel, NoticesEveryOtherChangeBehindItsBack)
{
    SeededChooser choose(1);
    BitMaskAndModel tail(96);
    tail.mask.tailBits = 1;
    EXPECT_STREQ("the number of tail bits", tail.broken());
    BitMaskAndModel size(96);
    size.mask.init(128);
    EXPECT_STREQ("the number of words", size.broken());
    BitMaskAndModel spare(96);
    spare.mask.spare = 1;
    EXPECT_STREQ("the spare bits stay", spare.broken());
    BitMaskAndModel owner(3, choose);
    owner.mask.init(CBitMask(owner.mask), false);
    EXPECT_STREQ("who owns the words", owner.broken());
    BitMaskAndModel around(3, choose);
    around.mask.maskPtr[3] ^= 1;
    EXPECT_STREQ("the memory around a view stays", around.broken());
}

TEST(BitMaskModel, NamesTheInvariantOfAMaskThatIsBroken)
{
    CBitMask mask;
    EXPECT_STREQ(nullptr, brokenInvariant(mask));
    mask.tailBits = 3;
    EXPECT_STREQ("an empty mask has no tail", brokenInvariant(mask));
    mask.autoDelete = 1;
    EXPECT_STREQ("an empty mask owns nothing", brokenInvariant(mask));
    unsigned word = 0;
    mask.maskPtr = &word;
    EXPECT_STREQ("the word pointer is null exactly when there are no words", brokenInvariant(mask));
    mask.signature = 0x5A;
    EXPECT_STREQ("a live mask carries its signature", brokenInvariant(mask));
    mask.autoDelete = 0;
}
