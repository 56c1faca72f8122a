// The wall clock is stepped by an hour, forward and backward, during a thousand waits.
//
// Deadlines are on the wall clock, so a step forward ends a wait early and a step backward makes it longer by the step.
// Nothing is lost either way, and what is counted in ticks does not notice.
//
// The machine's own clock stays as it is: this program brings a wall clock of its own, and the waits that go by it.
#include "mempool.h"
#include "queues.h"

#include "harness/time_of.h"
#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>

namespace
{
constexpr int64_t Second = 1000000000;
constexpr int64_t Hour = 3600 * Second;
constexpr unsigned int QuarterOfAnHour = 90000; // ticks
constexpr auto Forever = static_cast<unsigned int>(WAIT_FOREVER);

std::atomic<int64_t> stepped{0};       // ns the wall clock was stepped by in all
std::atomic<uint64_t> waitsBegun{0};   // waits with a deadline
std::atomic<uint64_t> waitsStepped{0}; // of the trust table

int64_t nowOf(clockid_t clock)
{
    timespec now;
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * Second + now.tv_nsec;
}

timespec asTime(int64_t ns)
{
    return {.tv_sec = ns / Second, .tv_nsec = ns % Second};
}

int64_t wallClock()
{
    return nowOf(CLOCK_REALTIME) + stepped;
}

// A wait until the wall clock reads `deadline`, by a wait on the monotonic clock that ends with ETIMEDOUT: in slices of
// a millisecond, so that a step is noticed, as the kernel notices it.
template <class WaitUntil>
int waitByWallClock(const timespec *deadline, WaitUntil waitUntil)
{
    const int64_t end = deadline->tv_sec * Second + deadline->tv_nsec;
    bool begun = false;
    for (;;) {
        const int64_t left = end - wallClock();
        const timespec slice = asTime(nowOf(CLOCK_MONOTONIC) + std::clamp<int64_t>(left, 0, Second / 1000));
        if (!begun)
            ++waitsBegun;
        begun = true;
        const int result = waitUntil(&slice);
        if (result != ETIMEDOUT || left <= 0)
            return result;
    }
}
} // namespace

// The library's clock and its waits with a deadline, taken from here by the dynamic linker.
extern "C" {
int gettimeofday(timeval *time, void *) noexcept
{
    const int64_t now = wallClock();
    *time = {now / Second, now % Second / 1000};
    return 0;
}

int sem_timedwait(sem_t *sem, const timespec *deadline)
{
    const int result = waitByWallClock(
        deadline, [sem](const timespec *slice) { return sem_clockwait(sem, CLOCK_MONOTONIC, slice) == 0 ? 0 : errno; });
    errno = result;
    return result == 0 ? 0 : -1;
}

int pthread_mutex_timedlock(pthread_mutex_t *mutex, const timespec *deadline) noexcept
{
    return waitByWallClock(
        deadline, [mutex](const timespec *slice) { return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, slice); });
}

// Between two slices a broadcast would be missed, so each slice is a wake-up for nothing, after which the caller looks.
int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline)
{
    const int64_t left = deadline->tv_sec * Second + deadline->tv_nsec - wallClock();
    const timespec slice = asTime(nowOf(CLOCK_MONOTONIC) + std::clamp<int64_t>(left, 0, Second / 1000));
    ++waitsBegun;
    const int result = pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &slice);
    return result == ETIMEDOUT && left > 0 ? 0 : result;
}
}

namespace
{
constexpr int StepsEach = 100;

class Start : public testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_EQ(0, kel_utils_init());
    }
    void TearDown() override
    {
        printf("trust: wall clock stepped by an hour, forward and backward | %ju waits, nothing lost that came\n",
               uintmax_t{waitsStepped});
    }
};
const auto *const start = testing::AddGlobalTestEnvironment(new Start);

// Every way to wait with a limit. `waits` returns whether it got what `gives` gives; both leave nothing behind, with
// `restores` where what was got has to be had back.
struct Way {
    const char *name;
    std::function<bool(unsigned int ticks)> waits;
    std::function<void()> gives;
    std::function<void()> restores = [] {};
};

class WallClockStep : public testing::TestWithParam<int>
{
protected:
    // A wait on another thread, which has begun when the constructor returns.
    class Wait
    {
    public:
        Wait(const Way &way, unsigned int ticks)
        {
            const uint64_t before = waitsBegun;
            thread = std::thread([this, &way, ticks] {
                got = way.waits(ticks);
                over = true;
            });
            while (waitsBegun == before)
                std::this_thread::yield();
            ++waitsStepped;
        }
        bool isOver() const
        {
            return over;
        }
        bool gotIt()
        {
            thread.join();
            return got;
        }

