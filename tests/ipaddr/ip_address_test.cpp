#include "ipaddr.h"

#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <random>

using model::ip;
using model::ipv4;
using model::ipv6;
using model::uint128;

namespace
{
std::vector<unsigned char> bytesOf(const CIpAddress &address)
{
    std::vector<unsigned char> bytes(sizeof address);
    memcpy(bytes.data(), &address, sizeof address);
    return bytes;
}

uint128 random128(std::mt19937_64 &random)
{
    return uint128{random()} << 64 | random();
}
} // namespace

TEST(IpAddressLayout, FieldsStandWhereTheSocketAddressesHaveThem)
{
    static_assert(sizeof(CIpAddress) == sizeof(sockaddr_storage) && alignof(CIpAddress) == alignof(sockaddr_storage));
    static_assert(offsetof(CIpAddress, family) == offsetof(sockaddr_in, sin_family));
    static_assert(offsetof(CIpAddress, port) == offsetof(sockaddr_in, sin_port));
    static_assert(offsetof(CIpAddress, ipv4OrFlowInfo) == offsetof(sockaddr_in, sin_addr));
    static_assert(offsetof(CIpAddress, ipv6) == offsetof(sockaddr_in, sin_zero));
    static_assert(offsetof(CIpAddress, ipv4OrFlowInfo) == offsetof(sockaddr_in6, sin6_flowinfo));
    static_assert(offsetof(CIpAddress, ipv6) == offsetof(sockaddr_in6, sin6_addr));
    static_assert(offsetof(CIpAddress, scopeId) == offsetof(sockaddr_in6, sin6_scope_id));
    static_assert(std::is_trivially_copyable_v<CIpAddress> && std::is_standard_layout_v<CIpAddress>);

    EXPECT_EQ(std::vector<unsigned char>(128), bytesOf(CIpAddress()));
}

TEST(IpAddressConversion, SameFamilyChangesNothing)
{
    for (CIpAddress address : {ip("10.1.2.3"), ip("::1", 7), CIpAddress()}) {
        const auto before = bytesOf(address);
        EXPECT_EQ(0, address.convertToAddressFamily(address.family));
        EXPECT_EQ(before, bytesOf(address));
    }
}

TEST(IpAddressConversion, OnlyAMappedAddressBecomesIpv4)
{
    for (const char *text :
         {"::1", "::", "::fffe:10.1.2.3", "0:0:0:0:1:ffff:a01:203", "100::ffff:10.1.2.3", "::ff:a01:203"}) {
        CIpAddress address = ip(text, 3);
        const auto before = bytesOf(address);
        EXPECT_EQ(1, address.convertToAddressFamily(AF_INET)) << text;
        EXPECT_EQ(before, bytesOf(address)) << text;
    }
    for (unsigned short family : std::initializer_list<unsigned short>{0, 77}) { // mapped bytes, but not of IPv6
        CIpAddress address = ip("::ffff:10.1.2.3");
        address.family = family;
        EXPECT_EQ(1, address.convertToAddressFamily(AF_INET));
        EXPECT_EQ(family, address.family);
    }

    CIpAddress mapped = ip("::ffff:10.1.2.3");
    EXPECT_EQ(0, mapped.convertToAddressFamily(AF_INET));
    EXPECT_EQ(AF_INET, mapped.family);
    EXPECT_EQ("10.1.2.3", model::textOf(mapped));
}

TEST(IpAddressConversion, Ipv4BecomesMappedWithoutAZone)
{
    CIpAddress address = ip("10.1.2.3");
    address.scopeId = 9;
    memset(address.ipv6, 0xEE, sizeof address.ipv6);
    address.port = 77;
    EXPECT_EQ(0, address.convertToAddressFamily(AF_INET6));
    EXPECT_EQ(AF_INET6, address.family);
    EXPECT_EQ("::ffff:10.1.2.3", model::textOf(address));
    EXPECT_EQ(0U, address.scopeId);
    EXPECT_EQ(77U, address.port);
}

TEST(IpAddressConversion, FlowInfoKeepsTheOldIpv4Bytes)
{
    CIpAddress address = ip("10.1.2.3");
    EXPECT_EQ(0, address.convertToAddressFamily(AF_INET6));
    EXPECT_EQ(ip("10.1.2.3").ipv4OrFlowInfo, address.ipv4OrFlowInfo);
}

