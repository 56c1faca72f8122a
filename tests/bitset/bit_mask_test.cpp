// Construction, layout, single bits and words, whole-mask logic of CBitMask.
#include "bitset.h"

#include "bitset/counting_mask.h"
#include "bitset/slot_of.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <new>
#include <numeric>
#include <thread>
#include <vector>

namespace
{
template <class Result, class... Arguments>
auto plain(Result (CBitMask::*method)(Arguments...))
{
    return slotOf(method);
}

template <class Result, class... Arguments>
auto constant(Result (CBitMask::*method)(Arguments...) const)
{
    return slotOf(method);
}

using Bytes = unsigned char const *;
} // namespace

TEST(BitMaskLayout, FieldsStandWhereProcessesLinkedEarlierLookForThem)
{
    CBitMask mask(33);
    mask.spare = 2;
    unsigned char bytes[sizeof mask];
    memcpy(bytes, static_cast<const void *>(&mask), sizeof bytes);
    ASSERT_EQ(24U, sizeof mask);
    EXPECT_EQ(1 | 31 << 1 | 2 << 6, bytes[8]) << "autoDelete, tailBits, spare";
    EXPECT_EQ(0xA5, bytes[9]) << "signature";
    EXPECT_EQ(2, bytes[10] | bytes[11] << 8) << "numWords";
    unsigned *words;
    memcpy(&words, bytes + 16, sizeof words);
    EXPECT_EQ(mask.maskPtr, words);
}

TEST(BitMaskLayout, VersionIsExported)
{
    EXPECT_EQ(0x01000001U, CBitMask::version);
}

TEST(BitMaskLayout, VirtualOperationsStandInTheirSlots)
{
    using B = CBitMask;
    EXPECT_EQ(2U, (plain<void, unsigned>(&B::init)));
    EXPECT_EQ(3U, (plain<void, B const &, bool>(&B::init)));
    EXPECT_EQ(4U, (plain<void, unsigned, unsigned *>(&B::init)));
    EXPECT_EQ(5U, (plain<void, Bytes, unsigned>(&B::init)));
    EXPECT_EQ(6U, plain(&B::reset));
    EXPECT_EQ(7U, plain(&B::set));
    EXPECT_EQ(8U, (plain<bool, B const &, unsigned, unsigned, unsigned>(&B::assign)));
    EXPECT_EQ(9U, (plain<bool, unsigned const *, unsigned, unsigned>(&B::assign)));
    EXPECT_EQ(10U, plain(&B::octet_string_in));
    EXPECT_EQ(11U, constant(&B::octet_string_out));
    EXPECT_EQ(12U, plain(&B::data_in));
    EXPECT_EQ(13U, plain(&B::data_or_in));
    EXPECT_EQ(14U, constant(&B::data_out));
    EXPECT_EQ(15U, plain(&B::bits_in));
    EXPECT_EQ(16U, plain(&B::bits_or_in));
    EXPECT_EQ(17U, constant(&B::bits_out));
    EXPECT_EQ(18U, plain(&B::setBit));
    EXPECT_EQ(19U, plain(&B::clrBit));
    EXPECT_EQ(20U, plain(&B::assignBit));
    EXPECT_EQ(21U, plain(&B::setWrd32));
    EXPECT_EQ(22U, plain(&B::setWrd8));
    EXPECT_EQ(23U, constant(&B::chkBit));
    EXPECT_EQ(24U, constant(&B::bitsAreSet));
    EXPECT_EQ(25U, constant(&B::numBitsSet));
    EXPECT_EQ(26U, (plain<unsigned, unsigned, bool>(&B::findSetBit)));
    EXPECT_EQ(27U, (plain<unsigned, unsigned, bool>(&B::findClrBit)));
    EXPECT_EQ(28U, (constant<unsigned, unsigned>(&B::findSetBit)));
    EXPECT_EQ(29U, (constant<unsigned, unsigned>(&B::findClrBit)));
    EXPECT_EQ(30U, (plain<B &, B const &>(&B::operator=)));
    EXPECT_EQ(31U, (plain<B &, unsigned const *>(&B::operator=)));
    EXPECT_EQ(32U, constant(&B::operator[]));
    EXPECT_EQ(33U, plain(&B::operator&=));
    EXPECT_EQ(34U, plain(&B::operator^=));
    EXPECT_EQ(35U, plain(&B::operator|=));
    EXPECT_EQ(36U, plain(&B::operator>>=));
    EXPECT_EQ(37U, plain(&B::operator<<=));
    EXPECT_EQ(38U, constant(&B::operator==));
    EXPECT_EQ(39U, constant(&B::operator!=));
    EXPECT_EQ(40U, constant(&B::operator~));
    EXPECT_EQ(41U, plain<void>(&B::bitwiseNotEqual));
    EXPECT_EQ(42U, (plain<void, B const &>(&B::bitwiseNotEqual)));
    EXPECT_EQ(43U, constant(&B::size));
    EXPECT_EQ(44U, constant(&B::display));
}

