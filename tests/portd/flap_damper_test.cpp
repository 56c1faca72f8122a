#include "flap_damper.h"

#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace
{
using Verdict = FlapDamper::Verdict;
constexpr uint32_t longWindow = 100'000; // ticks; never over in a test

// Remembers the releases and lets a test wait for them.
class Releases
{
public:
    void operator()(uint32_t systemPort)
    {
        const std::lock_guard guard(mutex);
        ports.push_back(systemPort);
        changed.notify_all();
    }
    bool waitFor(size_t count)
    {
        std::unique_lock guard(mutex);
        return changed.wait_for(guard, 60s, [&] { return ports.size() >= count; });
    }
    std::vector<uint32_t> soFar()
    {
        const std::lock_guard guard(mutex);
        return ports;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<uint32_t> ports;
};

class FlapDamperTest : public testing::Test
{
protected:
    void make(uint32_t limit, uint32_t window, uint32_t hold)
    {
        damper.emplace(FlapDamper::Settings{limit, window, hold}, std::ref(releases));
    }
    // Until nothing is counted or held any more.
    void waitUntilCalm()
    {
        while (!damper->rows().empty())
            std::this_thread::yield();
    }

    Releases releases;
    std::optional<FlapDamper> damper;
};
} // namespace

TEST_F(FlapDamperTest, ChangesUpToTheLimitPassAndOneMoreHoldsThePort)
{
    make(3, longWindow, longWindow);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Verdict::pass, damper->changed(7));
    EXPECT_EQ(Verdict::hold, damper->changed(7));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Verdict::swallow, damper->changed(7));
    EXPECT_TRUE(releases.soFar().empty());
}

TEST_F(FlapDamperTest, PortsAreCountedEachForItself)
{
    make(1, longWindow, longWindow);
    EXPECT_EQ(Verdict::pass, damper->changed(1));
    EXPECT_EQ(Verdict::pass, damper->changed(32767));
    EXPECT_EQ(Verdict::hold, damper->changed(1));
    EXPECT_EQ(Verdict::pass, damper->changed(2));
}

TEST_F(FlapDamperTest, HeldPortIsReleasedOnceWhenItsHoldIsOver)
{
    make(1, longWindow, 10);
    damper->changed(5);
    const auto waited = timeOf([&] {
        EXPECT_EQ(Verdict::hold, damper->changed(5));
        EXPECT_TRUE(releases.waitFor(1));
    });
    EXPECT_GE(waited, 89ms); // the tick in which the hold began is not a whole one
    EXPECT_EQ(std::vector<uint32_t>{5}, releases.soFar());
    EXPECT_TRUE(damper->rows().empty());
    EXPECT_EQ(Verdict::pass, damper->changed(5)) << "counted from the start again";
}

TEST_F(FlapDamperTest, ChangesOfAWindowThatIsOverDoNotCount)
{
    make(2, 3, longWindow);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Verdict::pass, damper->changed(1));
        waitUntilCalm();
    }
    EXPECT_TRUE(releases.soFar().empty());
}

TEST_F(FlapDamperTest, PortThatGoesOnFlappingIsHeldOnceMore)
{
    make(1, longWindow, 10);
    damper->changed(1);
    const auto waited = timeOf([&] {
        EXPECT_EQ(Verdict::hold, damper->changed(1));
        damper->changed(1);
        damper->changed(1);
        EXPECT_TRUE(releases.waitFor(1));
    });
    EXPECT_GE(waited, 189ms);
    EXPECT_EQ(1u, releases.soFar().size());
}

// A hold that was begun later, but is shorter than what is left of another, is over first.
TEST_F(FlapDamperTest, EarlierExpiryWakesTheTimerBeforeItsTime)
{
    make(1, 5, longWindow);
    damper->changed(1);
    EXPECT_EQ(Verdict::hold, damper->changed(1)); // far in the future
    damper->changed(2);                           // its window is over soon
    while (damper->rows().size() > 1)
        std::this_thread::yield();
    EXPECT_EQ(1u, damper->rows()[0].systemPort);
}

TEST_F(FlapDamperTest, ForgottenPortIsNeitherCountedNorReleased)
{
    make(1, longWindow, 10);
    damper->changed(1);
    EXPECT_EQ(Verdict::hold, damper->changed(1));
    damper->forget(1);
    EXPECT_TRUE(damper->rows().empty());
    damper->changed(2);
    EXPECT_EQ(Verdict::hold, damper->changed(2));
    EXPECT_TRUE(releases.waitFor(1));
    EXPECT_EQ(std::vector<uint32_t>{2}, releases.soFar());
    EXPECT_EQ(Verdict::pass, damper->changed(1));
    damper->forget(1);
    damper->forget(1);
    damper->forget(30000);
}

TEST_F(FlapDamperTest, LimitZeroHoldsNothing)
{
    make(0, longWindow, longWindow);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(Verdict::pass, damper->changed(1));
    EXPECT_TRUE(damper->rows().empty());
}

TEST_F(FlapDamperTest, RowsTellWhatIsCountedAndHeldAndForHowLong)
{
    make(2, longWindow, 2 * longWindow);
    damper->changed(3);
    for (int i = 0; i < 4; ++i)
        damper->changed(1);
    const auto rows = damper->rows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ(1u, rows[0].systemPort);
    EXPECT_TRUE(rows[0].held);
    EXPECT_EQ(1u, rows[0].changes);
    EXPECT_LE(rows[0].left_ticks, 2 * longWindow);
    EXPECT_GT(rows[0].left_ticks, longWindow);
    EXPECT_EQ(3u, rows[1].systemPort);
    EXPECT_FALSE(rows[1].held);
    EXPECT_EQ(1u, rows[1].changes);
    EXPECT_LE(rows[1].left_ticks, longWindow);
}

TEST_F(FlapDamperTest, EndsWhileTimersRun)
{
    make(1, longWindow, longWindow);
    for (uint32_t port = 1; port < 100; ++port) {
        damper->changed(port);
        damper->changed(port);
    }
    damper.reset();
    EXPECT_TRUE(releases.soFar().empty());
}

// The platform's thread, the console and the timers at once; every hold ends in one release or one forgetting.
TEST_F(FlapDamperTest, ThreadsMayUseItAtOnce)
{
    make(2, 1, 1);
    std::atomic<bool> stop = false;
    std::thread console([&] {
        while (!stop)
            damper->rows();
    });
    std::thread other([&] {
        while (!stop)
            for (uint32_t port = 20; port < 30; ++port) {
                damper->changed(port);
                damper->forget(port);
            }
    });
    size_t holds = 0;
    const auto end = std::chrono::steady_clock::now() + 300ms;
    while (std::chrono::steady_clock::now() < end)
        for (uint32_t port = 1; port < 10; ++port)
            holds += damper->changed(port) == Verdict::hold ? 1 : 0;
    stop = true;
    console.join();
    other.join();
    waitUntilCalm();
    EXPECT_EQ(holds, releases.soFar().size());
    EXPECT_GT(holds, 0u);
}
