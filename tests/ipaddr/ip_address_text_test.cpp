#include "ipaddr.h"

#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <random>

using model::ip;
using model::ipv4;
using model::ipv6;
using model::uint128;

extern "C" void printFromC(const char *text, char *buf, unsigned int len); // of ip_address_c.c

namespace
{
// What the name calls of the C library do while a case runs: a definition in this program comes first for the library.
struct {
    bool answers = false;           // getaddrinfo() hands out `list` instead of asking the C library
    const addrinfo *list = nullptr; // owned by the case
    addrinfo hints{};               // what it was asked with
    int freed = 0;

    unsigned int zone = 0; // what the zone hook was asked with
    std::string zoneText;
    int zoneRoom = 0;
    std::string zoneName; // what it then writes; empty: nothing
} names;

class IpAddressParsing : public testing::Test
{
protected:
    ~IpAddressParsing() override
    {
        names = {};
    }
};

class IpAddressPrinting : public IpAddressParsing
{
};

class IpAddressUnmapped : public IpAddressParsing
{
};

std::string printed(const CIpAddress &address, int len = 64)
{
    GuardedBytes text(static_cast<size_t>(len));
    EXPECT_EQ(0, address.privResolveAddrString(text.text(), len));
    EXPECT_TRUE(text.intact());
    return text.text();
}
} // namespace

int getaddrinfo(const char *node, const char *service, const addrinfo *hints, addrinfo **list)
{
    names.hints = *hints;
    if (names.answers) {
        *list = const_cast<addrinfo *>(names.list);
        return 0;
    }
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(node, service, hints, list);
}

void freeaddrinfo(addrinfo *list) noexcept
{
    names.freed++;
    if (list == names.list)
        return;
    static const auto real = reinterpret_cast<decltype(&freeaddrinfo)>(dlsym(RTLD_NEXT, "freeaddrinfo"));
    real(list);
}

int CIpAddress::getIfNameFromIfIndexDD(unsigned int ifIndex, char *buf, int len) const
{
    names.zone = ifIndex;
    names.zoneText = buf;
    names.zoneRoom = len;
    if (!names.zoneName.empty())
        strncpy(buf, names.zoneName.c_str(), static_cast<size_t>(len));
    return 0;
}

TEST_F(IpAddressParsing, NullTextAndOtherFamiliesFail)
{
    CIpAddress address = ip("9.9.9.9");
    const CIpAddress before = address;
    EXPECT_EQ(1, address.setAddrString(nullptr, AF_INET, AI_NUMERICHOST));
    for (unsigned short family : std::initializer_list<unsigned short>{0, 1, 3, 9, 11, 0xFFFF})
        EXPECT_EQ(1, address.setAddrString("10.1.2.3", family, AI_NUMERICHOST)) << family;
    EXPECT_EQ(0, memcmp(&address, &before, sizeof address));
}

TEST_F(IpAddressParsing, TextsThatAreNoAddressFailAndChangeNothing)
{
    for (const char *text : {"", " ", "not an address", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", ":",
                             ":::", "12345::", "::g", "1:2:3:4:5:6:7:8:9", "::1%", "fe80::1%nowhere", "%", "%1"}) {
        for (unsigned short family : std::initializer_list<unsigned short>{AF_INET, AF_INET6}) {
            CIpAddress address = ip("9.9.9.9");
            const CIpAddress before = address;
            EXPECT_EQ(1, address.setAddrString(text, family, AI_NUMERICHOST)) << text;
            EXPECT_EQ(0, memcmp(&address, &before, sizeof address)) << text;
        }
    }
}

TEST_F(IpAddressParsing, OfTheOtherFamilyFails)
{
    CIpAddress address;
    EXPECT_EQ(1, address.setAddrString("10.1.2.3", AF_INET6, AI_NUMERICHOST));
    EXPECT_EQ(1, address.setAddrString("::1", AF_INET, AI_NUMERICHOST));
    EXPECT_EQ(0, address.family);
}

TEST_F(IpAddressParsing, HintsHoldFlagsAndFamilyAlone)
{
    CIpAddress address;
    EXPECT_EQ(0, address.setAddrString("10.1.2.3", AF_INET, AI_NUMERICHOST));
    addrinfo expected{};
    expected.ai_flags = AI_NUMERICHOST;
    expected.ai_family = AF_INET;
    EXPECT_EQ(0, memcmp(&expected, &names.hints, sizeof expected));
    EXPECT_EQ(1, names.freed);
}