TEST(BitMaskInit, NoBitsMakeAnEmptyMask)
{
    for (CBitMask mask : {CBitMask(), CBitMask(0U), CBitMask(0U, nullptr)}) {
        EXPECT_EQ(0U, mask.numWords);
        EXPECT_EQ(nullptr, mask.maskPtr);
        EXPECT_EQ(0U, mask.tailBits);
        EXPECT_EQ(0U, mask.autoDelete);
        EXPECT_EQ(0xA5U, mask.signature);
        EXPECT_EQ(24U, mask.size());
    }
}

TEST(BitMaskInit, MaskOf33BitsHasTwoWordsAndAddressesItsTailButNeverGrows)
{
    CBitMask mask(33);
    EXPECT_EQ(2U, mask.numWords);
    EXPECT_EQ(31U, mask.tailBits);
    EXPECT_EQ(1U, mask.autoDelete);
    EXPECT_EQ(32U, mask.size());
    EXPECT_TRUE(mask.setBit(40));
    EXPECT_FALSE(mask.setBit(64));
    EXPECT_EQ(2U, mask.numWords);
    EXPECT_EQ(1U, mask.numBitsSet());
}

TEST(BitMaskInit, EverySizeAroundAWordIsRoundedUp)
{
    for (unsigned bits = 1; bits <= 200; ++bits) {
        const CBitMask mask(bits);
        EXPECT_EQ((bits + 31) / 32, mask.numWords) << bits;
        EXPECT_EQ(bits, mask.numWords * 32 - mask.tailBits);
        EXPECT_FALSE(mask.bitsAreSet());
    }
}

// 16 bits of word count: the largest mask, the first count that is cut to 0, and one that is cut to something.
TEST(BitMaskInit, WordCountsAreCutTo16BitsAndOneCutTo0GivesAnEmptyMask)
{
    const CBitMask largest(65535U * 32);
    EXPECT_EQ(65535U, largest.numWords);
    EXPECT_EQ(65535U * 4 + 24, largest.size());

    for (const unsigned bits : {65535U * 32 + 1, 65536U * 32, 0xFFFFFFFFU}) {
        const CBitMask mask(bits);
        EXPECT_EQ(0U, mask.numWords) << bits;
        EXPECT_EQ(0U, mask.tailBits) << bits;
        EXPECT_EQ(nullptr, mask.maskPtr) << bits;
        EXPECT_EQ(0U, mask.autoDelete) << bits;
    }
    const CBitMask cut(65538U * 32 - 5);
    EXPECT_EQ(2U, cut.numWords);
    EXPECT_EQ(5U, cut.tailBits);

    unsigned words[2] = {1, 2};
    const CBitMask none(65536, words);
    EXPECT_EQ(0U, none.numWords);
    EXPECT_EQ(nullptr, none.maskPtr);
    const CBitMask two(65538, words);
    EXPECT_EQ(2U, two.numWords);
    EXPECT_EQ(words, two.maskPtr);
}

TEST(BitMaskInit, ViewKeepsTheCallersWordsAndWritesThrough)
{
    unsigned words[2] = {0x80000000, 1};
    {
        CBitMask view(2, words);
        EXPECT_EQ(0U, view.autoDelete);
        EXPECT_EQ(0U, view.tailBits);
        EXPECT_TRUE(view.chkBit(0));
        EXPECT_TRUE(view.chkBit(63));
        EXPECT_TRUE(view.setBit(33));
    }
    EXPECT_EQ(0x80000000U, words[0]);
    EXPECT_EQ(0x40000001U, words[1]);
}

