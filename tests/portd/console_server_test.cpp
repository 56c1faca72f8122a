// The console's server in this process, with commands of its own: everything a client can do to it.
#include "console_server.h"

#include "console_client.h"
#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr size_t bigBytes = 4 << 20; // more than any socket buffer

constexpr size_t muchBytes = 512 << 10; // as well, where nobody has changed the kernel's default

// "big" and "much" answer with much text, "fail" with an error, everything else with itself.
Reply answer(const std::string &request)
{
    if (request == "big")
        return {std::string(bigBytes, 'x') + '\n', ""};
    if (request == "much")
        return {std::string(muchBytes, 'x') + '\n', ""};
    if (request == "fail")
        return {"", "asked for"};
    return {request + '\n', ""};
}

using Client = ConsoleClient;

class ConsoleServerTest : public testing::Test
{
protected:
    ConsoleServerTest()
    {
        char name[] = "/tmp/kel-console-test-XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/console";
    }
    ~ConsoleServerTest() override
    {
        unlink(path.c_str());
        rmdir(folder.c_str());
    }

    std::string ask(const std::string &request) const
    {
        const Client client(path);
        client.say(request + '\n');
        client.finish();
        return client.hearAll();
    }

    std::string folder;
    std::string path;
    ConsoleCounters unused;
};

// A server that runs for the length of a test.
struct Running {
    explicit Running(const std::string &path, ConsoleSession::Clock::duration stallLimit = 5s)
        : server(path, answer, counters, stallLimit)
    {
        EXPECT_EQ("", server.open());
        server.start();
    }
    ConsoleCounters counters;
    ConsoleServer server;
};
} // namespace

TEST_F(ConsoleServerTest, RequestsOfASessionAreAnsweredInOrder)
{
    Running console(path);
    const Client client(path);
    client.say("one\ntwo\nfail\n");
    EXPECT_EQ("one\nok\ntwo\nok\nerror: asked for\n", client.hear(31));
    client.say("three\n");
    client.finish();
    EXPECT_EQ("three\nok\n", client.hearAll());
    EXPECT_EQ(4u, console.counters.requests);
    EXPECT_EQ(1u, console.counters.errors);
}

TEST(ConsoleSession, NoMoreIsReadUntilAllThatWasReadIsAnswered)
{
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends));
    ConsoleSession session(ends[0], 5s);
    session.serve(0, answer); // nothing has come yet
    ASSERT_EQ(POLLIN, session.wantedEvents());
    ASSERT_EQ(4, send(ends[1], "a\nb\n", 4, 0));
    session.serve(POLLIN, answer); // reads both, answers the first
    for (int left = 2; left > 0; --left) {
        EXPECT_EQ(0, session.wantedEvents());
        EXPECT_TRUE(session.hasWork());
        session.serve(POLLIN, answer);
    }
    EXPECT_EQ(POLLIN, session.wantedEvents());
    EXPECT_FALSE(session.hasWork());
    close(ends[1]);
}

TEST_F(ConsoleServerTest, SessionsAreSideBySide)
{
    Running console(path);
    const Client idle(path);
    const Client half(path);
    half.say("not yet a li");
    EXPECT_EQ("a\nok\n", ask("a"));
    half.say("ne\n");
    EXPECT_EQ("not yet a line\nok\n", half.hear(18));
}

TEST_F(ConsoleServerTest, OneHundredClientsAtOnceAllGetTheirAnswers)
{
    Running console(path);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 100; ++i)
        clients.push_back(std::make_unique<Client>(path));
    for (int i = 0; i < 100; ++i)
        clients[size_t(i)]->say("client " + std::to_string(i) + "\n");
    for (int i = 0; i < 100; ++i) {
        const std::string expected = "client " + std::to_string(i) + "\nok\n";
        EXPECT_EQ(expected, clients[size_t(i)]->hear(expected.size()));
    }
}

// Clients that stay without asking anything lock nobody out.
TEST_F(ConsoleServerTest, OneSessionTooManyTakesThePlaceOfTheOneThatIsIdleLongest)
{
    Running console(path);
    std::vector<std::unique_ptr<Client>> clients;
    const auto expectAnswer = [&clients](size_t i) {
        clients[i]->say("x\n");
        EXPECT_EQ("x\nok\n", clients[i]->hear(5)) << i;
    };
    for (size_t i = 0; i < ConsoleServer::maxSessions; ++i) {
        clients.push_back(std::make_unique<Client>(path));
        expectAnswer(i);
    }
    expectAnswer(0); // it came first, but the second is idle longer now
    clients.push_back(std::make_unique<Client>(path));
    expectAnswer(ConsoleServer::maxSessions);
    EXPECT_EQ("error: too many sessions, at most 200; this one was idle longest\n", clients[1]->hearAll());
    EXPECT_EQ(1u, console.counters.displaced);
    EXPECT_EQ(0u, console.counters.refused);
    for (size_t i = 0; i < clients.size(); ++i)
        if (i != 1)
            expectAnswer(i);
}

