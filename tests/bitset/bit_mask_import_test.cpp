// CBitMask from and to bytes.
#include "bitset.h"

#include "bitset/counting_mask.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace
{
using Calls = std::vector<HookedMask::Call>;

CBitMask maskWith(unsigned size, std::initializer_list<unsigned> bits)
{
    CBitMask mask(size);
    for (const unsigned bit : bits)
        mask.setBit(bit);
    return mask;
}
} // namespace

TEST(BitMaskOctetString, OutWritesAsManyOctetsAsAskedForAndZeroesTheRest)
{
    const CBitMask mask = ~CBitMask(64);
    std::array<unsigned char, 12> buffer;
    buffer.fill(0x55);
    unsigned len = 3;
    mask.octet_string_out(buffer.data(), &len, false);
    EXPECT_EQ(8U, len);
    EXPECT_EQ((std::array<unsigned char, 12>{0xFF, 0xFF, 0xFF, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}),
              buffer);
    len = 10;
    mask.octet_string_out(buffer.data(), &len, false);
    EXPECT_EQ(8U, len);
    EXPECT_EQ((std::array<unsigned char, 12>{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0x55, 0x55}),
              buffer);
}

TEST(BitMaskOctetString, BitZeroIsTheMostOrReversedTheLeastSignificantBitOfTheFirstOctet)
{
    const CBitMask mask = maskWith(64, {0});
    unsigned char buffer[8];
    mask.octet_string_out(buffer, nullptr, false);
    EXPECT_EQ(0x80, buffer[0]);
    mask.octet_string_out(buffer, nullptr, true);
    EXPECT_EQ(0x01, buffer[0]);
    for (int i = 1; i < 8; ++i)
        EXPECT_EQ(0, buffer[i]);
}

TEST(BitMaskOctetString, EveryOctetValueIsReversedBitByBit)
{
    for (unsigned value = 0; value < 256; ++value) {
        CBitMask mask(32);
        const auto octet = static_cast<unsigned char>(value);
        unsigned len = 1;
        mask.octet_string_in(&octet, &len, true);
        for (unsigned bit = 0; bit < 8; ++bit)
            EXPECT_EQ((value >> bit & 1) != 0, mask.chkBit(bit));
    }
}