TEST(BitMaskInit, WithoutWordsAViewKeepsViewingItsOldArray)
{
    unsigned words[2] = {7, 8};
    CBitMask view(2, words);
    view.tailBits = 9;
    view.init(0, nullptr);
    EXPECT_EQ(words, view.maskPtr);
    EXPECT_EQ(2U, view.numWords);
    EXPECT_EQ(0U, view.tailBits);
    view.init(5, nullptr);
    EXPECT_EQ(words, view.maskPtr);
    unsigned other = 0;
    view.init(0, &other);
    EXPECT_EQ(words, view.maskPtr);
    EXPECT_EQ(8U, view[1]);
}

TEST(BitMaskInit, WithoutWordsAnOwnerDropsItsWords)
{
    CBitMask owner(50);
    owner.init(0, nullptr);
    EXPECT_EQ(0U, owner.numWords);
    EXPECT_EQ(nullptr, owner.maskPtr);
    EXPECT_EQ(0U, owner.autoDelete);
    EXPECT_EQ(0U, owner.tailBits);
}

TEST(BitMaskInit, CopyOwnsItsWordsAndTakesTheTail)
{
    unsigned words[2] = {0x12345678, 0x9ABCDEF0};
    CBitMask view(2, words);
    view.tailBits = 5;
    CBitMask copy(view);
    EXPECT_EQ(1U, copy.autoDelete);
    EXPECT_EQ(5U, copy.tailBits);
    EXPECT_NE(words, copy.maskPtr);
    EXPECT_TRUE(copy == view);
    const CBitMask inverted(view, true);
    EXPECT_EQ(~words[0], inverted[0]);
    EXPECT_EQ(~words[1], inverted[1]);
    EXPECT_EQ(5U, inverted.tailBits);
    copy.init(CBitMask(), true);
    EXPECT_EQ(0U, copy.numWords);
    EXPECT_EQ(0U, copy.tailBits);
    EXPECT_EQ(0U, copy.autoDelete);
}

// The release comes first, so an owner that copies itself has nothing left to copy.
TEST(BitMaskInit, CopyOfItselfEmptiesAnOwnerAndMakesAViewAnOwner)
{
    CBitMask owner(50);
    owner.set();
    owner.init(owner, false);
    EXPECT_EQ(0U, owner.numWords);
    EXPECT_EQ(nullptr, owner.maskPtr);

    unsigned words[2] = {3, 4};
    CBitMask view(2, words);
    view.init(view, true);
    EXPECT_EQ(1U, view.autoDelete);
    EXPECT_NE(words, view.maskPtr);
    EXPECT_EQ(~3U, view[0]);
    EXPECT_EQ(3U, words[0]);
}

TEST(BitMaskInit, ClearsThroughTheVirtualReset)
{
    CountingMask mask;
    mask.init(77);
    EXPECT_EQ(1, mask.calls("reset 6"));
    EXPECT_FALSE(mask.bitsAreSet());
    mask.init(0);
    EXPECT_EQ(1, mask.calls("reset 6"));
}

TEST(BitMaskDestructor, ClearsTheSignatureInMemoryAndKeepsTheSpareBits)
{
    alignas(CBitMask) unsigned char storage[sizeof(CBitMask)];
    auto *mask = new (storage) CBitMask(40);
    mask->spare = 3;
    mask->~CBitMask();
    const volatile unsigned char *after = storage; // what is really there, whatever the compiler knows of lifetimes
    EXPECT_EQ(0, after[9]);
    EXPECT_EQ(3, after[8] >> 6);
}

TEST(BitMaskDestructor, OfADerivedObjectClearsTheSignatureAndFreesThroughTheBasePointer)
{
    CBitMask *mask = new CountingMask(100);
    EXPECT_EQ(1U, mask->autoDelete);
    delete mask; // the leak check watches the words
}

