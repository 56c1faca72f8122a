// date_and_time_fuzz.cpp: dates from octets and from seconds, in a zone without summer time; each is read and stored
// again.
#include "fuzz_input.h"
#include "mgmt_types.h"

#include <cstring>
#include <ctime>

namespace
{
const bool zoneIsSet = [] {
    setenv("TZ", "NPT-5:45", 1);
    tzset();
    return true;
}();

// Years 0 to 65535 come back as they were stored; the second before the epoch is told as a failure.
bool comesBack(long seconds)
{
    tm local;
    return localtime_r(&seconds, &local) != nullptr && local.tm_year >= -1900 && local.tm_year <= 65535 - 1900;
}

void checkFields(const SuDateAndTime &value)
{
    const unsigned char *const at = value.os.ptr;
    const bool cleared = std::all_of(at, at + value.os.len, [](unsigned char octet) { return octet == 0; });
    require(cleared ||
                (at[2] >= 1 && at[2] <= 12 && at[3] >= 1 && at[3] <= 31 && at[4] <= 23 && at[5] <= 59 && at[6] <= 60),
            "a stored time is in range, or cleared");
    require(at[7] == 0, "deci-seconds are zero");
    if (value.size == 11)
        require(cleared || ((at[8] == '+' || at[8] == '-') && at[9] <= 13 && at[10] <= 59),
                "a stored offset is in range");
}

void store(long seconds, int hours, unsigned int minutes, int length)
{
    SuDateAndTime value;
    value.init(length);
    value.setValue(seconds, hours, minutes);
    require(value.os.len == (length == 8 ? 8 : 11) && value.size == value.os.len, "the form is the one asked for");
    checkFields(value);
    long readSeconds = 0;
    int readHours = 99;
    unsigned int readMinutes = 99;
    value.getValue(readSeconds, readHours, readMinutes);
    require(!comesBack(seconds) || readSeconds == seconds, "a stored time comes back");
    const bool offsetInRange = hours >= -13 && hours <= 13 && minutes < 60;
    const bool kept = length != 8 && offsetInRange && comesBack(seconds);
    require(!kept || (readHours == hours && readMinutes == minutes), "a stored offset comes back");
    require(length != 8 || (readHours == 0 && readMinutes == 0), "the short form has no offset");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    require(zoneIsSet, "the zone is set before the first input");
    FuzzInput input(data, size);
    const uint64_t seconds = uint64_t{input.number()} << 32 | input.number();
    const int hours = static_cast<int>(input.number());
    store(static_cast<long>(seconds), hours, input.number(), input.byte() % 2 == 0 ? 8 : 11);
    store(static_cast<long>(seconds) >> 20, hours % 16, static_cast<uint8_t>(hours), 11);

    const auto octets = input.bytes(32);
    SuDateAndTime value;
    value.setData(octets.data(), static_cast<int>(octets.size()));
    long read = 0;
    int readHours = 0;
    unsigned int readMinutes = 0;
    value.getValue(read, readHours, readMinutes);
    store(read, readHours, readMinutes, 11);
    value.setValue(read, readHours, readMinutes);
    const SuDateAndTime copy(value);
    require(copy == value, "a copy is equal");
    return 0;
}
