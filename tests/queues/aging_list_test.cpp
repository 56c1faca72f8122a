// The list arithmetic with clock readings from the test: every branch without a thread or a sleep.
#include "queues/aging_list.h"

#include "harness/printed_by.h"
#include "models/aging_list_model.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <unistd.h>

namespace
{
namespace aging_list = queues::aging_list;

class AgingList : public testing::Test
{
protected:
    AgingList()
    {
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    }
    ~AgingList() override
    {
        for (SBaseQ *queue : {&a, &b, &c, &d})
            queue->age_stop(0);
        semDelete(SBaseQ::timerSig);
        SBaseQ::timerSig = nullptr;
    }

    // Links queues with these delays at tick `now`; returns whether the timer task is to be woken for this one.
    static bool start(SBaseQ &queue, int delay, uint32_t now)
    {
        SemLock hold(SBaseQ::lockSem);
        queue.maxDelay = delay;
        aging_list::rebase(now);
        SBaseQ::sleepStart = static_cast<int>(now);
        return aging_list::insert(queue);
    }

    static void sleepFrom(uint32_t now)
    {
        SemLock hold(SBaseQ::lockSem);
        aging_list::startSleep(now);
    }

    // The queues from head to tail.
    static std::vector<SBaseQ *> listed()
    {
        SemLock hold(SBaseQ::lockSem);
        EXPECT_STREQ(nullptr, brokenInvariant());
        std::vector<SBaseQ *> all;
        for (SBaseQ *queue = SBaseQ::head; queue != nullptr; queue = queue->ageNext)
            all.push_back(queue);
        return all;
    }

    // Their deltas.
    static std::vector<int> deltas()
    {
        std::vector<int> all;
        SemLock hold(SBaseQ::lockSem);
        for (SBaseQ *queue = SBaseQ::head; queue != nullptr; queue = queue->ageNext)
            all.push_back(queue->ageTtl);
        return all;
    }

    // Expires what is due; returns it in the order of delivery and makes it idle.
    static std::vector<SBaseQ *> expire(uint32_t now)
    {
        SemLock hold(SBaseQ::lockSem);
        std::vector<SBaseQ *> all;
        for (SBaseQ *queue = aging_list::takeExpired(now); queue != nullptr;) {
            EXPECT_FALSE(queue->aging);
            EXPECT_TRUE(queue->expired);
            EXPECT_EQ(0, queue->ageTtl);
            all.push_back(queue);
            SBaseQ *const next = queue->ageNext;
            queue->expired = false;
            queue->ageNext = nullptr;
            queue->delayedGives = 0;
            queue = next;
        }
        return all;
    }

    using Queues = std::vector<SBaseQ *>;
    using Deltas = std::vector<int>;

    SBaseQ a{1, 0, 0, 0, nullptr};
    SBaseQ b{1, 0, 0, 0, nullptr};
    SBaseQ c{1, 0, 0, 0, nullptr};
    SBaseQ d{1, 0, 0, 0, nullptr};
};
} // namespace

TEST_F(AgingList, ElapsedCountsFromSleepStart)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::sleepStart = 100;
    EXPECT_EQ(0, aging_list::elapsedTicks(100));
    EXPECT_EQ(23, aging_list::elapsedTicks(123));
    SBaseQ::sleepStart = -10;
    EXPECT_EQ(5, aging_list::elapsedTicks(0xFFFFFFFBU));
    EXPECT_EQ(10, aging_list::elapsedTicks(0)); // the unsigned wrap is none for signed numbers
}

// The clock passes from the largest signed number to the smallest after 248 days of uptime.
TEST_F(AgingList, ElapsedIsOneTickShortOnceTheClockHasWrapped)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::sleepStart = std::numeric_limits<int>::max();
    EXPECT_EQ(0, aging_list::elapsedTicks(0x80000000U));
    EXPECT_EQ(9, aging_list::elapsedTicks(0x80000009U));
    SBaseQ::sleepStart = 5;
    EXPECT_EQ(-2, aging_list::elapsedTicks(4)); // a clock that went back: negative, and one less
}

TEST_F(AgingList, ElapsedBeyondTheSignedRangeIsNegative)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::sleepStart = std::numeric_limits<int>::min();
    EXPECT_EQ(-1, aging_list::elapsedTicks(0x7FFFFFFFU));
}

