// Queues without the timer task, and with a clock that reads what the test says.
#include "queues.h"

#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "harness/virtual_slot.h"
#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{
std::vector<uint32_t> readings; // of the clock, the next one last
int readingsTaken;
} // namespace

// Takes the place of the library's own clock.
uint32_t tickGet()
{
    ++readingsTaken;
    const uint32_t reading = readings.back();
    if (readings.size() > 1)
        readings.pop_back();
    return reading;
}

namespace
{
class BaseQ : public testing::Test
{
protected:
    BaseQ()
    {
        clockReads({0});
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    }
    ~BaseQ() override
    {
        semDelete(SBaseQ::timerSig);
        SBaseQ::timerSig = nullptr;
    }

    // These in turn, the last one from then on.
    static void clockReads(std::vector<uint32_t> inTurn)
    {
        readings.assign(inTurn.rbegin(), inTurn.rend());
        readingsTaken = 0;
    }

    static void setExpired(SBaseQ &queue, bool expired)
    {
        SemLock hold(SBaseQ::lockSem);
        queue.expired = expired;
    }
};
} // namespace

TEST_F(BaseQ, IsMadeIdleAndEmptyWithTheDelayBeforeTheThreshold)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(7, 1, 20, 3, external);
    EXPECT_EQ(7, queue.queueSize);
    EXPECT_EQ(20, queue.maxDelay);
    EXPECT_EQ(3, queue.rxThreshold);
    EXPECT_EQ(external, queue.externalFlag);
    EXPECT_EQ(0xFD0110DFU, queue.magic);
    EXPECT_EQ(1, queue.empty);
    EXPECT_EQ(0, queue.pRead);
    EXPECT_EQ(0, queue.pWrite);
    EXPECT_EQ(0, queue.delayedGives);
    EXPECT_EQ(nullptr, queue.ageNext);
    SemLock hold(SBaseQ::lockSem);
    EXPECT_FALSE(queue.aging);
    EXPECT_FALSE(queue.expired);
    EXPECT_EQ(nullptr, queue.agePrev);
    EXPECT_EQ(0, queue.ageTtl);
    ASSERT_NE(nullptr, queue.cflag);
    EXPECT_EQ(2, queue.cflag->kind); // a counting semaphore
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(0, semDelete(external));
}

TEST_F(BaseQ, IdsCountUpAndAreNeverUsedAgain)
{
    SemLock hold(SBaseQ::lockSem);
    const uint32_t before = SBaseQ::numQueues;
    uint32_t last;
    {
        SBaseQ first(1, 0, 0, 0, nullptr);
        SBaseQ second(1, 0, 0, 0, nullptr);
        EXPECT_EQ(before + 1, first.queueId);
        EXPECT_EQ(before + 2, second.queueId);
        last = second.queueId;
    }
    EXPECT_EQ(before + 2, SBaseQ::numQueues); // destruction does not count down
    SBaseQ third(1, 0, 0, 0, nullptr);
    EXPECT_EQ(last + 1, third.queueId);
}

TEST_F(BaseQ, VirtualSlotsAreTheDestructorsAndSize)
{
    EXPECT_EQ(2U, virtualSlotOf(&SBaseQ::size));
}

TEST_F(BaseQ, SizeIsThatOfTheObject)
{
    SBaseQ queue(100, 0, 0, 0, nullptr);
    EXPECT_EQ(sizeof(SBaseQ), queue.size());
}

TEST_F(BaseQ, SemaphoreThatCannotBeCreatedIsReportedAndTheQueueExistsAllTheSame)
{
    for (int nth = 1;; ++nth) {
        alignas(SBaseQ) unsigned char memory[sizeof(SBaseQ)];
        SBaseQ *queue = nullptr;
        bool failed = false;
        const std::string printed = printedBy([&] {
            FailAllocation failing(nth);
            queue = new (memory) SBaseQ(4, 0, 5, 2, nullptr);
            failed = failing.happened();
        });
        if (!failed) {
            EXPECT_EQ("", printed);
            queue->~SBaseQ();
            break;
        }
        EXPECT_EQ(nullptr, queue->cflag);
        EXPECT_EQ(4, queue->queueSize);
        EXPECT_EQ(formatted("2|4: SBaseQ::SBaseQ creation failed (%p)\n", static_cast<void *>(queue)), printed);
        EXPECT_EQ("", printedBy([&] { queue->~SBaseQ(); }));
    }
}

