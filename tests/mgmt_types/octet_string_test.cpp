#include "mgmt_types.h"

#include "harness/guarded_bytes.h"
#include "harness/printed_by.h"
#include "models/octet_string_model.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>

namespace
{
using Bytes = std::vector<unsigned char>;

// What the session was shown, call by call: this definition comes first for the library.
struct {
    std::vector<std::pair<int, std::string>> shown;
} session;

const unsigned char *bytes(const char *text)
{
    return reinterpret_cast<const unsigned char *>(text);
}

SuOctetString octets(const char *text, int room = 0)
{
    SuOctetString made(room);
    made.setData(bytes(text), static_cast<int>(strlen(text)));
    return made;
}

// The first line of a dump. The pointer has at least eight hexadecimal digits.
std::string header(const SuOctetString &value)
{
    return formatted("size = %d, os.ptr = 0x%08lx, os.len = %d\n", value.size,
                     reinterpret_cast<unsigned long>(value.os.ptr), value.os.len);
}

std::string allShown()
{
    std::string text;
    for (const auto &[cli, part] : session.shown)
        text += part;
    return text;
}
} // namespace

extern "C" int cmNotifyCLI(int cli, const char *text)
{
    session.shown.emplace_back(cli, text);
    return 0;
}

TEST(OctetString, StartsEmptyWithItsRoom)
{
    const SuOctetString made(4);
    EXPECT_EQ(4, made.size);
    EXPECT_EQ(0, made.os.len);
    ASSERT_NE(nullptr, made.os.ptr);
}

TEST(OctetString, NegativeRoomIsNoRoom)
{
    for (int room : {0, -1, INT_MIN}) {
        SuOctetString made(room);
        EXPECT_EQ(0, made.size);
        EXPECT_EQ(0, made.os.len);
        made.setData(bytes("a"), 1);
        EXPECT_TRUE(made == "a");
        EXPECT_EQ(1, made.size);
    }
}

TEST(OctetString, GrowsToAValueThatDoesNotFitAndNeverShrinks)
{
    SuOctetString made(4);
    made.setData(bytes("0123456789"), 10);
    EXPECT_EQ(10, made.size);
    EXPECT_EQ(10, made.os.len);
    EXPECT_TRUE(made == "0123456789");
    const unsigned char *const array = made.os.ptr;
    made.setData(bytes("abc"), 3);
    EXPECT_EQ(10, made.size);
    EXPECT_EQ(3, made.os.len);
    EXPECT_EQ(array, made.os.ptr);
    EXPECT_EQ(0, memcmp("abc3456789", made.os.ptr, 10));
}

TEST(OctetString, ValueThatJustFitsKeepsTheArray)
{
    SuOctetString made(4);
    const unsigned char *const array = made.os.ptr;
    made.setData(bytes("abcd"), 4);
    EXPECT_EQ(array, made.os.ptr);
    EXPECT_EQ(4, made.size);
}

TEST(OctetString, NullDataAndNegativeLengthsMakeItEmpty)
{
    for (int n : {0, 3, -1, INT_MIN, INT_MAX}) {
        SuOctetString made = octets("abc");
        made.setData(nullptr, n);
        EXPECT_EQ(0, made.os.len) << n;
        EXPECT_EQ(3, made.size) << n;
    }
    for (int n : {0, -1, INT_MIN}) {
        SuOctetString made = octets("abc");
        made.setData(bytes("xyz"), n);
        EXPECT_EQ(0, made.os.len) << n;
        EXPECT_EQ(0, memcmp("abc", made.os.ptr, 3)) << n;
    }
}

TEST(OctetString, MayBeSetFromItsOwnBytes)
{
    SuOctetString made = octets("abcdef");
    made.setData(made.os.ptr + 2, 4);
    EXPECT_TRUE(made == "cdef");
}