    private:
        std::thread thread;
        bool got = false;
        std::atomic<bool> over{false};
    };

    Way way()
    {
        switch (GetParam()) {
        case 0:
            return {"semTake", [this](unsigned int ticks) { return semTake(sem, ticks) == 0; },
                    [this] { semGive(sem); }};
        case 1:
            return {"msgQReceive",
                    [](unsigned int ticks) {
                        char byte;
                        return msgQReceive(fixed, &byte, 1, ticks) == 1;
                    },
                    [] { msgQSend(fixed, "m", 1, 0, 0); }};
        case 2:
            return {"msgQxRecv",
                    [this](unsigned int ticks) {
                        char byte;
                        return msgQxRecv(queue, &byte, 1, static_cast<int>(ticks)) == 1;
                    },
                    [this] { msgQxSend(queue, "m", 1, 0, 0); }};
        case 3:
            return {"meqRecvX",
                    [this](unsigned int ticks) {
                        unsigned short event;
                        unsigned int data;
                        return meqRecvX(events, &event, &data, static_cast<int>(ticks)) == 0;
                    },
                    [this] { meqSend(events, 0, 1); }};
        case 4:
            return {"msgQSend", [](unsigned int ticks) { return msgQSend(fixedFull, "m", 1, ticks, 0) == 0; },
                    [] {
                        char byte;
                        EXPECT_EQ(1U, msgQReceive(fixedFull, &byte, 1, 0));
                    }};
        case 5:
            return {
                "msgQxSend",
                [this](unsigned int ticks) { return msgQxSend(fullQueue, "m", 1, static_cast<int>(ticks), 0) == 0; },
                [this] {
                    char byte;
                    EXPECT_EQ(1, msgQxRecv(fullQueue, &byte, 1, 0));
                }};
        case 6: // owned by this thread, so that each wait for it is on another one
            return {"semTake of a mutex",
                    [this](unsigned int ticks) {
                        bool got = false;
                        std::thread([&] { got = semTake(mutex, ticks) == 0 && semGive(mutex) == 0; }).join();
                        return got;
                    },
                    [this] { EXPECT_EQ(0, semGive(mutex)); }, [this] { EXPECT_EQ(0, semTake(mutex, 0)); }};
        default:
            return {"vxAlloc", [this](unsigned int ticks) { return pool.vxAlloc(static_cast<int>(ticks)) == block; },
                    [this] { pool.vxFree(block); }};
        }
    }

    WallClockStep() : pool(16, 1), block(pool.vxAlloc(0))
    {
        while (semTake(pool.availSem, 0) == 0) {
        }
        msgQSend(fixedFull, "m", 1, 0, 0);
        msgQxSend(fullQueue, "m", 1, 0, 0);
        while (semTake(fullQueue->sendFlag, 0) == 0) {
        }
        semTake(mutex, 0);
    }
    ~WallClockStep() override
    {
        semGive(mutex);
        semDelete(mutex);
        msgQxDelete(fullQueue);
        semGive(pool.availSem); // so that the destructor does not wait
        semDelete(sem);
        msgQxDelete(queue);
        meqDelete(events);
    }

    SEM_ID sem = semCCreate(0, 0);
    SEM_ID mutex = semMCreate(0);
    static inline MSG_Q_ID fixed = msgQCreate(1, 1, 0);
    static inline MSG_Q_ID fixedFull = msgQCreate(1, 1, 0);
    SMsgQueueX *queue = msgQxCreate(4, 4, 0, 0, 0, nullptr);
    SMsgQueueX *fullQueue = msgQxCreate(1, 4, 0, 0, 0, nullptr);
    SMultiEventQ *events = meqCreate(4, 1, nullptr);
    vxFixedSizeMemPool pool;
    void *block;
};
} // namespace

TEST_P(WallClockStep, HourForwardEndsAWaitAtOnceAndWhatComesLaterIsThere)
{
    const Way tested = way();
    for (int i = 0; i < StepsEach; ++i) {
        Wait wait(tested, QuarterOfAnHour);
        stepped += Hour;
        EXPECT_FALSE(wait.gotIt()) << tested.name;
        tested.gives();
        EXPECT_TRUE(tested.waits(1)) << tested.name;
        tested.restores();
    }
}

