#include "mgmt_types.h"

#include "harness/guarded_bytes.h"
#include "harness/printed_by.h"
#include "models/oid_model.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>

namespace
{
using Bytes = std::vector<unsigned char>;
using SubIdentifiers = std::vector<uint32_t>;

SuOID oid(const char *text)
{
    SuOID made;
    made = text;
    return made;
}

SubIdentifiers held(const SuOID &id)
{
    return {id.oid.ptr, id.oid.ptr + id.oid.len};
}

std::string text(const SuOID &id)
{
    GuardedBytes out(static_cast<size_t>(std::max(id.getStrLen(), 1)));
    EXPECT_EQ(0, id.getStr(out.text()));
    EXPECT_TRUE(out.intact());
    return out.text();
}

std::string header(const SuOID &id)
{
    return formatted("oid.ptr = %8p, oid.len = %d, size = %d\n", static_cast<void *>(id.oid.ptr), id.oid.len, id.size);
}
} // namespace

// The C library of a newer machine, which also takes 0b for a prefix when the base is 0: a definition in this program
// comes first for the library.
unsigned long strtoul(const char *text, char **end, int base) noexcept
{
    static const auto real = reinterpret_cast<decltype(&strtoul)>(dlsym(RTLD_NEXT, "strtoul"));
    const char *digits = text + strspn(text, " \t\n\v\f\r");
    const bool negative = *digits == '-';
    if (negative || *digits == '+')
        digits++;
    const bool binary = digits[0] == '0' && (digits[1] == 'b' || digits[1] == 'B') && (digits[2] | 1) == '1';
    if (base != 0 || !binary)
        return real(text, end, base);
    const unsigned long number = real(digits + 2, end, 2);
    return negative ? 0 - number : number;
}

TEST(Oid, StartsEmptyWithoutRoom)
{
    const SuOID made;
    EXPECT_EQ(nullptr, made.oid.ptr);
    EXPECT_EQ(0, made.oid.len);
    EXPECT_EQ(0, made.size);
}

TEST(Oid, CopiesAreDeepAndGrowOnly)
{
    SuOID original = oid("1.3.6.1");
    SuOID copy(original);
    SuOID assigned = oid("9.9.9.9.9.9");
    assigned = original;
    original.oid.ptr[0] = 77;
    EXPECT_EQ((SubIdentifiers{1, 3, 6, 1}), held(copy));
    EXPECT_EQ((SubIdentifiers{1, 3, 6, 1}), held(assigned));
    EXPECT_EQ(6, assigned.size);
    EXPECT_EQ(4, copy.size);

    const SuOID &same = copy;
    copy = same;
    EXPECT_EQ((SubIdentifiers{1, 3, 6, 1}), held(copy));
    copy = SuOID();
    EXPECT_EQ(0, copy.oid.len);
    EXPECT_EQ(4, copy.size);
    const SuOID empty{SuOID()};
    EXPECT_EQ(0, empty.oid.len);
}

TEST(OidText, DottedTextIsReadWrittenAndMeasured)
{
    const SuOID made = oid("1.3.6.1.4.1");
    EXPECT_EQ(6, made.oid.len);
    EXPECT_EQ(6, made.size);
    EXPECT_EQ(12, made.getStrLen());
    EXPECT_EQ("1.3.6.1.4.1", text(made));
}

TEST(OidText, NullMakesItEmptyAndKeepsTheRoom)
{
    SuOID made = oid("1.3.6");
    made = static_cast<const char *>(nullptr);
    EXPECT_EQ(0, made.oid.len);
    EXPECT_EQ(3, made.size);
}

TEST(OidText, PrefixSaysTheBase)
{
    EXPECT_EQ((SubIdentifiers{16, 8}), held(oid("0x10.010")));
    EXPECT_EQ((SubIdentifiers{255, 0, 0, 10}), held(oid("0XfF.0.00.10")));
}

