// The status responder on a host with several addresses: each answer must come from the address that was asked.
#include "status_responder.h"

#include "private_network.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr uint16_t port = 9161;

// A client with an address of its own. It is connected, so it hears only what comes from the address it asked.
class Client
{
public:
    Client(const std::string &own, const std::string &asked)
    {
        sockaddr_storage local, remote;
        const socklen_t bytes = fill(own, 0, local);
        fill(asked, port, remote);
        fd = socket(local.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&local), bytes)) << own << ": " << strerror(errno);
        EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&remote), bytes))
            << asked << ": " << strerror(errno);
    }
    ~Client()
    {
        close(fd);
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void say(const std::string &text) const
    {
        EXPECT_EQ(ssize_t(text.size()), send(fd, text.data(), text.size(), 0)) << strerror(errno);
    }
    // What is heard within the time, or "(nothing)".
    std::string hear(time_t seconds) const
    {
        const timeval limit = {seconds, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char bytes[512];
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        return count < 0 ? "(nothing)" : std::string(bytes, size_t(count));
    }

private:
    static socklen_t fill(const std::string &text, uint16_t number, sockaddr_storage &address)
    {
        address = {};
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(&address);
        auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&address);
        if (inet_pton(AF_INET, text.c_str(), &ipv4->sin_addr) == 1) {
            ipv4->sin_family = AF_INET;
            ipv4->sin_port = htons(number);
            return sizeof *ipv4;
        }
        address = {};
        EXPECT_EQ(1, inet_pton(AF_INET6, text.c_str(), &ipv6->sin6_addr)) << text;
        ipv6->sin6_family = AF_INET6;
        ipv6->sin6_port = htons(number);
        return sizeof *ipv6;
    }

    int fd;
};

class StatusResponderTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string reason = enterPrivateNetwork(); !reason.empty())
            GTEST_SKIP() << reason;
        ip("link set lo up");
        for (const char *address : {"10.0.0.1/32", "10.0.0.2/32", "10.0.0.3/32", "10.0.0.9/32"})
            ip(std::string("address add ") + address + " dev lo");
        for (const char *address : {"2001:db8::1/128", "2001:db8::2/128", "2001:db8::9/128"})
            ip(std::string("address add ") + address + " dev lo nodad");
    }
    void start(const std::string &endpoint)
    {
        responder.emplace(
            *parseUdpEndpoint(endpoint), [] { return "{\"fine\":true}"; }, counters);
        ASSERT_EQ("", responder->open());
        responder->start();
    }
    // What was counted is complete when the thread has ended.
    Counters &finalCounters()
    {
        responder->stop();
        return counters;
    }
    // Asks from another address than the asked one, so that the kernel's own choice of a source would be wrong.
    void expectAnswer(const std::string &own, const std::string &asked)
    {
        std::string heard = "(nothing)";
        // A socket that was connected while the kernel still set up a new address may have no route for good, so each
        // attempt has a socket of its own.
        for (int attempt = 0; attempt < 20 && heard == "(nothing)"; ++attempt) {
            const Client client(own, asked);
            client.say("status");
            heard = client.hear(1);
        }
        EXPECT_EQ("{\"fine\":true}\n", heard) << own << " asked " << asked;
    }

    Counters counters;
    std::optional<StatusResponder> responder;
};
} // namespace

TEST_F(StatusResponderTest, EveryIpv4AddressAnswersForItself)
{
    start("0.0.0.0:9161");
    for (const char *asked : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
        expectAnswer("10.0.0.9", asked);
    EXPECT_LE(3u, finalCounters().statusAnswered);
}

TEST_F(StatusResponderTest, OneIpv4AddressAnswersAndTheOthersDoNot)
{
    start("10.0.0.2:9161");
    expectAnswer("10.0.0.9", "10.0.0.2");
    const Client other("10.0.0.9", "10.0.0.1");
    other.say("status"); // the kernel refuses it, which the next receive tells
    EXPECT_EQ("(nothing)", other.hear(20));
}

TEST_F(StatusResponderTest, EveryIpv6AddressAnswersForItself)
{
    start("[::]:9161");
    for (const char *asked : {"2001:db8::1", "2001:db8::2", "::1"})
        expectAnswer("2001:db8::9", asked);
}

TEST_F(StatusResponderTest, Ipv4ThroughAnIpv6SocketAnswersFromTheAddressThatWasAsked)
{
    start("[::]:9161");
    for (const char *asked : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
        expectAnswer("10.0.0.9", asked);
        expectAnswer("::ffff:10.0.0.9", "::ffff:" + std::string(asked));
    }
}

TEST_F(StatusResponderTest, OneIpv6AddressAnswers)
{
    start("[2001:db8::2]:9161");
    expectAnswer("2001:db8::9", "2001:db8::2");
}

// Anything that is answered could be another responder's answer.
TEST_F(StatusResponderTest, WhatIsNoRequestIsNotAnswered)
{
    start("10.0.0.1:9161");
    const Client client("10.0.0.9", "10.0.0.1");
    for (const std::string &text : {std::string(), std::string("{\"fine\":true}\n"), std::string("statusx"),
                                    std::string(1400, 's'), std::string("status\0", 7), std::string("\xff\xfe")})
        client.say(text);
    client.say(" status\r\n");
    EXPECT_EQ("{\"fine\":true}\n", client.hear(20)) << "the first and only answer";
    EXPECT_EQ(6u, finalCounters().statusIgnored);
    EXPECT_EQ(1u, finalCounters().statusAnswered);
}

TEST_F(StatusResponderTest, AddressThatIsNotThisHostsIsRefused)
{
    StatusResponder elsewhere(
        *parseUdpEndpoint("192.0.2.1:9161"), [] { return ""; }, counters);
    EXPECT_EQ("status responder 192.0.2.1:9161: Cannot assign requested address", elsewhere.open());
}

TEST_F(StatusResponderTest, PortInUseIsRefused)
{
    start("10.0.0.1:9161");
    StatusResponder second(
        *parseUdpEndpoint("10.0.0.1:9161"), [] { return ""; }, counters);
    EXPECT_EQ("status responder 10.0.0.1:9161: Address already in use", second.open());
}
