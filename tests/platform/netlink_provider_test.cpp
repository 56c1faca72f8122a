// The host's provider for real: each test has a network namespace of its own, with veth pairs and bridges.
//
// Needs root (or CAP_NET_ADMIN and CAP_SYS_ADMIN) and the commands ip and bridge; says so and is skipped without.
#include "standin_fixture.h"

#include "harness/time_of.h"

#include "netlink_provider.h"
#include "provider_error.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <future>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
constexpr auto hang = 20s;

const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);

// Waits for what the platform's thread will do; false when it never does.
bool becomesTrue(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + hang;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

bool isUp(portInstance_t instance)
{
    return kelStandinGetLink(instance) == 1;
}

int run(const std::string &command)
{
    return std::system(("{ " + command + "; } >/dev/null 2>&1").c_str());
}

std::string reasonToSkip()
{
#ifdef KEL_EMULATED
    return "the emulator does not pass on namespaces and netlink";
#endif
    if (unshare(CLONE_NEWNET) != 0)
        return std::string("no network namespace of its own: ") + std::strerror(errno);
    if (run("ip link set dev lo up") != 0 || run("bridge -V") != 0)
        return "the commands ip and bridge are needed (package iproute2)";
    if (run("ip link add name probe0 type veth peer name probe1") != 0)
        return "this machine has no veth pairs";
    return run("ip link delete dev probe0") != 0 ? "links cannot be deleted" : "";
}

std::atomic<int> overrunsLeft{0};
} // namespace

// The netlink library's receive comes here.
extern "C" ssize_t recvmsg(int fd, msghdr *message, int flags)
{
    if (overrunsLeft <= 0)
        return syscall(SYS_recvmsg, fd, message, flags);
    --overrunsLeft;
    errno = ENOBUFS;
    return -1;
}

namespace
{
class NetlinkProvider : public EmptyStandin
{
protected:
    void SetUp() override
    {
        if (const std::string reason = reasonToSkip(); !reason.empty())
            GTEST_SKIP() << "NOT TESTED on this machine: " << reason;
    }

    static void addPair(const std::string &name)
    {
        ASSERT_EQ(0, run("ip link add name " + name + " type veth peer name " + name + "p"));
    }

    kel::NetlinkProvider provider;
};
} // namespace

TEST_F(NetlinkProvider, LinksThatExistAreThereWhenItHasStarted)
{
    addPair("a");
    addPair("b");
    provider.start();
    // A peer exists before its partner.
    EXPECT_THAT(allNames(), testing::UnorderedElementsAre("a", "ap", "b", "bp"));
    EXPECT_EQ(port11, portOf(port11).portInstance);
    EXPECT_GT(portOf(port11).mtu, 0u);
    EXPECT_EQ(0u, kelStandinFindPort("lo"));
}

TEST_F(NetlinkProvider, NamespaceWithoutLinksIsEmpty)
{
    provider.start();
    EXPECT_THAT(allPorts(), IsEmpty());
}

TEST_F(NetlinkProvider, AddsDeletesAndLinkChangesAreFollowed)
{
    addPair("a");
    provider.start();
    const portInstance_t a = kelStandinFindPort("a");
    ASSERT_NE(0u, a);
    EXPECT_FALSE(isUp(a));
    ASSERT_EQ(0, run("ip link set dev a up && ip link set dev ap up"));
    EXPECT_TRUE(becomesTrue([&] { return isUp(a); }));
    ASSERT_EQ(0, run("ip link set dev ap down"));
    EXPECT_TRUE(becomesTrue([&] { return !isUp(a); })) << "the carrier went with the peer";
    addPair("b");
    EXPECT_TRUE(becomesTrue([] { return kelStandinFindPort("b") != 0 && kelStandinFindPort("bp") != 0; }));
    ASSERT_EQ(0, run("ip link delete dev a"));
    EXPECT_TRUE(becomesTrue([] { return allPorts().size() == 2; }));
    addPair("c");
    EXPECT_TRUE(becomesTrue([] { return allPorts().size() == 4; }));
    EXPECT_NE(0u, portOf(port11).ifIndex) << "freed numbers are used again";
    EXPECT_NE(0u, portOf(port12).ifIndex);
}

