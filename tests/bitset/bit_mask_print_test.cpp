// Every byte that CBitMask prints.
#include "bitset.h"

#include "bitset/counting_mask.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>

namespace
{
std::string header(const CBitMask &mask, unsigned words, unsigned bits, unsigned origBits, unsigned set, char owner)
{
    return formatted("numWords   = %-8u, numBits    = %-8u, origBits   = %-8u\n"
                     "numBitsSet = %-8u, autoDelete = %c, maskPtr    = %p, bits ...\n",
                     words, bits, origBits, set, owner, static_cast<void *>(mask.maskPtr));
}

std::string displayed(const CBitMask &mask, bool verbose, int width, int indent)
{
    return printedBy([&] { mask.display(verbose, width, indent); });
}

CBitMask sample()
{
    CBitMask mask(40);
    mask.set(3, 0);
    mask.setBit(5);
    return mask;
}
// More text than is gathered before it is written out.
TEST(BitMaskPrint, LongTextsComeOutWholeAndInOrder)
{
    CBitMask mask(4096);
    std::string runs;
    std::string ranges;
    for (unsigned bit = 0; bit < 4096; bit += 4) {
        mask.set(2 - bit / 4 % 2, bit);
        const std::string first = std::to_string(bit);
        const std::string last = std::to_string(bit + 1);
        runs += bit / 4 % 2 == 0 ? first + "-" + last + "," : first + ",";
        ranges += bit / 4 % 2 == 0 ? "[" + first + ".." + last + "]," : "[" + first + "],";
    }
    EXPECT_EQ(runs + "\n", printedBy([&] { mask.display(false, 1000000, 0); }));
    const std::string shown = printedBy([&] { printCBitMask(&mask, true); });
    EXPECT_EQ(ranges + "\n", shown.substr(shown.find("bits ...\n") + 9));
    std::string words;
    for (unsigned i = 0; i < mask.numWords; ++i)
        words += formatted("%08X ", mask[i]);
    const std::string verbose = printedBy([&] { mask.display(true, 1000000, 0); });
    EXPECT_EQ(words + "\n", verbose.substr(verbose.find("bits ...\n") + 9));
}
} // namespace

TEST(BitMaskPrint, RangesOnOneLine)
{
    const CBitMask mask = sample();
    int result = 0;
    EXPECT_EQ(header(mask, 2, 64, 40, 4, 'Y') + "[0..2],[5],\n",
              printedBy([&] { result = printCBitMask(&mask, true); }));
    EXPECT_EQ('\n', result);
}

TEST(BitMaskPrint, RangeToTheEndOfTheMask)
{
    unsigned words[2] = {0, 0x00000007};
    const CBitMask mask(2, words);
    EXPECT_EQ(header(mask, 2, 64, 64, 3, 'N') + "[61..63],\n", printedBy([&] { printCBitMask(&mask, true); }));
    const CBitMask last(1, words + 1);
    words[1] = 1;
    EXPECT_EQ(header(last, 1, 32, 32, 1, 'N') + "[31],\n", printedBy([&] { printCBitMask(&last, true); }));
}

TEST(BitMaskPrint, WithoutSetBitsOnlyANewlineFollowsTheHeader)
{
    const CBitMask mask(33);
    EXPECT_EQ(header(mask, 2, 64, 33, 0, 'Y') + "\n", printedBy([&] { printCBitMask(&mask, true); }));
    const CBitMask empty;
    EXPECT_EQ("numWords   = 0       , numBits    = 0       , origBits   = 0       \n"
              "numBitsSet = 0       , autoDelete = N, maskPtr    = (nil), bits ...\n\n",
              printedBy([&] { printCBitMask(&empty, true); }));
    EXPECT_EQ(header(empty, 0, 0, 0, 0, 'N') + "\n", printedBy([&] { printCBitMask(&empty, false); }));
}

TEST(BitMaskPrint, WordsEightToALine)
{
    unsigned words[9] = {0, 1, 0xABCDEF, 0, 0, 0, 0, 0xFFFFFFFF, 9};
    const CBitMask nine(9, words);
    EXPECT_EQ(header(nine, 9, 288, 288, 52, 'N') +
                  "00000000 00000001 00ABCDEF 00000000 00000000 00000000 00000000 FFFFFFFF \n00000009 \n",
              printedBy([&] { printCBitMask(&nine, false); }));
    const CBitMask eight(8, words);
    EXPECT_EQ(header(eight, 8, 256, 256, 50, 'N') +
                  "00000000 00000001 00ABCDEF 00000000 00000000 00000000 00000000 FFFFFFFF \n\n",
              printedBy([&] { printCBitMask(&eight, false); }));
}

