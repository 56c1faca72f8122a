#include "mgmt_types.h"

#include "harness/guarded_bytes.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

namespace
{
using Bytes = std::vector<unsigned char>;

// Sets the zone of the process while it lives. Zones are spelled out, so no zone files are needed.
class Zone
{
public:
    explicit Zone(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }

    ~Zone()
    {
        unsetenv("TZ");
        tzset();
    }

    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;
};

constexpr char CentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr long Summer2024 = 1719835506; // 2024-07-01 12:05:06 UTC
constexpr long Winter2024 = 1706702706; // 2024-01-31 12:05:06 UTC

SuDateAndTime made(int length)
{
    SuDateAndTime value;
    value.init(length);
    return value;
}

Bytes held(const SuDateAndTime &value)
{
    return {value.os.ptr, value.os.ptr + value.os.len};
}

SuDateAndTime holding(const Bytes &octets)
{
    SuDateAndTime value;
    value.setData(octets.data(), static_cast<int>(octets.size()));
    return value;
}

struct Read {
    long seconds = 99;
    int hours = 99;
    unsigned int minutes = 99;
};

Read read(SuDateAndTime value)
{
    Read result;
    value.getValue(result.seconds, result.hours, result.minutes);
    return result;
}

// The first eight octets of a time, by the calendar of the standard library.
Bytes calendar(long localSeconds)
{
    using namespace std::chrono;
    const sys_seconds time{seconds{localSeconds}};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    const int year = static_cast<int>(date.year());
    return {static_cast<unsigned char>(year >> 8),
            static_cast<unsigned char>(year),
            static_cast<unsigned char>(static_cast<unsigned>(date.month())),
            static_cast<unsigned char>(static_cast<unsigned>(date.day())),
            static_cast<unsigned char>(clock.hours().count()),
            static_cast<unsigned char>(clock.minutes().count()),
            static_cast<unsigned char>(clock.seconds().count()),
            0};
}
} // namespace