TEST(IpAddressConversion, AnyOtherFamilyIsStoredAsItIs)
{
    CIpAddress address = ip("fe80::1", 4);
    CIpAddress expected = address;
    expected.family = 77;
    EXPECT_EQ(0, address.convertToAddressFamily(77));
    EXPECT_EQ(bytesOf(expected), bytesOf(address));
    expected.family = 0;
    EXPECT_EQ(0, address.convertToAddressFamily(0));
    EXPECT_EQ(bytesOf(expected), bytesOf(address));
}

TEST(IpAddressConversion, ThereAndBackKeepsAnyIpv4Address)
{
    std::mt19937_64 random(31);
    for (int i = 0; i < 1000; i++) {
        const uint32_t number = static_cast<uint32_t>(random());
        CIpAddress address = ipv4(number);
        ASSERT_EQ(0, address.convertToAddressFamily(AF_INET6));
        ASSERT_EQ(uint128{0xFFFF} << 32 | number, model::ipv6Number(address));
        ASSERT_EQ(0, address.convertToAddressFamily(AF_INET));
        ASSERT_EQ(number, model::ipv4Number(address));
    }
}

TEST(IpAddressExport, EmptyAddressIsOfUnknownTypeAndNoBytes)
{
    int type = 99;
    int len = 0;
    EXPECT_EQ(0, CIpAddress().getInetAddress(type, nullptr, len));
    EXPECT_EQ(0, type);
    GuardedBytes bytes(20);
    type = 99;
    len = 20;
    EXPECT_EQ(0, CIpAddress().getInetAddress(type, bytes.data(), len));
    EXPECT_EQ(0, type);
    EXPECT_EQ(0, len);
    EXPECT_TRUE(bytes.untouched());
}

TEST(IpAddressExport, Ipv4NeedsFourBytes)
{
    GuardedBytes bytes(4);
    int type = 99;
    int len = 4;
    EXPECT_EQ(0, ip("10.1.2.3").getInetAddress(type, bytes.data(), len));
    EXPECT_EQ(1, type);
    EXPECT_EQ(4, len);
    EXPECT_EQ((std::vector<unsigned char>{10, 1, 2, 3}), bytes.held());
    EXPECT_TRUE(bytes.intact());
}

TEST(IpAddressExport, TooLittleRoomSetsTheLengthToZeroAndLeavesTheTypeAlone)
{
    const struct {
        CIpAddress address;
        int room;
    } cases[] = {
        {ip("10.1.2.3"), 3}, {ip("10.1.2.3"), 0}, {ip("10.1.2.3"), -1}, {ip("::1"), 15}, {ip("fe80::1", 5), 15}};
    for (const auto &[address, room] : cases) {
        GuardedBytes bytes(20);
        int type = 99;
        int len = room;
        EXPECT_EQ(1, address.getInetAddress(type, bytes.data(), len));
        EXPECT_EQ(99, type);
        EXPECT_EQ(0, len);
        EXPECT_TRUE(bytes.untouched());
    }
}

TEST(IpAddressExport, NoBufferIsNoRoom)
{
    int type = 99;
    int len = 20;
    EXPECT_EQ(1, ip("10.1.2.3").getInetAddress(type, nullptr, len));
    EXPECT_EQ(0, len);
    EXPECT_EQ(99, type);
}

TEST(IpAddressExport, UnknownFamilyFails)
{
    CIpAddress address;
    address.family = 77;
    GuardedBytes bytes(20);
    int type = 99;
    int len = 20;
    EXPECT_EQ(1, address.getInetAddress(type, bytes.data(), len));
    EXPECT_EQ(99, type);
    EXPECT_EQ(0, len);
    EXPECT_TRUE(bytes.untouched());
}

