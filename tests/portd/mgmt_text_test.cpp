#include "mgmt_text.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <ctime>

namespace
{
kelStandinAddress address(const char *text, int family, uint8_t prefixLength)
{
    kelStandinAddress value = {};
    value.family = static_cast<uint8_t>(family);
    value.prefixLength = prefixLength;
    EXPECT_EQ(1, inet_pton(family, text, value.bytes));
    return value;
}

void useZone(const char *zone)
{
    setenv("TZ", zone, 1);
    tzset();
}
} // namespace

TEST(AddressText, HasTheAddressAndItsPrefixLength)
{
    EXPECT_EQ("192.0.2.1/24", addressText(address("192.0.2.1", AF_INET, 24)));
    EXPECT_EQ("2001:db8::1/64", addressText(address("2001:db8::1", AF_INET6, 64)));
    EXPECT_EQ("fe80::211:22ff:fe33:4455/10", addressText(address("fe80::211:22ff:fe33:4455", AF_INET6, 10)));
    EXPECT_EQ("0.0.0.0/0", addressText(address("0.0.0.0", AF_INET, 0)));
}

TEST(AddressText, OfAnotherFamilyIsEmpty)
{
    kelStandinAddress unknown = {};
    EXPECT_EQ("", addressText(unknown));
    unknown.family = AF_UNIX;
    EXPECT_EQ("", addressText(unknown));
}

TEST(DateAndTimeText, IsLocalTimeWithItsOffset)
{
    constexpr int64_t moment = 1'234'567'890'123'456'789; // 2009-02-13 23:31:30 UTC
    useZone("UTC");
    EXPECT_EQ("2009-2-13,23:31:30.0,+0:0", dateAndTimeText(moment));
    useZone("XST-5:30"); // five and a half hours east
    EXPECT_EQ("2009-2-14,5:1:30.0,+5:30", dateAndTimeText(moment));
    useZone("XST8"); // eight hours west
    EXPECT_EQ("2009-2-13,15:31:30.0,-8:0", dateAndTimeText(moment));
    useZone("UTC");
    EXPECT_EQ("1970-1-1,0:0:0.0,+0:0", dateAndTimeText(0));
}

TEST(IfTableOidText, EndsWithTheIfIndex)
{
    EXPECT_EQ("1.3.6.1.2.1.2.2.1.1.1001", ifTableOidText(1001));
    EXPECT_EQ("1.3.6.1.2.1.2.2.1.1.4294967295", ifTableOidText(4294967295));
}