TEST(BitMaskPrint, NullIsInvalid)
{
    EXPECT_EQ("Invalid CBitMask ptr\n", printedBy([] { printCBitMask(nullptr, true); }));
    EXPECT_EQ("Invalid CBitMask ptr\n", printedBy([] { printCBitMask(nullptr, false); }));
}

// The library must really clear the signature: a store to an object that ends is dead to an optimiser.
TEST(BitMaskPrint, DestroyedMaskIsInvalid)
{
    alignas(CBitMask) unsigned char storage[sizeof(CBitMask)];
    auto *mask = new (storage) CBitMask(40);
    EXPECT_NE("Invalid CBitMask ptr\n", printedBy([&] { printCBitMask(mask, true); }));
    mask->~CBitMask();
    EXPECT_EQ("Invalid CBitMask ptr\n", printedBy([&] { printCBitMask(mask, true); }));
    unsigned word = 0; // a view's destructor frees nothing, so no call keeps the store alive
    mask = new (storage) CBitMask(1, &word);
    mask->~CBitMask();
    EXPECT_EQ("Invalid CBitMask ptr\n", printedBy([&] { printCBitMask(mask, true); }));
}

TEST(BitMaskPrint, AsksTheVirtualSearches)
{
    CountingMask mask(64);
    mask.CBitMask::setBit(9);
    mask.forget();
    printedBy([&] { printCBitMask(&mask, true); });
    EXPECT_EQ(1, mask.calls("numBitsSet 25"));
    EXPECT_EQ(2, mask.calls("findSetBit 28"));
    EXPECT_EQ(1, mask.calls("findClrBit 29"));
}

TEST(BitMaskDisplay, RangesEndWithANewline)
{
    EXPECT_EQ("0-2,5,\n", displayed(sample(), false, 0, 0));
    EXPECT_EQ("\n", displayed(CBitMask(64), false, 0, 0));
    EXPECT_EQ("\n", displayed(CBitMask(), false, 0, 0));
    EXPECT_EQ("0-63,\n", displayed(~CBitMask(64), false, 0, 0));
}

// 64 bits: two digits, so a line is full when no more than 6 characters are left.
TEST(BitMaskDisplay, RangesWrapWhenTheRoomLeftIsNotAboveTwiceTheDigitsAndOne)
{
    CBitMask mask(64);
    for (const unsigned bit : {0U, 2U, 4U, 6U, 8U})
        mask.setBit(bit);
    EXPECT_EQ("0,2,\n4,6,\n8,\n", displayed(mask, false, 10, 0)) << "10 - 4 is not above 6";
    EXPECT_EQ("0,2,4,\n6,8,\n", displayed(mask, false, 11, 0));
    EXPECT_EQ("0,\n2,\n4,\n6,\n8,\n\n", displayed(mask, false, 7, 0)) << "a break follows the last run too";
}

TEST(BitMaskDisplay, RangesAreIndentedFromTheSecondLineOn)
{
    CBitMask mask(64);
    for (const unsigned bit : {0U, 2U, 4U, 6U})
        mask.setBit(bit);
    EXPECT_EQ("0,2,\n   4,6,\n   \n", displayed(mask, false, 13, 3));
}

TEST(BitMaskDisplay, DigitsOfTheNumberOfBitsSetTheThreshold)
{
    CBitMask mask(1024); // four digits: full at 10 characters
    mask.setBit(1);
    mask.setBit(1000);
    EXPECT_EQ("1,\n1000,\n\n", displayed(mask, false, 12, 0));
    EXPECT_EQ("1,1000,\n\n", displayed(mask, false, 13, 0));
    CBitMask shorter(992); // three digits: full at 8
    shorter.setBit(1);
    EXPECT_EQ("1,\n", displayed(shorter, false, 11, 0));
    EXPECT_EQ("1,\n\n", displayed(shorter, false, 10, 0));
}

