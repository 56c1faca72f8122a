// ip_address.cpp: family conversion, exchange with management code, tests of an address, ranges.
//
// Policy:     an operation that fails leaves the object as it was.
// Locking:    none; callers own their objects.
// Invariants: port and flow info are never read here; an address is read and written as bytes.
// Cost:       a few bytes each; nothing allocates.
#include "ipaddr.h"

#include "ipaddr/address_bytes.h"

#include <sys/socket.h>

using namespace ipaddr;

namespace
{
enum InetAddressType { Unknown = 0, V4 = 1, V6 = 2, V6Zoned = 4 };
constexpr int ZoneBytes = 4;
constexpr int V4Length = Ipv4Bytes;
constexpr int V6Length = Ipv6Bytes;
constexpr int V6ZonedLength = V6Length + ZoneBytes;
constexpr int RangeOverflow = 2;

constexpr uint64_t loadBigEndian64(const unsigned char *from)
{
    return uint64_t{loadBigEndian32(from)} << 32 | loadBigEndian32(from + 4);
}

constexpr void storeBigEndian64(unsigned char *to, uint64_t value)
{
    storeBigEndian32(to, static_cast<uint32_t>(value >> 32));
    storeBigEndian32(to + 4, static_cast<uint32_t>(value));
}

// Kept: IPv4 addresses are ordered by their stored words as little-endian numbers, so the distance between addresses
// whose order differs that way comes out modulo 2^32; clients were built around the numbers this gives
// (IpAddressRange.StoredWordsDecideTheOrderOfIpv4).
uint32_t ipv4Distance(const Ipv4 &one, const Ipv4 &other)
{
    const uint32_t a = loadBigEndian32(one.bytes);
    const uint32_t b = loadBigEndian32(other.bytes);
    return loadLittleEndian32(one.bytes) > loadLittleEndian32(other.bytes) ? a - b : b - a;
}

// The only zoned one is the larger, else the greater number. Two zones of one number are a distance of 0 either way.
bool ipv6IsLarger(const CIpAddress &one, const CIpAddress &other)
{
    if ((one.scopeId == 0) != (other.scopeId == 0))
        return one.scopeId != 0;
    return memcmp(one.ipv6, other.ipv6, Ipv6Bytes) > 0;
}

int ipv6Distance(const CIpAddress &larger, const CIpAddress &smaller, unsigned int &count)
{
    const uint64_t fromLow = loadBigEndian64(larger.ipv6 + 8);
    const uint64_t takenLow = loadBigEndian64(smaller.ipv6 + 8);
    const uint64_t borrow = fromLow < takenLow ? 1 : 0;
    const uint64_t high = loadBigEndian64(larger.ipv6) - loadBigEndian64(smaller.ipv6) - borrow;
    const uint64_t low = fromLow - takenLow;
    if (high != 0 || low > UINT32_MAX)
        return RangeOverflow;
    count = static_cast<unsigned int>(low);
    return 0;
}

int addToIpv4(CIpAddress &address, uint32_t offset)
{
    const Ipv4 ipv4 = ipv4Of(address);
    const uint32_t sum = loadBigEndian32(ipv4.bytes) + offset;
    // Kept: the overflow test compares the stored word as a little-endian number with the sum of the real number;
    // which offsets are refused is what clients know (IpAddressRange.Ipv4OverflowTestComparesUnlikeByteOrders).
    if (loadLittleEndian32(ipv4.bytes) > sum)
        return RangeOverflow;
    unsigned char bytes[Ipv4Bytes];
    storeBigEndian32(bytes, sum);
    setIpv4(address, bytes);
    return 0;
}

int addToIpv6(CIpAddress &address, uint32_t offset)
{
    const uint64_t high = loadBigEndian64(address.ipv6);
    const uint64_t low = loadBigEndian64(address.ipv6 + 8) + offset;
    const bool carry = low < offset;
    if (carry && high == UINT64_MAX)
        return RangeOverflow;
    storeBigEndian64(address.ipv6, high + (carry ? 1 : 0));
    storeBigEndian64(address.ipv6 + 8, low);
    return 0;
}
} // namespace

