#include "ipaddr.h"

#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"
#include "models/ip_hostname_model.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netdb.h>

using model::ip;

namespace
{
// What getnameinfo() does while a case runs: a definition in this program comes first for the library.
struct {
    const char *hostName = nullptr; // answers a NI_NAMEREQD call; null: there is no name
    std::vector<unsigned char> askedWith;
    socklen_t nameLength = 0;
    int calls = 0;
} resolver;

class IpHostnameResolving : public testing::Test
{
protected:
    ~IpHostnameResolving() override
    {
        resolver = {};
    }
};

CIpHostname host(const char *text)
{
    CIpHostname made;
    EXPECT_EQ(0, made.privDecodeNStoreString(text));
    return made;
}

const unsigned char *bytes(const char *text)
{
    return reinterpret_cast<const unsigned char *>(text);
}

bool same(const CIpHostname &a, const CIpHostname &b)
{
    return a.hostType == b.hostType && a.nameLen == b.nameLen && memcmp(a.name, b.name, sizeof a.name) == 0 &&
           memcmp(&a.address, &b.address, sizeof a.address) == 0;
}
} // namespace

int getnameinfo(const sockaddr *name, socklen_t nameLength, char *buf, socklen_t len, char *, socklen_t, int flags)
{
    if ((flags & NI_NAMEREQD) == 0) {
        static const auto real = reinterpret_cast<decltype(&getnameinfo)>(dlsym(RTLD_NEXT, "getnameinfo"));
        return real(name, nameLength, buf, len, nullptr, 0, flags);
    }
    resolver.calls++;
    resolver.nameLength = nameLength;
    const auto *const first = reinterpret_cast<const unsigned char *>(name);
    resolver.askedWith.assign(first, first + nameLength);
    if (resolver.hostName == nullptr)
        return EAI_NONAME;
    if (strlen(resolver.hostName) >= len)
        return EAI_OVERFLOW;
    strcpy(buf, resolver.hostName);
    return 0;
}

TEST(IpHostname, StartsEmpty)
{
    const CIpHostname empty;
    EXPECT_EQ(0, empty.hostType);
    EXPECT_EQ(0, empty.nameLen);
    EXPECT_STREQ("", empty.name);
    EXPECT_EQ(0, empty.address.family);
}

TEST(IpHostname, Ipv4LiteralIsAnAddress)
{
    const CIpHostname made = host("10.1.2.3");
    EXPECT_EQ(2, made.hostType);
    EXPECT_EQ(9, made.nameLen);
    EXPECT_STREQ("10.1.2.3", made.name);
    EXPECT_EQ("10.1.2.3", model::textOf(made.address));
}

TEST(IpHostname, Ipv6LiteralIsAnAddressWithItsZone)
{
    const CIpHostname made = host("fe80::1%4000000001");
    EXPECT_EQ(2, made.hostType);
    EXPECT_EQ(19, made.nameLen);
    EXPECT_EQ("fe80::1", model::textOf(made.address));
    EXPECT_EQ(4000000001U, made.address.scopeId);
}

TEST(IpHostname, AnyOtherTextIsADnsNameThatIsNotLookedUp)
{
    for (const char *text : {"router1", "", "localhost", "10.1.2.3.4", "1.2.3.4 ", "a.b.example"}) {
        const CIpHostname made = host(text);
        EXPECT_EQ(1, made.hostType) << text;
        EXPECT_EQ(strlen(text) + 1, made.nameLen) << text;
        EXPECT_STREQ(text, made.name);
        EXPECT_EQ(0, made.address.family) << text;
    }
}

TEST(IpHostname, DnsNameKeepsTheOldAddress)
{
    CIpHostname made = host("10.1.2.3");
    EXPECT_EQ(0, made.privDecodeNStoreString("router1"));
    EXPECT_EQ(1, made.hostType);
    EXPECT_EQ("10.1.2.3", model::textOf(made.address));
}

TEST(IpHostname, NullAndTextsOf256CharactersChangeNothing)
{
    CIpHostname made = host("router1");
    const CIpHostname before = made;
    EXPECT_EQ(1, made.privDecodeNStoreString(nullptr));
    EXPECT_EQ(1, made.privDecodeNStoreString(std::string(256, 'a').c_str()));
    EXPECT_EQ(1, made.privDecodeNStoreString(std::string(100000, 'a').c_str()));
    EXPECT_TRUE(same(before, made));
}