TEST_F(NetlinkProvider, RenameAddressAndMtuChangeNoPort)
{
    addPair("a");
    provider.start();
    Heard heard;
    const portInstance_t a = kelStandinFindPort("a");
    ASSERT_EQ(0, run("ip link set dev a name swp1"));
    ASSERT_EQ(0, run("ip link set dev swp1 address 02:00:00:00:00:07 alias uplink"));
    ASSERT_EQ(0, run("ip link set dev swp1 mtu 1400"));
    ASSERT_TRUE(becomesTrue([&] { return portOf(a).mtu == 1400; }));
    EXPECT_STREQ("swp1", portOf(a).name);
    EXPECT_STREQ("uplink", portOf(a).description);
    EXPECT_EQ(7, portOf(a).mac[5]);
    EXPECT_THAT(heard.take(), IsEmpty());
}

// As on a switch: the port map's callbacks run on the platform's own thread.
TEST_F(NetlinkProvider, ListenerIsCalledOnOneThreadOfItsOwn)
{
    addPair("a");
    static std::mutex lock;
    static std::vector<std::thread::id> threads;
    threads.clear();
    const auto note = [](void *, portInstance_t) {
        const std::lock_guard guard(lock);
        threads.push_back(std::this_thread::get_id());
    };
    const kelStandinListener listener{note, note, nullptr, nullptr};
    kelStandinSetListener(&listener);
    provider.start();
    ASSERT_EQ(0, run("ip link delete dev a"));
    ASSERT_TRUE(becomesTrue([] { return allPorts().empty(); }));
    kelStandinSetListener(nullptr);
    ASSERT_EQ(4u, threads.size());
    EXPECT_THAT(threads, testing::Each(threads[0]));
    EXPECT_NE(std::this_thread::get_id(), threads[0]);
}

TEST_F(NetlinkProvider, BridgeIsAPortAndItsMembersAreInNoTrunk)
{
    addPair("a");
    ASSERT_EQ(0, run("ip link add name br0 type bridge && ip link set dev a master br0"));
    provider.start();
    EXPECT_NE(0u, kelStandinFindPort("br0"));
    EXPECT_EQ(0u, portOf(kelStandinFindPort("a")).trunk);
    ASSERT_EQ(0, run("ip link set dev a nomaster && ip link set dev a mtu 1400"));
    ASSERT_TRUE(becomesTrue([] { return portOf(kelStandinFindPort("a")).mtu == 1400; }))
        << "leaving a bridge is not disappearing";
}

TEST_F(NetlinkProvider, BridgeVlansAreFollowed)
{
    addPair("a");
    if (run("ip link add name br0 type bridge vlan_filtering 1") != 0)
        GTEST_SKIP() << "NOT TESTED on this machine: its kernel has no bridge VLANs";
    ASSERT_EQ(0, run("ip link set dev a master br0"));
    ASSERT_EQ(0, run("bridge vlan add vid 100-102 dev a"));
    provider.start();
    const portInstance_t a = kelStandinFindPort("a");
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(a, 1));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(a, 101));
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(a, 103));
    ASSERT_EQ(0, run("bridge vlan add vid 200 dev a untagged && bridge vlan del vid 101 dev a"));
    EXPECT_TRUE(becomesTrue([&] { return kelStandinGetVlan(a, 101) == KEL_STANDIN_VLAN_NONE; }));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(a, 200));
    ASSERT_EQ(0, run("ip link set dev a nomaster"));
    EXPECT_TRUE(becomesTrue([&] { return kelStandinGetVlan(a, 200) == KEL_STANDIN_VLAN_NONE; }));
}

TEST_F(NetlinkProvider, AddressesAreFollowed)
{
    addPair("a");
    ASSERT_EQ(0, run("ip address add 192.0.2.1/24 dev a"));
    provider.start();
    const portInstance_t a = kelStandinFindPort("a");
    kelStandinAddress addresses[KEL_STANDIN_MAX_ADDRESSES];
    ASSERT_EQ(1u, kelStandinGetAddresses(a, addresses, std::size(addresses)));
    EXPECT_EQ(AF_INET, addresses[0].family);
    EXPECT_EQ(24, addresses[0].prefixLength);
    EXPECT_EQ(1, addresses[0].bytes[3]);
    ASSERT_EQ(0, run("ip address add 192.0.2.9/28 dev a && ip address del 192.0.2.1/24 dev a"));
    EXPECT_TRUE(becomesTrue(
        [&] { return kelStandinGetAddresses(a, addresses, std::size(addresses)) == 1 && addresses[0].bytes[3] == 9; }));
}