TEST(IpAddressExport, AddressWithoutAZoneReportsSixteenBytesAndWritesAZeroZoneWhereThereIsRoom)
{
    for (int room : {16, 17, 19, 20, 24}) {
        GuardedBytes bytes(static_cast<size_t>(room));
        int type = 99;
        int len = room;
        EXPECT_EQ(0, ip("2001:db8::1").getInetAddress(type, bytes.data(), len));
        EXPECT_EQ(2, type);
        EXPECT_EQ(16, len);
        EXPECT_EQ(0, memcmp(bytes.data(), ip("2001:db8::1").ipv6, 16));
        const unsigned char behind = room >= 20 ? 0 : GuardedBytes::Fill;
        for (int i = 16; i < std::min(room, 20); i++)
            EXPECT_EQ(behind, bytes.data()[i]) << room;
        for (int i = 20; i < room; i++)
            EXPECT_EQ(GuardedBytes::Fill, bytes.data()[i]) << room;
        EXPECT_TRUE(bytes.intact());
    }
}

TEST(IpAddressExport, ZoneIsWrittenMostSignificantByteFirst)
{
    GuardedBytes bytes(20);
    int type = 99;
    int len = 20;
    EXPECT_EQ(0, ip("fe80::1", 0x01020304).getInetAddress(type, bytes.data(), len));
    EXPECT_EQ(4, type);
    EXPECT_EQ(20, len);
    const unsigned char zone[] = {1, 2, 3, 4};
    EXPECT_EQ(0, memcmp(bytes.data() + 16, zone, 4));
    EXPECT_TRUE(bytes.intact());
}

TEST(IpAddressExport, ZonedAddressIntoSixteenBytesStillReportsTwenty)
{
    for (int room = 16; room < 20; room++) {
        GuardedBytes bytes(static_cast<size_t>(room));
        int type = 99;
        int len = room;
        EXPECT_EQ(0, ip("fe80::1", 5).getInetAddress(type, bytes.data(), len));
        EXPECT_EQ(4, type);
        EXPECT_EQ(20, len);
        EXPECT_EQ(0, memcmp(bytes.data(), ip("fe80::1").ipv6, 16));
        for (int i = 16; i < room; i++)
            EXPECT_EQ(GuardedBytes::Fill, bytes.data()[i]);
        EXPECT_TRUE(bytes.intact());
    }
}

TEST(IpAddressImport, TypeZeroWantsNoBytesAndEmptiesTheAddress)
{
    CIpAddress address = ip("fe80::1", 5);
    EXPECT_EQ(1, address.setInetAddress(0, reinterpret_cast<const unsigned char *>("x"), 1));
    EXPECT_EQ(AF_INET6, address.family);
    EXPECT_EQ(1, address.setInetAddress(0, nullptr, -1));
    EXPECT_EQ(AF_INET6, address.family);
    EXPECT_EQ(0, address.setInetAddress(0, nullptr, 0));
    EXPECT_EQ(0, address.family);
}

TEST(IpAddressImport, EachTypeTakesItsOwnLengthAlone)
{
    unsigned char bytes[32];
    for (int i = 0; i < 32; i++)
        bytes[i] = static_cast<unsigned char>(i + 1);
    for (int type : {-1, 0, 1, 2, 3, 4, 5, 16, 0x7FFFFFFF}) {
        for (int len = -2; len <= 32; len++) {
            CIpAddress address = ip("9.9.9.9");
            const auto before = bytesOf(address);
            const bool fits = (type == 0 && len == 0) || (type == 1 && len == 4) || (type == 2 && len == 16) ||
                              (type == 4 && len == 20);
            EXPECT_EQ(fits ? 0 : 1, address.setInetAddress(type, bytes, len)) << type << " " << len;
            EXPECT_EQ(!fits, before == bytesOf(address)) << type << " " << len;
        }
    }
}

TEST(IpAddressImport, BytesAreTakenAndPortAndFlowInfoStay)
{
    unsigned char bytes[16];
    for (int i = 0; i < 16; i++)
        bytes[i] = static_cast<unsigned char>(0xF0 + i);
    CIpAddress address;
    address.port = 7;
    address.ipv4OrFlowInfo = 8;
    address.scopeId = 9;
    EXPECT_EQ(0, address.setInetAddress(2, bytes, 16));
    EXPECT_EQ(AF_INET6, address.family);
    EXPECT_EQ(0, memcmp(bytes, address.ipv6, 16));
    EXPECT_EQ(0U, address.scopeId);
    EXPECT_EQ(7U, address.port);
    EXPECT_EQ(8U, address.ipv4OrFlowInfo);
    EXPECT_EQ(0, address.setInetAddress(1, bytes, 4));
    EXPECT_EQ(AF_INET, address.family);
    EXPECT_EQ(0xF0F1F2F3U, model::ipv4Number(address));
    EXPECT_EQ(0, memcmp(bytes, address.ipv6, 16));
}