// Newer C libraries read such a text as binary; the value of a configured text may not depend on the machine.
TEST(OidText, BinaryPrefixIsAZeroThatTheLetterEnds)
{
    EXPECT_EQ((SubIdentifiers{0}), held(oid("0b11")));
    EXPECT_EQ((SubIdentifiers{1, 0, 10}), held(oid("1.0B10.7")));
    EXPECT_EQ((SubIdentifiers{0, 11}), held(oid(" \t-0b11.7")));
    EXPECT_EQ((SubIdentifiers{0, 1}), held(oid("+0b1.7")));
    EXPECT_EQ((SubIdentifiers{0, 0}), held(oid("0b.7")));
}

TEST(OidText, EmptyFieldsAreZero)
{
    EXPECT_EQ((SubIdentifiers{0, 1, 2}), held(oid(".1.2")));
    EXPECT_EQ((SubIdentifiers{1, 2, 0}), held(oid("1.2.")));
    EXPECT_EQ((SubIdentifiers{1, 0, 2}), held(oid("1..2")));
    EXPECT_EQ((SubIdentifiers{0}), held(oid("")));
    EXPECT_EQ((SubIdentifiers{0, 0}), held(oid(".")));
}

TEST(OidText, AnyCharacterThatEndsANumberCountsAsASeparator)
{
    EXPECT_EQ((SubIdentifiers{1, 2}), held(oid("1x2.3")));
    EXPECT_EQ((SubIdentifiers{1}), held(oid("1 2 3")));
    EXPECT_EQ((SubIdentifiers{0, 0, 0}), held(oid("abc.5.6"))); // three fields, and each letter takes one
    EXPECT_EQ((SubIdentifiers{0, 0}), held(oid("08.7"))); // 8 is no octal digit, so it ends the first 0 and is skipped
    EXPECT_EQ((SubIdentifiers{0, 0}), held(oid("0x.1"))); // no digit behind the x, so the x ends the 0
}

TEST(OidText, NumbersAreCutToTheirLowThirtyTwoBits)
{
    EXPECT_EQ((SubIdentifiers{4294967295U, 0, 1}), held(oid("4294967295.4294967296.4294967297")));
    EXPECT_EQ((SubIdentifiers{4294967295U, 4294967295U}), held(oid("-1.99999999999999999999")));
    EXPECT_EQ((SubIdentifiers{1, 2}), held(oid(" 1.\t+2")));
}

TEST(OidText, ShorterTextKeepsTheRoom)
{
    SuOID made = oid("1.2.3.4.5");
    const unsigned int *const array = made.oid.ptr;
    made = "7.8";
    EXPECT_EQ(array, made.oid.ptr);
    EXPECT_EQ(5, made.size);
    EXPECT_EQ((SubIdentifiers{7, 8}), held(made));
    made = "5.4.3.2.1"; // one that just fits
    EXPECT_EQ(array, made.oid.ptr);
    EXPECT_EQ((SubIdentifiers{5, 4, 3, 2, 1}), held(made));
}

TEST(OidText, ManySubIdentifiersHaveNoLimit)
{
    std::string many = "4294967295";
    for (int i = 1; i < 100000; i++)
        many += ".4294967295";
    const SuOID made = oid(many.c_str());
    EXPECT_EQ(100000, made.oid.len);
    EXPECT_EQ(1100000, made.getStrLen());
    EXPECT_EQ(many, text(made));
}

TEST(OidText, EmptyIdentifierIsWrittenAsOneByte)
{
    for (const SuOID &made : {SuOID(), SuOID(oid("1.2"))}) {
        SuOID empty(made);
        empty = static_cast<const char *>(nullptr);
        EXPECT_EQ(0, empty.getStrLen());
        GuardedBytes out(1);
        EXPECT_EQ(0, empty.getStr(out.text()));
        EXPECT_EQ((Bytes{0}), out.held());
        EXPECT_TRUE(out.intact());
    }
}