TEST_F(AgingList, FirstQueueIsHeadAndTailAndWakesTheTimerTask)
{
    EXPECT_TRUE(start(a, 50, 1000));
    EXPECT_EQ(Queues{&a}, listed());
    EXPECT_EQ(Deltas{50}, deltas());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(&a, SBaseQ::head);
    EXPECT_EQ(&a, SBaseQ::tail);
    EXPECT_EQ(50, SBaseQ::headTime);
    EXPECT_EQ(50, SBaseQ::tailTime);
    EXPECT_EQ(1, a.delayedGives);
}

TEST_F(AgingList, FirstQueueForgetsLinksOfItsLastTimeInTheList)
{
    start(a, 50, 0);
    start(b, 60, 0);
    a.age_stop(1); // leaves its own link to b as it was
    b.age_stop(1);
    EXPECT_EQ(&b, a.ageNext);
    start(a, 50, 0);
    EXPECT_EQ(Queues{&a}, listed());
    EXPECT_EQ(nullptr, a.ageNext);
}

TEST_F(AgingList, ShorterDelayThanTheHeadHasLeftBecomesTheHeadAndWakesTheTimerTask)
{
    start(a, 50, 0);
    EXPECT_TRUE(start(b, 30, 10)); // a has 40 left
    EXPECT_EQ((Queues{&b, &a}), listed());
    EXPECT_EQ((Deltas{30, 10}), deltas());
}

TEST_F(AgingList, ExactlyTheHeadsRemainingTimeBecomesTheHeadAndWakesNobody)
{
    start(a, 50, 0);
    EXPECT_FALSE(start(b, 40, 10));
    EXPECT_EQ((Queues{&b, &a}), listed());
    EXPECT_EQ((Deltas{40, 0}), deltas());
}

TEST_F(AgingList, LongerDelayThanAllGoesLastAndWakesNobody)
{
    start(a, 50, 0);
    EXPECT_FALSE(start(b, 70, 0));
    EXPECT_FALSE(start(c, 71, 0));
    EXPECT_EQ((Queues{&a, &b, &c}), listed());
    EXPECT_EQ((Deltas{50, 20, 1}), deltas());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(71, SBaseQ::tailTime);
}

TEST_F(AgingList, DelayBetweenTwoGoesBetweenThemAndShortensTheDeltaBehind)
{
    start(a, 10, 0);
    start(b, 50, 0);
    EXPECT_FALSE(start(c, 30, 0));
    EXPECT_EQ((Queues{&a, &c, &b}), listed());
    EXPECT_EQ((Deltas{10, 20, 20}), deltas());
}

// With the same delay at the same tick, and something ahead of both.
TEST_F(AgingList, TieInsideTheListGoesLastAndTheLaterOneIsDeliveredFirst)
{
    start(a, 10, 0);
    start(b, 50, 0);
    EXPECT_FALSE(start(c, 50, 0));
    start(d, 60, 0);
    EXPECT_EQ((Queues{&a, &b, &c, &d}), listed());
    EXPECT_EQ((Deltas{10, 40, 0, 10}), deltas());
    EXPECT_EQ((Queues{&c, &b, &a}), expire(50)); // in the same pass, the last to expire first
    EXPECT_EQ(Queues{&d}, listed());
}

TEST_F(AgingList, TieWithTheTailGoesBehindIt)
{
    start(a, 10, 0);
    start(b, 50, 0);
    EXPECT_FALSE(start(c, 50, 0));
    EXPECT_EQ((Queues{&a, &b, &c}), listed());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(&c, SBaseQ::tail);
    EXPECT_EQ(50, SBaseQ::tailTime);
}

TEST_F(AgingList, RebasingMovesEveryQueueOnThroughTheHeadsDelta)
{
    start(a, 50, 0);
    start(b, 60, 0);
    start(c, 100, 20);
    EXPECT_EQ((Deltas{30, 10, 60}), deltas());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(30, SBaseQ::headTime);
    EXPECT_EQ(100, SBaseQ::tailTime);
    EXPECT_EQ(20, SBaseQ::sleepStart);
}

// The head is overdue and the timer task has not come round yet.
TEST_F(AgingList, RebasingStopsAtTheHeadsExpiry)
{
    start(a, 50, 0);
    start(b, 60, 0);
    start(c, 100, 55);
    EXPECT_EQ((Deltas{0, 10, 90}), deltas());
}

