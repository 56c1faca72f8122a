// CLI sessions: texts reach their reader, and no reader can hold up or end the process.
#include "standin_fixture.h"

#include "harness/time_of.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{
// A session on one end of a stream socket; the test reads the other.
class CliSession : public EmptyStandin
{
protected:
    CliSession()
    {
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        session = kelStandinOpenSession(ends[0]);
        EXPECT_GT(session, 0);
    }

    ~CliSession() override
    {
        kelStandinCloseSession(session);
        close(ends[0]);
        hangUp();
    }

    void hangUp()
    {
        if (ends[1] >= 0)
            close(ends[1]);
        ends[1] = -1;
    }

    // What the reader can read now, without waiting.
    std::string read(std::size_t most = 1 << 20) const
    {
        std::string text(most, '\0');
        const ssize_t length = recv(ends[1], text.data(), text.size(), MSG_DONTWAIT);
        text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        return text;
    }

    int ends[2] = {-1, -1};
    int session = 0;
};
} // namespace

TEST_F(CliSession, TextsArriveInOrder)
{
    EXPECT_EQ(0, cmNotifyCLI(session, "one\n"));
    EXPECT_EQ(0, cmNotifyCLI(session, ""));
    EXPECT_EQ(0, cmNotifyCLI(session, "two\n"));
    EXPECT_EQ("one\ntwo\n", read());
    EXPECT_EQ(0, kelStandinFlushSession(session));
}

TEST_F(CliSession, ReaderThatHungUpMakesTheSessionDeadAndKillsNobody)
{
    signal(SIGPIPE, SIG_DFL);
    hangUp();
    EXPECT_EQ(-1, cmNotifyCLI(session, "to nobody"));
    EXPECT_EQ(-1, kelStandinFlushSession(session));
    EXPECT_EQ(-1, cmNotifyCLI(session, "again"));
    EXPECT_EQ(0, kelStandinCloseSession(session));
}

TEST_F(CliSession, SlowReaderGetsEverythingLater)
{
    std::string sent;
    while (kelStandinFlushSession(session) == 0) {
        const std::string line = "line " + std::to_string(sent.size()) + "\n";
        ASSERT_EQ(0, cmNotifyCLI(session, line.c_str()));
        sent += line;
    }
    for (int more = 0; more < 100; ++more) {
        ASSERT_EQ(0, cmNotifyCLI(session, "more\n"));
        sent += "more\n";
    }
    std::string received = read(1000);
    while (kelStandinFlushSession(session) > 0)
        received += read(1000);
    received += read();
    EXPECT_EQ(sent, received);
}

TEST_F(CliSession, ReaderThatIsTooFarBehindMakesTheSessionDeadWithoutWaiting)
{
    const std::string kilobyte(1024, 'x');
    const auto taken = timeOf([&] {
        int texts = 0;
        while (cmNotifyCLI(session, kilobyte.c_str()) == 0)
            ASSERT_LT(++texts, 100000) << "the backlog has no end";
        EXPECT_GT(texts, KEL_STANDIN_SESSION_BACKLOG / 1024);
    });
    EXPECT_LT(taken, 10s);
    EXPECT_EQ(-1, kelStandinFlushSession(session));
    read();
    EXPECT_EQ(-1, cmNotifyCLI(session, "x")) << "a dead session stays dead";
}

TEST_F(CliSession, TextLargerThanTheBacklogMakesTheSessionDead)
{
    const std::string huge(4 << 20, 'x');
    EXPECT_EQ(-1, cmNotifyCLI(session, huge.c_str()));
    EXPECT_EQ(-1, kelStandinFlushSession(session));
}

TEST_F(CliSession, ClosedHandleReachesNobodyNotEvenTheNextSession)
{
    EXPECT_EQ(0, kelStandinCloseSession(session));
    EXPECT_EQ(ENOENT, kelStandinCloseSession(session));
    const int next = kelStandinOpenSession(ends[0]);
    EXPECT_NE(session, next);
    EXPECT_EQ(-1, cmNotifyCLI(session, "late"));
    EXPECT_EQ(-2, kelStandinFlushSession(session));
    EXPECT_EQ(0, cmNotifyCLI(next, "in time"));
    EXPECT_EQ("in time", read());
    kelStandinCloseSession(next);
}

TEST_F(CliSession, UnknownHandlesAndNoTextAreRefused)
{
    for (const int handle : {0, -1, 1, 0x7FFFFFFF}) {
        EXPECT_EQ(-1, cmNotifyCLI(handle, "text"));
        EXPECT_EQ(-2, kelStandinFlushSession(handle));
        EXPECT_EQ(ENOENT, kelStandinCloseSession(handle));
    }
    EXPECT_EQ(-1, cmNotifyCLI(session, nullptr));
}

TEST_F(CliSession, OnlySocketsBecomeSessions)
{
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    EXPECT_EQ(0, kelStandinOpenSession(pipes[1]));
    EXPECT_EQ(0, kelStandinOpenSession(-1));
    EXPECT_EQ(0, kelStandinOpenSink(nullptr, nullptr));
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(CliSession, HandlesDifferUpToTheLastPlace)
{
    std::set<int> handles{session};
    int last = 0;
    while ((last = kelStandinOpenSession(ends[0])) != 0)
        EXPECT_TRUE(handles.insert(last).second);
    EXPECT_EQ(static_cast<std::size_t>(KEL_STANDIN_MAX_SESSIONS), handles.size());
    EXPECT_EQ(0, kelStandinCloseSession(*handles.begin()));
    EXPECT_NE(0, kelStandinOpenSession(ends[0]));
}

TEST_F(CliSession, SinkGetsTheTextsUntilItRefuses)
{
    struct Sink {
        std::string text;
        int result = 0;
    } sink;
    const int handle = kelStandinOpenSink(
        [](void *user, const char *text, size_t length) {
            auto &it = *static_cast<Sink *>(user);
            it.text.append(text, length);
            return it.result;
        },
        &sink);
    EXPECT_EQ(0, cmNotifyCLI(handle, "one "));
    sink.result = 1;
    EXPECT_EQ(-1, cmNotifyCLI(handle, "two"));
    EXPECT_EQ(-1, cmNotifyCLI(handle, "three"));
    EXPECT_EQ("one two", sink.text);
    EXPECT_EQ(-1, kelStandinFlushSession(handle));
    EXPECT_EQ(0, kelStandinCloseSession(handle));
}

// A connection that is closed and opened again must not get the texts of the one before.
TEST_F(CliSession, SessionsCanBeClosedWhileOthersWriteToThem)
{
    std::atomic<int> current{session};
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 2; ++writer)
        writers.emplace_back([&] {
            while (!stop) {
                cmNotifyCLI(current, "text ");
                std::this_thread::yield(); // a lock that is asked for again at once is not fair to the closer
            }
        });
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(0, kelStandinCloseSession(current));
        current = kelStandinOpenSession(ends[0]);
        ASSERT_NE(0, current);
        read();
    }
    stop = true;
    for (std::thread &writer : writers)
        writer.join();
    kelStandinCloseSession(current);
}