TEST(IpAddressImport, ZoneOfZeroIsRefused)
{
    unsigned char bytes[20] = {0xFE, 0x80};
    CIpAddress address = ip("9.9.9.9");
    const auto before = bytesOf(address);
    EXPECT_EQ(1, address.setInetAddress(4, bytes, 20));
    EXPECT_EQ(before, bytesOf(address));
    for (int zoneByte = 16; zoneByte < 20; zoneByte++) {
        unsigned char zoned[20] = {0xFE, 0x80};
        zoned[zoneByte] = 1;
        EXPECT_EQ(0, address.setInetAddress(4, zoned, 20));
    }
}

TEST(IpAddressImport, ZoneIsTakenInHostOrderAndGivenInNetworkOrder)
{
    const uint32_t zone = 0x01020304;
    unsigned char bytes[20] = {0xFE, 0x80};
    memcpy(bytes + 16, &zone, 4);
    CIpAddress address;
    EXPECT_EQ(0, address.setInetAddress(4, bytes, 20));
    EXPECT_EQ(zone, address.scopeId);
    GuardedBytes out(20);
    int type = 0;
    int len = 20;
    EXPECT_EQ(0, address.getInetAddress(type, out.data(), len));
    EXPECT_EQ(0x01020304U, static_cast<uint32_t>(model::numberOf(out.data() + 16, 4)));
    EXPECT_NE(0, memcmp(bytes + 16, out.data() + 16, 4));
}

TEST(IpAddressImport, NullBytesAreRefused)
{
    CIpAddress address = ip("9.9.9.9");
    const auto before = bytesOf(address);
    EXPECT_EQ(1, address.setInetAddress(1, nullptr, 4));
    EXPECT_EQ(1, address.setInetAddress(2, nullptr, 16));
    EXPECT_EQ(1, address.setInetAddress(4, nullptr, 20));
    EXPECT_EQ(before, bytesOf(address));
}

TEST(IpAddressImport, TakesBackWhatWasExported)
{
    std::mt19937_64 random(32);
    for (int i = 0; i < 1000; i++) {
        const CIpAddress address = i % 2 == 0 ? ipv4(static_cast<uint32_t>(random())) : ipv6(random128(random));
        unsigned char bytes[20];
        int type = 0;
        int len = sizeof bytes;
        ASSERT_EQ(0, address.getInetAddress(type, bytes, len));
        CIpAddress back;
        ASSERT_EQ(0, back.setInetAddress(type, bytes, len));
        ASSERT_EQ(bytesOf(address), bytesOf(back));
    }
}

TEST(IpAddressTests, LinkLocalIsFe80WithAPrefixOfTenBits)
{
    for (const char *text : {"fe80::1", "fe80::", "febf:ffff::1", "fe90::"})
        EXPECT_TRUE(ip(text).ipAddrIsIPv6LinkLocalAddress()) << text;
    for (const char *text : {"fec0::1", "fe7f::1", "ff80::1", "fe00::", "::fe80", "169.254.0.1", "254.128.0.0"})
        EXPECT_FALSE(ip(text).ipAddrIsIPv6LinkLocalAddress()) << text;
    CIpAddress other = ip("fe80::1");
    other.family = 77;
    EXPECT_FALSE(other.ipAddrIsIPv6LinkLocalAddress());
}

TEST(IpAddressTests, SolicitedNodeIsFixedUpToTheLastThreeBytes)
{
    for (const char *text : {"ff02::1:ff00:0", "ff02::1:ff45:6789", "ff02::1:ffff:ffff"})
        EXPECT_TRUE(ip(text).ipAddrIsIPv6SolicitedNodeAddress()) << text;
    const CIpAddress solicited = ip("ff02::1:ff45:6789");
    for (int bit = 0; bit < 104; bit++) {
        CIpAddress other = solicited;
        other.ipv6[bit / 8] = static_cast<unsigned char>(other.ipv6[bit / 8] ^ 0x80 >> bit % 8);
        EXPECT_FALSE(other.ipAddrIsIPv6SolicitedNodeAddress()) << bit;
    }
    CIpAddress other = solicited;
    other.family = AF_INET;
    EXPECT_FALSE(other.ipAddrIsIPv6SolicitedNodeAddress());
}