TEST(BitMaskDisplay, IndentIsDroppedWhenTheWidthIsNotLarger)
{
    CBitMask mask(64);
    for (const unsigned bit : {0U, 2U, 4U})
        mask.setBit(bit);
    EXPECT_EQ("0,2,\n4,\n", displayed(mask, false, 10, 10));
    EXPECT_EQ("0,2,\n4,\n", displayed(mask, false, 10, 99));
    EXPECT_EQ("0,2,4,\n", displayed(mask, false, 0, 80));
}

TEST(BitMaskDisplay, StrangeWidthsAndIndentsStillEnd)
{
    const CBitMask mask = sample();
    EXPECT_EQ("0-2,\n5,\n\n", displayed(mask, false, -5, 0));
    EXPECT_EQ("0-2,\n5,\n\n", displayed(mask, false, INT_MIN, INT_MAX));
    EXPECT_EQ("0-2,5,\n", displayed(mask, false, INT_MAX, INT_MIN));
    EXPECT_EQ("0-2,5,\n", displayed(mask, false, 0, -1));
}

TEST(BitMaskDisplay, VerboseStartsWithTheHeaderAndIndentsEveryLineOfWords)
{
    unsigned words[5] = {1, 2, 3, 4, 0xFFFFFFFF};
    const CBitMask mask(5, words);
    EXPECT_EQ(header(mask, 5, 160, 160, 37, 'N') + "  00000001 00000002 \n  00000003 00000004 \n  FFFFFFFF \n",
              displayed(mask, true, 29, 2));
}

TEST(BitMaskDisplay, VerboseWrapsWhenNineOrFewerCharactersAreLeft)
{
    unsigned words[2] = {1, 2};
    const CBitMask mask(2, words);
    const std::string top = header(mask, 2, 64, 64, 2, 'N');
    EXPECT_EQ(top + "00000001 \n00000002 \n\n", displayed(mask, true, 18, 0));
    EXPECT_EQ(top + "00000001 00000002 \n\n", displayed(mask, true, 19, 0));
    EXPECT_EQ(top + "00000001 00000002 \n\n", displayed(mask, true, 27, 0));
    EXPECT_EQ(top + "00000001 00000002 \n", displayed(mask, true, 28, 0));
    EXPECT_EQ(top + "00000001 \n00000002 \n\n", displayed(mask, true, 5, 9)) << "the indent is dropped";
}

TEST(BitMaskDisplay, VerboseTakesEightyColumnsByDefault)
{
    const CBitMask mask(320);
    const std::string word = "00000000 ";
    const std::string line = word + word + word + word + word + word + word + word;
    EXPECT_EQ(header(mask, 10, 320, 320, 0, 'Y') + line + "\n" + word + word + "\n", displayed(mask, true, 0, 0));
    EXPECT_EQ(header(CBitMask(), 0, 0, 0, 0, 'N') + "   \n", displayed(CBitMask(), true, 0, 3));
}

TEST(BitMaskDisplay, AsksTheVirtualSearches)
{
    CountingMask mask(64);
    mask.CBitMask::setBit(9);
    mask.forget();
    displayed(mask, false, 0, 0);
    EXPECT_EQ(2, mask.calls("findSetBit 28"));
    EXPECT_EQ(1, mask.calls("findClrBit 29"));
    displayed(mask, true, 0, 0);
    EXPECT_EQ(1, mask.calls("numBitsSet 25"));
}

TEST(BitMaskSelfTest, PrintsItsNumberedResults)
{
    const std::string printed = printedBy([] { test_bitmask(); });
    std::string withoutPointers;
    for (size_t i = 0; i < printed.size(); ++i) {
        withoutPointers += printed[i];
        if (printed.compare(i, 2, "0x") == 0) // leave out the digits of an address
            i = printed.find(',', i) - 1;
    }
    const std::string words = "numWords   = 2       , numBits    = 64      , origBits   = 64      \n";
    EXPECT_EQ("test 1,0\n" + words +
                  "numBitsSet = 0       , autoDelete = N, maskPtr    = 0, bits ...\n\n"
                  "test 2,1\ntest 2,0\ntest 3,32\ntest 3,0\ntest 4,1\ntest 4,0\ntest 5,0\ntest 6,0\n" +
                  words + "numBitsSet = 64      , autoDelete = N, maskPtr    = 0, bits ...\n[0..63],\n" + words +
                  "numBitsSet = 0       , autoDelete = Y, maskPtr    = 0, bits ...\n\n",
              withoutPointers);
}
