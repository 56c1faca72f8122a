// ip_address_text.cpp: addresses from text and to text.
//
// Policy:     the C library parses and prints; nothing of it is done again here.
// Locking:    none; callers own their objects, and the name calls of the C library are re-entrant.
// Invariants: the C library is handed copies of an address, never the object under another type.
// Cost:       one name call; a parse allocates and frees the C library's result list.
#include "ipaddr.h"

#include "ipaddr/address_bytes.h"

#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>

using namespace ipaddr;

namespace
{
constexpr int ScratchBytes = INET6_ADDRSTRLEN; // 46: the longest address without a zone, and a zero
constexpr char MappedText[] = "::ffff:";

const addrinfo *firstOfFamily(const addrinfo *list, int family)
{
    while (list != nullptr && list->ai_family != family)
        list = list->ai_next;
    return list;
}

void takeFrom(CIpAddress &address, const addrinfo &found)
{
    address.family = static_cast<uint16_t>(found.ai_family);
    if (found.ai_family == AF_INET) {
        sockaddr_in from;
        memcpy(&from, found.ai_addr, sizeof from);
        memcpy(&address.ipv4OrFlowInfo, &from.sin_addr, Ipv4Bytes);
    } else {
        sockaddr_in6 from;
        memcpy(&from, found.ai_addr, sizeof from);
        memcpy(address.ipv6, &from.sin6_addr, Ipv6Bytes);
        address.scopeId = from.sin6_scope_id;
    }
}

// Offers the numeric zone behind a '%' of `text`, if there is one, to the naming hook.
void nameZone(const CIpAddress &address, char *text, int len)
{
    char *const mark = strchr(text, '%');
    if (mark == nullptr)
        return;
    char *const zone = mark + 1;
    const long ifIndex = strtol(zone, nullptr, 10); // 0 for a name, or for nothing behind the mark
    if (ifIndex != 0)
        address.getIfNameFromIfIndexDD(static_cast<unsigned int>(ifIndex), zone, len - static_cast<int>(zone - text));
}
} // namespace

int ipaddr::printByGetnameinfo(const CIpAddress &address, char *buf, socklen_t len, int flags)
{
    const bool isIpv4 = address.family == AF_INET;
    address.port = 0;
    if (isIpv4)
        memset(address.ipv6, 0, sizeof sockaddr_in{}.sin_zero);
    else
        address.ipv4OrFlowInfo = 0;
    if (buf == nullptr || len == 0)
        return 1;

    sockaddr_storage name;
    static_assert(sizeof name == sizeof address);
    memcpy(&name, &address, sizeof name);
    const socklen_t nameLength = isIpv4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    return getnameinfo(reinterpret_cast<const sockaddr *>(&name), nameLength, buf, len, nullptr, 0, flags) == 0 ? 0 : 1;
}

int CIpAddress::setAddrString(const char *text, unsigned short wanted, int flags)
{
    if (text == nullptr || (wanted != AF_INET && wanted != AF_INET6))
        return 1;
    addrinfo hints{};
    hints.ai_flags = flags;
    hints.ai_family = wanted;
    addrinfo *list = nullptr;
    if (getaddrinfo(text, nullptr, &hints, &list) != 0)
        return 1;
    // Kept: a list without the family is a success that changes nothing; callers tell it by the family they see
    // afterwards (IpAddressParsing.ListWithoutTheFamilyIsASuccessThatChangesNothing).
    const addrinfo *const found = firstOfFamily(list, wanted);
    if (found != nullptr)
        takeFrom(*this, *found);
    if (list != nullptr)
        freeaddrinfo(list);
    return 0;
}

int CIpAddress::privResolveAddrString(char *buf, int len) const
{
    if (family == 0)
        return 1;
    // Kept: a const call that clears port and padding or flow info; the C library must not see what was left there
    // (IpAddressPrinting.PrintingClearsPortAndPaddingOrFlowInfo).
    if (printByGetnameinfo(*this, buf, len > 0 ? static_cast<socklen_t>(len) : 0, NI_NUMERICHOST) != 0)
        return 1;
    if (family == AF_INET6)
        nameZone(*this, buf, len);
    return 0;
}

int CIpAddress::getUnmappedAddressString(char *buf, int len) const
{
    // Kept: 45 bytes are refused whatever the address, and a zone that makes the text longer than 45 characters fails
    // as well (IpAddressUnmapped.LengthOfFortyFiveIsRefused, IpAddressUnmapped.TextLongerThanTheScratchFails).
    if (len < ScratchBytes || buf == nullptr)
        return 1;
    char scratch[ScratchBytes];
    const int result = privResolveAddrString(scratch, ScratchBytes);
    if (result != 0)
        return result;
    const bool skipsPrefix = family == AF_INET6 && isIpv4Mapped(*this);
    strncpy(buf, skipsPrefix ? scratch + strlen(MappedText) : scratch, static_cast<size_t>(len));
    return 0;
}

void get_unmapped_address_string(const char *text, char *buf, unsigned int len)
{
    if (buf == nullptr || len == 0)
        return;
    CIpAddress address;
    if (address.setAddrString(text, AF_INET, AI_NUMERICHOST) != 0)
        address.setAddrString(text, AF_INET6, AI_NUMERICHOST);
    // Kept: strncpy() as it is, so that a short buffer is cut without a zero and a long one filled up
    // (IpAddressUnmapped.CCallWithAShortBufferWritesUnknownAsStrncpyDoes).
    if (len > INT_MAX || address.getUnmappedAddressString(buf, static_cast<int>(len)) != 0)
        strncpy(buf, "UNKNOWN", len);
}
