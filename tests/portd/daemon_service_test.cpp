// The built kel-portd as a service: what the manager that started it hears.
#include "daemon_fixture.h"
#include "notify_socket.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace
{
constexpr const char *twoPorts = R"({"slots": [{"slot": 1, "ports": 2, "prefix": "ge"}]})";

class Service : public DaemonFixture
{
protected:
    Service() : manager("@kel-service-test-" + std::to_string(getpid()))
    {
        setenv("NOTIFY_SOCKET", manager.address.c_str(), 1);
    }
    ~Service() override
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
    }

    NotifySocket manager;
};
} // namespace

TEST_F(Service, IsReadyWhenItsConsoleAnswersAndSaysThatItStops)
{
    startChassis(twoPorts);
    EXPECT_EQ("READY=1", manager.next());
    EXPECT_THAT(ask("show ports"), testing::HasSubstr("ge1/2"));
    EXPECT_EQ(0, stop());
    EXPECT_EQ("STOPPING=1", manager.next());
    EXPECT_EQ("", manager.next(0)); // nobody asked it to say that it is alive
}

// No port changes; that the main task wakes at all is the watchdog's doing.
TEST_F(Service, SaysThatItIsAliveAsOftenAsTheManagerWants)
{
    setenv("WATCHDOG_USEC", "400000", 1);
    startChassis(twoPorts);
    EXPECT_EQ("READY=1", manager.next());
    const auto took = timeOf([this] {
        for (int times = 0; times < 4; ++times)
            EXPECT_EQ("WATCHDOG=1", manager.next());
    });
    EXPECT_GE(took, 250ms); // the first may come at once, the others are 100 ms apart at least
    EXPECT_EQ(0, stop());
    EXPECT_TRUE(manager.comes("STOPPING=1"));
}

// The watchdog wakes the main task between the two changes, which is no reason to take the first one early.
TEST_F(Service, WatchingDoesNotCutABatchInTwo)
{
    setenv("WATCHDOG_USEC", "20000", 1);
    startChassis(R"({"slots": [{"slot": 1, "ports": 2, "prefix": "ge"}], "events": [
        {"at": 2000, "do": "up", "port": "1/1"}, {"at": 2200, "do": "up", "port": "1/2"}]})",
                 {"--max-delay", "100", "--threshold", "100"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/2     link up"));
    EXPECT_EQ(0, stop());
    const std::vector<std::string> lines = changeLines(daemon->out());
    EXPECT_THAT(lines, testing::Contains("2 1 1001 1 0x00010001 ge1/1 link up"));
    EXPECT_THAT(lines, testing::Contains("2 2 1002 2 0x00010002 ge1/2 link up"));
}

TEST_F(Service, OneThatCannotStartIsNeverReady)
{
    daemon = std::make_unique<Process>(
        KEL_PORTD, std::vector<std::string>{"--topology", topology(twoPorts), "--socket", folder + "/no/such/folder"});
    EXPECT_EQ(1, daemon->wait());
    EXPECT_EQ("", manager.next(0));
}