TEST(IpHostname, NameOf255CharactersWrapsNameLenToZero)
{
    const std::string longest(255, 'a');
    const CIpHostname made = host(longest.c_str());
    EXPECT_EQ(1, made.hostType);
    EXPECT_EQ(0, made.nameLen);
    EXPECT_EQ(longest, made.name);
    EXPECT_EQ(255, host(std::string(254, 'a').c_str()).nameLen);
}

TEST(IpHostname, OwnNameMayBeStoredAgain)
{
    CIpHostname made = host("10.1.2.3");
    EXPECT_EQ(0, made.privDecodeNStoreString(made.name + 3));
    EXPECT_STREQ("1.2.3", made.name);
    EXPECT_EQ("1.2.0.3", model::textOf(made.address));
}

TEST_F(IpHostnameResolving, EmptyAddressFailsWithoutAsking)
{
    GuardedBytes text(64);
    CIpHostname made = host("router1");
    EXPECT_EQ(1, made.privResolveHostname(text.text(), 64));
    EXPECT_EQ(0, resolver.calls);
    EXPECT_TRUE(text.untouched());
}

TEST_F(IpHostnameResolving, NameOfTheResolverIsPrinted)
{
    resolver.hostName = "router1.example";
    GuardedBytes text(64);
    CIpHostname made = host("10.1.2.3");
    EXPECT_EQ(0, made.privResolveHostname(text.text(), 64));
    EXPECT_STREQ("router1.example", text.text());
    EXPECT_TRUE(text.intact());
}

TEST_F(IpHostnameResolving, ResolverIsAskedWithAClearedSocketAddress)
{
    CIpHostname v4 = host("10.1.2.3");
    v4.address.port = 5;
    memset(v4.address.ipv6, 0xEE, 16);
    GuardedBytes text(64);
    EXPECT_EQ(0, v4.privResolveHostname(text.text(), 64));
    EXPECT_EQ((std::vector<unsigned char>{2, 0, 0, 0, 10, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0}), resolver.askedWith);
    EXPECT_EQ(0U, v4.address.port);
    EXPECT_EQ(0xEE, v4.address.ipv6[8]);

    CIpHostname v6 = host("fe80::1");
    v6.address.port = 5;
    v6.address.ipv4OrFlowInfo = 6;
    EXPECT_EQ(0, v6.privResolveHostname(text.text(), 64));
    EXPECT_EQ(28U, resolver.nameLength);
    EXPECT_EQ(0U, v6.address.port);
    EXPECT_EQ(0U, v6.address.ipv4OrFlowInfo);
    EXPECT_EQ(0, memcmp(&v6.address, resolver.askedWith.data(), 28));
}

TEST_F(IpHostnameResolving, AddressWithoutANameIsPrintedNumerically)
{
    GuardedBytes text(64);
    EXPECT_EQ(0, host("10.1.2.3").privResolveHostname(text.text(), 64));
    EXPECT_STREQ("10.1.2.3", text.text());
    EXPECT_EQ(0, host("2001:db8::1").privResolveHostname(text.text(), 64));
    EXPECT_STREQ("2001:db8::1", text.text());
    EXPECT_EQ(2, resolver.calls);
}

// The name does not fit, the number does.
TEST_F(IpHostnameResolving, NameThatDoesNotFitFallsBackToTheNumber)
{
    resolver.hostName = "router1.example";
    GuardedBytes text(9);
    EXPECT_EQ(0, host("10.1.2.3").privResolveHostname(text.text(), 9));
    EXPECT_STREQ("10.1.2.3", text.text());
    EXPECT_EQ(1, host("10.1.2.3").privResolveHostname(text.text(), 8));
    EXPECT_TRUE(text.intact());
}

TEST_F(IpHostnameResolving, BufferThatHoldsNoTextIsNeverLookedAt)
{
    resolver.hostName = "router1.example";
    GuardedBytes text(8);
    EXPECT_EQ(1, host("10.1.2.3").privResolveHostname(text.text(), 0));
    EXPECT_EQ(1, host("10.1.2.3").privResolveHostname(nullptr, 64));
    EXPECT_TRUE(text.untouched());
}

