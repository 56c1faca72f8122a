#include "udp_endpoint.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

TEST(UdpEndpoint, TakesBothFamilies)
{
    const auto ipv4 = parseUdpEndpoint("192.0.2.1:9161");
    ASSERT_TRUE(ipv4);
    EXPECT_EQ(AF_INET, ipv4->address.family);
    EXPECT_EQ(9161, ipv4->port);
    EXPECT_EQ("192.0.2.1:9161", ipv4->text);
    const auto ipv6 = parseUdpEndpoint("[2001:db8::1]:65535");
    ASSERT_TRUE(ipv6);
    EXPECT_EQ(AF_INET6, ipv6->address.family);
    EXPECT_EQ(65535, ipv6->port);
    EXPECT_TRUE(parseUdpEndpoint("0.0.0.0:1"));
    EXPECT_TRUE(parseUdpEndpoint("[::]:1"));
}

TEST(UdpEndpoint, TakesTheZoneOfALinkLocalAddress)
{
    const auto endpoint = parseUdpEndpoint("[fe80::1%1]:9161");
    ASSERT_TRUE(endpoint);
    EXPECT_EQ(1u, endpoint->address.scopeId);
}

TEST(UdpEndpoint, RefusesEverythingElse)
{
    for (const char *text :
         {"", ":", "9161", ":9161", "192.0.2.1", "192.0.2.1:", "192.0.2.1:0", "192.0.2.1:65536", "192.0.2.1:-1",
          "192.0.2.1:9161x", "192.0.2.256:9161", "2001:db8::1:9161", "[192.0.2.1]:9161", "[2001:db8::1]", "[]:9161",
          "localhost:9161", "[2001:db8::1:9161", "2001:db8::1]:9161"})
        EXPECT_FALSE(parseUdpEndpoint(text)) << text;
}
