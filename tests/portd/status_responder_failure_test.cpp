// The status responder while its socket fails for good: the thread must rest between two attempts, and come back when
// the socket does.
#include "status_responder.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>

namespace
{
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

std::atomic<int> failuresLeft{0};
std::atomic<Clock::time_point> firstFailure, lastFailure;

void failNext(int times)
{
    firstFailure = Clock::time_point();
    failuresLeft = times;
}

class Asker
{
public:
    explicit Asker(uint16_t port)
    {
        sockaddr_in remote{};
        remote.sin_family = AF_INET;
        remote.sin_port = htons(port);
        remote.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&remote), sizeof remote)) << strerror(errno);
        EXPECT_EQ(6, send(fd, "status", 6, 0)) << strerror(errno);
    }
    ~Asker()
    {
        close(fd);
    }
    Asker(const Asker &) = delete;
    Asker &operator=(const Asker &) = delete;

    std::string hear() const
    {
        const timeval limit = {20, 0}; // only against a hang
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char bytes[512];
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        return count < 0 ? "(nothing)" : std::string(bytes, static_cast<size_t>(count));
    }

private:
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};
} // namespace

// The library's receive comes here.
extern "C" ssize_t recvmsg(int fd, msghdr *message, int flags)
{
    if (failuresLeft > 0) {
        --failuresLeft;
        lastFailure = Clock::now();
        if (firstFailure.load() == Clock::time_point())
            firstFailure = lastFailure.load();
        errno = EIO;
        return -1;
    }
    return syscall(SYS_recvmsg, fd, message, flags);
}

TEST(StatusResponderFailure, ThreadRestsBetweenAttemptsAndThenAnswers)
{
    constexpr uint16_t port = 39161;
    Counters counters;
    StatusResponder responder(
        *parseUdpEndpoint("127.0.0.1:39161"), [] { return "{}"; }, counters);
    ASSERT_EQ("", responder.open());
    failNext(4);
    responder.start();
    const Asker asker(port);
    EXPECT_EQ("{}\n", asker.hear());
    EXPECT_EQ(0, failuresLeft);
    EXPECT_GE(lastFailure.load() - firstFailure.load(), 297ms); // three rests of 100 ms; 3 ms for the two clocks
    responder.stop();
    EXPECT_EQ(1u, counters.statusAnswered);
}

TEST(StatusResponderFailure, RestEndsWhenTheResponderIsStopped)
{
    Counters counters;
    StatusResponder responder(
        *parseUdpEndpoint("127.0.0.1:39162"), [] { return "{}"; }, counters);
    ASSERT_EQ("", responder.open());
    failNext(1000000);
    responder.start();
    const Asker asker(39162);
    while (firstFailure.load() == Clock::time_point())
        std::this_thread::yield();
    responder.stop(); // must not hang
    EXPECT_GT(failuresLeft, 0);
    failuresLeft = 0;
}
