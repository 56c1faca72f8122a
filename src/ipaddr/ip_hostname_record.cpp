// ip_hostname_record.cpp: the byte record of a host name.
//
// Policy:     a record is checked against the room before each of its fields is touched; lengths are never added to
//             an offset before they are known to fit.
// Locking:    none; callers own their objects.
// Invariants: `pos` stands behind every byte written or read; a name that was read ends in a zero.
// Cost:       one pass over at most 278 bytes.
//
// Kept: the groups of an address are written last byte first. Records were always made by writing each stored word as a
// native little-endian number, most significant byte first, and processes of any age read each other's
// (IpHostnameRecord.AddressGroupsAreWrittenLastByteFirst).
#include "ipaddr.h"

#include "ipaddr/address_bytes.h"

#include <sys/socket.h>

using namespace ipaddr;

namespace
{
constexpr uint8_t AddressType = 2; // hostType of a record that goes on behind the name
constexpr int64_t HeaderBytes = 2;
constexpr int64_t FamilyBytes = 1;
constexpr int64_t ScopeBytes = 4;
constexpr int64_t GroupBytes = 4;

// Bytes of buf behind pos; negative when pos is outside of it.
int64_t roomLeft(int pos, int bufLen)
{
    return pos < 0 ? -1 : int64_t{bufLen} - pos;
}

int64_t addressBytes(unsigned int family)
{
    if (family == AF_INET)
        return Ipv4Bytes;
    return family == AF_INET6 ? int64_t{Ipv6Bytes} + ScopeBytes : 0;
}

int64_t recordBytes(const CIpHostname &host)
{
    int64_t bytes = HeaderBytes + host.nameLen;
    if (host.hostType == AddressType)
        bytes += FamilyBytes + addressBytes(host.address.family);
    return bytes;
}

// Copies `groups` groups of four bytes, each last byte first; its own inverse.
void copyReversedGroups(unsigned char *to, const unsigned char *from, int groups)
{
    for (int group = 0; group < groups; group++, to += GroupBytes, from += GroupBytes)
        storeBigEndian32(to, loadLittleEndian32(from));
}

void writeAddress(const CIpAddress &address, unsigned char *to)
{
    if (address.family == AF_INET) {
        copyReversedGroups(to, ipv4Of(address).bytes, 1);
    } else if (address.family == AF_INET6) {
        copyReversedGroups(to, address.ipv6, Ipv6Bytes / GroupBytes);
        storeBigEndian32(to + Ipv6Bytes, address.scopeId);
    }
}

void readAddress(CIpAddress &address, const unsigned char *from)
{
    if (address.family == AF_INET) {
        unsigned char bytes[Ipv4Bytes];
        copyReversedGroups(bytes, from, 1);
        setIpv4(address, bytes);
    } else if (address.family == AF_INET6) {
        copyReversedGroups(address.ipv6, from, Ipv6Bytes / GroupBytes);
        address.scopeId = loadBigEndian32(from + Ipv6Bytes);
    }
}

void readName(CIpHostname &host, const unsigned char *from, uint8_t length)
{
    memcpy(host.name, from, length);
    host.nameLen = length;
    if (length > 0 && host.name[length - 1] != '\0')
        host.name[length] = '\0'; // a record that lies about its zero
}
} // namespace

int CIpHostname::serialize(unsigned char *buf, int &pos, int bufLen) const
{
    if (buf == nullptr || roomLeft(pos, bufLen) < recordBytes(*this))
        return 1;
    buf[pos++] = hostType;
    buf[pos++] = nameLen;
    memcpy(buf + pos, name, nameLen);
    pos += nameLen;
    if (hostType < AddressType)
        return 0;
    if (hostType > AddressType)
        return 1;
    buf[pos++] = static_cast<unsigned char>(address.family);
    writeAddress(address, buf + pos);
    pos += static_cast<int>(addressBytes(address.family));
    return 0;
}

int CIpHostname::deserialize(const unsigned char *buf, int &pos, int bufLen)
{
    if (buf == nullptr || roomLeft(pos, bufLen) < HeaderBytes)
        return 1;
    const uint8_t type = buf[pos++];
    const uint8_t nameBytes = buf[pos++];
    if (roomLeft(pos, bufLen) < nameBytes)
        return 1;
    hostType = type;
    readName(*this, buf + pos, nameBytes);
    pos += nameBytes;
    if (hostType < AddressType)
        return 0;
    if (hostType > AddressType || roomLeft(pos, bufLen) < FamilyBytes)
        return 1;
    address.family = buf[pos++];
    if (roomLeft(pos, bufLen) < addressBytes(address.family))
        return 1;
    readAddress(address, buf + pos);
    pos += static_cast<int>(addressBytes(address.family));
    return address.family == 0 || addressBytes(address.family) > 0 ? 0 : 1;
}
