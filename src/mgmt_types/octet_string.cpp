// octet_string.cpp: the growable byte string, whose storage the other octet types share.
//
// Policy:     the array only grows, and is replaced only after the larger one is filled.
// Locking:    none; callers serialise access to one object.
// Invariants: 0 <= os.len <= size; all `size` bytes are defined, because a dump walks them.
// Cost:       a copy of the bytes; an allocation when a value does not fit.
#include "mgmt_types.h"
#include "vxw_shim.h"

#include <algorithm>
#include <string.h>

namespace
{
constexpr int BytesPerLine = 20;
constexpr int BytesPerGroup = 4;

// Order of the common prefix of two values.
int comparePrefix(SuOctetString const &left, SuOctetString const &right)
{
    const int common = std::min(left.os.len, right.os.len);
    return common > 0 ? memcmp(left.os.ptr, right.os.ptr, static_cast<size_t>(common)) : 0;
}

bool equals(SuOctetString const &value, const void *bytes, size_t length)
{
    return static_cast<size_t>(value.os.len) == length && (length == 0 || memcmp(value.os.ptr, bytes, length) == 0);
}

// The line buffer of one dump.
class CliLine
{
public:
    explicit CliLine(unsigned int session) : cli(static_cast<int>(session)) {}

    template <class... Arguments>
    void print(const char *format, Arguments... arguments)
    {
// The formats are the literals below, and "%8.8p" (a pointer of at least eight digits) is the C library's own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        dbgCliPrint(buffer, sizeof buffer, &cursor, &remaining, cli, format, arguments...);
#pragma GCC diagnostic pop
    }

    // Sends what is held: a text that finds the buffer full, even an empty one, makes dbgCliPrint send it first.
    void flush()
    {
        remaining = 0;
        dbgCliPrint(buffer, sizeof buffer, &cursor, &remaining, cli, "%s", "");
    }

private:
    char buffer[1024] = {};
    char *cursor = buffer;
    size_t remaining = sizeof buffer;
    int cli;
};

void printHexByte(CliLine &line, SuOctetString const &value, int i)
{
    line.print("%s%02x", i == value.os.len ? "|" : " ", static_cast<unsigned int>(value.os.ptr[i]));
    if (i % BytesPerLine == BytesPerLine - 1)
        line.print("\n          ");
    else if (i % BytesPerGroup == BytesPerGroup - 1)
        line.print(" ");
}
} // namespace

SuOctetString::SuOctetString(int room) : os(), size(std::max(room, 0))
{
    os.ptr = new unsigned char[static_cast<size_t>(size)]();
}

void SuOctetString::setData(unsigned char const *data, int n)
{
    if (data == nullptr || n <= 0) {
        os.len = 0;
        return;
    }
    const size_t bytes = static_cast<size_t>(n);
    if (n <= size) {
        memmove(os.ptr, data, bytes);
    } else {
        unsigned char *const larger = new unsigned char[bytes];
        memcpy(larger, data, bytes);
        delete[] os.ptr;
        os.ptr = larger;
        size = n;
    }
    os.len = n;
}

int SuOctetString::getData(unsigned char *dst, int &n) const
{
    if (dst == nullptr || n < os.len) {
        n = 0;
        return 1;
    }
    n = os.len;
    if (n > 0)
        memcpy(dst, os.ptr, static_cast<size_t>(n));
    return 0;
}

int SuOctetString::getStr(char *dst) const
{
    if (dst == nullptr)
        return 1;
    if (os.len > 0)
        memcpy(dst, os.ptr, static_cast<size_t>(os.len));
    dst[os.len] = '\0';
    return 0;
}

bool SuOctetString::operator==(SuOctetString const &other) const
{
    return equals(*this, other.os.ptr, static_cast<size_t>(other.os.len));
}

bool SuOctetString::operator==(char const *text) const
{
    return text != nullptr && equals(*this, text, strlen(text));
}

// Kept: length does not take part in the order, so a value and its own prefix are unordered; sorted tables of earlier
// processes are in this order (OctetStringOrder.LengthTakesNoPart).
bool SuOctetString::operator<(SuOctetString const &other) const
{
    return comparePrefix(*this, other) < 0;
}

bool SuOctetString::operator>(SuOctetString const &other) const
{
    return comparePrefix(*this, other) > 0;
}

void SuOctetString::dump(unsigned int cli, bool asChars) const
{
    CliLine line(cli);
    line.print("size = %d, os.ptr = %8.8p, os.len = %d\n", size, static_cast<const void *>(os.ptr), os.len);
    line.print("os.ptr[] =");
    // Kept: all allocated bytes, not only the value: the dump is for looking at storage
    // (OctetStringDump.WalksAllAllocatedBytesAndMarksWhereTheValueEnds).
    for (int i = 0; i < size; i++) {
        if (asChars)
            line.print("%c", static_cast<int>(os.ptr[i]));
        else
            printHexByte(line, *this, i);
        line.flush();
    }
    line.print("\n");
    line.flush();
}
