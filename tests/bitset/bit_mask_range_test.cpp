// Ranges, searches, counts, range copies and shifts of CBitMask.
#include "bitset.h"

#include "bitset/counting_mask.h"
#include "bitset/mask_without_type_info.h"
#include "harness/instrumented.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace
{
constexpr unsigned none = 0xFFFFFFFF;

// The set bits, in order.
std::vector<unsigned> bitsOf(const CBitMask &mask)
{
    std::vector<unsigned> set;
    for (unsigned bit = 0; bit < mask.numWords * 32U; ++bit)
        if (mask.chkBit(bit))
            set.push_back(bit);
    return set;
}

std::vector<unsigned> fromTo(unsigned first, unsigned last)
{
    std::vector<unsigned> bits;
    for (unsigned bit = first; bit <= last; ++bit)
        bits.push_back(bit);
    return bits;
}
} // namespace

TEST(BitMaskRange, ResetWithoutArgumentsClearsTheWholeMask)
{
    CBitMask mask(77);
    mask.set(0, 0);
    EXPECT_EQ(96U, mask.numBitsSet()) << "the tail is set as well";
    mask.reset(0, 0);
    EXPECT_FALSE(mask.bitsAreSet());
    mask.set();
    EXPECT_EQ(96U, mask.numBitsSet());
    mask.reset();
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskRange, SetCrossesAWordBoundary)
{
    CBitMask mask(96);
    mask.set(5, 30);
    EXPECT_EQ(fromTo(30, 34), bitsOf(mask));
    mask.set();
    mask.reset(5, 30);
    EXPECT_EQ(91U, mask.numBitsSet());
    EXPECT_EQ(30U, mask.findClrBit(0));
    EXPECT_EQ(none, mask.findClrBit(35));
}

// One word: the front mask and the back mask fall on the same word.
TEST(BitMaskRange, RangeInsideOneWordLeavesBothItsNeighboursAlone)
{
    CBitMask mask(64);
    mask.set(3, 40);
    EXPECT_EQ(fromTo(40, 42), bitsOf(mask));
    mask.set(32, 0);
    EXPECT_EQ(0xFFFFFFFFU, mask[0]);
    mask.reset(1, 31);
    EXPECT_EQ(0xFFFFFFFEU, mask[0]);
}

TEST(BitMaskRange, StartBeyondTheEndMeansBitZero)
{
    CBitMask mask(64);
    mask.set(0, 100);
    EXPECT_EQ(64U, mask.numBitsSet());
    mask.reset(3, 65);
    EXPECT_EQ(3U, mask.findSetBit(0));
    mask.reset(0, 0xFFFFFFFF);
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskRange, StartExactlyAtTheEndDoesNothing)
{
    unsigned words[3] = {0, 0, 0x5A5A5A5A};
    CBitMask mask(2, words);
    for (const unsigned count : {0U, 1U, 32U, 0xFFFFFFFFU}) {
        mask.set(count, 64);
        EXPECT_EQ(0U, words[0] | words[1]);
        EXPECT_EQ(0x5A5A5A5AU, words[2]);
    }
    mask.set();
    mask.reset(1, 64);
    EXPECT_EQ(64U, mask.numBitsSet());
    EXPECT_EQ(0x5A5A5A5AU, words[2]);
}

TEST(BitMaskRange, CountIsCutAtTheEnd)
{
    unsigned words[3] = {0, 0, 0};
    CBitMask mask(2, words);
    mask.set(0xFFFFFFFF, 33);
    EXPECT_EQ(fromTo(33, 63), bitsOf(mask));
    EXPECT_EQ(0U, words[2]);
}

TEST(BitMaskRange, EmptyMaskIsLeftAlone)
{
    CBitMask empty;
    empty.set();
    empty.set(1, 1);
    empty.reset(0, 7);
    EXPECT_EQ(0U, empty.numBitsSet());
    EXPECT_FALSE(empty.bitsAreSet());
}

// Every start and length around one, two and three words.
TEST(BitMaskRange, EveryRangeOfAMaskOfThreeWordsIsExact)
{
    for (unsigned start = 0; start < 96; ++start) {
        for (unsigned count = 1; count <= 96 - start; ++count) {
            CBitMask mask(96);
            mask.set(count, start);
            ASSERT_EQ(fromTo(start, start + count - 1), bitsOf(mask)) << start << " " << count;
            mask.bitwiseNotEqual();
            mask.set(count, start);
            ASSERT_EQ(96U, mask.numBitsSet());
            mask.reset(count, start);
            mask.bitwiseNotEqual();
            ASSERT_EQ(fromTo(start, start + count - 1), bitsOf(mask)) << start << " " << count;
        }
    }
}

