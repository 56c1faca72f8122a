// bitset_faults.cpp: masks and matrices under faults. Only what takes an array of its own can fail: the allocator's
// exception passes, and the object is then empty or, when it was under construction, is none.
#include "fault_table.h"

#include "bitset.h"

#include <gtest/gtest.h>

#include <optional>

using namespace faults;

namespace
{
template <class Value, class... Arguments>
bool makes(Injection &injection, std::optional<Value> &room, const Arguments &...arguments)
{
    injection.during([&] { room.emplace(arguments...); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed(), !room.has_value());
    return room.has_value();
}

void makesAMask(Injection &injection)
{
    std::optional<CBitMask> mask;
    if (makes(injection, mask, 64U)) {
        EXPECT_EQ(2U, mask->numWords);
    }
}

void copiesAMask(Injection &injection)
{
    const CBitMask from(64);
    std::optional<CBitMask> mask;
    if (makes(injection, mask, from, true)) {
        EXPECT_EQ(64U, mask->numBitsSet());
    }
}

void makesAMaskOfBytes(Injection &injection)
{
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>("abcd");
    std::optional<CBitMask> mask;
    if (makes(injection, mask, bytes, 4U)) {
        EXPECT_EQ(1U, mask->numWords);
    }
}

template <class Code>
void becomes(Injection &injection, Code init)
{
    CBitMask mask(32);
    mask.setBit(0);
    injection.during([&] { init(mask); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 0U : 2U, mask.numWords);
    EXPECT_EQ(injection.failed(), mask.maskPtr == nullptr);
    mask.init(32); // it can be used again
    EXPECT_TRUE(mask.setBit(31));
}

void complements(Injection &injection)
{
    const CBitMask mask(64);
    const CBitMask result = injection.during([&] { return ~mask; });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(0U, mask.numBitsSet());
}

void usesMasks(Injection &injection)
{
    unsigned words[2] = {};
    unsigned char bytes[8] = {};
    unsigned length = 8;
    CBitMask other(64);
    injection.during([&] {
        CBitMask empty;
        CBitMask mask(2, words);
        mask.init(2, words);
        mask.assign(other, 0, 0, 0);
        mask.assign(words, 2, 0);
        mask.assignBit(1, true);
        mask.bits_in(bytes, 9, 3);
        mask.bits_or_in(bytes, 9, 3);
        mask.bits_out(bytes, 9, 3);
        mask.data_in(bytes, 1, 0);
        mask.data_or_in(bytes, 1, 0);
        mask.data_out(bytes, 1, 0);
        mask.octet_string_in(bytes, &length, true);
        mask.octet_string_out(bytes, &length, true);
        mask.bitsAreSet();
        mask.numBitsSet();
        mask.bitwiseNotEqual();
        mask.bitwiseNotEqual(other);
        mask.chkBit(1);
        mask.clrBit(1);
        mask.setBit(1);
        mask.setWrd32(0, 1);
        mask.setWrd8(0, 1);
        mask.findClrBit(0);
        mask.findClrBit(0, true);
        mask.findSetBit(0);
        mask.findSetBit(0, true);
        mask.reset(3, 3);
        mask.set(3, 3);
        mask.display(true, 8, 2);
        printCBitMask(&mask, true);
        mask = other;
        mask = words;
        mask &= other;
        mask |= other;
        mask ^= other;
        mask <<= 3;
        mask >>= 3;
        EXPECT_EQ(mask[0], words[0]);
        EXPECT_TRUE(mask == mask);
        EXPECT_FALSE(mask != mask);
        mask.size();
        CBitMask::scanbit(1);
        CBitMask::scanclrbit(1);
    });
}

void makesAMatrix(Injection &injection)
{
    std::optional<CBitMatrix> matrix;
    unsigned *const words = nullptr;
    if (makes(injection, matrix, 2U, 40U, words)) {
        EXPECT_EQ(2U, matrix->wordsPerRow);
    }
}

void copiesAMatrix(Injection &injection)
{
    CBitMatrix from(2, 40, nullptr);
    from.setBit(1, 39);
    std::optional<CBitMatrix> matrix;
    if (makes(injection, matrix, from)) {
        EXPECT_EQ(1U, matrix->numBitsSet());
    }
}

template <class Code>
void becomesMatrix(Injection &injection, Code init)
{
    CBitMatrix matrix(3, 32, nullptr);
    injection.during([&] { init(matrix); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 0U : 2U, matrix.numRows);
    EXPECT_EQ(injection.failed(), matrix.maskPtr == nullptr);
    matrix.init(1, 1, nullptr); // it can be used again
    EXPECT_TRUE(matrix.setBit(0, 0));
}

void usesMatrices(Injection &injection)
{
    unsigned words[4] = {};
    unsigned char bytes[16] = {};
    CBitMask row(64);
    CBitMask col(32);
    injection.during([&] {
        CBitMatrix empty;
        CBitMatrix matrix(2, 40, words);
        matrix.assignBit(0, 1, true);
        matrix.setBit(0, 1);
        matrix.clrBit(0, 1);
        matrix.chkBit(0, 1);
        matrix.bitsAreSet();
        matrix.rowBitsAreSet(1);
        matrix.colBitsAreSet(1);
        matrix.numBitsSet();
        matrix.bits_in(bytes, 0, 1, 3, 9);
        matrix.bits_out(bytes, 0, 1, 3, 9);
        matrix.data_in(bytes);
        matrix.data_out(bytes);
        matrix.bitwiseNotEqual();
        matrix.findColClrBit(0, 0, true);
        matrix.findColSetBit(0, 0, true);
        matrix.findRowClrBit(0, 0, true);
        matrix.findRowSetBit(0, 0, true);
        matrix.getCol(0, &col);
        matrix.getRow(0, &row);
        matrix.getRow(1, &row);
        matrix.setCol(0, &col);
        matrix.setRow(0, &row);
        matrix.setCol(0, true, 0, 0);
        matrix.setRow(0, true, 0, 0);
        matrix.resetCol(0, 0, 0);
        matrix.resetRow(0, 0, 0);
        matrix.reset();
        matrix.set(true);
        matrix.size();
        printCBitMatrix(&matrix, true);
    });
}

void initOfBits(Injection &injection)
{
    becomes(injection, [](CBitMask &mask) { mask.init(64U); });
}

void initOfMask(Injection &injection)
{
    const CBitMask other(64);
    becomes(injection, [&](CBitMask &mask) { mask.init(other, false); });
}

void initOfBytes(Injection &injection)
{
    becomes(injection, [](CBitMask &mask) { mask.init(reinterpret_cast<const unsigned char *>("abcdefgh"), 8U); });
}

void initOfSizes(Injection &injection)
{
    becomesMatrix(injection, [](CBitMatrix &matrix) { matrix.init(2, 40, nullptr); });
}

void initOfMatrix(Injection &injection)
{
    const CBitMatrix other(2, 40, nullptr);
    becomesMatrix(injection, [&](CBitMatrix &matrix) { matrix.init(other); });
}

const Row rows[] = {
    {"CBitMask::CBitMask(unsigned int)", makesAMask},
    {"CBitMask::CBitMask(CBitMask const&, bool)", copiesAMask},
    {"CBitMask::CBitMask(unsigned char const*, unsigned int)", makesAMaskOfBytes},
    {"CBitMask::init(unsigned int)", initOfBits},
    {"CBitMask::init(CBitMask const&, bool)", initOfMask},
    {"CBitMask::init(unsigned char const*, unsigned int)", initOfBytes},
    {"CBitMask::operator~() const", complements},
    {"CBitMask::CBitMask()\n"
     "CBitMask::CBitMask(unsigned int, unsigned int*)\n"
     "CBitMask::~CBitMask()\n"
     "CBitMask::init(unsigned int, unsigned int*)\n"
     "CBitMask::assign(CBitMask const&, unsigned int, unsigned int, unsigned int)\n"
     "CBitMask::assign(unsigned int const*, unsigned int, unsigned int)\n"
     "CBitMask::assignBit(unsigned int, bool)\n"
     "CBitMask::bits_in(unsigned char const*, unsigned int, unsigned int)\n"
     "CBitMask::bits_or_in(unsigned char const*, unsigned int, unsigned int)\n"
     "CBitMask::bits_out(unsigned char*, unsigned int, unsigned int) const\n"
     "CBitMask::data_in(unsigned char const*, unsigned int, unsigned int)\n"
     "CBitMask::data_or_in(unsigned char const*, unsigned int, unsigned int)\n"
     "CBitMask::data_out(unsigned char*, unsigned int, unsigned int) const\n"
     "CBitMask::octet_string_in(unsigned char const*, unsigned int*, bool)\n"
     "CBitMask::octet_string_out(unsigned char*, unsigned int*, bool) const\n"
     "CBitMask::bitsAreSet() const\n"
     "CBitMask::numBitsSet() const\n"
     "CBitMask::bitwiseNotEqual()\n"
     "CBitMask::bitwiseNotEqual(CBitMask const&)\n"
     "CBitMask::chkBit(unsigned int) const\n"
     "CBitMask::clrBit(unsigned int)\n"
     "CBitMask::setBit(unsigned int)\n"
     "CBitMask::setWrd32(unsigned int, unsigned int)\n"
     "CBitMask::setWrd8(unsigned int, unsigned char)\n"
     "CBitMask::findClrBit(unsigned int) const\n"
     "CBitMask::findClrBit(unsigned int, bool)\n"
     "CBitMask::findSetBit(unsigned int) const\n"
     "CBitMask::findSetBit(unsigned int, bool)\n"
     "CBitMask::reset(unsigned int, unsigned int)\n"
     "CBitMask::set(unsigned int, unsigned int)\n"
     "CBitMask::display(bool, int, int) const\n"
     "CBitMask::operator=(CBitMask const&)\n"
     "CBitMask::operator=(unsigned int const*)\n"
     "CBitMask::operator&=(CBitMask const&)\n"
     "CBitMask::operator|=(CBitMask const&)\n"
     "CBitMask::operator^=(CBitMask const&)\n"
     "CBitMask::operator<<=(unsigned int)\n"
     "CBitMask::operator>>=(unsigned int)\n"
     "CBitMask::operator[](unsigned int) const\n"
     "CBitMask::operator==(CBitMask const&) const\n"
     "CBitMask::operator!=(CBitMask const&) const\n"
     "CBitMask::size() const\n"
     "CBitMask::scanbit(unsigned int)\n"
     "CBitMask::scanclrbit(unsigned int)\n"
     "printCBitMask(CBitMask const*, bool)",
     usesMasks, Row::ReachesNothing},
    {"CBitMatrix::CBitMatrix(unsigned int, unsigned int, unsigned int*)", makesAMatrix},
    {"CBitMatrix::CBitMatrix(CBitMatrix const&)", copiesAMatrix},
    {"CBitMatrix::init(unsigned int, unsigned int, unsigned int*)", initOfSizes},
    {"CBitMatrix::init(CBitMatrix const&)", initOfMatrix},
    {"CBitMatrix::CBitMatrix()\n"
     "CBitMatrix::~CBitMatrix()\n"
     "CBitMatrix::assignBit(unsigned int, unsigned int, bool)\n"
     "CBitMatrix::setBit(unsigned int, unsigned int)\n"
     "CBitMatrix::clrBit(unsigned int, unsigned int)\n"
     "CBitMatrix::chkBit(unsigned int, unsigned int) const\n"
     "CBitMatrix::bitsAreSet() const\n"
     "CBitMatrix::rowBitsAreSet(unsigned int) const\n"
     "CBitMatrix::colBitsAreSet(unsigned int) const\n"
     "CBitMatrix::numBitsSet() const\n"
     "CBitMatrix::bits_in(unsigned char const*, unsigned int, unsigned int, unsigned int, unsigned int)\n"
     "CBitMatrix::bits_out(unsigned char*, unsigned int, unsigned int, unsigned int, unsigned int) const\n"
     "CBitMatrix::data_in(unsigned char const*)\n"
     "CBitMatrix::data_out(unsigned char*) const\n"
     "CBitMatrix::bitwiseNotEqual()\n"
     "CBitMatrix::findColClrBit(unsigned int, unsigned int, bool) const\n"
     "CBitMatrix::findColSetBit(unsigned int, unsigned int, bool) const\n"
     "CBitMatrix::findRowClrBit(unsigned int, unsigned int, bool) const\n"
     "CBitMatrix::findRowSetBit(unsigned int, unsigned int, bool) const\n"
     "CBitMatrix::getCol(unsigned int, CBitMask*) const\n"
     "CBitMatrix::getRow(unsigned int, CBitMask*) const\n"
     "CBitMatrix::setCol(unsigned int, CBitMask*)\n"
     "CBitMatrix::setRow(unsigned int, CBitMask*)\n"
     "CBitMatrix::setCol(unsigned int, bool, unsigned int, unsigned int)\n"
     "CBitMatrix::setRow(unsigned int, bool, unsigned int, unsigned int)\n"
     "CBitMatrix::resetCol(unsigned int, unsigned int, unsigned int)\n"
     "CBitMatrix::resetRow(unsigned int, unsigned int, unsigned int)\n"
     "CBitMatrix::reset()\n"
     "CBitMatrix::set(bool)\n"
     "CBitMatrix::size() const\n"
     "printCBitMatrix(CBitMatrix const*, bool)",
     usesMatrices, Row::ReachesNothing},
};
} // namespace

TEST(BitsetFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
