// What the service manager hears, at a path and at an abstract name, and that nothing fails without one.
#include "notify_socket.h"
#include "service_notifier.h"

#include <filesystem>

using namespace std::chrono_literals;

namespace
{
std::string uniqueName(const std::string &prefix)
{
    return prefix + "kel-notify-test-" + std::to_string(getpid());
}

class ServiceNotifierEnvironment : public testing::Test
{
protected:
    ~ServiceNotifierEnvironment() override
    {
        for (const char *name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
    }
    static void set(const char *name, const std::string &value)
    {
        setenv(name, value.c_str(), 1);
    }
};
} // namespace

TEST(ServiceNotifier, TellsAManagerThatListensAtAPath)
{
    const NotifySocket manager(uniqueName("/tmp/"));
    ServiceNotifier notifier(manager.address);
    notifier.ready();
    notifier.stopping();
    EXPECT_EQ("READY=1", manager.next());
    EXPECT_EQ("STOPPING=1", manager.next());
}

TEST(ServiceNotifier, TellsAManagerThatListensAtAnAbstractName)
{
    const NotifySocket manager(uniqueName("@"));
    ServiceNotifier notifier(manager.address);
    notifier.ready();
    EXPECT_EQ("READY=1", manager.next());
}

// 108 bytes are the room for an address: a path needs one of them for its zero, an abstract name does not.
TEST(ServiceNotifier, TakesTheLongestAddressesAndNoLongerOnes)
{
    const std::string folder = uniqueName("/tmp/") + "/";
    std::filesystem::create_directory(folder);
    for (const std::string &address : {folder + std::string(107 - folder.size(), 'p'),
                                       uniqueName("@") + std::string(108 - uniqueName("@").size(), 'a')}) {
        const NotifySocket manager(address);
        ServiceNotifier(address).ready();
        EXPECT_EQ("READY=1", manager.next());
        ServiceNotifier(address + "x").ready();
        EXPECT_EQ("", manager.next(0));
    }
    std::filesystem::remove_all(folder);
}

TEST(ServiceNotifier, SendsNothingAndFailsNowhereWithoutAManager)
{
    for (const char *address : {"", "/", "@", "relative/path", "/nonexistent/socket", "@nobody-listens-here"}) {
        ServiceNotifier notifier(address, 1'000'000);
        notifier.ready();
        notifier.alive();
        notifier.stopping();
        EXPECT_EQ(0ms, notifier.watchdogPeriod()) << address;
    }
}

TEST(ServiceNotifier, SaysThatItIsAliveOnlyToAManagerThatWatches)
{
    const NotifySocket manager(uniqueName("@"));
    ServiceNotifier unwatched(manager.address);
    unwatched.alive();
    EXPECT_EQ("", manager.next(0));
    ServiceNotifier watched(manager.address, 1'000'000);
    watched.alive();
    EXPECT_EQ("WATCHDOG=1", manager.next());
}

TEST(ServiceNotifier, ABusyLoopDoesNotFloodTheManager)
{
    const NotifySocket manager(uniqueName("@"));
    ServiceNotifier notifier(manager.address, 3'600'000'000);
    for (int turn = 0; turn < 1000; ++turn)
        notifier.alive();
    EXPECT_EQ("WATCHDOG=1", manager.next());
    EXPECT_EQ("", manager.next(0));
}

// A full queue of a manager that does not read must not stop the daemon.
TEST(ServiceNotifier, AManagerThatDoesNotReadHoldsNobodyUp)
{
    const NotifySocket manager(uniqueName("@"));
    ServiceNotifier notifier(manager.address);
    for (int state = 0; state < 10'000; ++state)
        notifier.ready();
    EXPECT_EQ("READY=1", manager.next());
}

TEST(ServiceNotifier, ThePeriodIsHalfOfTheManagersPatience)
{
    const NotifySocket manager(uniqueName("@"));
    EXPECT_EQ(15'000ms, ServiceNotifier(manager.address, 30'000'000).watchdogPeriod());
    EXPECT_EQ(1ms, ServiceNotifier(manager.address, 1).watchdogPeriod());
    EXPECT_EQ(24h, ServiceNotifier(manager.address, UINT64_MAX).watchdogPeriod());
    EXPECT_EQ(0ms, ServiceNotifier(manager.address, 0).watchdogPeriod());
}

TEST_F(ServiceNotifierEnvironment, NamesTheManagerAndItsPatience)
{
    const NotifySocket manager(uniqueName("@"));
    set("NOTIFY_SOCKET", manager.address);
    set("WATCHDOG_USEC", "2000000");
    ServiceNotifier notifier = ServiceNotifier::fromEnvironment();
    EXPECT_EQ(1s, notifier.watchdogPeriod());
    notifier.ready();
    EXPECT_EQ("READY=1", manager.next());
}

TEST_F(ServiceNotifierEnvironment, AWatchdogForAnotherProcessIsNotOurs)
{
    const NotifySocket manager(uniqueName("@"));
    set("NOTIFY_SOCKET", manager.address);
    set("WATCHDOG_USEC", "2000000");
    set("WATCHDOG_PID", std::to_string(getpid()));
    EXPECT_EQ(1s, ServiceNotifier::fromEnvironment().watchdogPeriod());
    set("WATCHDOG_PID", std::to_string(getpid() + 1));
    EXPECT_EQ(0s, ServiceNotifier::fromEnvironment().watchdogPeriod());
}

TEST_F(ServiceNotifierEnvironment, EmptyMeansNoManager)
{
    ServiceNotifier notifier = ServiceNotifier::fromEnvironment();
    notifier.ready();
    EXPECT_EQ(0s, notifier.watchdogPeriod());
}