TEST(BitMaskSearch, AllOnesHaveNoClearBit)
{
    CBitMask mask(64);
    mask.set();
    EXPECT_EQ(none, mask.findClrBit(0));
    EXPECT_EQ(none, mask.findClrBit(0, true));
    mask.reset();
    EXPECT_EQ(none, mask.findSetBit(0));
    EXPECT_EQ(none, mask.findSetBit(0, true));
}

TEST(BitMaskSearch, FindAndTakeClearsTheBitItFinds)
{
    CBitMask mask(64);
    mask.setBit(33);
    mask.setBit(50);
    EXPECT_EQ(33U, mask.findSetBit(0, false));
    EXPECT_EQ(33U, mask.findSetBit(0, true));
    EXPECT_EQ(50U, mask.findSetBit(0, true));
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskSearch, FindAndAllocateSetsTheBitItFinds)
{
    CBitMask mask(64);
    mask.set(33, 0);
    EXPECT_EQ(33U, mask.findClrBit(0, false));
    EXPECT_EQ(33U, mask.findClrBit(0, true));
    EXPECT_EQ(34U, mask.findClrBit(0, true));
    EXPECT_EQ(35U, mask.numBitsSet());
}

TEST(BitMaskSearch, StartsAtBitZeroUnlessToldOtherwise)
{
    CBitMask mask(64);
    mask.setBit(0);
    EXPECT_EQ(0U, mask.findSetBit());
    EXPECT_EQ(1U, mask.findClrBit());
}

TEST(BitMaskSearch, StartAtOrPastTheEndFindsNothing)
{
    CBitMask mask(64);
    mask.setBit(63);
    EXPECT_EQ(63U, mask.findSetBit(63));
    for (const unsigned start : {64U, 65U, 0xFFFFFFFFU}) {
        EXPECT_EQ(none, mask.findSetBit(start));
        EXPECT_EQ(none, mask.findClrBit(start));
        EXPECT_EQ(none, mask.findSetBit(start, true));
        EXPECT_EQ(none, mask.findClrBit(start, true));
    }
    EXPECT_EQ(none, CBitMask().findSetBit());
    EXPECT_EQ(none, CBitMask().findClrBit());
}

TEST(BitMaskSearch, FullMaskReportsItsFirstTailBitAsClear)
{
    CBitMask mask(40);
    mask.set(40, 0);
    EXPECT_EQ(40U, mask.findClrBit(0));
    mask.setBit(63);
    EXPECT_EQ(63U, mask.findSetBit(40));
}

TEST(BitMaskSearch, AsksTheVirtualOperationsToFindAndToFlip)
{
    CountingMask mask(64);
    mask.CBitMask::setBit(3);
    mask.forget();
    EXPECT_EQ(3U, mask.findSetBit(0, true));
    EXPECT_EQ(1, mask.calls("findSetBit 28"));
    EXPECT_EQ(1, mask.calls("clrBit 19"));
    EXPECT_EQ(0U, mask.findClrBit(0, true));
    EXPECT_EQ(1, mask.calls("findClrBit 29"));
    EXPECT_EQ(1, mask.calls("setBit 18"));
}

TEST(BitMaskScan, CountsFromTheMostSignificantBit)
{
    for (int bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(bit, CBitMask::scanbit(0x80000000U >> bit));
        EXPECT_EQ(bit, CBitMask::scanbit(0xFFFFFFFFU >> bit));
        EXPECT_EQ(bit, CBitMask::scanclrbit(~(0x80000000U >> bit)));
    }
}

TEST(BitMaskAssign, RefusesStartsOutOfRange)
{
    CBitMask to(64);
    CBitMask from(64);
    from.set();
    EXPECT_FALSE(to.assign(from, 64, 0, 0));
    EXPECT_FALSE(to.assign(from, 0, 64, 0));
    EXPECT_FALSE(to.assign(from, 0xFFFFFFFF, 0xFFFFFFFF, 1));
    EXPECT_FALSE(to.assign(CBitMask(), 0, 0, 0));
    EXPECT_FALSE(CBitMask().assign(from, 0, 0, 0));
    EXPECT_FALSE(to.bitsAreSet());
}

