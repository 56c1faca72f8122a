// ip_address_build.cpp: addresses built from identifiers and prefixes.
//
// Policy:     only the low 64 bits of an IPv6 address ever take an interface identifier.
// Locking:    none; callers own their objects.
// Invariants: bits in front of the host part are never touched.
// Cost:       a few bytes each; nothing allocates.
#include "ipaddr.h"

#include "ipaddr/address_bytes.h"

#include <algorithm>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace ipaddr;

namespace
{
constexpr unsigned int Ipv4Bits = 32;
constexpr unsigned int Ipv6Bits = 128;
constexpr unsigned int IdentifierBits = 64;
constexpr size_t IdentifierBytes = IdentifierBits / 8;

// The byte that keeps its top `kept` bits (0 to 7) and takes the others from `taken`.
constexpr unsigned char spliced(unsigned char byte, unsigned char taken, unsigned int kept)
{
    const unsigned int low = 0xFFU >> kept;
    return static_cast<unsigned char>((byte & ~low) | (taken & low));
}

int fillHostPart(CIpAddress &address, const unsigned char (&identifier)[IdentifierBytes], unsigned int prefixLen)
{
    if (prefixLen > Ipv6Bits || address.family != AF_INET6)
        return 1;
    const unsigned int hostBits = std::min(Ipv6Bits - prefixLen, IdentifierBits);
    unsigned char *const low = address.ipv6 + IdentifierBytes;
    const size_t firstWhole = IdentifierBytes - hostBits / 8;
    memcpy(low + firstWhole, identifier + firstWhole, hostBits / 8);
    if (hostBits % 8 != 0)
        low[firstWhole - 1] = spliced(low[firstWhole - 1], identifier[firstWhole - 1], 8 - hostBits % 8);
    return 0;
}

// Clears every bit of `bytes` after the first `len`, which is below the width.
void clearAfter(unsigned char *bytes, size_t width, unsigned int len)
{
    const size_t partial = len / 8;
    bytes[partial] = spliced(bytes[partial], 0, len % 8);
    memset(bytes + partial + 1, 0, width - partial - 1);
}
} // namespace

int CIpAddress::addIpv6EUI64(const unsigned char *mac, unsigned int prefixLen)
{
    if (mac == nullptr)
        return 1;
    constexpr unsigned char universalLocal = 0x02;
    const unsigned char identifier[IdentifierBytes] = {
        static_cast<unsigned char>(mac[0] ^ universalLocal), mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]};
    return fillHostPart(*this, identifier, prefixLen);
}

int CIpAddress::addIpv6EUI64(const CIpAddress &from, unsigned int prefixLen)
{
    unsigned char identifier[IdentifierBytes]; // a copy, because `from` may be this object
    memcpy(identifier, from.ipv6 + IdentifierBytes, IdentifierBytes);
    return fillHostPart(*this, identifier, prefixLen);
}

int CIpAddress::makeIpv6LinkLocal(const unsigned char *mac, unsigned int scope)
{
    if (mac == nullptr)
        return 1;
    family = AF_INET6;
    port = 0;
    ipv4OrFlowInfo = 0;
    memset(ipv6, 0, Ipv6Bytes);
    ipv6[0] = 0xFE;
    ipv6[1] = 0x80;
    scopeId = scope;
    constexpr unsigned int linkLocalPrefix = 10;
    return addIpv6EUI64(mac, linkLocalPrefix);
}

int CIpAddress::makeSolicitedNodeAddress(unsigned int scope)
{
    if (family != AF_INET6)
        return 1;
    constexpr unsigned char prefix[13] = {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0xFF};
    memcpy(ipv6, prefix, sizeof prefix);
    scopeId = scope;
    return 0;
}

int CIpAddress::makePrefixFromLen(unsigned int len)
{
    if (family == 0)
        return 1;
    const unsigned int width = family == AF_INET ? Ipv4Bits : Ipv6Bits;
    if (len > width)
        return 1;
    if (len == width)
        return 0;
    if (family == AF_INET) {
        Ipv4 ipv4 = ipv4Of(*this);
        clearAfter(ipv4.bytes, Ipv4Bytes, len);
        setIpv4(*this, ipv4.bytes);
    } else {
        clearAfter(ipv6, Ipv6Bytes, len);
    }
    return 0;
}
