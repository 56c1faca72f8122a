// ip_address_model.h: addresses as plain numbers of 128 bits and as the texts of inet_ntop().
//
// Shared by the tests and the fuzzers; it knows nothing of how the library computes.
#pragma once

#include "ipaddr.h"

#include <arpa/inet.h>
#include <cstring>
#include <string>
#include <sys/socket.h>

namespace model
{
__extension__ typedef unsigned __int128 uint128;

inline uint128 numberOf(const unsigned char *bytes, size_t count)
{
    uint128 number = 0;
    for (size_t i = 0; i < count; i++)
        number = number << 8 | bytes[i];
    return number;
}

inline uint128 ipv6Number(const CIpAddress &address)
{
    return numberOf(address.ipv6, 16);
}

inline uint32_t ipv4Number(const CIpAddress &address)
{
    return ntohl(address.ipv4OrFlowInfo);
}

inline CIpAddress ipv4(uint32_t number)
{
    CIpAddress address;
    address.family = AF_INET;
    address.ipv4OrFlowInfo = htonl(number);
    return address;
}

inline CIpAddress ipv6(uint128 number, uint32_t scope = 0)
{
    CIpAddress address;
    address.family = AF_INET6;
    for (int i = 15; i >= 0; i--, number >>= 8)
        address.ipv6[i] = static_cast<unsigned char>(number);
    address.scopeId = scope;
    return address;
}

// An address of either family from the text that inet_pton() takes; family 0 for any other text.
inline CIpAddress ip(const char *text, uint32_t scope = 0)
{
    CIpAddress address;
    if (inet_pton(AF_INET, text, &address.ipv4OrFlowInfo) == 1) {
        address.family = AF_INET;
    } else if (inet_pton(AF_INET6, text, address.ipv6) == 1) {
        address.family = AF_INET6;
        address.scopeId = scope;
    }
    return address;
}

inline bool isMapped(const CIpAddress &address)
{
    return address.family == AF_INET6 && ipv6Number(address) >> 32 == 0xFFFF;
}

// The text without a zone.
inline std::string textOf(const CIpAddress &address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address.family == AF_INET)
        inet_ntop(AF_INET, &address.ipv4OrFlowInfo, text, sizeof text);
    else if (address.family == AF_INET6)
        inet_ntop(AF_INET6, address.ipv6, text, sizeof text);
    return text;
}

// The text without a zone, of a mapped address that of the IPv4 address in it.
inline std::string unmappedTextOf(const CIpAddress &address)
{
    return textOf(isMapped(address) ? ipv4(static_cast<uint32_t>(ipv6Number(address))) : address);
}

struct Distance {
    int result;
    uint32_t count; // when result is 0

    bool operator==(const Distance &) const = default;
};

inline uint32_t swapped(uint32_t number)
{
    return __builtin_bswap32(number);
}

inline Distance ipv4Distance(uint32_t a, uint32_t b)
{
    return {0, swapped(a) > swapped(b) ? a - b : b - a};
}

inline Distance ipv6Distance(const CIpAddress &one, const CIpAddress &other)
{
    const uint128 a = ipv6Number(one);
    const uint128 b = ipv6Number(other);
    const bool oneZoned = one.scopeId != 0;
    const bool otherZoned = other.scopeId != 0;
    bool oneIsLarger = oneZoned;
    if (oneZoned == otherZoned)
        oneIsLarger = a != b ? a > b : one.scopeId > other.scopeId;
    const uint128 difference = oneIsLarger ? a - b : b - a;
    if (difference > UINT32_MAX)
        return {2, 0};
    return {0, static_cast<uint32_t>(difference)};
}

// The first `len` bits of a number of `width` bits.
inline uint128 prefix(uint128 number, unsigned len, unsigned width)
{
    const unsigned cleared = width - len;
    return cleared >= 128 ? 0 : number >> cleared << cleared;
}
} // namespace model