TEST(BitMaskAssign, UnalignedCopyTellsWhetherAnyBitChangedAndCopiesAllOfThem)
{
    CBitMask from(64);
    from.setBit(1);
    from.setBit(5);
    CBitMask to(64);
    to.setBit(6);
    EXPECT_TRUE(to.assign(from, 1, 2, 5)) << "the first bit changes, and the others are copied all the same";
    EXPECT_EQ((std::vector<unsigned>{2, 6}), bitsOf(to));
    EXPECT_FALSE(to.assign(from, 1, 2, 5));
    to.set();
    EXPECT_TRUE(to.assign(from, 3, 0, 0)) << "count 0: as many as both have";
    EXPECT_EQ(2U, to.findSetBit(0));
    EXPECT_EQ(61U, to.findSetBit(3));
}

TEST(BitMaskAssign, WordPathOrsTheLastWordAndClearsTheSourcesTailEvenMidMask)
{
    unsigned fromWords[3] = {0x11111111, 0x0F0F0F0F, 0x33333333};
    unsigned toWords[4] = {0xFFFFFFFF, 0xF0000FFF, 0x44444444, 0x55555555};
    CBitMask from(3, fromWords);
    from.tailBits = 8;
    CBitMask to(4, toWords);
    EXPECT_TRUE(to.assign(from, 0, 0, 64));
    EXPECT_EQ(0x11111111U, toWords[0]) << "copied";
    EXPECT_EQ(0xFF0F0F00U, toWords[1]) << "merged, and the low 8 bits cleared";
    EXPECT_EQ(0x44444444U, toWords[2]);
    EXPECT_EQ(0x55555555U, toWords[3]);
}

TEST(BitMaskAssign, WordPathTakesAPartOfAWordForAWholeOne)
{
    unsigned fromWords[2] = {0x00000001, 0xFFFFFFFF};
    unsigned toWords[2] = {0, 0};
    CBitMask to(2, toWords);
    EXPECT_TRUE(to.assign(CBitMask(2, fromWords), 0, 0, 1)) << "one bit asked for, the whole word merged";
    EXPECT_EQ(1U, toWords[0]);
    EXPECT_EQ(0U, toWords[1]);
}

TEST(BitMaskAssign, WordPathTellsAnEarlierChangeWhenTheMergeChangedNothing)
{
    unsigned fromWords[2] = {7, 0};
    unsigned toWords[2] = {0, 0xFFFFFFFF};
    CBitMask to(2, toWords);
    const CBitMask from(2, fromWords);
    EXPECT_TRUE(to.assign(from, 0, 0, 0));
    EXPECT_FALSE(to.assign(from, 0, 0, 0));
    EXPECT_EQ(7U, toWords[0]);
    EXPECT_EQ(0xFFFFFFFFU, toWords[1]);
}

TEST(BitMaskAssign, BitPathAsksAssignBitOfTheTargetAndChkBitOfTheSource)
{
    CountingMask from(64);
    CountingMask to(64);
    from.forget();
    to.forget();
    to.assign(from, 1, 0, 10);
    EXPECT_EQ(10, from.calls("chkBit 23"));
    EXPECT_EQ(10, to.calls("assignBit 20"));
}

TEST(BitMaskAssign, WordPathAsksTheSourceForItsWords)
{
    CountingMask from(96);
    CBitMask to(96);
    to.assign(from, 0, 0, 0);
    EXPECT_EQ(3, from.calls("[] 32"));
}

TEST(BitMaskAssign, AlignedCopyFromWordsReturnsFalseAlthoughItChangedBits)
{
    const unsigned words[2] = {0x12345678, 0x9ABCDEF0};
    CBitMask mask(64);
    EXPECT_FALSE(mask.assign(words, 2, 0));
    EXPECT_EQ(0x12345678U, mask[0]);
    EXPECT_EQ(0x9ABCDEF0U, mask[1]);
}