TEST_F(IpHostnameResolving, UnknownFamilyFails)
{
    GuardedBytes text(64);
    CIpHostname made = host("10.1.2.3");
    made.address.family = 7777;
    EXPECT_EQ(1, made.privResolveHostname(text.text(), 64));
    EXPECT_TRUE(text.untouched());
}

TEST(IpHostnameExport, EmptyHostIsOfUnknownType)
{
    int type = 99;
    int len = 64;
    EXPECT_EQ(0, CIpHostname().getInetAddress(type, nullptr, len));
    EXPECT_EQ(0, type);
    EXPECT_EQ(0, len);
}

TEST(IpHostnameExport, NameNeedsRoomFor256BytesAndComesWithoutItsZero)
{
    GuardedBytes buffer(256);
    int type = 99;
    int len = 256;
    EXPECT_EQ(0, host("router1").getInetAddress(type, buffer.data(), len));
    EXPECT_EQ(16, type);
    EXPECT_EQ(7, len);
    EXPECT_EQ(0, memcmp("router1", buffer.data(), 7));
    EXPECT_EQ(GuardedBytes::Fill, buffer.data()[7]);
    EXPECT_TRUE(buffer.intact());

    for (int room : {255, 7, 0, -1, INT32_MIN}) {
        GuardedBytes small(8);
        type = 99;
        len = room;
        EXPECT_EQ(1, host("router1").getInetAddress(type, small.data(), len)) << room;
        EXPECT_EQ(99, type);
        EXPECT_EQ(0, len);
        EXPECT_TRUE(small.untouched());
    }
    len = 256;
    EXPECT_EQ(1, host("router1").getInetAddress(type, nullptr, len));
    EXPECT_EQ(0, len);
}

TEST(IpHostnameExport, NameOf255CharactersExportsNoBytes)
{
    GuardedBytes buffer(256);
    int type = 99;
    int len = 256;
    EXPECT_EQ(0, host(std::string(255, 'a').c_str()).getInetAddress(type, buffer.data(), len));
    EXPECT_EQ(16, type);
    EXPECT_EQ(0, len);
    EXPECT_TRUE(buffer.untouched());
}

TEST(IpHostnameExport, AddressIsExportedAsTheAddressValueDoes)
{
    GuardedBytes buffer(20);
    int type = 99;
    int len = 20;
    EXPECT_EQ(0, host("10.1.2.3").getInetAddress(type, buffer.data(), len));
    EXPECT_EQ(1, type);
    EXPECT_EQ(4, len);
    len = 16;
    EXPECT_EQ(0, host("fe80::1%4000000001").getInetAddress(type, buffer.data(), len));
    EXPECT_EQ(4, type);
    EXPECT_EQ(20, len);
    type = 99;
    len = 3;
    EXPECT_EQ(1, host("10.1.2.3").getInetAddress(type, buffer.data(), len));
    EXPECT_EQ(99, type);
    EXPECT_EQ(0, len);
    EXPECT_TRUE(buffer.intact());
}

TEST(IpHostnameExport, UnknownHostTypeFails)
{
    CIpHostname made = host("10.1.2.3");
    for (int hostType = 3; hostType < 256; hostType++) {
        made.hostType = static_cast<uint8_t>(hostType);
        GuardedBytes buffer(256);
        int type = 99;
        int len = 256;
        EXPECT_EQ(1, made.getInetAddress(type, buffer.data(), len));
        EXPECT_EQ(99, type);
        EXPECT_EQ(0, len);
        EXPECT_TRUE(buffer.untouched());
    }
}

TEST(IpHostnameImport, UnknownTypeMakesAnAddressOfNoFamily)
{
    CIpHostname made = host("router1");
    EXPECT_EQ(0, made.setInetAddress(0, nullptr, 0));
    EXPECT_EQ(2, made.hostType);
    EXPECT_EQ(0, made.address.family);
    EXPECT_STREQ("router1", made.name);
    EXPECT_EQ(8, made.nameLen);
}

