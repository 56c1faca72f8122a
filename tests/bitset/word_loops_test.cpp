#include "bitset/word_loops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace
{
using Words = std::vector<unsigned>;
using Octets = std::vector<unsigned char>;

constexpr size_t longest = 70; // words: some blocks of every width and what is left over

class WordLoopsOf : public testing::TestWithParam<const WordLoops *>
{
protected:
    Words words(size_t count)
    {
        Words random(count);
        for (unsigned &word : random)
            word = static_cast<unsigned>(numbers());
        return random;
    }

    const WordLoops &loops = *GetParam();

private:
    std::mt19937 numbers{4711};
};

bool bitOf(const Words &words, size_t bit)
{
    return (words[bit / 32] & 0x80000000U >> (bit % 32)) != 0;
}

unsigned char turned(unsigned octet)
{
    unsigned result = 0;
    for (unsigned bit = 0; bit < 8; ++bit)
        if (octet & 1U << bit)
            result |= 0x80U >> bit;
    return static_cast<unsigned char>(result);
}

// The octets of words one by one.
Octets octetsOf(const Words &words, bool reverse)
{
    Octets octets;
    for (const unsigned word : words)
        for (const unsigned shift : {24U, 16U, 8U, 0U})
            octets.push_back(reverse ? turned(word >> shift & 0xFF) : static_cast<unsigned char>(word >> shift));
    return octets;
}

// Without the instructions for it a variant cannot be run; there is always one.
std::vector<const WordLoops *> runnable()
{
    std::vector<const WordLoops *> variants{&anyProcessorsLoops};
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"))
        variants.push_back(&avx2Loops);
    else
        std::printf("word_loops_test: this processor has no AVX2, so its loops are not run\n");
#endif
    return variants;
}

TEST_P(WordLoopsOf, LogicIsThatOfOneWordAfterTheOther)
{
    for (size_t count = 0; count <= longest; ++count) {
        const Words before = words(count);
        const Words other = words(count);
        Words both = before;
        loops.andInto(both.data(), other.data(), count);
        Words either = before;
        loops.orInto(either.data(), other.data(), count);
        Words one = before;
        loops.xorInto(one.data(), other.data(), count);
        Words none = before;
        loops.complement(none.data(), other.data(), count);
        for (size_t i = 0; i < count; ++i) {
            ASSERT_EQ(before[i] & other[i], both[i]) << i << " of " << count;
            ASSERT_EQ(before[i] | other[i], either[i]) << i << " of " << count;
            ASSERT_EQ(before[i] ^ other[i], one[i]) << i << " of " << count;
            ASSERT_EQ(~other[i], none[i]) << i << " of " << count;
        }
    }
}

TEST_P(WordLoopsOf, WordsAfterTheCountStay)
{
    for (size_t count = 0; count <= longest; ++count) {
        Words some = words(count + 1);
        const unsigned behind = some[count];
        const Words other = words(count + 1);
        loops.andInto(some.data(), other.data(), count);
        loops.xorInto(some.data(), other.data(), count);
        loops.complement(some.data(), other.data(), count);
        loops.fromOctets(some.data(), octetsOf(other, false).data(), count, false);
        loops.shiftForwards(some.data(), other.data(), count, 7);
        ASSERT_EQ(behind, some[count]) << count;
    }
}

TEST_P(WordLoopsOf, AnArrayAndItselfOneWordFurtherOnGoFromTheFirstWordToTheLast)
{
    Words some = words(longest + 1);
    Words expected = some;
    for (size_t i = 0; i < longest; ++i)
        expected[i + 1] ^= expected[i];
    loops.xorInto(some.data() + 1, some.data(), longest);
    EXPECT_EQ(expected, some);
}

TEST_P(WordLoopsOf, EveryBitIsCountedOnce)
{
    for (size_t count = 0; count <= longest; ++count) {
        const Words some = words(count);
        unsigned bits = 0;
        for (size_t bit = 0; bit < 32 * count; ++bit)
            bits += bitOf(some, bit) ? 1 : 0;
        ASSERT_EQ(bits, loops.bitsSet(some.data(), count)) << count;
        ASSERT_EQ(32 * count, loops.bitsSet(Words(count, 0xFFFFFFFF).data(), count));
    }
}

TEST_P(WordLoopsOf, OctetsComeMostSignificantFirstAndTurnedWhenReversed)
{
    for (size_t count = 0; count <= longest; ++count)
        for (const bool reverse : {false, true}) {
            const Words some = words(count);
            Octets octets(4 * count + 1, 0x5A);
            loops.toOctets(octets.data(), some.data(), count, reverse);
            ASSERT_EQ(0x5A, octets.back()) << "written behind " << count;
            octets.pop_back();
            ASSERT_EQ(octetsOf(some, reverse), octets) << count;
            Words back(count);
            loops.fromOctets(back.data(), octets.data(), count, reverse);
            ASSERT_EQ(some, back) << count;
        }
}

TEST_P(WordLoopsOf, ShiftsMoveEveryBitAlsoWithinOneArray)
{
    for (size_t count = 0; count <= longest; ++count)
        for (const unsigned offset : {1U, 8U, 31U})
            for (const size_t distance : {size_t{0}, size_t{1}, size_t{9}}) {
                const Words before = words(distance + count + 2);
                Words down = before;
                loops.shiftForwards(down.data(), down.data() + distance, count, offset);
                for (size_t bit = 0; bit < 32 * count; ++bit)
                    ASSERT_EQ(bitOf(before, 32 * distance + bit + offset), bitOf(down, bit)) << count;
                Words up = before;
                loops.shiftBackwards(up.data() + distance + 1, up.data(), count, offset);
                for (size_t bit = 0; bit < 32 * count; ++bit)
                    ASSERT_EQ(bitOf(before, bit + offset), bitOf(up, 32 * (distance + 1) + bit)) << count;
                ASSERT_TRUE(std::equal(before.begin(), before.begin() + static_cast<long>(distance) + 1, up.begin()));
            }
}

INSTANTIATE_TEST_SUITE_P(EveryProcessor, WordLoopsOf, testing::ValuesIn(runnable()));

TEST(WordLoops, ChosenOnceAndForGood)
{
    const WordLoops *const first = &wordLoops();
    EXPECT_EQ(first, &wordLoops());
    const auto variants = runnable();
    EXPECT_EQ(variants.back(), first) << "the best that this processor runs";
}
} // namespace