TEST_F(IpAddressParsing, PortAndFlowInfoAreLeftAsTheyWere)
{
    CIpAddress address;
    address.port = 7;
    address.ipv4OrFlowInfo = 8;
    EXPECT_EQ(0, address.setAddrString("2001:db8::1", AF_INET6, AI_NUMERICHOST));
    EXPECT_EQ(7U, address.port);
    EXPECT_EQ(8U, address.ipv4OrFlowInfo);
    EXPECT_EQ(0, address.setAddrString("10.1.2.3", AF_INET, AI_NUMERICHOST));
    EXPECT_EQ(7U, address.port);
    EXPECT_EQ(ip("10.1.2.3").ipv4OrFlowInfo, address.ipv4OrFlowInfo);
    EXPECT_EQ(0, memcmp(ip("2001:db8::1").ipv6, address.ipv6, 16));
}

TEST_F(IpAddressParsing, ZoneIsTakenAndItsAbsenceClearsIt)
{
    CIpAddress address;
    EXPECT_EQ(0, address.setAddrString("fe80::1%4000000001", AF_INET6, AI_NUMERICHOST));
    EXPECT_EQ(4000000001U, address.scopeId);
    EXPECT_EQ(0, address.setAddrString("fe80::1", AF_INET6, AI_NUMERICHOST));
    EXPECT_EQ(0U, address.scopeId);
}

TEST_F(IpAddressParsing, ListWithoutTheFamilyIsASuccessThatChangesNothing)
{
    CIpAddress address = ip("fe80::1", 3);
    const CIpAddress before = address;
    names.answers = true;
    EXPECT_EQ(0, address.setAddrString("anything", AF_INET, 0));
    EXPECT_EQ(0, memcmp(&before, &address, sizeof address));

    sockaddr_in6 found{};
    addrinfo other{};
    other.ai_family = AF_INET6;
    other.ai_addr = reinterpret_cast<sockaddr *>(&found);
    other.ai_addrlen = sizeof found;
    names.list = &other;
    EXPECT_EQ(0, address.setAddrString("anything", AF_INET, 0));
    EXPECT_EQ(0, memcmp(&before, &address, sizeof address));
    EXPECT_EQ(1, names.freed);
}

TEST_F(IpAddressParsing, FirstEntryOfTheFamilyIsTaken)
{
    sockaddr_in6 v6{};
    sockaddr_in v4[2]{};
    v4[0].sin_addr.s_addr = htonl(0x0A000001);
    v4[1].sin_addr.s_addr = htonl(0x0A000002);
    addrinfo list[3]{};
    list[0].ai_family = AF_INET6;
    list[0].ai_addr = reinterpret_cast<sockaddr *>(&v6);
    list[1].ai_family = list[2].ai_family = AF_INET;
    list[1].ai_addr = reinterpret_cast<sockaddr *>(&v4[0]);
    list[2].ai_addr = reinterpret_cast<sockaddr *>(&v4[1]);
    list[0].ai_next = &list[1];
    list[1].ai_next = &list[2];
    names.answers = true;
    names.list = list;
    CIpAddress address;
    EXPECT_EQ(0, address.setAddrString("anything", AF_INET, 0));
    EXPECT_EQ("10.0.0.1", model::textOf(address));
    EXPECT_EQ(1, names.freed);
}

TEST_F(IpAddressPrinting, EmptyAddressAndUnknownFamilyFail)
{
    GuardedBytes text(64);
    EXPECT_EQ(1, CIpAddress().privResolveAddrString(text.text(), text.size()));
    CIpAddress unknown;
    unknown.family = 7777;
    EXPECT_EQ(1, unknown.privResolveAddrString(text.text(), text.size()));
    EXPECT_TRUE(text.untouched());
}

TEST_F(IpAddressPrinting, PrintingClearsPortAndPaddingOrFlowInfo)
{
    CIpAddress v4 = ip("10.1.2.3");
    v4.port = 5;
    memset(v4.ipv6, 0xEE, sizeof v4.ipv6);
    EXPECT_EQ("10.1.2.3", printed(v4));
    EXPECT_EQ(0U, v4.port);
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(i < 8 ? 0 : 0xEE, v4.ipv6[i]) << i;

    CIpAddress v6 = ip("2001:db8::1");
    v6.port = 5;
    v6.ipv4OrFlowInfo = 6;
    EXPECT_EQ("2001:db8::1", printed(v6));
    EXPECT_EQ(0U, v6.port);
    EXPECT_EQ(0U, v6.ipv4OrFlowInfo);
}

// The fields are cleared first and stay cleared when the text then does not fit.
TEST_F(IpAddressPrinting, FieldsAreClearedAlsoWhenThereIsNoRoom)
{
    CIpAddress address = ip("10.1.2.3");
    address.port = 5;
    EXPECT_EQ(1, address.privResolveAddrString(nullptr, 64));
    EXPECT_EQ(0U, address.port);
}

