// The listener: what it may do while it is called, and what replacing it promises.
#include "standin_fixture.h"

#include "harness/time_of.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);

using Listener = EmptyStandin;
} // namespace

// The port map's callback looks the port up before it unbinds it.
TEST_F(Listener, DisappearingPortCanStillBeLookedUp)
{
    static pif_ *found;
    static int again;
    found = nullptr;
    const kelStandinListener listener{nullptr,
                                      [](void *, portInstance_t instance) {
                                          vlanLibGetLifByPortInstance(instance, &found);
                                          again = kelStandinRemovePort(instance);
                                      },
                                      nullptr, nullptr};
    kelStandinAddPort(1, 1, "a", 0, "");
    kelStandinSetListener(&listener);
    EXPECT_EQ(0, kelStandinRemovePort(port11));
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(port11, found->portInstance);
    EXPECT_EQ(EBUSY, again);
    EXPECT_EQ(0, vlanLibGetLifByPortInstance(port11, &found));
}

TEST_F(Listener, LeavingPortTakesNoChangesOfItsPlace)
{
    static int added;
    static int joined;
    static int vlan;
    const kelStandinListener listener{nullptr,
                                      [](void *, portInstance_t instance) {
                                          added = kelStandinAddPort(1, 1, "b", 0, "");
                                          joined = kelStandinJoinTrunk(kelStandinTrunkInstance(1), instance);
                                          vlan = kelStandinSetVlan(instance, 1, KEL_STANDIN_VLAN_TAGGED);
                                      },
                                      nullptr, nullptr};
    kelStandinAddTrunk(1, "", 0, "");
    kelStandinAddPort(1, 1, "a", 0, "");
    kelStandinSetListener(&listener);
    EXPECT_EQ(0, kelStandinRemovePort(port11));
    EXPECT_EQ(EBUSY, added);
    EXPECT_EQ(ENOENT, joined);
    EXPECT_EQ(ENOENT, vlan);
}

// No lock is held: a listener may ask anything and change other ports, also from another thread that it waits for.
TEST_F(Listener, MayAskAndChangeFromAnotherThreadWhileItIsCalled)
{
    const kelStandinListener listener{[](void *, portInstance_t instance) {
                                          if (instance != port11)
                                              return;
                                          std::thread([] {
                                              kelStandinAddPort(1, 2, "second", 0, "");
                                              kelStandinSetLink(port12, 1);
                                              EXPECT_EQ(2u, kelStandinSnapshot(nullptr, 0));
                                          }).join();
                                      },
                                      nullptr, nullptr, nullptr};
    kelStandinSetListener(&listener);
    EXPECT_EQ(0, kelStandinAddPort(1, 1, "first", 0, ""));
    EXPECT_EQ(1, kelStandinGetLink(port12));
}

TEST_F(Listener, MissingFunctionsAreNotCalled)
{
    const kelStandinListener deaf{};
    kelStandinSetListener(&deaf);
    EXPECT_EQ(0, kelStandinAddPort(1, 1, "", 0, ""));
    EXPECT_EQ(0, kelStandinSetLink(port11, 1));
    EXPECT_EQ(0, kelStandinRemovePort(port11));
}

// The user pointer of the earlier listener may be freed as soon as it was replaced.
TEST_F(Listener, ReplacingItWaitsForTheCallUnderWay)
{
    struct Slow {
        std::promise<void> entered;
        std::promise<void> goOn;
        std::atomic<bool> done{false};
    } slow;
    const kelStandinListener listener{[](void *user, portInstance_t) {
                                          auto &it = *static_cast<Slow *>(user);
                                          it.entered.set_value();
                                          it.goOn.get_future().wait();
                                          it.done = true;
                                      },
                                      nullptr, nullptr, &slow};
    kelStandinSetListener(&listener);
    std::thread platform([] { kelStandinAddPort(1, 1, "", 0, ""); });
    slow.entered.get_future().wait();
    auto replaced = std::async(std::launch::async, [&slow] {
        kelStandinSetListener(nullptr);
        return slow.done.load();
    });
    EXPECT_EQ(std::future_status::timeout, replaced.wait_for(50ms)) << "returned during the call";
    slow.goOn.set_value();
    EXPECT_TRUE(replaced.get());
    platform.join();
}

TEST_F(Listener, MayReplaceItselfWhileItIsCalled)
{
    const kelStandinListener once{[](void *, portInstance_t) { kelStandinSetListener(nullptr); },
                                  [](void *, portInstance_t) { ADD_FAILURE() << "called after it was replaced"; },
                                  nullptr, nullptr};
    kelStandinSetListener(&once);
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinRemovePort(port11);
}
