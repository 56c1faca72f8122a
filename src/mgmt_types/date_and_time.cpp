// date_and_time.cpp: the calendar time of the management interface.
//
// Policy:     times are local times of the process; the offset from UTC is stored and never applied.
// Locking:    none; callers serialise access to one object.
// Invariants: those of the octet string. Only octets that are allocated are read or written; others count as 0.
// Cost:       one conversion of the C library.
#include "mgmt_types.h"

#include <algorithm>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

namespace
{
constexpr int Short = 8; // without an offset from UTC
constexpr int Long = 11; // with it
enum Octet {
    YearHigh,
    YearLow,
    Month,
    Day,
    Hour,
    Minutes,
    Seconds,
    DeciSeconds,
    Direction,
    OffsetHours,
    OffsetMinutes
};
constexpr int YearOrigin = 1900;
constexpr int HighestOffsetHour = 13;
constexpr unsigned int HighestOffsetMinute = 59;

// The octets of the long form; an object holds them all or only those of the short form.
struct LongForm {
    unsigned char at[Long] = {};
};

// Kept: what is allocated decides, not what is in use, so a value of 11 octets that is then given 8 still has the
// offset behind them; the form is chosen once, by init() (DateAndTime.OctetsAllocatedAndNotThoseInUseDecideTheForm).
int octetsOf(SuDateAndTime const &value)
{
    return value.size == Long ? Long : std::min(value.size, Short);
}

unsigned char low8(int number)
{
    return static_cast<unsigned char>(number);
}

void putTime(LongForm &octets, const tm &local)
{
    const unsigned int year = static_cast<unsigned int>(local.tm_year) + YearOrigin; // the year of a far time wraps
    octets.at[YearHigh] = static_cast<unsigned char>(year >> 8);
    octets.at[YearLow] = static_cast<unsigned char>(year);
    octets.at[Month] = low8(local.tm_mon + 1);
    octets.at[Day] = low8(local.tm_mday);
    octets.at[Hour] = low8(local.tm_hour);
    octets.at[Minutes] = low8(local.tm_min);
    octets.at[Seconds] = low8(local.tm_sec);
}

void putOffset(LongForm &octets, int hours, unsigned int minutes)
{
    octets.at[Direction] = hours < 0 ? '-' : '+';
    if (minutes > HighestOffsetMinute || hours < -HighestOffsetHour || hours > HighestOffsetHour)
        return;
    octets.at[OffsetHours] = low8(abs(hours));
    octets.at[OffsetMinutes] = static_cast<unsigned char>(minutes);
}

// Kept: daylight saving time is off in what mktime() is given, so a summer time does not come back as it was stored;
// earlier processes read each other's octets this way (DateAndTimeRead.SummerTimeIsReadAsStandardTime).
tm timeIn(LongForm const &octets)
{
    tm local{};
    local.tm_year = (octets.at[YearHigh] << 8 | octets.at[YearLow]) - YearOrigin;
    local.tm_mon = octets.at[Month] - 1;
    local.tm_mday = octets.at[Day];
    local.tm_hour = octets.at[Hour];
    local.tm_min = octets.at[Minutes];
    local.tm_sec = octets.at[Seconds];
    return local;
}
} // namespace

void SuDateAndTime::init(int length)
{
    const int octets = length == Short ? Short : Long;
    unsigned char *const cleared = new unsigned char[static_cast<size_t>(octets)]();
    delete[] os.ptr;
    os.ptr = cleared;
    os.len = octets;
    size = octets;
}

void SuDateAndTime::clear()
{
    if (os.len > 0)
        memset(os.ptr, 0, static_cast<size_t>(os.len));
}

// Kept: the offset is stored beside local time as it is given, neither derived nor applied; the caller supplies a pair
// that belongs together (DateAndTimeStore.OffsetIsStoredAndNotApplied).
void SuDateAndTime::setValue(long seconds, int hoursFromUtc, unsigned int minutesFromUtc)
{
    const time_t time = seconds;
    tm local;
    LongForm octets;
    if (localtime_r(&time, &local) != nullptr) {
        putTime(octets, local);
        putOffset(octets, hoursFromUtc, minutesFromUtc);
    }
    std::copy_n(octets.at, octetsOf(*this), os.ptr);
}

void SuDateAndTime::getValue(long &seconds, int &hoursFromUtc, unsigned int &minutesFromUtc)
{
    LongForm octets;
    std::copy_n(os.ptr, octetsOf(*this), octets.at);

    tm local = timeIn(octets);
    seconds = mktime(&local);
    // Kept: the last second before the epoch is reported like a failure, because both are -1
    // (DateAndTimeRead.SecondBeforeTheEpochIsReportedLikeAFailure).
    if (seconds == -1)
        printf("%s(): Error returned from mktime()\n", "getValue");

    hoursFromUtc = octets.at[Direction] == '-' ? -octets.at[OffsetHours] : octets.at[OffsetHours];
    minutesFromUtc = octets.at[OffsetMinutes];
}