TEST(OidText, NullDestinationFails)
{
    EXPECT_EQ(1, oid("1.2").getStr(nullptr));
    EXPECT_EQ(1, SuOID().getStr(nullptr));
}

// text() gives getStr() exactly that much room between guards.
TEST(OidText, GetStrWritesExactlyGetStrLenBytes)
{
    for (const char *given : {"0", "9", "10", "99", "100", "999999999", "1000000000", "4294967295", "1.22.333.4444"}) {
        EXPECT_EQ(given, text(oid(given)));
        EXPECT_EQ(static_cast<int>(strlen(given)) + 1, oid(given).getStrLen());
    }
}

TEST(OidEquality, LengthsAndSubIdentifiersCount)
{
    EXPECT_TRUE(oid("1.3.6") == oid("1.3.6"));
    EXPECT_FALSE(oid("1.3.6") == oid("1.3.7"));
    EXPECT_FALSE(oid("1.3.6") == oid("1.3.6.1"));
    EXPECT_FALSE(oid("1.3.6.1") == oid("1.3.6"));
    EXPECT_TRUE(SuOID() == SuOID());
    SuOID roomy = oid("1.2.3.4");
    roomy = "1.3";
    EXPECT_TRUE(roomy == oid("1.3"));
}

TEST(OidBytes, FourOctetsEachMostSignificantFirst)
{
    GuardedBytes out(24);
    int n = 24;
    EXPECT_EQ(0, oid("1.3.6.1.4.1").getData(out.data(), n));
    EXPECT_EQ(24, n);
    const Bytes expected = {0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 6, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 1};
    EXPECT_EQ(expected, out.held());
    EXPECT_TRUE(out.intact());
    SuOID back;
    const Bytes word = {0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF, 0xFF, 0xFF};
    back.setData(word.data(), 8);
    EXPECT_EQ((SubIdentifiers{0x12345678, 0xFFFFFFFF}), held(back));
}

TEST(OidBytes, ShortOrNullDestinationFailsWithLengthZero)
{
    const SuOID made = oid("1.3");
    GuardedBytes out(8);
    for (int room : {7, 4, 0, -1, INT_MIN}) {
        int n = room;
        EXPECT_EQ(1, made.getData(out.data(), n)) << room;
        EXPECT_EQ(0, n);
    }
    int n = 8;
    EXPECT_EQ(1, made.getData(nullptr, n));
    EXPECT_EQ(0, n);
    EXPECT_TRUE(out.untouched());
    n = 99;
    EXPECT_EQ(0, SuOID().getData(out.data(), n));
    EXPECT_EQ(0, n);
}

TEST(OidBytes, LengthThatIsNoMultipleOfFourEmptiesTheIdentifier)
{
    const Bytes data(64, 1);
    for (int n : {1, 2, 3, 5, 6, 7, 63, -1, -4, -8, INT_MIN, INT_MIN + 1}) {
        SuOID made = oid("1.3.6");
        made.setData(data.data(), n);
        EXPECT_EQ(0, made.oid.len) << n;
        EXPECT_EQ(3, made.size) << n;
    }
    for (int n : {0, 4, INT_MAX - 3}) {
        SuOID made = oid("1.3.6");
        made.setData(nullptr, n);
        EXPECT_EQ(0, made.oid.len) << n;
    }
}

TEST(OidBytes, GrowsAndNeverShrinks)
{
    SuOID made;
    const Bytes data(64, 1);
    made.setData(data.data(), 64);
    EXPECT_EQ(16, made.size);
    made.setData(data.data(), 8);
    EXPECT_EQ(16, made.size);
    EXPECT_EQ(2, made.oid.len);
}

TEST(OidDump, NoRoomIsTheHeaderAndANewline)
{
    const SuOID made;
    EXPECT_EQ("oid.ptr =    (nil), oid.len = 0, size = 0\n\n", printedBy([&] { made.dump(false); }));
    EXPECT_EQ("oid.ptr =    (nil), oid.len = 0, size = 0\n\n", printedBy([&] { made.dump(true); }));
}

