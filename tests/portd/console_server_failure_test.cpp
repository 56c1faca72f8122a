// The console's server while no connection can be accepted: the thread must rest between two attempts, go on serving
// those who are connected, and let the waiting ones in when descriptors are free again.
#include "console_server.h"

#include "console_client.h"
#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

std::atomic<int> failWith{0}; // errno; 0: accept
std::atomic<int> failures{0};
std::atomic<Clock::time_point> firstFailure, lastFailure;

Reply echo(const std::string &request)
{
    return {request + '\n', ""};
}
} // namespace

// The server's accept comes here.
extern "C" int accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    if (failWith == 0)
        return static_cast<int>(syscall(SYS_accept4, fd, address, length, flags));
    lastFailure = Clock::now();
    if (failures++ == 0)
        firstFailure = lastFailure.load();
    errno = failWith;
    return -1;
}

TEST(ConsoleServerFailure, ThreadRestsWhileDescriptorsAreOutAndThenLetsTheWaitingIn)
{
    char folder[] = "/tmp/kel-console-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder));
    const std::string path = std::string(folder) + "/console";
    ConsoleCounters counters;
    ConsoleServer server(path, echo, counters);
    ASSERT_EQ("", server.open());
    server.start();
    for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
        const ConsoleClient inside(path);
        inside.say("a\n");
        ASSERT_EQ("a\nok\n", inside.hear(5));
        failures = 0;
        failWith = error;
        const ConsoleClient waiting(path);
        waiting.say("b\n");
        const auto hang = Clock::now() + 60s;
        while (failures < 4 && Clock::now() < hang)
            std::this_thread::yield();
        EXPECT_GE(failures, 4) << "it must try again by itself";
        EXPECT_GE(lastFailure.load() - firstFailure.load(), 297ms) << "three rests of 100 ms; 3 ms for the two clocks";
        inside.say("c\n");
        EXPECT_EQ("c\nok\n", inside.hear(5)) << "who is in is served";
        failWith = 0;
        EXPECT_EQ("b\nok\n", waiting.hear(5)) << "who waits is not lost";
    }
    server.stop();
    EXPECT_EQ(0, rmdir(folder));
}