TEST_P(WallClockStep, HourBackwardLeavesAWaitThatStillEndsWhenSomethingComes)
{
    const Way tested = way();
    for (int i = 0; i < StepsEach; ++i) {
        Wait wait(tested, QuarterOfAnHour);
        stepped -= Hour;
        tested.gives();
        EXPECT_TRUE(wait.gotIt()) << tested.name;
        tested.restores();
    }
}

// Of 2 ticks; what counts is a step that surely came before they were over.
TEST_P(WallClockStep, HourBackwardMakesAWaitAnHourLonger)
{
    using Clock = std::chrono::steady_clock;
    const Way tested = way();
    for (int tries = 0; tries < 100; ++tries) {
        const auto began = Clock::now();
        Wait wait(tested, 2);
        stepped -= Hour;
        const bool inTime = Clock::now() - began < 19ms;
        while (!wait.isOver() && Clock::now() - began < 100ms)
            std::this_thread::yield();
        const bool wasOver = wait.isOver();
        stepped += Hour; // the hour has passed
        EXPECT_FALSE(wait.gotIt()) << tested.name;
        if (!inTime)
            continue;
        EXPECT_FALSE(wasOver) << tested.name;
        return;
    }
    ADD_FAILURE() << "no step came in time";
}

// A wait that begins after the step is as long as ever.
TEST_P(WallClockStep, WaitAfterAStepIsAsLongAsEver)
{
    const Way tested = way();
    for (const int64_t step : {Hour, -Hour}) {
        stepped += step;
        const auto waited = timeOf([&] { EXPECT_FALSE(tested.waits(2)) << tested.name; });
        EXPECT_GE(waited, 19ms);
        EXPECT_LT(waited, 5s);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryWait, WallClockStep, testing::Range(0, 8));

namespace
{
class WallClockStepWhileAging : public testing::Test
{
protected:
    bool receive(SMultiEventQ *from, unsigned int ticks)
    {
        unsigned short event;
        unsigned int data;
        return meqRecvX(from, &event, &data, static_cast<int>(ticks)) == 0;
    }

    static bool isBeingDelivered(const SMultiEventQ *queue)
    {
        SBaseQ::lock();
        const bool expired = queue->expired;
        SBaseQ::unLock();
        return expired;
    }

    // Holds back an event by some ticks; the timer task is in its wait for it when this returns.
    void holdBack(SMultiEventQ *queue)
    {
        while (isBeingDelivered(queue)) // then a send would wake the receiver at once
            std::this_thread::yield();
        const uint64_t before = waitsBegun;
        ASSERT_EQ(0, meqSend(queue, 0, 1));
        while (waitsBegun == before)
            std::this_thread::yield();
    }
};
} // namespace

// The timer task wakes early, sees by the tick clock that nothing is due, and sleeps again.
TEST_F(WallClockStepWhileAging, HourForwardDeliversNothingEarly)
{
    constexpr int delay = 5;
    SMultiEventQ *queue = meqCreateX(4, 2, 0, 2, delay, nullptr);
    for (int i = 0; i < 10; ++i) {
        const uint32_t sent = tickGet();
        holdBack(queue);
        stepped += Hour;
        EXPECT_TRUE(receive(queue, Forever));
        EXPECT_GE(tickGet() - sent, unsigned{delay});
    }
    meqDelete(queue);
}

// The timer task sleeps on for an hour, but who asks gets what is held back, and a new head makes it sleep anew.
TEST_F(WallClockStepWhileAging, HourBackwardIsMendedByWhoeverAsksAndByANewHead)
{
    SMultiEventQ *queue = meqCreateX(4, 2, 0, 2, 300, nullptr);
    SMultiEventQ *sooner = meqCreateX(4, 2, 0, 2, 1, nullptr);
    for (int i = 0; i < 10; ++i) {
        holdBack(queue);
        stepped -= Hour;
        EXPECT_TRUE(receive(queue, 0)); // asks
    }
    holdBack(queue);
    stepped -= Hour;
    EXPECT_EQ(0, meqSend(sooner, 0, 1)); // the new head, which wakes the timer task
    EXPECT_TRUE(receive(sooner, Forever));
    EXPECT_TRUE(receive(queue, Forever)); // 3 s, not an hour: the timer task has begun a new wait
    meqDelete(queue);
    meqDelete(sooner);
}

TEST(WallClockStepAndTicks, TickClockAndDelaysDoNotNotice)
{
    const uint32_t before = tickGet();
    stepped += Hour;
    EXPECT_LT(tickGet() - before, 500U);
    stepped -= 2 * Hour;
    EXPECT_LT(tickGet() - before, 500U);
    EXPECT_LT(timeOf([] { taskDelay(1); }), 5s);
}
