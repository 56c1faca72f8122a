#include "mgmt_types.h"

#include "models/bits_model.h"

#include <gtest/gtest.h>

#include <cstring>

#include <climits>
#include <random>
#include <vector>

namespace
{
SuBITS bits(std::initializer_list<unsigned char> octets)
{
    SuBITS made(0);
    made.setData(octets.begin(), static_cast<int>(octets.size()));
    return made;
}

using Found = BitsAndModel::Found;

Found up(const SuBITS &set, unsigned int pos)
{
    const int result = set.findSetBit(pos);
    return {result, pos};
}

Found down(const SuBITS &set, unsigned int pos)
{
    const int result = set.nextBitLexico(pos);
    return {result, pos};
}
} // namespace

TEST(Bits, HighestBitGivesTheOctets)
{
    for (int highest = 0; highest < 256; highest++) {
        const SuBITS made(static_cast<unsigned char>(highest));
        EXPECT_EQ(highest / 8 + 1, made.os.len);
        EXPECT_EQ(highest / 8 + 1, made.size);
        EXPECT_FALSE(made.bitsAreSet());
    }
    EXPECT_EQ(1, SuBITS(0).size);
    EXPECT_EQ(2, SuBITS(15).size);
    EXPECT_EQ(3, SuBITS(16).size);
}

TEST(Bits, CopyHasTheOctetsInUseAndItsOwnArray)
{
    SuBITS original(31);
    const unsigned char two[] = {0x12, 0x34};
    original.setData(two, 2);
    const SuBITS copy(original);
    EXPECT_EQ(2, copy.os.len);
    EXPECT_EQ(2, copy.size);
    original.os.ptr[0] = 0;
    EXPECT_EQ(0x12, copy.os.ptr[0]);

    SuBITS assigned(0);
    assigned = copy;
    EXPECT_TRUE(assigned == copy);
    EXPECT_NE(assigned.os.ptr, copy.os.ptr);

    original.setData(nullptr, 0);
    const SuBITS empty(original);
    EXPECT_EQ(0, empty.os.len);
    EXPECT_EQ(0, empty.size);
}

TEST(Bits, ClearZeroesTheOctetsInUseAlone)
{
    SuBITS set = bits({0xFF, 0xFF, 0xFF});
    const unsigned char one = 0xFF;
    set.setData(&one, 1);
    set.clear();
    EXPECT_EQ(0, set.os.ptr[0]);
    EXPECT_EQ(0xFF, set.os.ptr[1]);
    EXPECT_EQ(1, set.os.len);
    SuBITS empty = bits({});
    empty.clear();
    EXPECT_EQ(0, empty.os.len);
}

TEST(Bits, OctetsBehindTheValueDoNotCount)
{
    SuBITS set = bits({0x00, 0xFF});
    const unsigned char zero = 0;
    set.setData(&zero, 1);
    EXPECT_FALSE(set.bitsAreSet());
    EXPECT_EQ(0, set.numBitsSet());
    EXPECT_EQ((Found{1, 8}), up(set, 0));
    EXPECT_EQ((Found{1, 15}), down(set, 15));
}

TEST(Bits, NoOctetsHaveNoBits)
{
    const SuBITS empty = bits({});
    EXPECT_FALSE(empty.bitsAreSet());
    EXPECT_EQ(0, empty.numBitsSet());
    for (unsigned int pos : {0U, 1U, 8U, UINT_MAX}) {
        EXPECT_EQ((Found{1, pos}), up(empty, pos));
        EXPECT_EQ((Found{1, pos}), down(empty, pos));
    }
}

TEST(Bits, BitZeroIsTheMostSignificantOfTheFirstOctet)
{
    EXPECT_EQ((Found{0, 0}), up(bits({0x80}), 0));
    EXPECT_EQ((Found{0, 7}), up(bits({0x01}), 0));
    EXPECT_EQ((Found{0, 8}), up(bits({0x00, 0x80}), 0));
}

