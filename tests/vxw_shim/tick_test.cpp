// The tick clock and deadlines, most of them on clocks that stand still at a chosen time.
#include "vxw_shim.h"

#include "harness/instrumented.h"
#include "harness/time_of.h"
#include "vxw_shim/tick_deadline.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <random>
#include <thread>

namespace
{
// While one of these lives, this thread reads the given time from the wall clock, or from the monotonic one.
thread_local std::optional<timeval> wallClock;
thread_local std::optional<timespec> monotonicClock;

class WallClockStandsAt
{
public:
    WallClockStandsAt(long seconds, long microseconds)
    {
        wallClock = timeval{seconds, microseconds};
    }
    ~WallClockStandsAt()
    {
        wallClock.reset();
    }
};

class MonotonicClockStandsAt
{
public:
    MonotonicClockStandsAt(long seconds, long nanoseconds)
    {
        monotonicClock = timespec{seconds, nanoseconds};
    }
    ~MonotonicClockStandsAt()
    {
        monotonicClock.reset();
    }
};
} // namespace

// The library reads its clocks through the dynamic linker, so these come first.
extern "C" {
int gettimeofday(timeval *time, void *) noexcept
{
    if (wallClock) {
        *time = *wallClock;
        return 0;
    }
    timespec now;
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    if (clock == CLOCK_MONOTONIC && monotonicClock) {
        *time = *monotonicClock;
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}
}

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;
using vxw_shim::ticksToAbsTime;

// Microseconds since the epoch, or -1 for what is no valid time.
int64_t microsecondsOf(const timespec &time)
{
    if (time.tv_nsec < 0 || time.tv_nsec > 999999999 || time.tv_nsec % 1000 != 0)
        return -1;
    return time.tv_sec * 1000000 + time.tv_nsec / 1000;
}

int64_t microsecondsOf(const timeval &time)
{
    return int64_t{time.tv_sec} * 1000000 + time.tv_usec;
}
} // namespace

#define EXPECT_DEADLINE(seconds, nanoseconds, ticks)                                                                   \
    do {                                                                                                               \
        const timespec deadline = ticksToAbsTime(ticks);                                                               \
        EXPECT_EQ(seconds, deadline.tv_sec);                                                                           \
        EXPECT_EQ(nanoseconds, deadline.tv_nsec);                                                                      \
    } while (0)

TEST(TickDeadline, IsTenMillisecondsATickFromNow)
{
    WallClockStandsAt now(1000, 123456);
    EXPECT_DEADLINE(1000, 123456000, 0);
    EXPECT_DEADLINE(1000, 133456000, 1);
    EXPECT_DEADLINE(1000, 993456000, 87);
}

TEST(TickDeadline, CarriesWhenTheMicrosecondsExceed999999)
{
    {
        WallClockStandsAt now(1000, 989999);
        EXPECT_DEADLINE(1000, 999999000, 1);
    }
    {
        WallClockStandsAt now(1000, 990000);
        EXPECT_DEADLINE(1001, 0, 1);
    }
    {
        WallClockStandsAt now(1000, 999999);
        EXPECT_DEADLINE(1001, 9999000, 1);
        EXPECT_DEADLINE(1001, 999999000, 100);
        EXPECT_DEADLINE(1002, 9999000, 101);
        EXPECT_DEADLINE(3148, 479999000, 214748);
    }
}

TEST(TickDeadline, ProductIsTakenIn32BitsAndSignExtended)
{
    WallClockStandsAt now(1000000, 0);
    EXPECT_DEADLINE(1002147, 480000000, 214748);
    EXPECT_DEADLINE(997852, 522704000, 214749); // 2147.477296 s ago
    EXPECT_DEADLINE(999999, 992704000, 429496); // 7.296 ms ago
    EXPECT_DEADLINE(1000000, 2704000, 429497);  // wrapped once, and ahead again
}