TEST_F(AgingList, RebasingAnEmptyListDoesNothing)
{
    SemLock hold(SBaseQ::lockSem);
    aging_list::rebase(12345);
    EXPECT_STREQ(nullptr, brokenInvariant());
}

TEST_F(AgingList, RemovingFromTheMiddleGivesItsDeltaToTheNext)
{
    start(a, 10, 0);
    start(b, 30, 0);
    start(c, 60, 0);
    b.age_stop(1);
    EXPECT_EQ((Queues{&a, &c}), listed());
    EXPECT_EQ((Deltas{10, 50}), deltas());
}

TEST_F(AgingList, RemovingTheTailShortensTheTailTime)
{
    start(a, 10, 0);
    start(b, 30, 0);
    b.age_stop(1);
    EXPECT_EQ(Queues{&a}, listed());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(10, SBaseQ::tailTime);
}

TEST_F(AgingList, RemovingTheHeadMakesTheNextOneTheHeadWithAllItsTime)
{
    start(a, 10, 0);
    start(b, 30, 0);
    start(c, 60, 0);
    a.age_stop(1);
    EXPECT_EQ((Queues{&b, &c}), listed());
    EXPECT_EQ((Deltas{30, 30}), deltas());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(30, SBaseQ::headTime);
    EXPECT_EQ(60, SBaseQ::tailTime);
}

TEST_F(AgingList, RemovingTheOnlyQueueLeavesAnEmptyList)
{
    start(a, 10, 0);
    a.age_stop(1);
    EXPECT_EQ(Queues{}, listed());
}

TEST_F(AgingList, RemovedQueueKeepsItsOwnLinksAndTime)
{
    start(a, 10, 0);
    start(b, 30, 0);
    start(c, 60, 0);
    b.age_stop(1);
    SemLock hold(SBaseQ::lockSem);
    EXPECT_FALSE(b.aging);
    EXPECT_EQ(&a, b.agePrev);
    EXPECT_EQ(&c, b.ageNext);
    EXPECT_EQ(20, b.ageTtl);
}

TEST_F(AgingList, SleepLastsUntilTheHeadIsDueAndForeverWithoutOne)
{
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(0xFFFFFFFFU, aging_list::startSleep(70));
    EXPECT_EQ(70, SBaseQ::sleepStart);
    start(a, 50, 70);
    EXPECT_EQ(50U, aging_list::startSleep(80));
    EXPECT_EQ(80, SBaseQ::sleepStart);
}

TEST_F(AgingList, OnlyASleepWithNothingLeftIsCountedAsNull)
{
    SemLock hold(SBaseQ::lockSem);
    const uint32_t before = SBaseQ::timeoutNull;
    aging_list::startSleep(0);
    EXPECT_EQ(before, SBaseQ::timeoutNull);
    start(a, 1, 0);
    aging_list::startSleep(0);
    EXPECT_EQ(before, SBaseQ::timeoutNull);
    start(b, 0, 0);
    EXPECT_EQ(0U, aging_list::startSleep(0));
    EXPECT_EQ(before + 1, SBaseQ::timeoutNull);
}

TEST_F(AgingList, NothingExpiresBeforeItsTime)
{
    start(a, 50, 0);
    start(b, 60, 0);
    EXPECT_EQ(Queues{}, expire(49));
    EXPECT_EQ((Deltas{1, 10}), deltas());
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(1, SBaseQ::headTime);
    EXPECT_EQ(11, SBaseQ::tailTime);
}

TEST_F(AgingList, AQueueExpiresExactlyAtItsTimeAndTheRestMovesOn)
{
    start(a, 50, 0);
    start(b, 60, 0);
    EXPECT_EQ(Queues{&a}, expire(50));
    EXPECT_EQ(Queues{&b}, listed());
    EXPECT_EQ(Deltas{10}, deltas());
}

TEST_F(AgingList, LateTaskTakesEveryQueueThatIsOverdue)
{
    start(a, 50, 0);
    start(b, 60, 0);
    start(c, 90, 0);
    EXPECT_EQ((Queues{&b, &a}), expire(75));
    EXPECT_EQ(Queues{&c}, listed());
    EXPECT_EQ(Deltas{15}, deltas());
}