TEST(DateAndTime, LengthOfEightIsTheShortFormAndAnyOtherTheLongOne)
{
    EXPECT_EQ(Bytes(8), held(made(8)));
    EXPECT_EQ(8, made(8).size);
    for (int length : {0, 1, 7, 9, 10, 11, 12, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(Bytes(11), held(made(length))) << length;
        EXPECT_EQ(11, made(length).size) << length;
    }
}

TEST(DateAndTime, SecondInitFreesTheOctetsOfTheFirst)
{
    SuDateAndTime value = made(11);
    value.os.ptr[0] = 1;
    value.init(8);
    EXPECT_EQ(Bytes(8), held(value));
    value.init(11);
    EXPECT_EQ(Bytes(11), held(value));
}

TEST(DateAndTime, ClearZeroesTheOctetsInUse)
{
    SuDateAndTime value = made(11);
    value.setValue(Winter2024, 1, 0);
    value.clear();
    EXPECT_EQ(Bytes(11), held(value));
    SuDateAndTime none;
    none.clear();
    EXPECT_EQ(0, none.os.len);
}

TEST(DateAndTime, CopiesAreDeepAndTakeTheForm)
{
    const Zone zone("UTC0");
    SuDateAndTime longForm = made(11);
    longForm.setValue(Winter2024, -5, 30);
    const SuDateAndTime copy(longForm);
    longForm.clear();
    EXPECT_EQ(-5, read(copy).hours);

    SuDateAndTime shortForm = made(8);
    shortForm.setValue(Winter2024, -5, 30);
    longForm = copy;
    longForm = shortForm;
    EXPECT_EQ(8, longForm.size);
    EXPECT_EQ(0, read(longForm).hours);
    const SuDateAndTime &same = longForm;
    longForm = same;
    EXPECT_EQ(Winter2024, read(longForm).seconds);
    shortForm = copy;
    EXPECT_EQ(11, shortForm.size);
    EXPECT_EQ(30U, read(shortForm).minutes);
}

TEST(DateAndTime, OctetsAllocatedAndNotThoseInUseDecideTheForm)
{
    const Zone zone("UTC0");
    SuDateAndTime value = made(11);
    value.setValue(Winter2024, -5, 30);
    const Bytes shorter(8, 0);
    value.setData(shorter.data(), 8); // the array only grows, so the offset is still behind the value
    EXPECT_EQ(8, value.os.len);
    Read result;
    value.getValue(result.seconds, result.hours, result.minutes);
    EXPECT_EQ(-5, result.hours);
    EXPECT_EQ(30U, result.minutes);
    value.setValue(Winter2024, 3, 4);
    value.clear(); // the octets in use alone
    value.getValue(result.seconds, result.hours, result.minutes);
    EXPECT_EQ(3, result.hours);
    EXPECT_EQ(4U, result.minutes);
}

TEST(DateAndTimeStore, FieldsAreThoseOfLocalTime)
{
    const Zone zone(CentralEurope);
    SuDateAndTime value = made(8);
    value.setValue(Winter2024, 0, 0);
    EXPECT_EQ((Bytes{0x07, 0xE8, 1, 31, 13, 5, 6, 0}), held(value));
    value.setValue(Summer2024, 0, 0);
    EXPECT_EQ((Bytes{0x07, 0xE8, 7, 1, 14, 5, 6, 0}), held(value));
}

TEST(DateAndTimeStore, OffsetIsStoredAndNotApplied)
{
    const Zone zone("UTC0");
    SuDateAndTime value = made(11);
    value.setValue(Winter2024, -5, 30);
    EXPECT_EQ((Bytes{0x07, 0xE8, 1, 31, 12, 5, 6, 0, '-', 5, 30}), held(value));
    EXPECT_EQ(Winter2024, read(value).seconds);
}

TEST(DateAndTimeStore, OffsetOutOfRangeIsZeroWithItsDirection)
{
    const Zone zone("UTC0");
    const struct {
        int hours;
        unsigned int minutes;
        Bytes stored;
    } cases[] = {{-5, 30, {'-', 5, 30}},    {14, 0, {'+', 0, 0}},  {3, 60, {'+', 0, 0}},      {13, 59, {'+', 13, 59}},
                 {-13, 59, {'-', 13, 59}},  {-14, 0, {'-', 0, 0}}, {0, 0, {'+', 0, 0}},       {0, 59, {'+', 0, 59}},
                 {-3, 60, {'-', 0, 0}},     {-1, 0, {'-', 1, 0}},  {INT_MIN, 5, {'-', 0, 0}}, {INT_MAX, 5, {'+', 0, 0}},
                 {3, UINT_MAX, {'+', 0, 0}}};
    for (const auto &expected : cases) {
        SuDateAndTime value = made(11);
        value.os.ptr[9] = value.os.ptr[10] = 0xEE;
        value.setValue(Winter2024, expected.hours, expected.minutes);
        const Bytes octets = held(value);
        EXPECT_EQ(expected.stored, Bytes(octets.begin() + 8, octets.end()))
            << expected.hours << " " << expected.minutes;
    }
}

TEST(DateAndTimeStore, DeciSecondsAreWrittenZero)
{
    SuDateAndTime value = made(8);
    value.os.ptr[7] = 9;
    value.setValue(Winter2024, 0, 0);
    EXPECT_EQ(0, value.os.ptr[7]);
}

TEST(DateAndTimeStore, TimeWithoutALocalTimeLeavesClearedOctets)
{
    for (long seconds : {LONG_MAX, LONG_MIN}) {
        for (int length : {8, 11}) {
            SuDateAndTime value = made(length);
            value.setValue(Winter2024, -5, 30);
            value.setValue(seconds, -5, 30);
            EXPECT_EQ(Bytes(static_cast<size_t>(length)), held(value)) << seconds;
        }
    }
}

TEST(DateAndTimeStore, YearsAreCutToSixteenBits)
{
    const Zone zone("UTC0");
    SuDateAndTime value = made(8);
    tm far{};
    far.tm_year = 65536 + 5 - 1900;
    far.tm_mday = 1;
    value.setValue(timegm(&far), 0, 0);
    EXPECT_EQ((Bytes{0, 5, 1, 1, 0, 0, 0, 0}), held(value));

    tm last{}; // the last year a broken-down time holds: its sum with 1900 does not fit an int
    last.tm_year = INT_MAX;
    last.tm_mday = 1;
    value.setValue(timegm(&last), 0, 0);
    EXPECT_EQ((Bytes{0x07, 0x6B, 1, 1, 0, 0, 0, 0}), held(value));

    tm before{};
    before.tm_year = -1 - 1900;
    before.tm_mday = 1;
    value.setValue(timegm(&before), 0, 0);
    EXPECT_EQ((Bytes{0xFF, 0xFF, 1, 1, 0, 0, 0, 0}), held(value));
}

TEST(DateAndTimeStore, ValueWithoutOctetsStaysWithoutThem)
{
    SuDateAndTime value;
    value.setValue(Winter2024, 1, 2);
    EXPECT_EQ(0, value.os.len);
    EXPECT_EQ(0, value.size);
}

// Octets that were set from outside may be of any number; only those there are may be written.
TEST(DateAndTimeStore, OtherNumbersOfOctetsAreFilledAsFarAsTheShortFormGoes)
{
    const Zone zone("UTC0");
    const Bytes expected = {0x07, 0xE8, 1, 31, 12, 5, 6, 0};
    for (size_t count = 1; count <= 20; count++) {
        if (count == 11)
            continue;
        SuDateAndTime value = holding(Bytes(count, 0xEE));
        value.setValue(Winter2024, -5, 30);
        for (size_t i = 0; i < count; i++)
            EXPECT_EQ(i < 8 ? expected[i] : 0xEE, held(value)[i]) << count << " " << i;
    }
}

TEST(DateAndTimeRead, FieldsAreLocalTime)
{
    const Bytes octets = {0x07, 0xE8, 1, 31, 12, 5, 6, 0};
    {
        const Zone zone("UTC0");
        EXPECT_EQ(Winter2024, read(holding(octets)).seconds);
    }
    {
        const Zone zone("EST5EDT,M3.2.0,M11.1.0");
        EXPECT_EQ(Winter2024 + 5 * 3600, read(holding(octets)).seconds);
    }
}

TEST(DateAndTimeRead, YearIsUnsignedAndMostSignificantOctetFirst)
{
    const Zone zone("UTC0");
    long seconds = read(holding({0x07, 0xE8, 6, 15, 0, 0, 0, 0})).seconds;
    tm *broken = gmtime(&seconds);
    EXPECT_EQ(2024 - 1900, broken->tm_year);
    seconds = read(holding({0xFF, 0xFF, 6, 15, 0, 0, 0, 0})).seconds;
    broken = gmtime(&seconds);
    EXPECT_EQ(65535 - 1900, broken->tm_year);
}

TEST(DateAndTimeRead, DeciSecondsAreIgnored)
{
    const Zone zone("UTC0");
    EXPECT_EQ(Winter2024, read(holding({0x07, 0xE8, 1, 31, 12, 5, 6, 255})).seconds);
}

TEST(DateAndTimeRead, ShortFormReadsOffsetsOfZero)
{
    SuDateAndTime value = made(8);
    value.setValue(Winter2024, -5, 30);
    EXPECT_EQ(0, read(value).hours);
    EXPECT_EQ(0U, read(value).minutes);
}

TEST(DateAndTimeRead, OffsetIsReadAsItStands)
{
    Bytes octets = {0x07, 0xE8, 1, 31, 12, 5, 6, 0, '-', 5, 30};
    EXPECT_EQ(-5, read(holding(octets)).hours);
    EXPECT_EQ(30U, read(holding(octets)).minutes);
    octets[8] = '+';
    EXPECT_EQ(5, read(holding(octets)).hours);
    octets[8] = 'x';
    octets[9] = 200;
    octets[10] = 255;
    EXPECT_EQ(200, read(holding(octets)).hours);
    EXPECT_EQ(255U, read(holding(octets)).minutes);
    octets[8] = '-';
    EXPECT_EQ(-200, read(holding(octets)).hours);
}

TEST(DateAndTimeRead, SummerTimeIsReadAsStandardTime)
{
    const Zone zone(CentralEurope);
    SuDateAndTime value = made(8);
    value.setValue(Summer2024, 0, 0);
    EXPECT_EQ(Summer2024 + 3600, read(value).seconds);
    value.setValue(Winter2024, 0, 0);
    EXPECT_EQ(Winter2024, read(value).seconds);
}

TEST(DateAndTimeRead, SecondBeforeTheEpochIsReportedLikeAFailure)
{
    const Zone zone("UTC0");
    const SuDateAndTime value = holding({0x07, 0xB1, 12, 31, 23, 59, 59, 0, '-', 3, 4});
    Read result;
    EXPECT_EQ("getValue(): Error returned from mktime()\n", printedBy([&] { result = read(value); }));
    EXPECT_EQ(-1, result.seconds);
    EXPECT_EQ(-3, result.hours);
    EXPECT_EQ(4U, result.minutes);
    EXPECT_EQ("", printedBy([] { read(holding({0x07, 0xB2, 1, 1, 0, 0, 0, 0})); }));
}

TEST(DateAndTimeRead, MissingOctetsAreReadAsZero)
{
    const Zone zone("UTC0");
    for (size_t count = 0; count <= 20; count++) {
        Bytes octets = {0x07, 0xE8, 6, 15, 1, 2, 3, 4, '-', 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
        octets.resize(count);
        Bytes whole = octets;
        if (count != 11)
            whole.resize(std::min<size_t>(count, 8));
        whole.resize(11);
        const Read expected = read(holding(whole));
        const Read result = read(holding(octets));
        EXPECT_EQ(expected.seconds, result.seconds) << count;
        EXPECT_EQ(expected.hours, result.hours) << count;
        EXPECT_EQ(expected.minutes, result.minutes) << count;
        EXPECT_EQ(count == 11 ? -5 : 0, result.hours) << count;
    }
}

TEST(DateAndTimeModel, AgreesWithTheCalendarInAnyZoneAndComesBack)
{
    const struct {
        const char *zone;
        long offset;
    } zones[] = {{"UTC0", 0}, {"IST-5:30", 19800}, {"NPT-5:45", 20700}, {"<-03>3", -10800}, {"<+14>-14", 50400}};
    for (const auto &[name, offset] : zones) {
        const Zone zone(name);
        std::mt19937_64 random(71);
        for (int i = 0; i < 2000; i++) {
            // Years 0 to 9999, and often the days around the epoch.
            long seconds = std::uniform_int_distribution<long>(-62167219200, 253402300799)(random);
            if (i % 4 == 0)
                seconds %= 1000000;
            SuDateAndTime value = made(8);
            value.setValue(seconds, 0, 0);
            ASSERT_EQ(calendar(seconds + offset), held(value)) << name << " " << seconds;
            if (seconds != -1) {
                ASSERT_EQ(seconds, read(value).seconds) << name;
            }
        }
    }
}

TEST(DateAndTimeModel, NoticesAnOctetChangedBehindItsBack)
{
    const Zone zone("UTC0");
    SuDateAndTime value = made(8);
    value.setValue(Winter2024, 0, 0);
    ASSERT_EQ(calendar(Winter2024), held(value));
    value.os.ptr[6] ^= 1;
    EXPECT_NE(calendar(Winter2024), held(value));
    EXPECT_NE(Winter2024, read(value).seconds);
}

// Around both changes of the clock, second by second of the local day: what is stored is what localtime shows, and what
// is read back differs by the hour exactly in summer.
TEST(DateAndTimeModel, ChangesOfTheClockShiftWhatIsReadByTheHour)
{
    const Zone zone(CentralEurope);
    for (long change : {1711846800L, 1729990800L}) { // 2024-03-31 and 2024-10-27, 01:00 UTC
        for (long seconds = change - 7200; seconds < change + 7200; seconds += 60) {
            tm local;
            localtime_r(&seconds, &local);
            SuDateAndTime value = made(8);
            value.setValue(seconds, 0, 0);
            ASSERT_EQ(local.tm_hour, value.os.ptr[4]);
            ASSERT_EQ(local.tm_isdst > 0 ? seconds + 3600 : seconds, read(value).seconds) << seconds - change;
        }
    }
}

// Any octets: read, stored again, and never a byte beside them.
TEST(DateAndTimeRead, HostileOctetsAreDefined)
{
    const Zone zone("UTC0");
    std::mt19937 random(72);
    for (int i = 0; i < 2000; i++) {
        Bytes octets(random() % 14);
        for (unsigned char &octet : octets)
            octet = static_cast<unsigned char>(random());
        const Read first = read(holding(octets));
        SuDateAndTime value = made(11);
        value.setValue(first.seconds, first.hours, first.minutes);
        tm broken;
        gmtime_r(&first.seconds, &broken);
        if (broken.tm_year >= -1900 && broken.tm_year <= 65535 - 1900) {
            ASSERT_EQ(first.seconds, read(value).seconds);
        }
    }
}