// While the listener holds up the platform's thread, the kernel has to drop messages; nothing may be lost by it.
TEST_F(NetlinkProvider, LostMessagesAreMadeGoodByReadingEverythingAnew)
{
    kel::NetlinkProvider small(
        {.receiveBuffer = 2048, .onFailure = [](const std::string &reason) { ADD_FAILURE() << reason; }});
    addPair("stays");
    addPair("goes");
    small.start();
    struct Gate {
        std::promise<void> entered;
        std::promise<void> open;
        std::atomic<bool> used{false};
    } gate;
    const kelStandinListener listener{[](void *user, portInstance_t) {
                                          auto &it = *static_cast<Gate *>(user);
                                          if (it.used.exchange(true))
                                              return;
                                          it.entered.set_value();
                                          it.open.get_future().wait();
                                      },
                                      nullptr, nullptr, &gate};
    kelStandinSetListener(&listener);
    addPair("first");
    gate.entered.get_future().wait();
    for (int round = 0; round < 30; ++round)
        ASSERT_EQ(0, run("ip link set dev stays mtu " + std::to_string(1000 + round)));
    ASSERT_EQ(0, run("ip link delete dev goes"));
    addPair("last");
    gate.open.set_value();
    EXPECT_TRUE(becomesTrue([] { return kelStandinFindPort("last") != 0 && kelStandinFindPort("goes") == 0; }));
    EXPECT_TRUE(becomesTrue([] { return allPorts().size() == 6; }));
    EXPECT_GE(small.resynchronisations(), 1u);
    EXPECT_TRUE(becomesTrue([] { return portOf(kelStandinFindPort("stays")).mtu == 1029; }));
    kelStandinSetListener(nullptr);
    addPair("after");
    EXPECT_TRUE(becomesTrue([] { return kelStandinFindPort("after") != 0; })) << "the new socket is followed";
    small.stop();
}

// The first picture is not complete yet, so it is begun anew; so is the one that was begun anew.
TEST_F(NetlinkProvider, MessagesLostDuringADumpAreMadeGoodAsWell)
{
    addPair("a");
    addPair("b");
    overrunsLeft = 3;
    provider.start();
    EXPECT_EQ(0, overrunsLeft);
    EXPECT_EQ(3u, provider.resynchronisations());
    EXPECT_THAT(allNames(), testing::UnorderedElementsAre("a", "ap", "b", "bp"));
    addPair("c");
    EXPECT_TRUE(becomesTrue([] { return allPorts().size() == 6; })) << "the last socket is followed";
}

TEST_F(NetlinkProvider, StopsWhileLinksComeAndGoAndStartsAgain)
{
    std::atomic<bool> stop{false};
    // A thread of the same namespace, as namespaces are inherited.
    std::thread churn([&stop] {
        while (!stop)
            run("ip link add name x type veth peer name xp; ip link delete dev x");
    });
    for (int round = 0; round < 10; ++round) {
        provider.start();
        provider.start(); // a second start changes nothing
        provider.stop();
        provider.stop();
        kelStandinReset();
    }
    stop = true;
    churn.join();
    addPair("a");
    provider.start();
    EXPECT_NE(0u, kelStandinFindPort("a"));
    EXPECT_EQ(0u, provider.resynchronisations());
}

// The first descriptor is the stop signal's, the second the socket's.
TEST_F(NetlinkProvider, SocketThatCannotBeMadeIsAClearError)
{
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const int firstFree = dup(STDIN_FILENO);
    close(firstFree);
    kel::NetlinkProvider own; // while descriptors are few, the sanitizer cannot check the fixture's
    const auto reasonWith = [&](int descriptors) -> std::string {
        const rlimit few{.rlim_cur = static_cast<rlim_t>(firstFree + descriptors), .rlim_max = limit.rlim_max};
        std::exception_ptr thrown;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        try {
            own.start();
        } catch (...) {
            thrown = std::current_exception();
        }
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        try {
            if (thrown != nullptr)
                std::rethrow_exception(thrown);
        } catch (const kel::ProviderError &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_THAT(reasonWith(0), testing::StartsWith("netlink: cannot make a stop signal: "));
    EXPECT_THAT(reasonWith(1), testing::StartsWith("netlink: cannot open a route socket: "));
    EXPECT_EQ("", reasonWith(2));
}
