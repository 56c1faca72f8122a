// ipaddr_faults.cpp: addresses and host names under faults: the name calls of the C library, and its memory.
#include "fault_table.h"

#include "ipaddr.h"

#include <gtest/gtest.h>

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>

using namespace faults;

namespace
{
CIpAddress loopback()
{
    CIpAddress address;
    EXPECT_EQ(0, address.setAddrString("127.0.0.1", AF_INET, AI_NUMERICHOST));
    return address;
}

CIpAddress loopback6()
{
    CIpAddress address;
    EXPECT_EQ(0, address.setAddrString("::1", AF_INET6, AI_NUMERICHOST));
    return address;
}

void parses(Injection &injection)
{
    CIpAddress address = loopback();
    const int result = injection.during([&] { return address.setAddrString("10.1.2.3", AF_INET, AI_NUMERICHOST); });
    EXPECT_EQ(injection.failed() ? 1 : 0, result);
    const CIpAddress before = loopback();
    EXPECT_EQ(injection.failed(), memcmp(&address, &before, sizeof address) == 0);
}

void prints(Injection &injection)
{
    const CIpAddress address = loopback();
    char text[64] = "";
    const int result = injection.during([&] { return address.privResolveAddrString(text, sizeof text); });
    EXPECT_EQ(injection.failed() ? 1 : 0, result);
    EXPECT_STREQ(injection.failed() ? "" : "127.0.0.1", text);
}

void printsUnmapped(Injection &injection)
{
    const CIpAddress address = loopback();
    char text[64] = "";
    const int result = injection.during([&] { return address.getUnmappedAddressString(text, sizeof text); });
    EXPECT_EQ(injection.failed() ? 1 : 0, result);
    EXPECT_STREQ(injection.failed() ? "" : "127.0.0.1", text);
}

// A text that cannot be read as one family is tried as the other, so only what fails for both makes it unknown.
void printsForC(Injection &injection)
{
    char text[64] = "";
    injection.during([&] { get_unmapped_address_string("::1", text, sizeof text); });
    const bool wasTheOther = injection.nth() == 1 && !injection.fromThenOn() && !injection.failed(Call::NameLookup);
    const bool isUnknown = strcmp(text, "UNKNOWN") == 0;
    EXPECT_TRUE(isUnknown || strcmp(text, "::1") == 0) << text;
    if (!injection.failed(Call::Allocate)) {
        EXPECT_EQ(injection.failed() && !wasTheOther, isUnknown);
    }
}

void computes(Injection &injection)
{
    CIpAddress address = loopback();
    CIpAddress other = loopback6();
    CIpAddress made;
    const unsigned char mac[6] = {2, 0, 0, 0, 0, 1};
    unsigned char bytes[20];
    int type = 0;
    int length = sizeof bytes;
    unsigned int count = 0;
    char name[32];
    injection.during([&] {
        EXPECT_EQ(0, address.getInetAddress(type, bytes, length));
        EXPECT_EQ(0, made.setInetAddress(type, bytes, length));
        EXPECT_EQ(0, address.findAddressRange(address, count));
        EXPECT_EQ(0, address.getAddressFromRangeOffset(0, made));
        EXPECT_EQ(0, address.convertToAddressFamily(AF_INET6));
        EXPECT_FALSE(other.ipAddrIsIPv6LinkLocalAddress());
        EXPECT_FALSE(other.ipAddrIsIPv6SolicitedNodeAddress());
        EXPECT_EQ(0, other.setScopeId(1));
        EXPECT_EQ(0, other.addIpv6EUI64(mac, 64));
        EXPECT_EQ(0, other.addIpv6EUI64(other, 64));
        EXPECT_EQ(0, other.makeIpv6LinkLocal(mac, 1));
        EXPECT_EQ(0, other.makeSolicitedNodeAddress(1));
        EXPECT_EQ(0, other.makePrefixFromLen(24));
        other.getIfNameFromIfIndexDD(1, name, sizeof name);
    });
}

// A literal whose parsing fails for want of anything is taken for a name.
void storesAHost(Injection &injection)
{
    CIpHostname host;
    EXPECT_EQ(0, injection.during([&] { return host.privDecodeNStoreString("::1"); }));
    EXPECT_STREQ("::1", host.name);
    EXPECT_EQ(4, host.nameLen);
    EXPECT_TRUE(host.hostType == 2 || (injection.failed() && host.hostType == 1)) << int{host.hostType};
}

// When no name can be had, the address is printed; when that fails as well, nothing is.
void resolvesAHost(Injection &injection)
{
    CIpHostname host;
    EXPECT_EQ(0, host.privDecodeNStoreString("127.0.0.1"));
    char text[256] = "";
    const int result = injection.during([&] { return host.privResolveHostname(text, sizeof text); });
    EXPECT_EQ(injection.failed() && (injection.fromThenOn() || injection.nth() == 2) ? 1 : 0, result);
    EXPECT_EQ(result == 1, text[0] == '\0') << text;
}

void exportsAHost(Injection &injection)
{
    CIpHostname host;
    EXPECT_EQ(0, host.privDecodeNStoreString("::1"));
    unsigned char bytes[512];
    int type = 0;
    int length = sizeof bytes;
    int written = 0;
    int read = 0;
    injection.during([&] {
        EXPECT_EQ(0, host.serialize(bytes, written, sizeof bytes));
        EXPECT_EQ(0, host.deserialize(bytes, read, sizeof bytes));
        EXPECT_EQ(0, host.getInetAddress(type, bytes, length));
        EXPECT_EQ(0, host.setInetAddress(type, bytes, length));
    });
}

const Row rows[] = {
    {"CIpAddress::setAddrString(char const*, unsigned short, int)", parses},
    {"CIpAddress::privResolveAddrString(char*, int) const", prints},
    {"CIpAddress::getUnmappedAddressString(char*, int) const", printsUnmapped},
    {"get_unmapped_address_string", printsForC},
    {"CIpAddress::getInetAddress(int&, unsigned char*, int&) const\n"
     "CIpAddress::setInetAddress(int, unsigned char const*, int)\n"
     "CIpAddress::findAddressRange(CIpAddress const&, unsigned int&)\n"
     "CIpAddress::getAddressFromRangeOffset(unsigned int, CIpAddress&) const\n"
     "CIpAddress::convertToAddressFamily(int)\n"
     "CIpAddress::ipAddrIsIPv6LinkLocalAddress() const\n"
     "CIpAddress::ipAddrIsIPv6SolicitedNodeAddress() const\n"
     "CIpAddress::setScopeId(unsigned int)\n"
     "CIpAddress::addIpv6EUI64(unsigned char const*, unsigned int)\n"
     "CIpAddress::addIpv6EUI64(CIpAddress const&, unsigned int)\n"
     "CIpAddress::makeIpv6LinkLocal(unsigned char const*, unsigned int)\n"
     "CIpAddress::makeSolicitedNodeAddress(unsigned int)\n"
     "CIpAddress::makePrefixFromLen(unsigned int)\n"
     "CIpAddress::getIfNameFromIfIndexDD(unsigned int, char*, int) const",
     computes, Row::ReachesNothing},
    {"CIpHostname::privDecodeNStoreString(char const*)", storesAHost},
    {"CIpHostname::privResolveHostname(char*, unsigned int)", resolvesAHost, Row::Reaches, memoryOfTheCLibrary},
    {"CIpHostname::serialize(unsigned char*, int&, int) const\n"
     "CIpHostname::deserialize(unsigned char const*, int&, int)\n"
     "CIpHostname::getInetAddress(int&, unsigned char*, int&) const\n"
     "CIpHostname::setInetAddress(int, unsigned char const*, int)",
     exportsAHost, Row::ReachesNothing},
};
} // namespace

TEST(IpAddressFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
