// The built daemon while its surroundings fail: descriptors are out, a client never reads, its own are closed at the
// start, its socket's file is removed.
#include "daemon_fixture.h"

#include "harness/instrumented.h"

#include <gmock/gmock.h>

#include <set>
#include <sys/resource.h>

using testing::HasSubstr;

namespace
{
constexpr const char *fourPorts = R"({"slots": [{"slot": 1, "ports": 4, "prefix": "ge"}]})";

class DaemonFaults : public DaemonFixture
{
protected:
    void startFourPorts()
    {
        startChassis(fourPorts);
        ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    }

    std::string descriptor(int number) const
    {
        std::error_code none;
        return std::filesystem::read_symlink(descriptorsFolder() / std::to_string(number), none);
    }
    std::filesystem::path descriptorsFolder() const
    {
        return "/proc/" + std::to_string(daemon->id()) + "/fd";
    }
    // From now on the daemon gets no more than `count` descriptors.
    void leaveDescriptors(int count) const
    {
        std::set<int> used;
        for (const auto &entry : std::filesystem::directory_iterator(descriptorsFolder()))
            used.insert(std::stoi(entry.path().filename()));
        rlim_t end = 0;
        for (int left = count; left > 0 || used.contains(static_cast<int>(end)); ++end)
            left -= used.contains(static_cast<int>(end)) ? 0 : 1;
        const rlimit limit = {end, end};
        ASSERT_EQ(0, prlimit(daemon->id(), RLIMIT_NOFILE, &limit, nullptr)) << strerror(errno);
    }
};
} // namespace

TEST_F(DaemonFaults, WithoutDescriptorsClientsWaitAndNoneIsLost)
{
    if (UnderAddressSanitizer)
        GTEST_SKIP()
            << "SKIPPED: the sanitizers look at an object's type through a pipe, for which nothing is left here";
    startFourPorts();
    ASSERT_NO_FATAL_FAILURE(leaveDescriptors(2));
    std::vector<std::unique_ptr<ConsoleClient>> clients;
    for (int i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        clients.back()->say("show queues\n");
    }
    // What the commands themselves need is missing as well, and that is said.
    EXPECT_EQ("error: no descriptor is free for it\n", clients[0]->hear(36));
    for (auto &client : clients) {
        client->say("show port 1\n");
        client->finish();
        EXPECT_TRUE(client->hearAll().ends_with("\nok\n"));
        client.reset(); // its place is the next one's
    }
    EXPECT_EQ(0, stop()) << daemon->err();
}

TEST_F(DaemonFaults, ClientThatNeverReadsCostsTheOthersNothing)
{
    startChassis(R"({"slots": [{"slot": 1, "ports": 48, "prefix": "ge"}], "events": [
                     {"at": 100, "do": "cycle", "port": "1/7", "times": 200, "every": 1}]})",
                 {"--max-delay", "0"});
    const ConsoleClient stuck(socket);
    for (int i = 0; i < 400; ++i) // the answers are more than a socket holds
        ASSERT_TRUE(stuck.say("show map\n"));
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(ask("show map").ends_with("ports dumped\nok\n"));
    EXPECT_TRUE(statReaches("portsRemoved", 200));
    EXPECT_EQ(0u, stat("linesLost"));
    EXPECT_EQ(0, stop()) << daemon->err();
    EXPECT_THAT(daemon->out(), HasSubstr("ge1/7"));
}

// A socket that took the number of standard output would carry what is printed to a client.
TEST_F(DaemonFaults, StandardDescriptorsThatAreClosedAtTheStartAreOpenedOnNothing)
{
    for (const std::vector<int> &closed : {std::vector{0, 1, 2}, std::vector{1}, std::vector{0, 2}}) {
        daemon = std::make_unique<Process>(
            KEL_PORTD, std::vector<std::string>{"--topology", topology(fourPorts), "--socket", socket}, [&closed] {
                for (const int number : closed)
                    close(number);
            });
        ASSERT_TRUE(eventually("show stats", "linesPrinted +[4-9]"));
        for (const int number : closed)
            EXPECT_EQ("/dev/null", descriptor(number)) << number;
        EXPECT_THAT(ask("show queues"), HasSubstr("Queue Size"));
        daemon->signal(SIGTERM);
        EXPECT_EQ(0, daemon->wait());
    }
}

TEST_F(DaemonFaults, RemovedSocketFileKeepsTheSessionsAndTheSuccessorsSocketIsLeftAlone)
{
    startFourPorts();
    const ConsoleClient inside(socket);
    inside.say("show vlans\n");
    const std::string answer = inside.hear(ask("show vlans").size());
    EXPECT_TRUE(answer.ends_with("ok\n"));
    ASSERT_TRUE(std::filesystem::remove(socket));
    inside.say("show vlans\n");
    EXPECT_EQ(answer, inside.hear(answer.size())) << "who is connected is served on";
    const std::unique_ptr<Process> first = std::move(daemon);
    startFourPorts(); // another daemon takes the free path
    first->signal(SIGTERM);
    EXPECT_EQ(0, first->wait()) << first->err();
    EXPECT_THAT(ask("show ports"), HasSubstr("ge1/4")) << "the path is not the first one's any more";
    EXPECT_EQ(0, stop()) << daemon->err();
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST_F(DaemonFaults, RemovedSocketFileIsNoReasonToEndOtherwiseThanAsked)
{
    startFourPorts();
    ASSERT_TRUE(std::filesystem::remove(socket));
    EXPECT_EQ(0, stop()) << daemon->err();
}