TEST_F(IpAddressPrinting, BufferThatHoldsNoTextIsNeverLookedAt)
{
    for (const CIpAddress &address : {ip("10.1.2.3"), ip("::1")}) {
        GuardedBytes text(4);
        for (int len : {0, -1, -64, INT32_MIN})
            EXPECT_EQ(1, address.privResolveAddrString(text.text(), len)) << len;
        EXPECT_EQ(1, address.privResolveAddrString(nullptr, 64));
        EXPECT_TRUE(text.untouched());
    }
}

TEST_F(IpAddressPrinting, TextThatDoesNotFitFails)
{
    GuardedBytes text(8);
    EXPECT_EQ(1, ip("10.1.2.3").privResolveAddrString(text.text(), text.size()));
    EXPECT_TRUE(text.intact());
    EXPECT_EQ("10.1.2.3", printed(ip("10.1.2.3"), 9));
}

TEST_F(IpAddressPrinting, AgreesWithInetNtopAndParsesBack)
{
    for (unsigned seed = 0; seed < 10; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        for (int i = 0; i < 200; i++) {
            const uint128 number = uint128{random()} << 64 | random();
            const CIpAddress address =
                i % 2 == 0 ? ipv4(static_cast<uint32_t>(random())) : ipv6(number >> random() % 128);
            const std::string text = printed(address);
            ASSERT_EQ(model::textOf(address), text);
            CIpAddress back;
            ASSERT_EQ(0, back.setAddrString(text.c_str(), address.family, AI_NUMERICHOST));
            ASSERT_EQ(0, memcmp(&address, &back, sizeof back)) << text;
        }
    }
}

TEST_F(IpAddressPrinting, ZoneThatIsNoInterfaceStaysANumberAndIsOfferedToTheHook)
{
    EXPECT_EQ("fe80::1%4000000001", printed(ip("fe80::1", 4000000001), 64));
    EXPECT_EQ(4000000001U, names.zone);
    EXPECT_EQ("4000000001", names.zoneText);
    EXPECT_EQ(64 - 8, names.zoneRoom);
}

TEST_F(IpAddressPrinting, HookMayOverwriteTheZone)
{
    names.zoneName = "wan0";
    EXPECT_EQ("fe80::1%wan0", printed(ip("fe80::1", 4000000001)));
}

TEST_F(IpAddressPrinting, HookIsNotAskedWithoutAZoneNorForIpv4)
{
    EXPECT_EQ("fe80::1", printed(ip("fe80::1")));
    EXPECT_EQ("10.1.2.3", printed(ip("10.1.2.3")));
    EXPECT_EQ(0U, names.zone);
}

TEST_F(IpAddressPrinting, ZonedAddressParsesBack)
{
    const CIpAddress address = ip("fe80::1", 4000000001);
    CIpAddress back;
    EXPECT_EQ(0, back.setAddrString(printed(address).c_str(), AF_INET6, AI_NUMERICHOST));
    EXPECT_EQ(0, memcmp(&address, &back, sizeof back));
}

TEST_F(IpAddressUnmapped, LengthOfFortyFiveIsRefused)
{
    GuardedBytes text(46);
    for (int len : {45, 9, 1, 0, -1, INT32_MIN})
        EXPECT_EQ(1, ip("10.1.2.3").getUnmappedAddressString(text.text(), len)) << len;
    EXPECT_EQ(1, ip("10.1.2.3").getUnmappedAddressString(nullptr, 46));
    EXPECT_TRUE(text.untouched());
    EXPECT_EQ(0, ip("10.1.2.3").getUnmappedAddressString(text.text(), 46));
    EXPECT_STREQ("10.1.2.3", text.text());
}

TEST_F(IpAddressUnmapped, MappedPrefixIsDroppedAndTheRestIsZeroFilled)
{
    const struct {
        const char *address;
        const char *text;
    } cases[] = {{"::ffff:10.1.2.3", "10.1.2.3"},
                 {"::ffff:0.0.0.0", "0.0.0.0"},
                 {"::ffff:255.255.255.255", "255.255.255.255"},
                 {"10.1.2.3", "10.1.2.3"},
                 {"2001:db8::1", "2001:db8::1"},
                 {"::10.1.2.3", "::10.1.2.3"},
                 {"::fffe:10.1.2.3", "::fffe:a01:203"},
                 {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}};
    for (const auto &expected : cases) {
        GuardedBytes text(64);
        EXPECT_EQ(0, ip(expected.address).getUnmappedAddressString(text.text(), 64));
        EXPECT_STREQ(expected.text, text.text());
        for (size_t i = strlen(expected.text); i < 64; i++)
            ASSERT_EQ(0, text.data()[i]) << i;
        EXPECT_TRUE(text.intact());
    }
}