TEST(OidDump, WalksAllAllocatedSubIdentifiersAndMarksWhereTheValueEnds)
{
    SuOID made = oid("1.3.6.1.4.4294967295");
    EXPECT_EQ(header(made) + " 00000001 00000003 00000006 00000001\n 00000004 ffffffff\n",
              printedBy([&] { made.dump(false); }));
    EXPECT_EQ(header(made) + "1.3.6.1.4.4294967295\n", printedBy([&] { made.dump(true); }));
    made = "7.8";
    EXPECT_EQ(header(made) + " 00000007 00000008|00000006 00000001\n 00000004 ffffffff\n",
              printedBy([&] { made.dump(false); }));
    EXPECT_EQ(header(made) + "7.8.6.1.4.4294967295\n", printedBy([&] { made.dump(true); }));
    made = static_cast<const char *>(nullptr);
    EXPECT_EQ(header(made) + "|00000007 00000008 00000006 00000001\n 00000004 ffffffff\n",
              printedBy([&] { made.dump(false); }));
}

TEST(OidDump, FullLineIsFollowedByAnEmptyOne)
{
    const SuOID made = oid("1.2.3.4");
    EXPECT_EQ(header(made) + " 00000001 00000002 00000003 00000004\n\n", printedBy([&] { made.dump(false); }));
}

namespace
{
struct OidAndModel {
    SuOID real;
    OidModel model;

    void parse(const std::string &given)
    {
        real = given.c_str();
        model.take(model::parsedOid(given.c_str()));
    }

    int firstDifference() const
    {
        return model.firstDifference(real);
    }
};

std::string randomText(std::mt19937 &random)
{
    static const char characters[] = "0123456789.....xX-+ abf";
    std::string made(random() % 40, '\0');
    for (char &c : made)
        c = random() % 64 == 0 ? static_cast<char>(1 + random() % 255) : characters[random() % (sizeof characters - 1)];
    return made;
}
} // namespace

TEST(OidModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        OidAndModel one;
        OidAndModel other;
        for (int step = 0; step < 100; step++) {
            OidAndModel &target = random() % 2 == 0 ? one : other;
            const std::string given = randomText(random);
            switch (random() % 4) {
            case 0:
                target.real = one.real;
                target.model.take(one.model.value);
                break;
            case 1: {
                const int n = static_cast<int>(given.size());
                target.real.setData(reinterpret_cast<const unsigned char *>(given.data()), n);
                SubIdentifiers value;
                for (int i = 0; n % 4 == 0 && i < n; i += 4) {
                    uint32_t number = 0;
                    for (int k = 0; k < 4; k++)
                        number = number * 256 + static_cast<unsigned char>(given[static_cast<size_t>(i + k)]);
                    value.push_back(number);
                }
                target.model.take(value);
                break;
            }
            default:
                target.parse(given);
                break;
            }
            ASSERT_EQ(OidModel::Same, one.firstDifference()) << given;
            ASSERT_EQ(OidModel::Same, other.firstDifference()) << given;
            ASSERT_EQ(one.model.value == other.model.value, one.real == other.real);
            ASSERT_EQ(model::dotted(target.model.value), text(target.real));
            SuOID back;
            back = text(target.real).c_str();
            ASSERT_TRUE(target.model.value.empty() || back == target.real);
        }
    }
}

TEST(OidModel, NoticesASubIdentifierChangedBehindItsBack)
{
    OidAndModel both;
    both.parse("1.3.6");
    EXPECT_EQ(OidModel::Same, both.firstDifference());
    both.real.oid.ptr[2] = 7;
    EXPECT_EQ(2, both.firstDifference());
    both.real.size = 9;
    EXPECT_EQ(-1, both.firstDifference());
    both.real.size = 3;
}