TEST(IpAddressScope, OnlyAnIpv6AddressTakesAZone)
{
    CIpAddress address = ip("fe80::1");
    EXPECT_EQ(0, address.setScopeId(0xFFFFFFFF));
    EXPECT_EQ(0xFFFFFFFFU, address.scopeId);
    for (CIpAddress other : {ip("1.2.3.4"), CIpAddress()}) {
        EXPECT_EQ(1, other.setScopeId(3));
        EXPECT_EQ(0U, other.scopeId);
    }
}

TEST(IpAddressRange, FamiliesThatDifferAndEmptyAddressesFail)
{
    unsigned int count = 99;
    CIpAddress empty;
    CIpAddress v4 = ip("1.2.3.4");
    CIpAddress v6 = ip("::1");
    EXPECT_EQ(1, v4.findAddressRange(v6, count));
    EXPECT_EQ(1, v6.findAddressRange(v4, count));
    EXPECT_EQ(1, empty.findAddressRange(v4, count));
    EXPECT_EQ(1, empty.findAddressRange(CIpAddress(), count));
    EXPECT_EQ(99U, count);
}

TEST(IpAddressRange, TwoOfAnUnknownFamilyLeaveTheCountAlone)
{
    CIpAddress one;
    CIpAddress other;
    one.family = other.family = 77;
    unsigned int count = 99;
    EXPECT_EQ(0, one.findAddressRange(other, count));
    EXPECT_EQ(99U, count);
    other.family = 78;
    EXPECT_EQ(1, one.findAddressRange(other, count));
}

TEST(IpAddressRange, StoredWordsDecideTheOrderOfIpv4)
{
    const struct {
        const char *one;
        const char *other;
        unsigned int count;
    } cases[] = {{"10.0.0.1", "10.0.0.2", 1},
                 {"10.0.0.1", "10.0.1.1", 256},
                 {"10.0.0.255", "10.0.1.0", 0xFFFFFFFF},
                 {"0.0.0.0", "255.255.255.255", 0xFFFFFFFF},
                 {"10.0.0.1", "10.0.0.1", 0}};
    for (const auto &expected : cases) {
        unsigned int count = 99;
        EXPECT_EQ(0, ip(expected.one).findAddressRange(ip(expected.other), count));
        EXPECT_EQ(expected.count, count) << expected.one << " " << expected.other;
        count = 99;
        EXPECT_EQ(0, ip(expected.other).findAddressRange(ip(expected.one), count));
        EXPECT_EQ(expected.count, count) << expected.other << " " << expected.one;
    }
}

TEST(IpAddressRange, Ipv6BorrowsFromTheHighHalf)
{
    unsigned int count = 99;
    EXPECT_EQ(0, ip("2001:db8:0:1::").findAddressRange(ip("2001:db8::ffff:ffff:ffff:ffff"), count));
    EXPECT_EQ(1U, count);
    EXPECT_EQ(0, ip("2001:db8::ffff:ffff:ffff:fff0").findAddressRange(ip("2001:db8:0:1::10"), count));
    EXPECT_EQ(0x20U, count);
}

TEST(IpAddressRange, Ipv6DistanceOf2To32OverflowsAndLeavesTheCountAlone)
{
    unsigned int count = 99;
    EXPECT_EQ(0, ip("::1:0:0").findAddressRange(ip("::1"), count));
    EXPECT_EQ(0xFFFFFFFFU, count);
    count = 99;
    EXPECT_EQ(2, ip("::1:0:0").findAddressRange(ip("::"), count));
    EXPECT_EQ(2, ip("1::").findAddressRange(ip("::"), count));
    EXPECT_EQ(2, ip("0:0:0:1::").findAddressRange(ip("::"), count));
    EXPECT_EQ(99U, count);
}

