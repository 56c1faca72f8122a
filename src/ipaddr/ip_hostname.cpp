// ip_hostname.cpp: a host as a text and, for a literal, an address.
//
// Policy:     a text is classified by parsing alone; only privResolveHostname() asks the resolver.
// Locking:    none; callers own their objects.
// Invariants: `name` ends in a zero within its 256 bytes; nameLen is 0 or counts that zero.
// Cost:       a copy of the text and one or two name calls.
#include "ipaddr.h"

#include "ipaddr/address_bytes.h"

#include <netdb.h>
#include <sys/socket.h>

using namespace ipaddr;

namespace
{
enum HostType { Empty = 0, DnsName = 1, Address = 2 };
constexpr int Dns = 16; // InetAddressType; the others are CIpAddress's
constexpr int LongestName = sizeof CIpHostname::name - 1;

void storeName(CIpHostname &host, const void *text, size_t length)
{
    memmove(host.name, text, length);
    host.name[length] = '\0';
    // Kept: 8 bits wide, so a name of 255 characters stores 0 and then travels as no name at all
    // (IpHostname.NameOf255CharactersWrapsNameLenToZero).
    host.nameLen = static_cast<uint8_t>(length + 1);
}
} // namespace

int CIpHostname::privDecodeNStoreString(const char *text)
{
    if (text == nullptr)
        return 1;
    const size_t length = strnlen(text, sizeof name);
    if (length > LongestName)
        return 1;
    storeName(*this, text, length);
    const bool isLiteral = address.setAddrString(name, AF_INET, AI_NUMERICHOST) == 0 ||
                           address.setAddrString(name, AF_INET6, AI_NUMERICHOST) == 0;
    hostType = isLiteral ? Address : DnsName;
    return 0;
}

int CIpHostname::privResolveHostname(char *buf, unsigned int len)
{
    if (address.family == 0)
        return 1;
    if (printByGetnameinfo(address, buf, len, NI_NAMEREQD) == 0)
        return 0;
    return address.privResolveAddrString(buf, static_cast<int>(len));
}

int CIpHostname::getInetAddress(int &type, unsigned char *bytes, int &len) const
{
    const int room = bytes != nullptr ? len : 0;
    len = 0;
    switch (hostType) {
    case Empty:
        type = 0;
        return 0;
    case DnsName: {
        if (room <= LongestName)
            return 1;
        type = Dns;
        // Kept: a wrapped length is exported as no bytes, like no text
        // (IpHostnameExport.NameOf255CharactersExportsNoBytes).
        const size_t length = nameLen > 0 ? nameLen - 1U : 0;
        memcpy(bytes, name, length);
        len = static_cast<int>(length);
        return 0;
    }
    case Address: {
        int written = room;
        if (address.getInetAddress(type, bytes, written) != 0)
            return 1;
        len = written;
        return 0;
    }
    default:
        return 1;
    }
}

int CIpHostname::setInetAddress(int type, const unsigned char *bytes, int len)
{
    if (type != Dns) {
        if (address.setInetAddress(type, bytes, len) != 0)
            return 1;
        hostType = Address; // Kept: also for type 0, which leaves an address of no family
                            // (IpHostnameImport.UnknownTypeMakesAnAddressOfNoFamily)
        return 0;
    }
    if (len < 0 || len > LongestName || (bytes == nullptr && len > 0))
        return 1;
    storeName(*this, len > 0 ? bytes : reinterpret_cast<const unsigned char *>(""), static_cast<size_t>(len));
    hostType = DnsName;
    return 0;
}
