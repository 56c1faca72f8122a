#include "ipaddr.h"

#include "models/ip_address_model.h"

#include <gtest/gtest.h>

#include <random>

using model::ip;
using model::ipv4;
using model::ipv6;
using model::uint128;

namespace
{
constexpr unsigned char Mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint64_t MacIdentifier = 0x021122FFFE334455;

uint128 random128(std::mt19937_64 &random)
{
    return uint128{random()} << 64 | random();
}

// The number with its last `hostBits` (at most 64) bits taken from `identifier`.
uint128 spliced(uint128 number, uint64_t identifier, unsigned prefixLen)
{
    const unsigned hostBits = prefixLen < 64 ? 64 : 128 - prefixLen;
    const uint64_t mask = hostBits == 0 ? 0 : ~uint64_t{0} >> (64 - hostBits);
    return (number & ~uint128{mask}) | (identifier & mask);
}

::testing::AssertionResult same(const CIpAddress &a, const CIpAddress &b)
{
    if (memcmp(&a, &b, sizeof a) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << model::textOf(a) << " and " << model::textOf(b);
}
} // namespace

TEST(IpAddressLinkLocal, MacGivesItsModifiedEui64AndTheZone)
{
    CIpAddress address;
    EXPECT_EQ(0, address.makeIpv6LinkLocal(Mac, 3));
    EXPECT_EQ("fe80::211:22ff:fe33:4455", model::textOf(address));
    EXPECT_EQ(3U, address.scopeId);
    EXPECT_TRUE(address.ipAddrIsIPv6LinkLocalAddress());
}

TEST(IpAddressLinkLocal, WhateverWasThereIsGone)
{
    CIpAddress address = ip("10.1.2.3");
    address.port = 8;
    memset(address.ipv6, 0xEE, sizeof address.ipv6);
    EXPECT_EQ(0, address.makeIpv6LinkLocal(Mac, 0));
    EXPECT_TRUE(same(ip("fe80::211:22ff:fe33:4455"), address));
}

TEST(IpAddressLinkLocal, NullMacChangesNothing)
{
    CIpAddress address = ip("10.1.2.3");
    EXPECT_EQ(1, address.makeIpv6LinkLocal(nullptr, 3));
    EXPECT_TRUE(same(ip("10.1.2.3"), address));
}

TEST(IpAddressSolicitedNode, LowTwentyFourBitsAreKept)
{
    CIpAddress address = ip("2001:db8::1:2345:6789", 7);
    EXPECT_EQ(0, address.makeSolicitedNodeAddress(0));
    EXPECT_EQ("ff02::1:ff45:6789", model::textOf(address));
    EXPECT_EQ(0U, address.scopeId);
    EXPECT_TRUE(address.ipAddrIsIPv6SolicitedNodeAddress());
    EXPECT_EQ(0, address.makeSolicitedNodeAddress(12));
    EXPECT_EQ(12U, address.scopeId);
}

TEST(IpAddressSolicitedNode, OnlyIpv6)
{
    for (CIpAddress address : {ip("10.1.2.3"), CIpAddress()}) {
        const CIpAddress before = address;
        EXPECT_EQ(1, address.makeSolicitedNodeAddress(3));
        EXPECT_TRUE(same(before, address));
    }
}

TEST(IpAddressEui64, RefusesLongPrefixesNullMacAndOtherFamilies)
{
    CIpAddress address = ip("2001:db8::");
    EXPECT_EQ(1, address.addIpv6EUI64(Mac, 129));
    EXPECT_EQ(1, address.addIpv6EUI64(Mac, 0xFFFFFFFF));
    EXPECT_EQ(1, address.addIpv6EUI64(nullptr, 64));
    EXPECT_EQ(1, address.addIpv6EUI64(ip("::1"), 129));
    EXPECT_TRUE(same(ip("2001:db8::"), address));
    for (CIpAddress other : {ip("10.1.2.3"), CIpAddress()}) {
        const CIpAddress before = other;
        EXPECT_EQ(1, other.addIpv6EUI64(Mac, 64));
        EXPECT_EQ(1, other.addIpv6EUI64(ip("::1"), 64));
        EXPECT_TRUE(same(before, other));
    }
}

TEST(IpAddressEui64, UniversalLocalBitIsFlippedBothWays)
{
    const unsigned char local[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    CIpAddress address = ip("2001:db8::");
    EXPECT_EQ(0, address.addIpv6EUI64(local, 64));
    EXPECT_EQ("2001:db8::11:22ff:fe33:4455", model::textOf(address));
}

TEST(IpAddressEui64, PrefixOf124ChangesTheLowFourBitsOfTheLastByteAlone)
{
    CIpAddress address = ip("2001:db8::ffff:ffff:ffff:ffff");
    EXPECT_EQ(0, address.addIpv6EUI64(Mac, 124));
    EXPECT_EQ("2001:db8::ffff:ffff:ffff:fff5", model::textOf(address));
}

TEST(IpAddressEui64, PrefixOf128ChangesNothing)
{
    CIpAddress address = ip("2001:db8::1");
    EXPECT_EQ(0, address.addIpv6EUI64(Mac, 128));
    EXPECT_TRUE(same(ip("2001:db8::1"), address));
}

// Includes every prefix that is no whole number of bytes.
TEST(IpAddressEui64, EveryPrefixTakesExactlyItsHostBits)
{
    std::mt19937_64 random(33);
    for (unsigned prefixLen = 0; prefixLen <= 128; prefixLen++) {
        for (uint128 number : {uint128{0}, ~uint128{0}, random128(random)}) {
            CIpAddress address = ipv6(number, 5);
            ASSERT_EQ(0, address.addIpv6EUI64(Mac, prefixLen));
            ASSERT_TRUE(same(ipv6(spliced(number, MacIdentifier, prefixLen), 5), address)) << prefixLen;

            const uint64_t identifier = random();
            address = ipv6(number, 5);
            ASSERT_EQ(0, address.addIpv6EUI64(ipv6(identifier), prefixLen));
            ASSERT_TRUE(same(ipv6(spliced(number, identifier, prefixLen), 5), address)) << prefixLen;
        }
    }
}

TEST(IpAddressEui64, IdentifierOfAnotherAddressIsTakenUnchangedWhateverItsFamily)
{
    CIpAddress from = ip("::0011:2233:4455:6677");
    from.family = 77;
    CIpAddress address = ip("2001:db8::");
    EXPECT_EQ(0, address.addIpv6EUI64(from, 64));
    EXPECT_EQ("2001:db8::11:2233:4455:6677", model::textOf(address));
    EXPECT_EQ(0, address.addIpv6EUI64(address, 64));
    EXPECT_EQ("2001:db8::11:2233:4455:6677", model::textOf(address));
}

TEST(IpAddressPrefix, EmptyAddressAndLengthsAboveTheWidthFail)
{
    CIpAddress empty;
    EXPECT_EQ(1, empty.makePrefixFromLen(0));
    CIpAddress v4 = ip("255.255.255.255");
    EXPECT_EQ(1, v4.makePrefixFromLen(33));
    EXPECT_EQ(1, v4.makePrefixFromLen(128));
    EXPECT_TRUE(same(ip("255.255.255.255"), v4));
    CIpAddress v6 = ip("::1");
    EXPECT_EQ(1, v6.makePrefixFromLen(129));
    EXPECT_EQ(1, v6.makePrefixFromLen(0xFFFFFFFF));
    EXPECT_TRUE(same(ip("::1"), v6));
}

TEST(IpAddressPrefix, EveryLengthKeepsExactlyItsBits)
{
    std::mt19937_64 random(34);
    for (unsigned len = 0; len <= 128; len++) {
        for (uint128 number : {~uint128{0}, random128(random)}) {
            CIpAddress address = ipv6(number, 9);
            address.ipv4OrFlowInfo = 0xFFFFFFFF;
            CIpAddress expected = ipv6(model::prefix(number, len, 128), 9);
            expected.ipv4OrFlowInfo = 0xFFFFFFFF;
            ASSERT_EQ(0, address.makePrefixFromLen(len));
            ASSERT_TRUE(same(expected, address)) << len;
        }
    }
    for (unsigned len = 0; len <= 32; len++) {
        const uint32_t number = static_cast<uint32_t>(random()) | 0x80000001;
        CIpAddress address = ipv4(number);
        memset(address.ipv6, 0xEE, sizeof address.ipv6);
        CIpAddress expected = address;
        expected.ipv4OrFlowInfo = htonl(static_cast<uint32_t>(model::prefix(number, len, 32)));
        ASSERT_EQ(0, address.makePrefixFromLen(len));
        ASSERT_TRUE(same(expected, address)) << len;
    }
}

TEST(IpAddressPrefix, UnknownFamilyIsMaskedLikeIpv6)
{
    CIpAddress address = ip("ffff:ffff::");
    address.family = 77;
    CIpAddress expected = ip("ffff:8000::");
    expected.family = 77;
    EXPECT_EQ(0, address.makePrefixFromLen(17));
    EXPECT_TRUE(same(expected, address));
    EXPECT_EQ(0, address.makePrefixFromLen(128));
    EXPECT_TRUE(same(expected, address));
    EXPECT_EQ(1, address.makePrefixFromLen(129));
}

// The comparisons above must be able to fail.
TEST(IpAddressPrefix, ModelNoticesABitThatIsLeft)
{
    CIpAddress address = ip("2001:db8::1");
    EXPECT_EQ(0, address.makePrefixFromLen(64));
    address.ipv6[8] |= 0x80;
    EXPECT_FALSE(same(ipv6(model::prefix(model::ipv6Number(ip("2001:db8::1")), 64, 128)), address));
}