TEST(IpAddressRange, OnlyZonedAddressIsTheLargerWhateverItsNumber)
{
    unsigned int count = 99;
    // fe80::1 with a zone minus fe80::2 without one is 2^128 - 1.
    EXPECT_EQ(2, ip("fe80::1", 3).findAddressRange(ip("fe80::2"), count));
    EXPECT_EQ(2, ip("fe80::2").findAddressRange(ip("fe80::1", 3), count));
    EXPECT_EQ(0, ip("fe80::2", 3).findAddressRange(ip("fe80::1"), count));
    EXPECT_EQ(1U, count);
    count = 99;
    EXPECT_EQ(0, ip("fe80::1", 9).findAddressRange(ip("fe80::2", 3), count));
    EXPECT_EQ(1U, count);
    EXPECT_EQ(0, ip("fe80::1", 9).findAddressRange(ip("fe80::1", 3), count));
    EXPECT_EQ(0U, count);
}

TEST(IpAddressRangeModel, AgreesWith128BitNumbers)
{
    for (unsigned seed = 0; seed < 20; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        for (int i = 0; i < 500; i++) {
            unsigned int count = 0;
            const uint32_t a = static_cast<uint32_t>(random());
            const uint32_t b =
                i % 2 == 0 ? static_cast<uint32_t>(random()) : a + static_cast<uint32_t>(random() % 1024);
            ASSERT_EQ(0, ipv4(a).findAddressRange(ipv4(b), count));
            ASSERT_EQ(model::ipv4Distance(a, b).count, count) << a << " " << b;

            const uint128 number = random128(random);
            const uint128 offset = i % 3 == 0 ? random128(random) : static_cast<uint32_t>(random());
            CIpAddress one = ipv6(number, static_cast<uint32_t>(random() % 3));
            const CIpAddress other =
                ipv6(i % 2 == 0 ? number + offset : number - offset, static_cast<uint32_t>(random() % 3));
            count = 0;
            const int result = one.findAddressRange(other, count);
            ASSERT_EQ(model::ipv6Distance(one, other), (model::Distance{result, count}));
        }
    }
}

// The comparison above must be able to fail: a distance that is one off is told apart.
TEST(IpAddressRangeModel, NoticesAnAddressChangedBehindItsBack)
{
    CIpAddress one = ip("2001:db8::1");
    CIpAddress other = ip("2001:db8::ff");
    const model::Distance expected = model::ipv6Distance(one, other);
    other.ipv6[15] ^= 1;
    unsigned int count = 0;
    const int result = one.findAddressRange(other, count);
    EXPECT_FALSE((expected == model::Distance{result, count}));
}

TEST(IpAddressOffset, EmptyAddressFailsAndUnknownFamilyCopiesTheFamilyAlone)
{
    CIpAddress out = ip("1.2.3.4");
    EXPECT_EQ(1, CIpAddress().getAddressFromRangeOffset(1, out));
    EXPECT_EQ(0, out.family);

    CIpAddress unknown = ip("::5");
    unknown.family = 77;
    out = ip("1.2.3.4");
    CIpAddress expected = out;
    expected.family = 77;
    EXPECT_EQ(0, unknown.getAddressFromRangeOffset(1, out));
    EXPECT_EQ(bytesOf(expected), bytesOf(out));
}

TEST(IpAddressOffset, Ipv4CarriesThroughItsBytes)
{
    CIpAddress out;
    EXPECT_EQ(0, ip("10.0.0.1").getAddressFromRangeOffset(0, out));
    EXPECT_EQ("10.0.0.1", model::textOf(out));
    EXPECT_EQ(0, ip("10.0.0.255").getAddressFromRangeOffset(0xFFFFFFFF - 0x0A0000FF, out));
    EXPECT_EQ("255.255.255.255", model::textOf(out));
}