TEST(BitMaskAssign, AlignedCopyFromWordsMergesTheLastAndClearsItsOwnTailBits)
{
    const unsigned words[2] = {0x12345678, 0x0000FFFF};
    CBitMask mask(88);
    mask.set();
    EXPECT_FALSE(mask.assign(words, 2, 0));
    EXPECT_EQ(0x12345678U, mask[0]);
    EXPECT_EQ(0xFFFFFF00U, mask[1]) << "mid-mask as well";
    EXPECT_EQ(0xFFFFFFFFU, mask[2]);
    EXPECT_FALSE(mask.assign(words, 0xFFFFFFFF, 64)) << "cut at the end of the mask";
    EXPECT_EQ(0xFFFFFF00U, mask[2]);
}

TEST(BitMaskAssign, AlignedCopyFromTheSameWordsGoesFromTheFirstWordToTheLast)
{
    for (unsigned count = 1; count <= 40; ++count) {
        std::vector<unsigned> words(count + 1, 2);
        words[0] = 1;
        CBitMask mask(count, words.data() + 1);
        mask.assign(words.data(), count, 0);
        std::vector<unsigned> expected(count + 1, 1);
        expected.back() = 3; // merged
        EXPECT_EQ(expected, words) << count << " words";
    }
}

TEST(BitMaskAssign, UnalignedCopyFromWordsTellsWhetherAnyBitChanged)
{
    const unsigned words[2] = {0x80000001, 0xC0000000};
    CBitMask mask(64);
    EXPECT_TRUE(mask.assign(words, 2, 10));
    EXPECT_EQ((std::vector<unsigned>{10, 41, 42, 43}), bitsOf(mask));
    EXPECT_FALSE(mask.assign(words, 2, 10));
    CBitMask end(64);
    EXPECT_TRUE(end.assign(words, 0xFFFFFFFF, 63)) << "only as far as the mask goes";
    EXPECT_EQ(fromTo(63, 63), bitsOf(end));
}

// Bits one by one, from the lowest up: what every unaligned copy comes to.
struct BitByBit {
    std::vector<bool> bits;

    explicit BitByBit(const CBitMask &mask)
    {
        for (unsigned bit = 0; bit < mask.numWords * 32U; ++bit)
            bits.push_back(mask.chkBit(bit));
    }

    bool copy(unsigned from, unsigned to, unsigned count)
    {
        const std::vector<bool> before = bits;
        for (unsigned i = 0; i < count; ++i)
            bits[to + i] = bits[from + i];
        return bits != before;
    }
};

TEST(BitMaskAssign, UnalignedCopyMovesEveryRangeExactly)
{
    std::mt19937 random(4711);
    for (unsigned from = 0; from < 34; ++from)
        for (unsigned to = 0; to < 34; ++to)
            for (const unsigned count : {1U, 2U, 30U, 31U, 32U, 33U, 63U, 64U, 65U, 94U}) {
                if (from % 32 == 0 && to % 32 == 0)
                    continue; // goes by words, and merges the last
                unsigned sourceWords[4];
                unsigned words[8]; // the mask, and the source behind it as the same bits for the one-by-one copy
                for (unsigned i = 0; i < 4; ++i) {
                    words[i] = static_cast<unsigned>(random());
                    words[i + 4] = sourceWords[i] = static_cast<unsigned>(random());
                }
                BitByBit expected{CBitMask(8, words)};
                const bool changes = expected.copy(128 + from, to, count);
                CBitMask target(4, words);
                ASSERT_EQ(changes, target.assign(CBitMask(4, sourceWords), from, to, count));
                ASSERT_EQ(expected.bits, BitByBit(CBitMask(8, words)).bits) << from << ' ' << to << ' ' << count;
            }
}

TEST(BitMaskAssign, UnalignedCopyWithinTheSameWordsGoesFromTheLowestBitUp)
{
    std::mt19937 random(4711);
    for (const unsigned from : {0U, 3U, 31U, 32U, 40U})
        for (const unsigned to : {0U, 1U, 3U, 33U, 45U}) {
            if (from % 32 == 0 && to % 32 == 0)
                continue;
            CBitMask mask(160);
            for (unsigned i = 0; i < mask.numWords; ++i)
                mask.setWrd32(i, static_cast<unsigned>(random()));
            CBitMask view(mask.numWords, mask.maskPtr); // another mask on the same words
            BitByBit expected(mask);
            const bool changes = expected.copy(from, to, 100);
            ASSERT_EQ(changes, mask.assign(view, from, to, 100));
            ASSERT_EQ(expected.bits, BitByBit(mask).bits) << from << " to " << to;
        }
    CBitMask mask(96);
    mask.setBit(0);
    EXPECT_TRUE(mask.assign(mask.maskPtr, 2, 1));
    EXPECT_EQ(fromTo(0, 64), bitsOf(mask)) << "each bit is copied from the one that was written just before";
}