TEST(TickDeadline, TheLongestCountBelowForeverIsAnOrdinaryTimeTwoTicksAgo)
{
    WallClockStandsAt now(1000, 50000);
    EXPECT_DEADLINE(1000, 30000000, 0xFFFFFFFE);
}

TEST(TickDeadline, ANegativeProductBorrowsWholeSeconds)
{
    {
        WallClockStandsAt now(1000, 20000);
        EXPECT_DEADLINE(1000, 0, 0xFFFFFFFE);
    }
    {
        WallClockStandsAt now(1000, 19999);
        EXPECT_DEADLINE(999, 999999000, 0xFFFFFFFE);
    }
    {
        WallClockStandsAt now(1000, 0);
        EXPECT_DEADLINE(999, 0, 0xFFFFFF9C); // exactly a second
    }
}

TEST(TickDeadline, IsAlwaysAValidTimeAtTheDistanceOfTheWrappedProduct)
{
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    const long fractions[] = {0, 1, 9999, 10000, 500000, 999999};
    const uint32_t edges[] = {0,      1,      99,         100,        214748,     214749,
                              429496, 429497, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, Forever};
    const auto check = [&](uint32_t ticks) {
        const auto product = static_cast<int64_t>(static_cast<int32_t>(ticks * uint64_t{10000} & 0xFFFFFFFF));
        for (long fraction : fractions) {
            WallClockStandsAt now(1700000000, fraction);
            ASSERT_EQ(microsecondsOf(*wallClock) + product, microsecondsOf(ticksToAbsTime(ticks)))
                << ticks << " ticks at " << fraction << ", seed " << seed;
        }
    };
    for (uint32_t ticks : edges)
        check(ticks);
    for (int i = 0; i < 20000; ++i)
        check(static_cast<uint32_t>(random()));
}

// Without a battery a switch starts in 1970: a deadline before that is still a deadline in the past.
TEST(TickDeadline, BeforeTheEpochAWaitStillEndsAtOnce)
{
    SEM_ID empty = semBCreate(0, SEM_EMPTY);
    WallClockStandsAt now(0, 0);
    EXPECT_DEADLINE(-1, 980000000, 0xFFFFFFFE);
    EXPECT_EQ(110, semTake(empty, 0xFFFFFFFE));
    EXPECT_EQ(0, semDelete(empty));
}

TEST(TickDeadline, IsReadFromTheWallClock)
{
    timeval before, after;
    gettimeofday(&before, nullptr);
    const timespec deadline = ticksToAbsTime(200);
    gettimeofday(&after, nullptr);
    EXPECT_GE(microsecondsOf(deadline), microsecondsOf(before) + 2000000);
    EXPECT_LE(microsecondsOf(deadline), microsecondsOf(after) + 2000000);
}

// Tick counts whose product is negative.
class PastDeadline : public testing::TestWithParam<unsigned>
{
};
INSTANTIATE_TEST_SUITE_P(TickCounts, PastDeadline, testing::Values(214749U, 300000U, 429496U, 0xFFFFFFFEU));

TEST_P(PastDeadline, AWaitForAnEmptyCountEndsAtOnceWith110)
{
    SEM_ID binary = semBCreate(0, SEM_EMPTY);
    SEM_ID counting = semCCreate(0, 0);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(110, semTake(binary, GetParam())); }), 5s);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(110, semTake(counting, GetParam())); }), 5s);
    EXPECT_EQ(0, semDelete(binary));
    EXPECT_EQ(0, semDelete(counting));
}

TEST_P(PastDeadline, AWaitForAHeldMutexEndsAtOnceWith110)
{
    SEM_ID mutex = semMCreate(0);
    ASSERT_EQ(0, semTake(mutex, Forever));
    std::thread([&] { EXPECT_LT(timeOf([&] { EXPECT_EQ(110, semTake(mutex, GetParam())); }), 5s); }).join();
    EXPECT_EQ(0, semGive(mutex));
    EXPECT_EQ(0, semDelete(mutex));
}

