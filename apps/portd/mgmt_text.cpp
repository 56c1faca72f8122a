// mgmt_text.cpp: values of the management interface, as the console shows them.
#include "mgmt_text.h"

#include "ipaddr.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/socket.h>
#include <vector>

namespace
{
constexpr int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr const char *ifIndexObject = "1.3.6.1.2.1.2.2.1.1."; // IF-MIB::ifIndex

// InetAddressType of the management interface.
constexpr int inetIpv4 = 1;
constexpr int inetIpv6 = 2;

// Octets of an address of the family.
int octetsOf(int type)
{
    return type == inetIpv4 ? 4 : 16;
}
} // namespace

std::string addressText(const kelStandinAddress &address)
{
    const int type = address.family == AF_INET ? inetIpv4 : inetIpv6;
    CIpAddress value;
    char text[64];
    if ((address.family != AF_INET && address.family != AF_INET6) ||
        value.setInetAddress(type, address.bytes, octetsOf(type)) != 0 ||
        value.getUnmappedAddressString(text, sizeof text) != 0)
        return "";
    return std::string(text) + '/' + std::to_string(address.prefixLength);
}

SuDateAndTime dateAndTime(int64_t nanoseconds)
{
    constexpr int withOffset = 11; // octets
    const time_t seconds = nanoseconds / nanosecondsPerSecond;
    tm local = {};
    localtime_r(&seconds, &local);
    SuDateAndTime value;
    value.init(withOffset);
    value.setValue(seconds, static_cast<int>(local.tm_gmtoff / 3600),
                   static_cast<unsigned>(labs(local.tm_gmtoff) % 3600 / 60));
    return value;
}

std::string dateAndTimeText(int64_t nanoseconds)
{
    const SuDateAndTime value = dateAndTime(nanoseconds);
    const unsigned char *octet = value.os.ptr;
    char text[64];
    snprintf(text, sizeof text, "%d-%d-%d,%d:%d:%d.%d,%c%d:%d", octet[0] << 8 | octet[1], octet[2], octet[3], octet[4],
             octet[5], octet[6], octet[7], octet[8], octet[9], octet[10]);
    return text;
}

SuOID ifTableOid(uint32_t ifIndex)
{
    SuOID identifier;
    identifier = (ifIndexObject + std::to_string(ifIndex)).c_str();
    return identifier;
}

std::string ifTableOidText(uint32_t ifIndex)
{
    const SuOID identifier = ifTableOid(ifIndex);
    std::vector<char> text(static_cast<size_t>(identifier.getStrLen()));
    identifier.getStr(text.data());
    return text.data();
}
