// The platform's thread of a simulated chassis, and its clock of events.
#include "standin_fixture.h"

#include "harness/time_of.h"
#include "small_chassis.h"

#include "topology_provider.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
constexpr auto hang = std::chrono::milliseconds(60000);

using TopologyProvider = EmptyStandin;
} // namespace

TEST_F(TopologyProvider, ChassisIsThereWhenItHasStarted)
{
    kel::TopologyProvider provider(chassisWith(""));
    EXPECT_FALSE(provider.waitForEnd(std::chrono::milliseconds(0))) << "not started";
    provider.start();
    provider.start();
    EXPECT_EQ(3u, allPorts().size());
    EXPECT_TRUE(provider.waitForEnd(hang));
    provider.stop();
    provider.stop();
    EXPECT_EQ(3u, allPorts().size()) << "stopping leaves the inventory as it is";
}

TEST_F(TopologyProvider, EventsComeInTheOrderOfTheirTimeThenOfTheFile)
{
    Heard heard;
    kel::TopologyProvider provider(chassisWith(R"(
        {"at": 30, "do": "remove", "port": "1/3"},
        {"at": 0, "do": "add", "port": "1/3"},
        {"at": 0, "do": "flap", "port": "1/3", "times": 2},
        {"at": 10, "do": "down", "port": "1/3"})"));
    const auto played = timeOf([&] {
        provider.start();
        EXPECT_TRUE(provider.waitForEnd(hang));
    });
    EXPECT_GE(played, 29ms) << "an event came early";
    const std::vector<std::string> expected{"+1/1",     "1/1 up", "+1/2",     "+256/1", "256/1 up", "+1/3", "1/3 up",
                                            "1/3 down", "1/3 up", "1/3 down", "1/3 up", "1/3 down", "-1/3"};
    EXPECT_EQ(expected, heard.take());
}

TEST_F(TopologyProvider, RepeatedEventsInterleaveByTheirTimes)
{
    Heard heard;
    kel::TopologyProvider provider(chassisWith(R"(
        {"at": 10, "do": "cycle", "port": "1/2", "times": 2, "every": 40},
        {"at": 30, "do": "add", "port": "1/3"})"));
    provider.start();
    EXPECT_TRUE(provider.waitForEnd(hang));
    const std::vector<std::string> expected{"+1/1", "1/1 up", "+1/2",   "+256/1", "256/1 up", "-1/2",
                                            "+1/2", "+1/3",   "1/3 up", "-1/2",   "+1/2"};
    EXPECT_EQ(expected, heard.take());
}

TEST_F(TopologyProvider, StopsInTheMiddleOfItsEvents)
{
    kel::TopologyProvider provider(chassisWith(R"(
        {"at": 0, "do": "flap", "port": "1/1", "times": 1000000},
        {"at": 86400000, "do": "remove", "port": "1/1"})"));
    provider.start();
    EXPECT_FALSE(provider.waitForEnd(std::chrono::milliseconds(0)));
    EXPECT_LT(timeOf([&] { provider.stop(); }), 10s);
    EXPECT_FALSE(provider.waitForEnd(std::chrono::milliseconds(0)));
}

TEST_F(TopologyProvider, InventoryThatDoesNotTakeThePortsIsAClearError)
{
    kelStandinAddPort(1, 2, "in the way", 0, "");
    kel::TopologyProvider provider(chassisWith(""));
    try {
        provider.start();
        FAIL() << "no error";
    } catch (const kel::ProviderError &error) {
        EXPECT_STREQ("topology: cannot add b: File exists", error.what());
    }
}

TEST_F(TopologyProvider, ListenerIsCalledOnThePlatformsThread)
{
    static std::atomic<int> elsewhere;
    elsewhere = 0;
    static std::thread::id here;
    here = std::this_thread::get_id();
    const kelStandinListener listener{[](void *, portInstance_t) { elsewhere += std::this_thread::get_id() != here; },
                                      nullptr, nullptr, nullptr};
    kelStandinSetListener(&listener);
    kel::TopologyProvider provider(chassisWith(""));
    provider.start();
    EXPECT_EQ(3, elsewhere.load());
}

TEST_F(TopologyProvider, TenThousandCyclesAreQuickAndLeaveNothing)
{
    static std::atomic<int> appeared;
    static std::atomic<int> disappeared;
    appeared = 0;
    disappeared = 0;
    const kelStandinListener listener{[](void *, portInstance_t) { ++appeared; },
                                      [](void *, portInstance_t) { ++disappeared; }, nullptr, nullptr};
    kelStandinSetListener(&listener);
    kel::TopologyProvider provider(chassisWith(R"(
        {"at": 0, "do": "cycle", "port": "1/1", "times": 10000},
        {"at": 0, "do": "remove", "port": "1/1"},
        {"at": 0, "do": "remove", "port": "1/2"},
        {"at": 0, "do": "remove", "port": "trunk/1"})"));
    EXPECT_LT(timeOf([&] {
                  provider.start();
                  EXPECT_TRUE(provider.waitForEnd(hang));
              }),
              60s);
    EXPECT_EQ(10003, appeared.load());
    EXPECT_EQ(10003, disappeared.load());
    EXPECT_THAT(allPorts(), IsEmpty());
}

// The chassis that comes with the daemon plays to its end and is then as it was.
TEST_F(TopologyProvider, ChassisThatComesWithTheDaemonEndsAsItBegan)
{
    kel::Topology topology = kel::readTopology(KEL_CHASSIS48);
    for (kel::TopologyEvent &event : topology.events) {
        event.at = std::chrono::milliseconds(0);
        event.every = std::chrono::milliseconds(0);
    }
    kel::TopologyProvider provider(topology);
    provider.start();
    EXPECT_TRUE(provider.waitForEnd(hang));
    EXPECT_EQ(54u, allPorts().size());
    for (const kelStandinPort &port : allPorts())
        EXPECT_EQ(1, port.linkUp) << port.name;
    EXPECT_THAT(membersOf(kelStandinTrunkInstance(1)),
                ElementsAre(kelStandinPortInstance(3, 1), kelStandinPortInstance(3, 2)));
    EXPECT_EQ(kelStandinPortInstance(3, 4), portOf(kelStandinTrunkInstance(2)).master);
}