TEST(OctetString, CopiesAreDeep)
{
    SuOctetString original = octets("abc", 10);
    SuOctetString copy(original);
    EXPECT_EQ(3, copy.size);
    EXPECT_NE(original.os.ptr, copy.os.ptr);
    SuOctetString assigned(1);
    assigned = original;
    original.os.ptr[0] = 'X';
    EXPECT_TRUE(copy == "abc");
    EXPECT_TRUE(assigned == "abc");
    EXPECT_EQ(3, assigned.size);

    const SuOctetString &same = assigned;
    assigned = same;
    EXPECT_TRUE(assigned == "abc");

    SuOctetString roomy(20);
    roomy = copy;
    EXPECT_EQ(20, roomy.size);
    EXPECT_TRUE(roomy == "abc");
    roomy = SuOctetString(5);
    EXPECT_EQ(0, roomy.os.len);
}

TEST(OctetStringCopyOut, GivesExactlyTheBytesInUse)
{
    const SuOctetString made = octets("abc", 10);
    GuardedBytes out(3);
    int n = 3;
    EXPECT_EQ(0, made.getData(out.data(), n));
    EXPECT_EQ(3, n);
    EXPECT_EQ((Bytes{'a', 'b', 'c'}), out.held());
    GuardedBytes more(5);
    n = 5;
    EXPECT_EQ(0, made.getData(more.data(), n));
    EXPECT_EQ(3, n);
    EXPECT_EQ((Bytes{'a', 'b', 'c', GuardedBytes::Fill, GuardedBytes::Fill}), more.held());
    EXPECT_TRUE(out.intact() && more.intact());
}

TEST(OctetStringCopyOut, NullOrShortDestinationFailsWithLengthZero)
{
    const SuOctetString made = octets("abc");
    GuardedBytes out(3);
    for (int room : {2, 0, -1, INT_MIN}) {
        int n = room;
        EXPECT_EQ(1, made.getData(out.data(), n)) << room;
        EXPECT_EQ(0, n);
    }
    int n = 3;
    EXPECT_EQ(1, made.getData(nullptr, n));
    EXPECT_EQ(0, n);
    EXPECT_TRUE(out.untouched());
}

