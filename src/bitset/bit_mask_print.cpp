// bit_mask_print.cpp: CBitMask on standard output, and its self-test.
//
// Policy:     people and field scripts read these texts; every byte stays. Both prints share the header fields.
// Locking:    none. One call is several writes, so text of other threads may come between.
// Invariants: runs come from findSetBit() and findClrBit() of the object, so a derived class's override is honoured.
// Cost:       one write for some hundred characters; nothing allocates.
#include "bitset.h"

#include "bitset/mask_words.h"
#include "bitset/text_batch.h"

#include <kel_platform.h>

#include <cstdint>
#include <cstdio>

namespace
{
void printHeader(const CBitMask &mask)
{
    printf("numWords   = %-8u, ", unsigned{mask.numWords});
    printf("numBits    = %-8u, ", bitsOf(mask));
    printf("origBits   = %-8u\n", bitsOf(mask) - mask.tailBits);
    printf("numBitsSet = %-8u, ", mask.numBitsSet());
    printf("autoDelete = %c, ", mask.autoDelete ? 'Y' : 'N');
    printf("maskPtr    = %p, bits ...\n", static_cast<void *>(mask.maskPtr));
}

// Destroyed masks are asked, too: that is what the signature is for, so the type checks of the sanitizers stay out.
__attribute__((no_sanitize("vptr"))) bool isLive(const CBitMask *mask)
{
    return mask != nullptr && mask->signature == liveMaskSignature;
}

// Calls run(first, last) for every run of set bits, in order.
template <class Run>
void forEachRun(const CBitMask &mask, Run run)
{
    for (unsigned first = mask.findSetBit(0); first != bitNotFound;) {
        unsigned end = mask.findClrBit(first);
        if (end == bitNotFound)
            end = bitsOf(mask);
        run(first, end - 1);
        first = mask.findSetBit(end);
    }
}

unsigned decimalDigits(unsigned number)
{
    unsigned digits = 1;
    while (number >= 10) {
        number /= 10;
        ++digits;
    }
    return digits;
}

// Breaks lines: what is printed is taken from the room that the current line has left.
class WrappedLine
{
public:
    WrappedLine(int width, int indent)
    {
        const int64_t columns = width != 0 ? width : 80;
        indent_ = columns > indent ? indent : 0;
        room_ = columns - indent_;
        left_ = room_;
    }

    void indent(TextBatch &text) const
    {
        for (int64_t i = 0; i < indent_; ++i)
            text.add(' ');
    }

    // Accounts for `printed` characters; starts a new line when no more than `atMost` are left.
    void advance(TextBatch &text, size_t printed, int64_t atMost)
    {
        left_ -= static_cast<int64_t>(printed);
        if (left_ > atMost)
            return;
        text.add('\n');
        indent(text);
        left_ = room_;
    }

private:
    int64_t indent_; // characters
    int64_t room_;   // characters of a fresh line
    int64_t left_;   // characters of the current line
};

void displayWords(const CBitMask &mask, WrappedLine line)
{
    constexpr int64_t oneWord = 9; // "%08X "
    TextBatch text;
    line.indent(text);
    for (unsigned i = 0; i < mask.numWords; ++i) {
        text.addWord(mask.maskPtr[i]);
        line.advance(text, oneWord, oneWord);
    }
}

void displayRuns(const CBitMask &mask, WrappedLine line)
{
    const int64_t longestRun = 2 * (int64_t{decimalDigits(bitsOf(mask))} + 1); // "first-last,"
    TextBatch text;
    forEachRun(mask, [&](unsigned first, unsigned last) {
        const size_t before = text.length();
        text.addNumber(first);
        if (first < last) {
            text.add('-');
            text.addNumber(last);
        }
        text.add(',');
        line.advance(text, text.length() - before, longestRun);
    });
}

void printRuns(const CBitMask &mask)
{
    TextBatch text;
    forEachRun(mask, [&](unsigned first, unsigned last) {
        text.add('[');
        text.addNumber(first);
        if (first < last) {
            text.add("..");
            text.addNumber(last);
        }
        text.add("],");
    });
}

void printWords(const CBitMask &mask)
{
    TextBatch text;
    for (unsigned i = 0; i < mask.numWords; ++i) {
        text.addWord(mask.maskPtr[i]);
        if (i % 8 == 7)
            text.add('\n');
    }
}
} // namespace

void CBitMask::display(bool verbose, int width, int indent) const
{
    if (verbose) {
        printHeader(*this);
        displayWords(*this, WrappedLine(width, indent));
    } else {
        displayRuns(*this, WrappedLine(width, indent));
    }
    putchar('\n');
}

int printCBitMask(CBitMask const *mask, bool ranges)
{
    if (!isLive(mask)) {
        printf("Invalid CBitMask ptr");
        return putchar('\n');
    }
    printHeader(*mask);
    if (ranges) {
        printRuns(*mask);
    } else {
        printWords(*mask);
    }
    return putchar('\n');
}

namespace
{
void assignSampleBits(CBitMask &mask, bool value)
{
    constexpr unsigned sample[] = {1, 4, 18, 27};
    for (const unsigned bit : sample)
        mask.assignBit(bit, value);
}

// The platform scans take no word without the bit they look for; a word without a set bit counts 32 leading zeros.
int leadingZeros(unsigned word)
{
    return word != 0 ? bitarray_scanbit(word) : 32;
}
} // namespace

void test_bitmask()
{
    unsigned words[2] = {};
    CBitMask mask(2, words);
    mask.reset();
    printf("test 1,%d\n", bitarray_scanclrbit(words[0]));
    printCBitMask(&mask, true);

    assignSampleBits(mask, true);
    printf("test 2,%d\n", bitarray_scanbit(words[0]));
    printf("test 2,%d\n", bitarray_scanclrbit(words[0]));
    assignSampleBits(mask, false);
    printf("test 3,%d\n", leadingZeros(words[0]));
    printf("test 3,%d\n", bitarray_scanclrbit(words[0]));
    assignSampleBits(mask, true);
    printf("test 4,%d\n", bitarray_scanbit(words[0]));
    printf("test 4,%d\n", bitarray_scanclrbit(words[0]));
    assignSampleBits(mask, false);
    printf("test 5,%d\n", bitarray_scanclrbit(words[0]));

    CBitMask copy(mask);
    mask.reset();
    copy.reset();
    mask = ~copy;
    printf("test 6,%d\n", bitarray_scanbit(words[0]));
    printCBitMask(&mask, true);
    printCBitMask(&copy, true);
}
