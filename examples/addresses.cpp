// IP addresses as values: text, families, prefixes, ranges, interface identifiers, and the form of SNMP.
#include <cstdio>
#include <ipaddr.h>
#include <netdb.h>
#include <sys/socket.h>

namespace
{
void show(const char *what, const CIpAddress &address)
{
    char text[64];
    printf("%-15s %s\n", what, address.getUnmappedAddressString(text, sizeof text) == 0 ? text : "-");
}
} // namespace

int main()
{
    CIpAddress address;
    address.setAddrString("192.0.2.130", AF_INET, AI_NUMERICHOST);
    show("address", address);
    CIpAddress network(address);
    network.makePrefixFromLen(25);
    show("its /25", network);
    CIpAddress later;
    network.getAddressFromRangeOffset(100, later);
    show("100 further on", later);

    // The same host for a socket that serves both families.
    address.convertToAddressFamily(AF_INET6);
    char text[64];
    address.privResolveAddrString(text, sizeof text);
    printf("%-15s %s\n", "mapped", text);

    const unsigned char mac[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
    CIpAddress host;
    host.setAddrString("2001:db8:7::", AF_INET6, AI_NUMERICHOST);
    host.addIpv6EUI64(mac, 64);
    show("autoconfigured", host);
    host.makeSolicitedNodeAddress(0);
    show("solicited node", host);
    host.makeIpv6LinkLocal(mac, 0);
    show("link-local", host);

    // InetAddressType and InetAddress (RFC 4001).
    unsigned char bytes[20];
    int type = 0, length = sizeof bytes;
    network.getInetAddress(type, bytes, length);
    printf("InetAddress     type %d, %d octets, first %d\n", type, length, bytes[0]);
}

/* Prints:
address         192.0.2.130
its /25         192.0.2.128
100 further on  192.0.2.228
mapped          ::ffff:192.0.2.130
autoconfigured  2001:db8:7::5eff:fe10:1
solicited node  ff02::1:ff10:1
link-local      fe80::5eff:fe10:1
InetAddress     type 1, 4 octets, first 192
*/