TEST(BitMaskOctetString, LenBecomesTheMasksSizeInBothDirections)
{
    CBitMask mask(64);
    const unsigned char source[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    unsigned len = 3;
    mask.octet_string_in(source, &len, false);
    EXPECT_EQ(8U, len);
    EXPECT_EQ(0x01020300U, mask[0]);
    len = 10;
    mask.octet_string_in(source, &len, false);
    EXPECT_EQ(8U, len);
    EXPECT_EQ(0x05060708U, mask[1]) << "excess input is ignored";
    unsigned char target[10];
    len = 1;
    mask.octet_string_out(target, &len, false);
    EXPECT_EQ(8U, len);
}

TEST(BitMaskOctetString, InClearsTheOctetsThatAreNotGiven)
{
    CBitMask mask = ~CBitMask(96);
    const unsigned char source[5] = {1, 2, 3, 4, 5};
    unsigned len = 5;
    mask.octet_string_in(source, &len, false);
    EXPECT_EQ(0x01020304U, mask[0]);
    EXPECT_EQ(0x05000000U, mask[1]);
    EXPECT_EQ(0U, mask[2]);
    EXPECT_EQ(12U, len);
}

TEST(BitMaskOctetString, WithoutALengthOrWithLength0TheWholeMaskMoves)
{
    const unsigned char source[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const bool pass : {false, true}) {
        unsigned len = 0;
        CBitMask mask(64);
        mask.octet_string_in(source, pass ? &len : nullptr, false);
        EXPECT_EQ(0x01020304U, mask[0]);
        EXPECT_EQ(0x05060708U, mask[1]);
        unsigned char target[8] = {};
        mask.octet_string_out(target, pass ? &len : nullptr, false);
        EXPECT_EQ(0, memcmp(source, target, sizeof source));
        EXPECT_EQ(0U, len);
    }
}

TEST(BitMaskOctetString, EmptyMaskTakesNothingAndGivesZeroes)
{
    CBitMask empty;
    unsigned char buffer[2] = {9, 9};
    unsigned len = 2;
    empty.octet_string_in(buffer, &len, false);
    EXPECT_EQ(0U, len);
    len = 2;
    empty.octet_string_out(buffer, &len, true);
    EXPECT_EQ(0U, len);
    EXPECT_EQ(0, buffer[0] | buffer[1]);
}

TEST(BitMaskHooks, CarryNothingInTheBaseClass)
{
    CBitMask mask(64);
    unsigned char buffer[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_FALSE(mask.data_in(buffer, 2, 0));
    EXPECT_FALSE(mask.data_or_in(buffer, 2, 0));
    EXPECT_FALSE(mask.bitsAreSet());
    EXPECT_EQ(0U, mask.data_out(buffer, 2, 0));
    EXPECT_EQ(0xFF, buffer[0]);
}

TEST(BitMaskBitsIn, WordAlignedRangesDoNothingInTheBaseClass)
{
    CBitMask mask(64);
    const unsigned char source[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_FALSE(mask.bits_in(source, 32, 0));
    EXPECT_FALSE(mask.bits_or_in(source, 32, 32));
    EXPECT_FALSE(mask.bits_in(source, 200, 0)) << "the end is cut to a word boundary";
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskBitsIn, WordAlignedRangesGoToTheHookWithTheUnclampedCount)
{
    HookedMask mask(96U);
    const unsigned char source[1] = {0};
    EXPECT_TRUE(mask.bits_in(source, 32, 32));
    EXPECT_TRUE(mask.bits_in(source, 1000, 64));
    EXPECT_TRUE(mask.bits_or_in(source, 64, 0));
    EXPECT_TRUE(mask.bits_or_in(source, 33, 96)) << "nothing is left, and the hook is asked all the same";
    EXPECT_EQ((Calls{{"data_in", source, 1, 1},
                     {"data_in", source, 32, 2},
                     {"data_or_in", source, 2, 0},
                     {"data_or_in", source, 2, 3}}),
              mask.calls);
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskBitsIn, MakesTheRangeEqualToTheBufferAndTellsWhetherABitChanged)
{
    CBitMask mask = ~CBitMask(64);
    const unsigned char source[1] = {0xA5};
    EXPECT_TRUE(mask.bits_in(source, 7, 30));
    EXPECT_TRUE(mask.chkBit(29));
    for (unsigned i = 0; i < 7; ++i)
        EXPECT_EQ((0xA5 >> (7 - i) & 1) != 0, mask.chkBit(30 + i));
    EXPECT_TRUE(mask.chkBit(37));
    EXPECT_FALSE(mask.bits_in(source, 7, 30));
}

TEST(BitMaskBitsIn, OrOnlySetsBits)
{
    CBitMask mask = maskWith(64, {31});
    const unsigned char source[1] = {0x81};
    EXPECT_TRUE(mask.bits_or_in(source, 8, 30));
    EXPECT_TRUE(mask.chkBit(30));
    EXPECT_TRUE(mask.chkBit(31)) << "a 0 of the buffer leaves it";
    EXPECT_TRUE(mask.chkBit(37));
    EXPECT_EQ(3U, mask.numBitsSet());
    EXPECT_FALSE(mask.bits_or_in(source, 8, 30));
}

TEST(BitMaskBitsIn, NothingToMoveIsFalse)
{
    HookedMask mask(64U);
    const unsigned char source[1] = {0xFF};
    EXPECT_FALSE(mask.bits_in(source, 0, 0));
    EXPECT_FALSE(mask.bits_in(source, 1, 65));
    EXPECT_FALSE(mask.bits_in(source, 0xFFFFFFFF, 5)) << "the sum wraps in front of the start";
    EXPECT_FALSE(mask.bits_or_in(source, 0, 0));
    EXPECT_FALSE(mask.bits_or_in(source, 1, 65));
    EXPECT_FALSE(mask.bits_or_in(source, 0xFFFFFFFF, 5));
    EXPECT_TRUE(mask.calls.empty());
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskBitsOut, KeepsTheLowBitsOfTheByte)
{
    const CBitMask mask = maskWith(64, {5, 7});
    constexpr unsigned char befores[] = {0x00, 0xFF, 0x2A};
    for (const unsigned char before : befores) {
        unsigned char target[2] = {before, 0x77};
        EXPECT_EQ(1U, mask.bits_out(target, 3, 5));
        EXPECT_EQ(0xA0 | (before & 0x1F), target[0]);
        EXPECT_EQ(0x77, target[1]);
    }
}

TEST(BitMaskBitsOut, WordAlignedRangesDoNothingInTheBaseClass)
{
    const CBitMask mask = ~CBitMask(64);
    unsigned char target[8] = {};
    EXPECT_EQ(0U, mask.bits_out(target, 64, 0));
    EXPECT_EQ(0U, mask.bits_out(target, 1000, 32));
    for (const unsigned char byte : target)
        EXPECT_EQ(0, byte);
}

TEST(BitMaskBitsOut, WordAlignedRangesGoToTheHookWithTheClampedCount)
{
    const HookedMask mask(96U);
    unsigned char target[1] = {};
    EXPECT_EQ(8U, mask.bits_out(target, 1000, 32));
    EXPECT_EQ((Calls{{"data_out", target, 2, 1}}), mask.calls);
}

TEST(BitMaskBitsOut, AtTheEndReturns0x20000000AndWritesNothing)
{
    const HookedMask hooked(64U);
    const CBitMask mask(33);
    unsigned char target[1] = {0x5A};
    EXPECT_EQ(0x20000000U, mask.bits_out(target, 4, 64));
    EXPECT_EQ(0x20000000U, CBitMask().bits_out(target, 1, 0));
    EXPECT_EQ(0x20000000U, hooked.bits_out(target, 4, 64));
    EXPECT_TRUE(hooked.calls.empty());
    EXPECT_EQ(0x5A, target[0]);
}

TEST(BitMaskBitsOut, NothingToMoveIs0)
{
    const CBitMask mask = ~CBitMask(64);
    unsigned char target[1] = {0};
    EXPECT_EQ(0U, mask.bits_out(target, 0, 0));
    EXPECT_EQ(0U, mask.bits_out(target, 0, 64));
    EXPECT_EQ(0U, mask.bits_out(target, 4, 65));
    EXPECT_EQ(0, target[0]);
}

// The sum of start and count wraps in front of the start: nothing moves, whatever the count of bytes says.
TEST(BitMaskBitsOut, WrappedSumWritesNothing)
{
    const CBitMask mask = ~CBitMask(64);
    unsigned char target[1] = {0};
    EXPECT_EQ(0x20000000U, mask.bits_out(target, 0xFFFFFFFF, 5));
    EXPECT_EQ(0, target[0]);
}

TEST(BitMaskFromBytes, TheBaseClassTakesNothingFromTheBytesAndStartsClear)
{
    const unsigned char bytes[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const CBitMask mask(bytes, 5);
    EXPECT_EQ(2U, mask.numWords);
    EXPECT_EQ(24U, mask.tailBits);
    EXPECT_EQ(1U, mask.autoDelete);
    EXPECT_FALSE(mask.bitsAreSet());
    for (unsigned count = 1; count <= 17; ++count) {
        const CBitMask sized(bytes, count);
        EXPECT_EQ((count + 3) / 4, sized.numWords);
        EXPECT_EQ(count * 8, sized.numWords * 32 - sized.tailBits);
    }
}

TEST(BitMaskFromBytes, DerivedHookGetsTheBytesOnce)
{
    HookedMask mask;
    const unsigned char bytes[1] = {0};
    mask.init(bytes, 7);
    EXPECT_EQ((Calls{{"data_in", bytes, 0xFFFFFFFF, 0}}), mask.calls);
    EXPECT_EQ(2U, mask.numWords);
    EXPECT_EQ(8U, mask.tailBits);
    mask.init(bytes, 0);
    EXPECT_EQ(1U, mask.calls.size());
    EXPECT_EQ(0U, mask.numWords);
    EXPECT_EQ(nullptr, mask.maskPtr);
    EXPECT_EQ(0U, mask.autoDelete);
    EXPECT_EQ(0U, mask.tailBits);
}

TEST(BitMaskFromBytes, CountsThatAreCutTo0GiveAnEmptyMask)
{
    for (const unsigned count : {65535U * 4 + 1, 0x20000000U, 0x80000000U}) {
        const CBitMask mask(static_cast<unsigned char const *>(nullptr), count);
        EXPECT_EQ(0U, mask.numWords) << count;
        EXPECT_EQ(0U, mask.tailBits) << count;
        EXPECT_EQ(nullptr, mask.maskPtr) << count;
    }
    const CBitMask wrapped(static_cast<unsigned char const *>(nullptr), 0x20000001);
    EXPECT_EQ(1U, wrapped.numWords);
    EXPECT_EQ(24U, wrapped.tailBits);
}