TEST(IpAddressRange, Ipv4OverflowTestComparesUnlikeByteOrders)
{
    // 1.0.0.200 is stored as 0xc8000001, above its own number 0x010000c8: even an offset of 1 is refused.
    CIpAddress out;
    EXPECT_EQ(2, ip("1.0.0.200").getAddressFromRangeOffset(1, out));
    EXPECT_EQ("1.0.0.200", model::textOf(out));
    // 200.0.0.1 is stored as 0x010000c8: a sum that wrapped to 0x10000000 is taken.
    EXPECT_EQ(0, ip("200.0.0.1").getAddressFromRangeOffset(0x47FFFFFF, out));
    EXPECT_EQ("16.0.0.0", model::textOf(out));
    // Equal is not greater.
    EXPECT_EQ(0, ip("1.2.2.1").getAddressFromRangeOffset(0, out));
}

TEST(IpAddressOffset, Ipv6CarriesIntoTheHighHalf)
{
    CIpAddress out;
    EXPECT_EQ(0, ip("2001:db8::ffff:ffff:ffff:ffff", 6).getAddressFromRangeOffset(2, out));
    EXPECT_EQ("2001:db8:0:1::1", model::textOf(out));
    EXPECT_EQ(6U, out.scopeId);
}

TEST(IpAddressOffset, Ipv6OverflowHandsOutTheCopy)
{
    const CIpAddress last = ip("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 4);
    CIpAddress out;
    EXPECT_EQ(2, last.getAddressFromRangeOffset(1, out));
    EXPECT_EQ(bytesOf(last), bytesOf(out));
    EXPECT_EQ(0, last.getAddressFromRangeOffset(0, out));
    EXPECT_EQ(bytesOf(last), bytesOf(out));
    EXPECT_EQ(0, ip("ffff:ffff:ffff:ffff:ffff:ffff:0:1").getAddressFromRangeOffset(0xFFFFFFFE, out));
    EXPECT_EQ(2, ip("ffff:ffff:ffff:ffff:ffff:ffff:0:1").getAddressFromRangeOffset(0xFFFFFFFF, out));
}

TEST(IpAddressOffset, PortFlowInfoAndTheRestOfTheTargetStay)
{
    CIpAddress out;
    out.port = 5;
    out.ipv4OrFlowInfo = 6;
    EXPECT_EQ(0, ip("::1").getAddressFromRangeOffset(1, out));
    EXPECT_EQ(5U, out.port);
    EXPECT_EQ(6U, out.ipv4OrFlowInfo);
    memset(out.ipv6, 0xEE, sizeof out.ipv6);
    EXPECT_EQ(0, ip("10.0.0.1").getAddressFromRangeOffset(1, out));
    EXPECT_EQ(0xEE, out.ipv6[0]);
    EXPECT_EQ("10.0.0.2", model::textOf(out));
}

TEST(IpAddressOffset, TargetMayBeTheAddressItself)
{
    CIpAddress address = ip("::ffff:ffff", 2);
    EXPECT_EQ(0, address.getAddressFromRangeOffset(1, address));
    EXPECT_EQ("::1:0:0", model::textOf(address));
    EXPECT_EQ(2U, address.scopeId);
}

TEST(IpAddressOffsetModel, AgreesWith128BitNumbers)
{
    for (unsigned seed = 0; seed < 20; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        for (int i = 0; i < 500; i++) {
            const uint32_t offset = static_cast<uint32_t>(random());
            uint128 number = random128(random);
            if (i % 4 == 0)
                number |= ~uint128{0} << 31;
            CIpAddress out;
            const int result = ipv6(number, 3).getAddressFromRangeOffset(offset, out);
            const bool overflow = number + offset < number;
            ASSERT_EQ(overflow ? 2 : 0, result);
            ASSERT_TRUE((overflow ? number : number + offset) == model::ipv6Number(out));

            const uint32_t number4 = static_cast<uint32_t>(random());
            const int result4 = ipv4(number4).getAddressFromRangeOffset(offset, out);
            const bool refused = model::swapped(number4) > number4 + offset;
            ASSERT_EQ(refused ? 2 : 0, result4);
            ASSERT_EQ(refused ? number4 : number4 + offset, model::ipv4Number(out));
        }
    }
}

TEST(IpAddressZoneName, HookOfTheLibraryReturnsZeroAndWritesNothing)
{
    GuardedBytes text(16);
    EXPECT_EQ(0, ip("fe80::1").getIfNameFromIfIndexDD(1, text.text(), text.size()));
    EXPECT_TRUE(text.untouched());
}