// A sender that comes after the pass at tick 50, and before the task counts from a new tick.
TEST_F(AgingList, SenderBetweenAPassAndTheNextSleepMovesTheListOnTwice)
{
    start(a, 50, 0);
    start(b, 120, 0);
    EXPECT_EQ(Queues{&a}, expire(50));
    EXPECT_EQ(Deltas{70}, deltas());
    start(c, 300, 50);
    EXPECT_EQ((Queues{&b, &c}), listed());
    EXPECT_EQ((Deltas{20, 280}), deltas());
}

TEST_F(AgingList, ListThatRunsOutIsEmpty)
{
    start(a, 50, 0);
    start(b, 60, 0);
    EXPECT_EQ((Queues{&b, &a}), expire(1000));
    EXPECT_EQ(Queues{}, listed());
    EXPECT_EQ(Queues{}, expire(2000));
}

TEST_F(AgingList, NothingMovesWhenTheClockWentBack)
{
    start(a, 50, 100);
    EXPECT_EQ(Queues{}, expire(40));
    EXPECT_EQ(Deltas{50}, deltas());
}

TEST_F(AgingList, QueueWithNoTimeLeftExpiresWithoutATick)
{
    start(a, 0, 100);
    EXPECT_EQ(Queues{&a}, expire(100));
}

TEST_F(AgingList, NegativeDelayIsDueAtOnce)
{
    start(a, 100, 0);
    EXPECT_TRUE(start(b, -5, 0));
    EXPECT_EQ((Queues{&b, &a}), listed());
    EXPECT_EQ((Deltas{-5, 105}), deltas());
    EXPECT_EQ(Queues{&b}, expire(0));
    EXPECT_EQ(Deltas{100}, deltas());
}

// As a time-out -1 is without limit, so the task has to be woken for such a head.
TEST_F(AgingList, DelayOfMinusOneAlwaysWakesTheTimerTask)
{
    EXPECT_TRUE(start(a, -1, 0));
    EXPECT_TRUE(start(b, -1, 0));
    EXPECT_TRUE(start(c, -1, 7));
    EXPECT_EQ((Queues{&a, &b, &c}), expire(9));
}

// Nobody asks for such delays; the arithmetic wraps like the clock and is never undefined.
TEST_F(AgingList, DeltaThatDoesNotFitWraps)
{
    start(a, std::numeric_limits<int>::max(), 0);
    EXPECT_FALSE(start(b, -5, 0));
    EXPECT_EQ((Deltas{-5, std::numeric_limits<int>::min() + 4}), deltas());
    expire(0);
}

namespace
{
SBaseQ *corrupted;
int expectedTtl;

// In the dying process: the links are what a core dump is read for.
void checkLinks(int) KEL_UNCHECKED_LOCKING
{
    _exit(corrupted->agePrev == nullptr && corrupted->ageTtl == expectedTtl && !corrupted->aging ? 42 : 43);
}

void endOnCorruption(SBaseQ &queue, int ttl) KEL_UNCHECKED_LOCKING
{
    corrupted = &queue;
    expectedTtl = ttl;
    for (int fault : {SIGSEGV, SIGBUS, SIGILL, SIGTRAP, SIGABRT})
        signal(fault, checkLinks);
    queue.agePrev = &queue;
    SBaseQ::sleepStart = static_cast<int>(tickGet());
    queue.age_start(1);
    _exit(1);
}
} // namespace

using AgingListDeathTest = AgingList;

TEST_F(AgingListDeathTest, WalkPastTheHeadStoresItsLinksAndEndsTheProcess)
{
    start(a, 10, tickGet());
    c.maxDelay = 50;
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::tailTime = 100; // corrupt: the only queue is due in 10
    const std::string printed =
        printedBy([&] { EXPECT_EXIT(endOnCorruption(c, 50 - 90), testing::ExitedWithCode(42), ""); });
    SBaseQ::tailTime = 10;
    EXPECT_EQ(formatted("2|0: SBaseQ::age_start missed list head (%u)\n", c.queueId), printed);
}

TEST_F(AgingListDeathTest, HeadWithoutATailEndsTheProcess)
{
    start(a, 10, tickGet());
    c.maxDelay = 50;
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::tail = nullptr;
    const std::string printed =
        printedBy([&] { EXPECT_EXIT(endOnCorruption(c, 50 - 10), testing::ExitedWithCode(42), ""); });
    SBaseQ::tail = &a;
    EXPECT_EQ(formatted("2|0: SBaseQ::age_start missed list head (%u)\n", c.queueId), printed);
}