TEST_F(BaseQ, LockAndUnLockDoNothingBeforeTheStart)
{
    EXPECT_EQ("", printedBy([] {
                  SBaseQ::lock();
                  SBaseQ::unLock();
              }));
}

TEST_F(BaseQ, LockIsHeldAgainByItsOwner)
{
    SBaseQ::lockSem = semMCreate(SEM_Q_PRIORITY);
    SBaseQ::lock();
    SEM_ID lockSem = SBaseQ::lockSem;
    int foreignTake = 0;
    std::thread([&] { foreignTake = semTake(lockSem, 0); }).join();
    EXPECT_EQ(EBUSY, foreignTake);
    {
        SemLock again(lockSem);
    }
    std::thread([&] { foreignTake = semTake(lockSem, 0); }).join();
    EXPECT_EQ(EBUSY, foreignTake);
    SBaseQ::unLock();
    std::thread([&] {
        foreignTake = semTake(lockSem, 0);
        semGive(lockSem);
    }).join();
    EXPECT_EQ(0, foreignTake);
    EXPECT_EQ(0, semDelete(lockSem));
    SBaseQ::lockSem = nullptr;
}

TEST_F(BaseQ, AgeStartHoldsAGiveBackAndReadsTheClockTwice)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    clockReads({100, 101});
    queue.age_start(1);
    EXPECT_EQ(2, readingsTaken);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(1, queue.delayedGives);
    SemLock hold(SBaseQ::lockSem);
    EXPECT_TRUE(queue.aging);
    EXPECT_EQ(101, SBaseQ::sleepStart); // the second reading
    EXPECT_EQ(50, SBaseQ::headTime);
}

TEST_F(BaseQ, AgeStartRebasesByTheFirstReadingAndCountsFromTheSecond)
{
    SBaseQ first(4, 0, 50, 4, nullptr);
    SBaseQ second(4, 0, 60, 4, nullptr);
    clockReads({100, 100, 110, 112});
    first.age_start(1);
    second.age_start(1);
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(112, SBaseQ::sleepStart);
    EXPECT_EQ(40, SBaseQ::headTime); // 10 ticks have passed by the first reading
    EXPECT_EQ(60, SBaseQ::tailTime);
}

TEST_F(BaseQ, AgeStartOfAnAgingQueueOnlyCountsTheGive)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    clockReads({100});
    queue.age_start(1);
    clockReads({130});
    queue.age_start(1);
    queue.age_start(1);
    EXPECT_EQ(0, readingsTaken);
    EXPECT_EQ(3, queue.delayedGives);
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(100, SBaseQ::sleepStart);
    EXPECT_EQ(50, SBaseQ::headTime);
}

TEST_F(BaseQ, AgeStartWakesTheTimerTaskOnlyForAnEarlierHead)
{
    SBaseQ first(4, 0, 50, 4, nullptr);
    SBaseQ tied(4, 0, 50, 4, nullptr);
    SBaseQ later(4, 0, 60, 4, nullptr);
    SBaseQ sooner(4, 0, 40, 4, nullptr);
    first.age_start(1);
    EXPECT_EQ(1, givesOf(SBaseQ::timerSig));
    first.age_start(1);
    tied.age_start(1);
    later.age_start(1);
    EXPECT_EQ(1, givesOf(SBaseQ::timerSig));
    sooner.age_start(1);
    EXPECT_EQ(2, givesOf(SBaseQ::timerSig));
}

TEST_F(BaseQ, AgeStartOfAnExpiredQueueGivesAtOnce)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(4, 0, 50, 4, external);
    queue.delayedGives = 2; // what the timer task is about to give
    setExpired(queue, true);
    clockReads({100});
    queue.age_start(1);
    EXPECT_EQ(0, readingsTaken);
    EXPECT_EQ(1, givesOf(queue.cflag));
    EXPECT_EQ(1, givesOf(external));
    EXPECT_EQ(2, queue.delayedGives);
    setExpired(queue, false);
    queue.delayedGives = 0;
    EXPECT_EQ(0, semDelete(external));
}

