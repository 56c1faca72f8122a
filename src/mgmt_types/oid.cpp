// oid.cpp: the object identifier, an array of sub-identifiers with a text and a byte form.
//
// Policy:     nothing is validated; every text and every byte string is a value.
// Locking:    none; callers serialise access to one object.
// Invariants: 0 <= oid.len <= size; all `size` sub-identifiers are defined, because a dump walks them.
// Cost:       one pass over the value; an allocation when it does not fit.
#include "mgmt_types.h"

#include <algorithm>
#include <charconv>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace
{
constexpr int OctetsEach = 4;
constexpr int PerLine = 4;

// Makes room for `count` sub-identifiers; the value is lost when the array is replaced.
void growTo(SuOID &id, int count)
{
    if (count <= id.size)
        return;
    unsigned int *const larger = new unsigned int[static_cast<size_t>(count)]();
    delete[] id.oid.ptr;
    id.oid.ptr = larger;
    id.size = count;
}

int countFields(const char *text)
{
    const auto dots = std::count(text, text + strlen(text), '.');
    return static_cast<int>(std::min<int64_t>(dots + 1, INT_MAX));
}

// strtoul() with the prefixes 0x and 0 alone. Newer C libraries also take 0b when the base is 0; in base 8 the letter
// ends the zero, as it does on every other machine.
unsigned long readNumber(const char *text, char **end)
{
    const char *digits = text + strspn(text, " \t\n\v\f\r");
    if (*digits == '+' || *digits == '-')
        digits++;
    const bool looksBinary = digits[0] == '0' && (digits[1] == 'b' || digits[1] == 'B');
    return strtoul(text, end, looksBinary ? 8 : 0);
}

int digitsOf(unsigned int number)
{
    int digits = 1;
    while (number >= 10) {
        number /= 10;
        digits++;
    }
    return digits;
}

// Writes `number` and a dot; returns the character behind the dot.
char *writeField(char *to, unsigned int number)
{
    to = std::to_chars(to, to + digitsOf(number), number).ptr;
    *to = '.';
    return to + 1;
}

constexpr unsigned int loadBigEndian32(const unsigned char *from)
{
    return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | uint32_t{from[3]};
}

constexpr void storeBigEndian32(unsigned char *to, unsigned int value)
{
    to[0] = static_cast<unsigned char>(value >> 24);
    to[1] = static_cast<unsigned char>(value >> 16);
    to[2] = static_cast<unsigned char>(value >> 8);
    to[3] = static_cast<unsigned char>(value);
}

void dumpDotted(SuOID const &id)
{
    for (int i = 0; i < id.size; i++)
        printf("%u%s", id.oid.ptr[i], i + 1 < id.size ? "." : "");
}

void dumpHex(SuOID const &id)
{
    for (int i = 0; i < id.size; i++)
        printf("%c%08x%s", i == id.oid.len ? '|' : ' ', id.oid.ptr[i], i % PerLine == PerLine - 1 ? "\n" : "");
}
} // namespace

SuOID &SuOID::operator=(SuOID const &other)
{
    if (this == &other)
        return *this;
    growTo(*this, other.oid.len);
    std::copy_n(other.oid.ptr, other.oid.len, oid.ptr);
    oid.len = other.oid.len;
    return *this;
}

// Kept: any character ends a number and is skipped as if it were a dot, and only as many numbers are read as there are
// fields between dots; configurations hold such texts (OidText.AnyCharacterThatEndsANumberCountsAsASeparator).
// Each step skips at most one dot, so the fields are all stored before the text is at its end.
SuOID &SuOID::operator=(char const *text)
{
    const int fields = text != nullptr ? countFields(text) : 0;
    growTo(*this, fields);
    oid.len = fields;
    for (int i = 0; i < fields; i++) {
        char *end = nullptr;
        oid.ptr[i] = static_cast<unsigned int>(readNumber(text, &end));
        text = end + 1;
    }
    return *this;
}

bool SuOID::operator==(SuOID const &other) const
{
    return std::equal(oid.ptr, oid.ptr + oid.len, other.oid.ptr, other.oid.ptr + other.oid.len);
}

int SuOID::getStr(char *dst) const
{
    if (dst == nullptr)
        return 1;
    if (oid.len == 0) {
        *dst = '\0';
        return 0;
    }
    for (int i = 0; i < oid.len; i++)
        dst = writeField(dst, oid.ptr[i]);
    dst[-1] = '\0';
    return 0;
}

int SuOID::getStrLen() const
{
    unsigned int bytes = 0; // above 195 million sub-identifiers it wraps
    for (int i = 0; i < oid.len; i++)
        bytes += static_cast<unsigned int>(digitsOf(oid.ptr[i])) + 1;
    return static_cast<int>(bytes);
}

int SuOID::getData(unsigned char *dst, int &n) const
{
    const int64_t needed = int64_t{OctetsEach} * oid.len;
    if (dst == nullptr || n < needed) {
        n = 0;
        return 1;
    }
    for (int i = 0; i < oid.len; i++, dst += OctetsEach)
        storeBigEndian32(dst, oid.ptr[i]);
    n = static_cast<int>(needed);
    return 0;
}

void SuOID::setData(unsigned char const *data, int n)
{
    // Kept: a length that is no multiple of four empties the identifier without a word
    // (OidBytes.LengthThatIsNoMultipleOfFourEmptiesTheIdentifier).
    if (data == nullptr || n < 0 || n % OctetsEach != 0)
        n = 0;
    growTo(*this, n / OctetsEach);
    oid.len = n / OctetsEach;
    for (int i = 0; i < oid.len; i++, data += OctetsEach)
        oid.ptr[i] = loadBigEndian32(data);
}

// Kept: all allocated sub-identifiers, not only the value: the dump is for looking at storage
// (OidDump.WalksAllAllocatedSubIdentifiersAndMarksWhereTheValueEnds).
void SuOID::dump(bool dotted) const
{
    printf("oid.ptr = %8p, oid.len = %d, size = %d\n", static_cast<void *>(oid.ptr), oid.len, size);
    if (dotted)
        dumpDotted(*this);
    else
        dumpHex(*this);
    printf("\n");
}