int CIpAddress::convertToAddressFamily(int wanted)
{
    if (wanted == family)
        return 0;
    if (wanted == AF_INET) {
        if (family != AF_INET6 || !isIpv4Mapped(*this))
            return 1;
        setIpv4(*this, ipv6 + sizeof MappedPrefix);
    } else if (wanted == AF_INET6) {
        // Kept: the flow info is left alone, so it still holds the IPv4 address; it is cleared when the address is
        // printed (IpAddressConversion.FlowInfoKeepsTheOldIpv4Bytes).
        memcpy(ipv6, MappedPrefix, sizeof MappedPrefix);
        memcpy(ipv6 + sizeof MappedPrefix, ipv4Of(*this).bytes, Ipv4Bytes);
        scopeId = 0;
    }
    family = static_cast<uint16_t>(wanted);
    return 0;
}

int CIpAddress::getInetAddress(int &type, unsigned char *bytes, int &len) const
{
    const int room = bytes != nullptr ? len : 0;
    len = 0;
    if (family == 0) {
        type = Unknown;
        return 0;
    }
    if (family == AF_INET && room >= V4Length) {
        type = V4;
        memcpy(bytes, ipv4Of(*this).bytes, Ipv4Bytes);
        len = V4Length;
        return 0;
    }
    if (family == AF_INET6 && room >= V6Length) {
        memcpy(bytes, ipv6, Ipv6Bytes);
        if (room >= V6ZonedLength)
            storeBigEndian32(bytes + V6Length, scopeId);
        // Kept: a zoned address reports 20 bytes even when there was room for 16 to 19 only and the zone was not
        // written; callers size their next buffer by it
        // (IpAddressExport.ZonedAddressIntoSixteenBytesStillReportsTwenty).
        type = scopeId == 0 ? V6 : V6Zoned;
        len = scopeId == 0 ? V6Length : V6ZonedLength;
        return 0;
    }
    return 1;
}

int CIpAddress::setInetAddress(int type, const unsigned char *bytes, int len)
{
    if (type == Unknown && len == 0) {
        family = 0;
        return 0;
    }
    if (bytes == nullptr)
        return 1;
    if (type == V4 && len == V4Length) {
        family = AF_INET;
        setIpv4(*this, bytes);
        return 0;
    }
    // Kept: the zone is stored as it stands, although getInetAddress() writes it in network byte order; both sides of
    // the exchange rely on the asymmetry (IpAddressImport.ZoneIsTakenInHostOrderAndGivenInNetworkOrder).
    uint32_t zone = 0;
    if (type == V6Zoned && len == V6ZonedLength)
        memcpy(&zone, bytes + V6Length, ZoneBytes);
    if ((type == V6 && len == V6Length) || zone != 0) {
        family = AF_INET6;
        memcpy(ipv6, bytes, Ipv6Bytes);
        scopeId = zone;
        return 0;
    }
    return 1;
}

bool CIpAddress::ipAddrIsIPv6LinkLocalAddress() const
{
    return family == AF_INET6 && ipv6[0] == 0xFE && (ipv6[1] & 0xC0) == 0x80;
}

bool CIpAddress::ipAddrIsIPv6SolicitedNodeAddress() const
{
    constexpr unsigned char prefix[13] = {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0xFF};
    return family == AF_INET6 && memcmp(ipv6, prefix, sizeof prefix) == 0;
}

int CIpAddress::setScopeId(unsigned int scope)
{
    if (family != AF_INET6)
        return 1;
    scopeId = scope;
    return 0;
}

int CIpAddress::findAddressRange(const CIpAddress &other, unsigned int &count)
{
    if (family != other.family || family == 0)
        return 1;
    if (family == AF_INET)
        count = ipv4Distance(ipv4Of(*this), ipv4Of(other));
    else if (family == AF_INET6)
        return ipv6IsLarger(*this, other) ? ipv6Distance(*this, other, count) : ipv6Distance(other, *this, count);
    return 0;
}

int CIpAddress::getAddressFromRangeOffset(unsigned int offset, CIpAddress &out) const
{
    out.family = family;
    if (family == 0)
        return 1;
    if (family == AF_INET) {
        out.ipv4OrFlowInfo = ipv4OrFlowInfo;
        return addToIpv4(out, offset);
    }
    if (family == AF_INET6) {
        memmove(out.ipv6, ipv6, Ipv6Bytes);
        out.scopeId = scopeId;
        return addToIpv6(out, offset);
    }
    return 0;
}

int CIpAddress::getIfNameFromIfIndexDD(unsigned int, char *, int) const
{
    return 0;
}