TEST(IpHostnameImport, AddressKeepsTheName)
{
    CIpHostname made = host("router1");
    const unsigned char address[] = {10, 1, 2, 3};
    EXPECT_EQ(0, made.setInetAddress(1, address, 4));
    EXPECT_EQ(2, made.hostType);
    EXPECT_EQ("10.1.2.3", model::textOf(made.address));
    EXPECT_STREQ("router1", made.name);
    EXPECT_EQ(8, made.nameLen);
    unsigned char zoned[20] = {0xFE, 0x80};
    EXPECT_EQ(1, made.setInetAddress(4, zoned, 20));
    EXPECT_EQ("10.1.2.3", model::textOf(made.address));
    zoned[19] = 1;
    EXPECT_EQ(0, made.setInetAddress(4, zoned, 20));
    EXPECT_EQ(0, made.setInetAddress(2, zoned, 16));
    EXPECT_EQ("fe80::", model::textOf(made.address));
}

TEST(IpHostnameImport, NameKeepsTheAddress)
{
    CIpHostname made = host("10.1.2.3");
    EXPECT_EQ(0, made.setInetAddress(16, bytes("router1 and more"), 7));
    EXPECT_EQ(1, made.hostType);
    EXPECT_EQ(8, made.nameLen);
    EXPECT_STREQ("router1", made.name);
    EXPECT_EQ("10.1.2.3", model::textOf(made.address));
}

TEST(IpHostnameImport, NameOf256BytesAndNegativeLengthsAreRefused)
{
    CIpHostname made = host("10.1.2.3");
    const CIpHostname before = made;
    const std::string text(300, 'a');
    for (int len : {256, 257, 300, -1, -256, INT32_MIN, INT32_MAX})
        EXPECT_EQ(1, made.setInetAddress(16, bytes(text.c_str()), len)) << len;
    EXPECT_EQ(1, made.setInetAddress(16, nullptr, 7));
    EXPECT_TRUE(same(before, made));
}

TEST(IpHostnameImport, NameOf255BytesWrapsNameLenToZero)
{
    CIpHostname made;
    const std::string text(255, 'a');
    EXPECT_EQ(0, made.setInetAddress(16, bytes(text.c_str()), 255));
    EXPECT_EQ(0, made.nameLen);
    EXPECT_EQ(text, made.name);
}

TEST(IpHostnameImport, NameOfNoBytesIsTheEmptyText)
{
    for (const unsigned char *text : {bytes("x"), static_cast<const unsigned char *>(nullptr)}) {
        CIpHostname made = host("10.1.2.3");
        EXPECT_EQ(0, made.setInetAddress(16, text, 0));
        EXPECT_EQ(1, made.hostType);
        EXPECT_EQ(1, made.nameLen);
        EXPECT_STREQ("", made.name);
    }
}

TEST(IpHostnameImport, OtherTypesAndLengthsChangeNothing)
{
    CIpHostname made = host("router1");
    const CIpHostname before = made;
    unsigned char value[32] = {1};
    for (int type : {-1, 3, 5, 15, 17, INT32_MIN, INT32_MAX})
        for (int len = -1; len < 32; len++)
            EXPECT_EQ(1, made.setInetAddress(type, value, len)) << type << " " << len;
    EXPECT_EQ(1, made.setInetAddress(0, value, 1));
    EXPECT_EQ(1, made.setInetAddress(1, value, 5));
    EXPECT_EQ(1, made.setInetAddress(2, value, 20));
    EXPECT_EQ(1, made.setInetAddress(4, value, 16));
    EXPECT_TRUE(same(before, made));
}

TEST(IpHostnameImport, TakesBackWhatWasExported)
{
    for (const char *text : {"router1", "10.1.2.3", "2001:db8::1", "x"}) {
        const CIpHostname made = host(text);
        unsigned char value[256];
        int type = 0;
        int len = sizeof value;
        ASSERT_EQ(0, made.getInetAddress(type, value, len));
        CIpHostname back;
        ASSERT_EQ(0, back.setInetAddress(type, value, len));
        EXPECT_EQ(made.hostType, back.hostType);
        if (made.hostType == 1) {
            EXPECT_STREQ(text, back.name);
            EXPECT_EQ(made.nameLen, back.nameLen);
        } else {
            EXPECT_EQ(0, memcmp(&made.address, &back.address, sizeof made.address));
        }
    }
}
