// ip_hostname_model.h: the record of a host name, put together field by field; what every host name holds.
//
// Shared by the tests and the fuzzers.
#pragma once

#include "ipaddr.h"

#include <arpa/inet.h>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace model
{
inline void appendWord(std::vector<unsigned char> &record, uint32_t word)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        record.push_back(static_cast<unsigned char>(word >> shift));
}

// The record that serialize() writes for a host of type 0, 1 or 2, or the part of it that it writes for another type.
inline std::vector<unsigned char> recordOf(const CIpHostname &host)
{
    std::vector<unsigned char> record;
    record.push_back(host.hostType);
    record.push_back(host.nameLen);
    for (int i = 0; i < host.nameLen; i++)
        record.push_back(static_cast<unsigned char>(host.name[i]));
    if (host.hostType != 2)
        return record;
    record.push_back(static_cast<unsigned char>(host.address.family & 0xFF));
    if (host.address.family == AF_INET) {
        appendWord(record, __builtin_bswap32(ntohl(host.address.ipv4OrFlowInfo)));
    } else if (host.address.family == AF_INET6) {
        for (int group = 0; group < 16; group += 4)
            for (int i = 3; i >= 0; i--)
                record.push_back(host.address.ipv6[group + i]);
        appendWord(record, host.address.scopeId);
    }
    return record;
}

// Null, or the first thing that does not hold for a host that was made by the library's calls.
inline const char *brokenInvariant(const CIpHostname &host)
{
    if (memchr(host.name, '\0', sizeof host.name) == nullptr)
        return "the name has no terminating zero";
    if (host.nameLen > 0 && host.name[host.nameLen - 1] != '\0' && host.name[host.nameLen] != '\0')
        return "nameLen does not end at a zero";
    return nullptr;
}

// The fields that a record carries are equal.
inline bool sameHost(const CIpHostname &a, const CIpHostname &b)
{
    return recordOf(a) == recordOf(b);
}
} // namespace model