TEST(BitMaskAssign, UnalignedCopyFromWordsAsksAssignBitOfADerivedMask)
{
    const unsigned words[2] = {0xFFFFFFFF, 0};
    CountingMask mask(64);
    mask.forget();
    EXPECT_TRUE(mask.assign(words, 1, 5));
    EXPECT_EQ(32, mask.calls("assignBit 20"));
}

// Clients built with -fno-rtti derive masks, too; whatever the copy asks about a mask's class, they have no answer.
TEST(BitMaskAssign, UnalignedCopyAsksADerivedMaskThatHasNoTypeInformation)
{
    if (UnderAddressSanitizer)
        GTEST_SKIP() << "the sanitizer of virtual calls takes a class without type information for a broken object";
    const unsigned words[2] = {0xF0000000, 0};
    MaskWithoutTypeInfo derived(64);
    EXPECT_TRUE(derived.assign(words, 1, 5));
    EXPECT_EQ(32, derived.calls);
    EXPECT_EQ(fromTo(5, 8), bitsOf(derived));

    derived.calls = 0;
    CBitMask plain(64);
    EXPECT_TRUE(plain.assign(derived, 5, 1, 10));
    EXPECT_EQ(10, derived.calls);
    EXPECT_EQ(fromTo(1, 4), bitsOf(plain));

    derived.calls = 0;
    EXPECT_TRUE(derived.assign(plain, 1, 33, 7));
    EXPECT_EQ(7, derived.calls);
}

TEST(BitMaskAssign, NoWordsAndStartsOutOfRangeAreIgnored)
{
    const unsigned word = 0xFFFFFFFF;
    CBitMask mask(64);
    EXPECT_FALSE(mask.assign(&word, 0, 0));
    EXPECT_FALSE(mask.assign(&word, 0, 7));
    EXPECT_FALSE(mask.assign(&word, 1, 64));
    EXPECT_FALSE(CBitMask().assign(&word, 1, 0));
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskShift, RightByOneMovesBitZeroToBitOneAndLeftBringsItBack)
{
    CBitMask mask(64);
    mask.setBit(0);
    mask >>= 1;
    EXPECT_EQ(fromTo(1, 1), bitsOf(mask));
    mask <<= 1;
    EXPECT_EQ(fromTo(0, 0), bitsOf(mask));
}

TEST(BitMaskShift, CrossesWordsBothWays)
{
    for (unsigned by = 0; by < 96; ++by) {
        CBitMask mask(96);
        mask.setBit(0);
        mask >>= by;
        ASSERT_EQ(fromTo(by, by), bitsOf(mask));
        mask <<= by;
        ASSERT_EQ(fromTo(0, 0), bitsOf(mask));
    }
}

TEST(BitMaskShift, ByTheNumberOfBitsOrMoreClearsEverything)
{
    for (const unsigned by : {64U, 65U, 96U, 0x80000000U, 0xFFFFFFFFU}) {
        CBitMask mask(64);
        mask.set();
        mask >>= by;
        EXPECT_FALSE(mask.bitsAreSet()) << by;
        mask.set();
        mask <<= by;
        EXPECT_FALSE(mask.bitsAreSet()) << by;
    }
}

TEST(BitMaskShift, LeftBringsTailBitsIntoTheUsedRange)
{
    CBitMask mask(33);
    mask.setBit(63);
    mask <<= 40;
    EXPECT_EQ(fromTo(23, 23), bitsOf(mask));
}

TEST(BitMaskShift, FallsBackToTheVirtualReset)
{
    CountingMask mask(64);
    mask.forget();
    mask >>= 63;
    mask <<= 63;
    EXPECT_EQ(0, mask.calls("reset 6"));
    mask >>= 64;
    EXPECT_EQ(1, mask.calls("reset 6"));
    mask <<= 64;
    EXPECT_EQ(2, mask.calls("reset 6"));
}

TEST(BitMaskShift, EmptyMaskIsLeftAlone)
{
    CountingMask empty;
    empty >>= 5;
    empty <<= 64;
    EXPECT_EQ(0, empty.calls("reset 6"));
    EXPECT_EQ(0U, empty.numWords);
}