TEST(OctetStringCopyOut, EmptyValueNeedsNoRoomButADestination)
{
    const SuOctetString made(4);
    GuardedBytes out(1);
    int n = 0;
    EXPECT_EQ(0, made.getData(out.data(), n));
    EXPECT_EQ(0, n);
    n = 5;
    EXPECT_EQ(0, made.getData(out.data(), n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(1, made.getData(nullptr, n));
    EXPECT_TRUE(out.untouched());
}

TEST(OctetStringCopyOut, TextEndsInAZeroAndKeepsTheZerosInside)
{
    SuOctetString made(4);
    made.setData(bytes("a\0b"), 3);
    GuardedBytes out(4);
    EXPECT_EQ(0, made.getStr(out.text()));
    EXPECT_EQ((Bytes{'a', 0, 'b', 0}), out.held());
    EXPECT_TRUE(out.intact());
    EXPECT_EQ(1, made.getStr(nullptr));
    GuardedBytes one(1);
    EXPECT_EQ(0, SuOctetString(0).getStr(one.text()));
    EXPECT_EQ((Bytes{0}), one.held());
    EXPECT_TRUE(one.intact());
}

TEST(OctetStringEquality, LengthsAndBytesCount)
{
    EXPECT_TRUE(octets("abc") == octets("abc", 20));
    EXPECT_FALSE(octets("abc") == octets("abd"));
    EXPECT_FALSE(octets("abc") == octets("abcd"));
    EXPECT_FALSE(octets("abcd") == octets("abc"));
    EXPECT_TRUE(SuOctetString(3) == SuOctetString(0));
}

TEST(OctetStringEquality, TextIsComparedWithoutItsZero)
{
    EXPECT_TRUE(octets("abc") == "abc");
    EXPECT_FALSE(octets("abc") == "abcd");
    EXPECT_FALSE(octets("abc") == "ab");
    EXPECT_FALSE(octets("abc") == "abd");
    EXPECT_TRUE(SuOctetString(3) == "");
    SuOctetString zero(1);
    zero.setData(bytes(""), 1);
    EXPECT_FALSE(zero == "");
    EXPECT_FALSE(SuOctetString(0) == static_cast<const char *>(nullptr));
}

TEST(OctetStringOrder, LengthTakesNoPart)
{
    EXPECT_FALSE(octets("abc") < octets("abcd"));
    EXPECT_FALSE(octets("abc") > octets("abcd"));
    EXPECT_FALSE(octets("abcd") < octets("abc"));
    EXPECT_FALSE(octets("abcd") > octets("abc"));
    EXPECT_FALSE(octets("abc") == octets("abcd"));
    EXPECT_FALSE(SuOctetString(0) < octets("a"));
    EXPECT_FALSE(SuOctetString(0) > octets("a"));
}

TEST(OctetStringOrder, FirstByteThatDiffersDecidesAsAnUnsignedNumber)
{
    EXPECT_TRUE(octets("abc") < octets("abd"));
    EXPECT_FALSE(octets("abc") > octets("abd"));
    EXPECT_TRUE(octets("b") > octets("abd"));
    EXPECT_TRUE(octets("\x7F") < octets("\x80"));
}

TEST(OctetStringDump, EmptyValueIsItsHeaderAndAnEmptyList)
{
    const SuOctetString made(0);
    EXPECT_EQ(header(made) + "os.ptr[] =\n", printedBy([&] { made.dump(0, false); }));
    EXPECT_EQ(header(made) + "os.ptr[] =\n", printedBy([&] { made.dump(0, true); }));
}

TEST(OctetStringDump, WalksAllAllocatedBytesAndMarksWhereTheValueEnds)
{
    SuOctetString made(4);
    made.setData(bytes("0123456789"), 10);
    made.setData(bytes("abc"), 3);
    EXPECT_EQ(header(made) + "os.ptr[] = 61 62 63|33  34 35 36 37  38 39\n", printedBy([&] { made.dump(0, false); }));
    made.setData(nullptr, 0);
    EXPECT_EQ(header(made) + "os.ptr[] =|61 62 63 33  34 35 36 37  38 39\n", printedBy([&] { made.dump(0, false); }));
}

TEST(OctetStringDump, BytesThatWereNeverSetAreZero)
{
    const SuOctetString made(3);
    EXPECT_EQ(header(made) + "os.ptr[] =|00 00 00\n", printedBy([&] { made.dump(0, false); }));
}

TEST(OctetStringDump, TwentyBytesStandOnALineInGroupsOfFour)
{
    SuOctetString made(0);
    unsigned char data[41];
    for (int i = 0; i < 41; i++)
        data[i] = static_cast<unsigned char>(i);
    made.setData(data, 41);
    EXPECT_EQ(header(made) + "os.ptr[] = 00 01 02 03  04 05 06 07  08 09 0a 0b  0c 0d 0e 0f  10 11 12 13\n"
                             "           14 15 16 17  18 19 1a 1b  1c 1d 1e 1f  20 21 22 23  24 25 26 27\n"
                             "           28\n",
              printedBy([&] { made.dump(0, false); }));
    made.setData(data, 20);
    EXPECT_EQ(header(made) + "os.ptr[] =" + dumpedOctets(made, false), printedBy([&] { made.dump(0, false); }));
    EXPECT_NE(std::string::npos, dumpedOctets(made, false).find("13\n          |14"));
}

TEST(OctetStringDump, CharacterFormHasNoMarksGroupsOrLineBreaks)
{
    SuOctetString made = octets("The quick brown fox jumps over the lazy dog");
    made.setData(bytes("A"), 1);
    EXPECT_EQ(header(made) + "os.ptr[] =Ahe quick brown fox jumps over the lazy dog\n",
              printedBy([&] { made.dump(0, true); }));
}

TEST(OctetStringDump, ZeroCharactersShowAsNothing)
{
    SuOctetString made(0);
    made.setData(bytes("a\0b\0"), 4);
    EXPECT_EQ(header(made) + "os.ptr[] =ab\n", printedBy([&] { made.dump(0, true); }));
}

TEST(OctetStringDump, SessionIsShownEveryByteAsItComes)
{
    session.shown.clear();
    const SuOctetString made = octets("ab");
    EXPECT_EQ("", printedBy([&] { made.dump(7, false); }));
    ASSERT_EQ(3U, session.shown.size());
    EXPECT_EQ(std::make_pair(7, header(made) + "os.ptr[] = 61"), session.shown[0]);
    EXPECT_EQ(std::make_pair(7, std::string(" 62")), session.shown[1]);
    EXPECT_EQ(std::make_pair(7, std::string("\n")), session.shown[2]);

    session.shown.clear();
    SuOctetString(0).dump(0xFFFFFFFF, false);
    ASSERT_EQ(1U, session.shown.size());
    EXPECT_EQ(-1, session.shown[0].first);
}

TEST(OctetStringDump, FormIsTheSameForTheSessionWhateverTheSize)
{
    for (int size : {1, 4, 19, 20, 21, 40, 400, 2000}) {
        SuOctetString made(size);
        made.setData(bytes("The quick brown fox"), std::min(size, 19) / 2);
        for (bool asChars : {false, true}) {
            session.shown.clear();
            made.dump(1, asChars);
            ASSERT_EQ(header(made) + "os.ptr[] =" + dumpedOctets(made, asChars), allShown()) << size;
            ASSERT_EQ(static_cast<size_t>(size) + 1, session.shown.size());
        }
    }
}

namespace
{
struct OctetsAndModel {
    SuOctetString real;
    OctetStringModel model;

    explicit OctetsAndModel(int room) : real(room), model(room) {}

    void setData(const Bytes &data, int n)
    {
        real.setData(data.data(), n);
        model.setData(data.data(), n);
    }

    int firstDifference() const
    {
        return model.firstDifference(real);
    }
};

Bytes randomBytes(std::mt19937 &random)
{
    Bytes made(1 + random() % (random() % 8 == 0 ? 300 : 12));
    for (unsigned char &byte : made)
        byte = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 2);
    return made;
}
} // namespace

TEST(OctetStringModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        OctetsAndModel one(static_cast<int>(random() % 20) - 2);
        OctetsAndModel other(static_cast<int>(random() % 20) - 2);
        for (int step = 0; step < 100; step++) {
            OctetsAndModel &target = random() % 2 == 0 ? one : other;
            const Bytes data = randomBytes(random);
            switch (random() % 5) {
            case 0:
                target.real = one.real;
                target.model.setData(one.model.value.data(), static_cast<int>(one.model.value.size()));
                break;
            case 1:
                target.setData(data, -static_cast<int>(random() % 3));
                break;
            default:
                target.setData(data, static_cast<int>(data.size()));
                break;
            }
            ASSERT_EQ(OctetStringModel::Same, one.firstDifference());
            ASSERT_EQ(OctetStringModel::Same, other.firstDifference());

            const size_t common = std::min(one.model.value.size(), other.model.value.size());
            const int order = one.model.text().substr(0, common).compare(other.model.text().substr(0, common));
            ASSERT_EQ(order < 0, one.real < other.real);
            ASSERT_EQ(order > 0, one.real > other.real);
            ASSERT_EQ(one.model.value == other.model.value, one.real == other.real);
            GuardedBytes out(target.model.value.size() + 1);
            ASSERT_EQ(0, target.real.getStr(out.text()));
            ASSERT_TRUE(out.intact());
            ASSERT_TRUE(std::equal(target.model.value.begin(), target.model.value.end(), out.data()));
        }
    }
}

TEST(OctetStringModel, NoticesAByteChangedBehindItsBack)
{
    OctetsAndModel both(4);
    both.setData({1, 2, 3}, 3);
    EXPECT_EQ(OctetStringModel::Same, both.firstDifference());
    both.real.os.ptr[1] = 9;
    EXPECT_EQ(1, both.firstDifference());
    both.real.os.ptr[1] = 2;
    both.real.os.len = 2;
    EXPECT_EQ(-2, both.firstDifference());
}