TEST_F(BaseQ, AgeStopGivesAllThatWasHeldBackAndTheExternalFlagOnce)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(4, 0, 50, 4, external);
    queue.age_start(1);
    queue.age_start(1);
    queue.age_start(1);
    queue.age_stop(2);
    EXPECT_EQ(3, givesOf(queue.cflag));
    EXPECT_EQ(1, givesOf(external));
    EXPECT_EQ(0, queue.delayedGives);
    queue.age_stop(2); // gives nothing twice
    EXPECT_EQ(3, givesOf(queue.cflag));
    EXPECT_EQ(1, givesOf(external));
    EXPECT_EQ(0, semDelete(external));
}

TEST_F(BaseQ, AgeStopOfAQueueThatHoldsNothingBackGivesNothing)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(4, 0, 50, 4, external);
    queue.age_stop(1);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(0, givesOf(external));
    EXPECT_EQ(0, semDelete(external));
}

TEST_F(BaseQ, AgeStopDoesNotWakeTheTimerTask)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    queue.age_start(1);
    ASSERT_EQ(0, semTake(SBaseQ::timerSig, 0));
    queue.age_stop(1);
    EXPECT_EQ(0, givesOf(SBaseQ::timerSig));
}

TEST_F(BaseQ, AgeStopLeavesAnExpiredQueueToTheTimerTask)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    queue.delayedGives = 2;
    setExpired(queue, true);
    queue.age_stop(2);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(2, queue.delayedGives);
    setExpired(queue, false);
    queue.age_stop(2);
    EXPECT_EQ(2, givesOf(queue.cflag));
}

TEST_F(BaseQ, HeldBackCountThatWrappedStillGivesOnce)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    queue.delayedGives = -3;
    queue.age_stop(2);
    EXPECT_EQ(1, givesOf(queue.cflag));
    EXPECT_EQ(0, queue.delayedGives);
}

TEST_F(BaseQ, CallerTagHasNoEffect)
{
    SBaseQ queue(4, 0, 50, 4, nullptr);
    for (int tag : {-1, 0, 1, 2, 99})
        queue.age_start(tag);
    EXPECT_EQ(5, queue.delayedGives);
    queue.age_stop(-7);
    EXPECT_EQ(5, givesOf(queue.cflag));
}

TEST_F(BaseQ, DestructorTakesTheQueueOffTheListAndGivesTheExternalFlagForWhatWasHeldBack)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    {
        SBaseQ other(4, 0, 60, 4, nullptr);
        {
            SBaseQ queue(4, 0, 50, 4, external);
            queue.age_start(1);
            queue.age_start(1);
            other.age_start(1);
        }
        SemLock hold(SBaseQ::lockSem);
        EXPECT_EQ(&other, SBaseQ::head);
        EXPECT_EQ(nullptr, other.agePrev);
        EXPECT_EQ(60, SBaseQ::headTime);
    }
    EXPECT_EQ(1, givesOf(external)); // given, and not deleted
    EXPECT_EQ(0, semDelete(external));
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(nullptr, SBaseQ::head);
}

// The timer task still has to mark the queue as delivered when its last give lets the receiver delete it.
TEST_F(BaseQ, DestructorWaitsUntilTheTimerTaskHasLetGo)
{
    SBaseQ::lockSem = semMCreate(SEM_Q_PRIORITY);
    auto *queue = new SBaseQ(4, 0, 50, 4, nullptr);
    setExpired(*queue, true);
    bool deleted = false;
    std::thread receiver([&] {
        delete queue;
        __atomic_store_n(&deleted, true, __ATOMIC_RELEASE);
    });
    taskDelay(5); // a destructor that does not wait is long done by then
    EXPECT_FALSE(__atomic_load_n(&deleted, __ATOMIC_ACQUIRE));
    setExpired(*queue, false);
    receiver.join();
    EXPECT_TRUE(deleted);
    EXPECT_EQ(0, semDelete(SBaseQ::lockSem));
    SBaseQ::lockSem = nullptr;
}

TEST_F(BaseQ, IsNotCopyable)
{
    EXPECT_FALSE(std::is_copy_constructible_v<SBaseQ>);
    EXPECT_FALSE(std::is_copy_assignable_v<SBaseQ>);
    EXPECT_FALSE(std::is_copy_constructible_v<SMultiEventQ32>);
    EXPECT_FALSE(std::is_copy_constructible_v<SMsgQueueX>);
}