TEST_P(PastDeadline, WhatIsAvailableIsStillTaken)
{
    SEM_ID full = semCCreate(0, 1);
    SEM_ID mutex = semMCreate(0);
    EXPECT_EQ(0, semTake(full, GetParam()));
    EXPECT_EQ(11, semTake(full, 0));
    EXPECT_EQ(0, semTake(mutex, GetParam()));
    EXPECT_EQ(0, semTake(mutex, GetParam())) << "its owner once more";
    EXPECT_EQ(0, semGive(mutex));
    EXPECT_EQ(0, semGive(mutex));
    EXPECT_EQ(0, semDelete(full));
    EXPECT_EQ(0, semDelete(mutex));
}

TEST(TickClock, HasAHundredTicksASecond)
{
    EXPECT_EQ(100, sysClkRateGet());
}

TEST(TickClock, CountsWholeTicksOfTheMonotonicClock)
{
    {
        MonotonicClockStandsAt now(12, 345678901);
        EXPECT_EQ(1234U, tickGet());
    }
    {
        MonotonicClockStandsAt now(0, 9999999);
        EXPECT_EQ(0U, tickGet());
    }
    {
        MonotonicClockStandsAt now(0, 999999999);
        EXPECT_EQ(99U, tickGet());
    }
}

TEST(TickClock, WrapsAfter497Days)
{
    {
        MonotonicClockStandsAt now(42949672, 950000000);
        EXPECT_EQ(0xFFFFFFFFU, tickGet());
    }
    {
        MonotonicClockStandsAt now(42949672, 960000000);
        EXPECT_EQ(0U, tickGet());
    }
    {
        MonotonicClockStandsAt now(42949673, 0);
        EXPECT_EQ(4U, tickGet());
    }
}

TEST(TickClock, CutsTheSecondsTo32Bits)
{
    MonotonicClockStandsAt now((long{1} << 32) + 5, 0);
    EXPECT_EQ(500U, tickGet());
}

TEST(TickClock, NeverRunsBackwardsAndFollowsTheMonotonicClock)
{
    const auto ticks = [] {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count() / 10);
    };
    uint32_t before = tickGet();
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < 50ms) {
        const uint32_t lower = ticks(), now = tickGet(), upper = ticks();
        ASSERT_LE(now - before, 1000U) << "not backwards";
        ASSERT_LE(now - lower, upper - lower);
        before = now;
    }
}

TEST(TaskDelay, SleepsTenMillisecondsATickAndReturns0)
{
    uint32_t ticks = tickGet();
    EXPECT_GE(timeOf([] { EXPECT_EQ(0, taskDelay(5)); }), 50ms);
    EXPECT_GE(tickGet() - ticks, 5U);
    EXPECT_EQ(0, taskDelay(0));
}

TEST(TaskDelay, TakesItsProductIn32Bits)
{
    const auto slept = timeOf([] { EXPECT_EQ(0, taskDelay(429497)); }); // 2.704 ms, not 71 minutes
    EXPECT_GE(slept, 2ms);
    EXPECT_LT(slept, 60s);
}

TEST(TaskDelay, ASignalEndsItAndItStillReturns0)
{
    struct sigaction handled = {}, before;
    handled.sa_handler = [](int) {};
    sigaction(SIGUSR1, &handled, &before);
    std::atomic<bool> ended{false};
    const auto slept = timeOf([&] {
        std::thread sleeping([&] {
            EXPECT_EQ(0, taskDelay(100000));
            ended = true;
        });
        while (!ended) {
            pthread_kill(sleeping.native_handle(), SIGUSR1);
            std::this_thread::yield();
        }
        sleeping.join();
    });
    EXPECT_LT(slept, 60s);
    sigaction(SIGUSR1, &before, nullptr);
}