TEST(BitsSearchUp, ZeroMeansFound)
{
    const SuBITS set = bits({0x40});
    EXPECT_EQ((Found{0, 1}), up(set, 0));
    EXPECT_EQ((Found{0, 1}), up(set, 1));
    EXPECT_EQ((Found{1, 8}), up(set, 2));
}

TEST(BitsSearchUp, FailedSearchLeavesPosBehindTheLastOctet)
{
    const SuBITS set = bits({0x40, 0x00, 0x00});
    EXPECT_EQ((Found{1, 24}), up(set, 2));
    EXPECT_EQ((Found{1, 24}), up(set, 23));
    EXPECT_EQ((Found{1, 24}), up(set, 24));
    for (unsigned int pos : {25U, 1000U, UINT_MAX - 7, UINT_MAX})
        EXPECT_EQ((Found{1, pos}), up(set, pos));
}

TEST(BitsSearchDown, ZeroMeansFoundAndAFailureLeavesPosAlone)
{
    const SuBITS set = bits({0x40});
    EXPECT_EQ((Found{0, 1}), down(set, 5));
    EXPECT_EQ((Found{0, 1}), down(set, 1));
    EXPECT_EQ((Found{1, 0}), down(set, 0));
    EXPECT_EQ((Found{1, 9}), down(bits({0x00, 0x00}), 9));
}

TEST(BitsSearchDown, StartBehindTheLastOctetLooksAtTheLastBitFirst)
{
    const SuBITS set = bits({0x40, 0x01});
    for (unsigned int pos : {15U, 16U, 17U, 1000U, UINT_MAX})
        EXPECT_EQ((Found{0, 15}), down(set, pos)) << pos;
}

namespace
{
// Mostly clear, so that searches go far.
std::vector<unsigned char> randomOctets(std::mt19937 &random)
{
    std::vector<unsigned char> octets(random() % 40);
    for (unsigned char &octet : octets) {
        if (random() % 3 == 0)
            octet = static_cast<unsigned char>(1U << random() % 8);
        else if (random() % 4 == 0)
            octet = static_cast<unsigned char>(random());
    }
    return octets;
}
// The count takes eight octets at once: what is left over must be counted too, and nothing behind it.
TEST(BitsCount, EveryLengthAndEveryOctetValueIsCounted)
{
    for (unsigned highest = 7; highest < 256; highest += 8) {
        SuBITS bits(static_cast<unsigned char>(highest));
        int expected = 0;
        for (int i = 0; i < bits.os.len; i++) {
            bits.os.ptr[i] = static_cast<unsigned char>(37 * i + static_cast<int>(highest));
            for (int bit = 0; bit < 8; bit++)
                expected += bits.os.ptr[i] >> bit & 1;
        }
        ASSERT_EQ(expected, bits.numBitsSet()) << bits.os.len << " octets";
        memset(bits.os.ptr, 0xFF, static_cast<size_t>(bits.os.len));
        ASSERT_EQ(8 * bits.os.len, bits.numBitsSet());
        bits.os.len--;
        ASSERT_EQ(8 * bits.os.len, bits.numBitsSet()) << "octets that are allocated but not in use";
    }
}
} // namespace

TEST(BitsModel, AgreesForAnySetAndAnyStart)
{
    for (unsigned seed = 0; seed < 500; seed++) {
        std::mt19937 random(seed);
        ASSERT_EQ(-1, BitsAndModel(randomOctets(random)).firstDifference()) << "seed " << seed;
    }
}

TEST(BitsModel, NoticesABitChangedBehindItsBack)
{
    BitsAndModel both({0x00, 0x40, 0x00, 0x01});
    ASSERT_EQ(-1, both.firstDifference());
    both.real.os.ptr[2] ^= 0x10;
    EXPECT_NE(-1, both.firstDifference());
}
