// mgmt_text.h: values of the management interface, as the console shows them.
#pragma once

#include "mgmt_types.h"

#include <cstdint>
#include <kel_standin.h>
#include <string>

// "192.0.2.1/24" or "2001:db8::1/64"; empty for an address of another family.
std::string addressText(const kelStandinAddress &address);

// DateAndTime of a moment (ns since 1970-01-01 UTC), in local time with its offset from UTC.
SuDateAndTime dateAndTime(int64_t nanoseconds);

// The same as its display hint has it: "2026-11-21,12:40:07.0,+1:0".
std::string dateAndTimeText(int64_t nanoseconds);

// The object identifier of an interface's row in IF-MIB's ifTable, as its ifIndex instance; and its text:
// "1.3.6.1.2.1.2.2.1.1.1001".
SuOID ifTableOid(uint32_t ifIndex);
std::string ifTableOidText(uint32_t ifIndex);