TEST(BitMaskSingleBit, SetOnASetBitAndClearOnAClearBitAreFalse)
{
    CBitMask mask(64);
    EXPECT_TRUE(mask.setBit(31));
    EXPECT_FALSE(mask.setBit(31));
    EXPECT_EQ(1U, mask[0]);
    EXPECT_TRUE(mask.chkBit(31));
    EXPECT_TRUE(mask.clrBit(31));
    EXPECT_FALSE(mask.clrBit(31));
    EXPECT_FALSE(mask.chkBit(31));
}

TEST(BitMaskSingleBit, AssigningTheValueThatABitHasIsFalse)
{
    CBitMask mask(64);
    EXPECT_FALSE(mask.assignBit(5, false));
    EXPECT_TRUE(mask.assignBit(5, true));
    EXPECT_FALSE(mask.assignBit(5, true));
    EXPECT_TRUE(mask.assignBit(5, false));
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskSingleBit, BitsCountFromTheMostSignificant)
{
    CBitMask mask(64);
    mask.setBit(0);
    mask.setBit(34);
    EXPECT_EQ(0x80000000U, mask[0]);
    EXPECT_EQ(0x20000000U, mask[1]);
}

TEST(BitMaskSingleBit, OutOfRangeIsRefused)
{
    CBitMask mask(64);
    CBitMask empty;
    for (const unsigned bit : {64U, 65U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(mask.setBit(bit));
        EXPECT_FALSE(mask.clrBit(bit));
        EXPECT_FALSE(mask.assignBit(bit, true));
        EXPECT_FALSE(mask.chkBit(bit));
        EXPECT_FALSE(empty.setBit(bit));
    }
    EXPECT_FALSE(empty.setBit(0));
    EXPECT_FALSE(empty.chkBit(0));
    EXPECT_FALSE(mask.bitsAreSet());
}

TEST(BitMaskSingleBit, SpareBitsStay)
{
    CBitMask mask(64);
    mask.spare = 3;
    mask.setBit(1);
    mask.init(99);
    mask.init(CBitMask(5), true);
    mask = CBitMask(5);
    EXPECT_EQ(3U, mask.spare);
}

TEST(BitMaskWords, WordAndOctetWritesTellWhetherSomethingChanged)
{
    CBitMask mask(64);
    EXPECT_TRUE(mask.setWrd32(1, 0x01020304));
    EXPECT_FALSE(mask.setWrd32(1, 0x01020304));
    EXPECT_FALSE(mask.setWrd32(2, 1));
    EXPECT_FALSE(mask.setWrd32(0xFFFFFFFF, 1));
    EXPECT_TRUE(mask.setWrd8(5, 0xAA));
    EXPECT_FALSE(mask.setWrd8(5, 0xAA));
    EXPECT_FALSE(mask.setWrd8(8, 1));
    EXPECT_FALSE(mask.setWrd8(0xFFFFFFFF, 1));
    EXPECT_EQ(0U, mask[0]);
    EXPECT_EQ(0x01AA0304U, mask[1]);
    EXPECT_EQ(0U, mask[2]) << "a word index, not a bit";
}

TEST(BitMaskWords, OctetsCountFromTheMostSignificant)
{
    CBitMask mask(64);
    for (unsigned char i = 0; i < 8; ++i)
        mask.setWrd8(i, i);
    EXPECT_EQ(0x00010203U, mask[0]);
    EXPECT_EQ(0x04050607U, mask[1]);
}

TEST(BitMaskLogic, WordsBeyondTheShorterMaskStay)
{
    unsigned longWords[2] = {0xFFFF0000, 0x12345678};
    unsigned shortWord = 0x0FF00FF0;
    CBitMask longer(2, longWords);
    const CBitMask shorter(1, &shortWord);
    EXPECT_EQ(&longer, &(longer &= shorter));
    EXPECT_EQ(0x0FF00000U, longWords[0]);
    EXPECT_EQ(&longer, &(longer |= shorter));
    EXPECT_EQ(0x0FF00FF0U, longWords[0]);
    EXPECT_EQ(&longer, &(longer ^= shorter));
    EXPECT_EQ(0U, longWords[0]);
    longer.bitwiseNotEqual(shorter);
    EXPECT_EQ(0xF00FF00FU, longWords[0]);
    EXPECT_EQ(&longer, &(longer = shorter));
    EXPECT_EQ(0x0FF00FF0U, longWords[0]);
    EXPECT_EQ(0x12345678U, longWords[1]);
    EXPECT_EQ(2U, longer.numWords);
}

TEST(BitMaskLogic, AssignmentCopiesIntoTheSameWordsAndKeepsTheTail)
{
    CBitMask to(40);
    const unsigned *words = to.maskPtr;
    CBitMask from(64);
    from.set();
    to = from;
    EXPECT_EQ(words, to.maskPtr);
    EXPECT_EQ(24U, to.tailBits);
    EXPECT_EQ(64U, to.numBitsSet());
    CBitMask empty;
    empty = from;
    EXPECT_EQ(0U, empty.numWords);
}

// Views may share words. However many they are, each is written before the next one is read, as in the other
// operations.
TEST(BitMaskLogic, AssignmentWithinTheSameWordsGoesFromTheFirstWordToTheLast)
{
    for (unsigned count = 1; count <= 40; ++count) {
        std::vector<unsigned> words(count + 1);
        std::vector<unsigned> expected(count + 1, 1);
        std::iota(words.begin(), words.end(), 1U);
        CBitMask behind(count, words.data() + 1);
        behind = CBitMask(count, words.data());
        EXPECT_EQ(expected, words) << count << " words of a mask, one further on";

        std::iota(words.begin(), words.end(), 1U);
        behind = words.data();
        EXPECT_EQ(expected, words) << count << " words of an array, one further on";

        std::iota(words.begin(), words.end(), 1U);
        std::iota(expected.begin(), expected.end(), 2U);
        expected.back() = count + 1;
        CBitMask inFront(count, words.data());
        inFront = behind;
        EXPECT_EQ(expected, words) << count << " words, one to the front";
        inFront = CBitMask(count, words.data());
        inFront = words.data();
        EXPECT_EQ(expected, words) << count << " words onto themselves";
    }
}

TEST(BitMaskLogic, ComplementTakesTheTailAlong)
{
    CBitMask mask(33);
    const CBitMask inverted = ~mask;
    EXPECT_EQ(64U, inverted.numBitsSet());
    EXPECT_EQ(31U, inverted.tailBits);
    EXPECT_EQ(1U, inverted.autoDelete);
    mask.bitwiseNotEqual();
    EXPECT_TRUE(mask == inverted);
}

TEST(BitMaskLogic, MasksOfDifferentWordCountsAreNeverEqual)
{
    EXPECT_FALSE(CBitMask(32) == CBitMask(64));
    EXPECT_TRUE(CBitMask(32) != CBitMask(64));
    EXPECT_TRUE(CBitMask() == CBitMask());
    EXPECT_TRUE(CBitMask(33) == CBitMask(64)) << "the sizes asked for do not count";
}

TEST(BitMaskLogic, NotEqualAsksTheVirtualEqual)
{
    CountingMask mask(64);
    EXPECT_TRUE(mask != CBitMask(32));
    EXPECT_EQ(1, mask.calls("== 38"));
}

// Readers without the writer's lock: bits of the same word that the writer leaves alone never flicker.
TEST(BitMaskUnlockedReaders, SeeTheBitsThatStayWhileOthersOfTheirWordChange)
{
    CBitMask mask(256);
    mask.setBit(100);
    mask.set(120, 130);
    mask.clrBit(200);
    const CBitMask &readOnly = mask;
    std::atomic<bool> done{false};
    auto read = [&] {
        do {
            ASSERT_TRUE(readOnly.chkBit(100));
            ASSERT_FALSE(readOnly.chkBit(99));
            ASSERT_EQ(100U, readOnly.findSetBit(98));
            ASSERT_EQ(200U, readOnly.findClrBit(193));
        } while (!done);
    };
    std::thread first(read);
    std::thread second(read);
    for (unsigned i = 0; i < 20000; ++i) {
        mask.setBit(96);
        mask.assignBit(210, i % 2 == 0);
        EXPECT_EQ(96U, mask.findSetBit(0, true));
        mask.setBit(101);
        mask.clrBit(101);
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(119U, mask.numBitsSet());
}