TEST_F(IpAddressUnmapped, EmptyAndUnknownFamiliesFail)
{
    GuardedBytes text(64);
    EXPECT_EQ(1, CIpAddress().getUnmappedAddressString(text.text(), 64));
    CIpAddress unknown = ip("::ffff:10.1.2.3");
    unknown.family = 7777;
    EXPECT_EQ(1, unknown.getUnmappedAddressString(text.text(), 64));
    EXPECT_TRUE(text.untouched());
}

// 39 characters of address, a '%' and ten digits need 51 bytes; there are 46 whatever the caller's buffer holds.
TEST_F(IpAddressUnmapped, TextLongerThanTheScratchFails)
{
    GuardedBytes text(200);
    const CIpAddress address = ip("fe80:1111:2222:3333:4444:5555:6666:7777", 4000000001);
    EXPECT_EQ(1, address.getUnmappedAddressString(text.text(), 200));
    EXPECT_TRUE(text.untouched());
}

TEST_F(IpAddressUnmapped, CCallPrintsTheShortestNumericForm)
{
    const struct {
        const char *given;
        const char *text;
    } cases[] = {{"10.1.2.3", "10.1.2.3"},
                 {"::ffff:10.1.2.3", "10.1.2.3"},
                 {"2001:0DB8:0:0::0001", "2001:db8::1"},
                 {"10.258", "10.0.1.2"},
                 {"not an address", "UNKNOWN"},
                 {"", "UNKNOWN"},
                 {nullptr, "UNKNOWN"},
                 {"fe80:1111:2222:3333:4444:5555:6666:7777%4000000001", "UNKNOWN"}};
    for (const auto &expected : cases) {
        GuardedBytes text(64);
        get_unmapped_address_string(expected.given, text.text(), 64);
        EXPECT_STREQ(expected.text, text.text());
        for (size_t i = strlen(expected.text); i < 64; i++)
            ASSERT_EQ(0, text.data()[i]) << i;
        EXPECT_TRUE(text.intact());
    }
}

// The header declares the call to C as well: a C source includes it.
TEST_F(IpAddressUnmapped, CProgramsHaveTheCall)
{
    GuardedBytes text(64);
    printFromC("::ffff:10.1.2.3", text.text(), 64);
    EXPECT_STREQ("10.1.2.3", text.text());
    EXPECT_TRUE(text.intact());
}

TEST_F(IpAddressUnmapped, CCallWithAShortBufferWritesUnknownAsStrncpyDoes)
{
    for (unsigned len = 1; len <= 46; len++) {
        GuardedBytes text(len);
        get_unmapped_address_string("10.1.2.3", text.text(), len);
        const std::string expected = len > 45 ? "10.1.2.3" : "UNKNOWN";
        for (unsigned i = 0; i < len; i++)
            ASSERT_EQ(i < expected.size() ? expected[i] : '\0', text.text()[i]) << len;
        EXPECT_TRUE(text.intact()) << len;
    }
}

TEST_F(IpAddressUnmapped, CCallNeverLooksAtABufferThatHoldsNoText)
{
    GuardedBytes text(8);
    get_unmapped_address_string("10.1.2.3", text.text(), 0);
    get_unmapped_address_string("10.1.2.3", nullptr, 64);
    EXPECT_TRUE(text.untouched());
}

// An answer without a result leaves the scratch address empty, and empty is what it must have been.
TEST_F(IpAddressUnmapped, CCallStartsWithAnEmptyAddress)
{
    names.answers = true;
    GuardedBytes text(64);
    get_unmapped_address_string("10.1.2.3", text.text(), 64);
    EXPECT_STREQ("UNKNOWN", text.text());
}

TEST_F(IpAddressUnmapped, CCallAgreesWithTheModel)
{
    std::mt19937_64 random(35);
    for (int i = 0; i < 500; i++) {
        const uint128 number = uint128{random()} << 64 | random();
        const CIpAddress address =
            i % 2 == 0 ? ipv6(uint128{0xFFFF} << 32 | static_cast<uint32_t>(random())) : ipv6(number >> random() % 128);
        GuardedBytes text(46);
        get_unmapped_address_string(model::textOf(address).c_str(), text.text(), 46);
        ASSERT_EQ(model::unmappedTextOf(address), text.text());
        ASSERT_TRUE(text.intact());
    }
}
