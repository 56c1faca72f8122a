// address_bytes.h: what the sources of this room share: byte orders, the IPv4-mapped test, the call of getnameinfo.
//
// Numbers are read from and written to bytes one at a time, so nothing depends on alignment or on the host's byte
// order.
#pragma once

#include "ipaddr.h"

#include <string.h>
#include <sys/socket.h>

namespace ipaddr
{
constexpr size_t Ipv4Bytes = 4;
constexpr size_t Ipv6Bytes = 16;

constexpr uint32_t loadBigEndian32(const unsigned char *from)
{
    return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | uint32_t{from[3]};
}

constexpr uint32_t loadLittleEndian32(const unsigned char *from)
{
    return uint32_t{from[3]} << 24 | uint32_t{from[2]} << 16 | uint32_t{from[1]} << 8 | uint32_t{from[0]};
}

constexpr void storeBigEndian32(unsigned char *to, uint32_t value)
{
    to[0] = static_cast<unsigned char>(value >> 24);
    to[1] = static_cast<unsigned char>(value >> 16);
    to[2] = static_cast<unsigned char>(value >> 8);
    to[3] = static_cast<unsigned char>(value);
}

// The four bytes of an IPv4 address, first byte first, as they stand in the object.
struct Ipv4 {
    unsigned char bytes[Ipv4Bytes];
};

inline Ipv4 ipv4Of(const CIpAddress &address)
{
    Ipv4 ipv4;
    memcpy(ipv4.bytes, &address.ipv4OrFlowInfo, Ipv4Bytes);
    return ipv4;
}

inline void setIpv4(CIpAddress &address, const unsigned char *bytes)
{
    memcpy(&address.ipv4OrFlowInfo, bytes, Ipv4Bytes);
}

constexpr unsigned char MappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

// The address bytes are those of an IPv4-mapped IPv6 address, ::ffff:a.b.c.d.
inline bool isIpv4Mapped(const CIpAddress &address)
{
    return memcmp(address.ipv6, MappedPrefix, sizeof MappedPrefix) == 0;
}

// Clears what getnameinfo() might look at beside the address, then calls it; 0 or 1.
int printByGetnameinfo(const CIpAddress &address, char *buf, socklen_t len, int flags);
} // namespace ipaddr