TEST_F(ConsoleServerTest, OneSessionTooManyIsRefusedWhileAllOthersAreBeingAnswered)
{
    Running console(path, 3600s);
    std::vector<std::unique_ptr<Client>> clients;
    for (size_t i = 0; i < ConsoleServer::maxSessions; ++i) {
        clients.push_back(std::make_unique<Client>(path));
        clients.back()->say("much\n"); // and takes one byte of it
        ASSERT_EQ("x", clients.back()->hear(1)) << i;
    }
    const Client tooMany(path);
    EXPECT_EQ("error: too many sessions, at most 200\n", tooMany.hearAll());
    EXPECT_EQ(1u, console.counters.refused);
    EXPECT_EQ(0u, console.counters.displaced);
    clients.pop_back();
    // The place is free as soon as the server has seen the close.
    std::string reply;
    do
        reply = ask("again");
    while (reply != "again\nok\n" && reply.starts_with("error: too many"));
    EXPECT_EQ("again\nok\n", reply);
}

TEST_F(ConsoleServerTest, OverlongLineIsRefusedOnceAndTheNextIsAnswered)
{
    Running console(path);
    const Client client(path);
    client.say(std::string(1'000'000, 'a') + "\nnext\n");
    client.finish();
    EXPECT_EQ("error: line longer than 512 bytes, ignored\nnext\nok\n", client.hearAll());
}

// A request that was cut off might mean something else than what arrived of it.
TEST_F(ConsoleServerTest, HalfALineAtTheEndIsRefused)
{
    Running console(path);
    const Client client(path);
    client.say("one\nhalf");
    client.finish();
    EXPECT_EQ("one\nok\nerror: the last line has no end, ignored\n", client.hearAll());
}

TEST_F(ConsoleServerTest, ClientThatVanishesLeavesTheOthersAlone)
{
    Running console(path);
    for (int i = 0; i < 50; ++i) {
        const Client vanishing(path);
        vanishing.say(i % 2 ? "big\nbig\n" : "ha");
    }
    EXPECT_EQ("a\nok\n", ask("a"));
}

TEST_F(ConsoleServerTest, ClientThatStopsReadingIsClosedAndNobodyWaitsForIt)
{
    Running console(path, 300ms);
    const Client stuck(path);
    stuck.say("big\nbig\n");
    EXPECT_LT(timeOf([&] { EXPECT_EQ("a\nok\n", ask("a")); }), 250ms + 5s);
    while (console.counters.stalled == 0)
        EXPECT_EQ("a\nok\n", ask("a"));
    EXPECT_LT(stuck.hearAll().size(), bigBytes); // what the kernel had taken, then the end
}

TEST_F(ConsoleServerTest, SlowReaderGetsTheWholeAnswer)
{
    Running console(path, 5s);
    const Client slow(path);
    slow.say("big\n");
    size_t got = 0;
    while (got < bigBytes + 4) {
        const std::string some = slow.hear(std::min<size_t>(65536, bigBytes + 4 - got));
        ASSERT_FALSE(some.empty());
        got += some.size();
    }
    EXPECT_EQ(bigBytes + 4, got);
}

TEST_F(ConsoleServerTest, BytesThatAreNoTextAreJustBytes)
{
    Running console(path);
    const std::string noise("\0\xff\x1b[2J\xc3\x28", 8);
    EXPECT_EQ(noise + "\nok\n", ask(noise));
}

TEST_F(ConsoleServerTest, PathInUseIsRefused)
{
    Running console(path);
    ConsoleServer second(path, answer, unused);
    EXPECT_EQ("console socket " + path + ": in use by another process, or not a socket", second.open());
    EXPECT_EQ("a\nok\n", ask("a"));
}

// The refused one must not take the other's socket with it.
TEST_F(ConsoleServerTest, RefusedServerLeavesTheSocketOfTheOther)
{
    Running console(path);
    {
        ConsoleServer second(path, answer, unused);
        EXPECT_NE("", second.open());
    }
    EXPECT_EQ("a\nok\n", ask("a"));
}

TEST_F(ConsoleServerTest, SocketThatNobodyListensOnIsReplaced)
{
    sockaddr_un address;
    std::string reason;
    const int dead = unixSocket(path, address, reason);
    ASSERT_EQ(0, bind(dead, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    close(dead);
    Running console(path);
    EXPECT_EQ("a\nok\n", ask("a"));
}

TEST_F(ConsoleServerTest, FileThatIsNoSocketIsLeftAlone)
{
    std::ofstream(path) << "precious";
    ConsoleServer console(path, answer, unused);
    EXPECT_NE("", console.open());
    console.stop();
    std::string text;
    std::ifstream(path) >> text;
    EXPECT_EQ("precious", text);
}

TEST_F(ConsoleServerTest, FolderThatIsMissingIsNamed)
{
    ConsoleServer console(folder + "/nowhere/console", answer, unused);
    EXPECT_EQ("console socket " + folder + "/nowhere/console: No such file or directory", console.open());
}

TEST_F(ConsoleServerTest, OnlyTheOwnerMayConnect)
{
    Running console(path);
    struct stat file;
    ASSERT_EQ(0, stat(path.c_str(), &file));
    EXPECT_EQ(0600u, file.st_mode & 0777);
}

TEST_F(ConsoleServerTest, StopClosesTheSessionsAndRemovesTheSocket)
{
    auto console = std::make_unique<Running>(path);
    const Client idle(path);
    const Client busy(path);
    busy.say("big\n");
    EXPECT_EQ("x", busy.hear(1));
    console.reset();
    EXPECT_EQ("", idle.hearAll());
    EXPECT_LT(busy.hearAll().size(), bigBytes);
    struct stat file;
    EXPECT_NE(0, stat(path.c_str(), &file));
}
