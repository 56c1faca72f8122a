// Multi-event queues without the timer task.
#include "queues.h"

#include "bitset.h"
#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "harness/virtual_slot.h"
#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <limits>
#include <thread>

namespace
{
constexpr unsigned int All = 0xFFFFFFFF;

class MultiEventQ : public testing::Test
{
protected:
    MultiEventQ()
    {
        SBaseQ::lockSem = semMCreate(SEM_Q_PRIORITY);
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
        external = semCCreate(SEM_Q_FIFO, 0);
    }
    ~MultiEventQ() override
    {
        semDelete(external);
        for (SEM_ID *sem : {&SBaseQ::timerSig, &SBaseQ::lockSem}) {
            semDelete(*sem);
            *sem = nullptr;
        }
    }

    static int send(SMultiEventQ &queue, unsigned short id, unsigned int value = 0, int urgency = 0)
    {
        return queue.send(id, value, All, All, urgency);
    }
    int recv(SMultiEventQ &queue, int timeout = 0)
    {
        return queue.recv(event, data, timeout);
    }

    SEM_ID external = nullptr;
    unsigned short event = 0xEEEE;
    unsigned int data = 0xDDDDDDDD;
};
} // namespace

TEST_F(MultiEventQ, TakesTheThresholdBeforeTheDelayAndPassesThemOnTheOtherWayRound)
{
    SMultiEventQ queue(9, 1, 3, 20, external);
    EXPECT_EQ(9, queue.queueSize);
    EXPECT_EQ(3, queue.rxThreshold);
    EXPECT_EQ(20, queue.maxDelay);
    EXPECT_EQ(external, queue.externalFlag);
}

TEST_F(MultiEventQ, AllFourWidthsCarryTheSameMark)
{
    EXPECT_EQ(0xFD0330DFU, SMultiEventQ(4, 0, 0, 0, nullptr).magic);
    EXPECT_EQ(0xFD0330DFU, SMultiEventQ8(4, 0, 0, 0, nullptr).magic);
    EXPECT_EQ(0xFD0330DFU, SMultiEventQ16(4, 0, 0, 0, nullptr).magic);
    EXPECT_EQ(0xFD0330DFU, SMultiEventQ32(4, 0, 0, 0, nullptr).magic);
}

TEST_F(MultiEventQ, RingAndDataStartZeroed)
{
    SMultiEventQ16 queue(40, 0, 0, 0, nullptr);
    SemLock hold(SBaseQ::lockSem);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(0, queue.queuePtr[i]);
        EXPECT_EQ(0, queue.dataPtr[i]);
    }
    EXPECT_FALSE(queue.inUse->bitsAreSet());
    EXPECT_FALSE(queue.multiUse->bitsAreSet());
}

TEST_F(MultiEventQ, VirtualSlotsAreInOrder)
{
    EXPECT_EQ(2U, virtualSlotOf(&SMultiEventQ::size));
    EXPECT_EQ(3U, virtualSlotOf(&SMultiEventQ::readData));
    EXPECT_EQ(4U, virtualSlotOf(&SMultiEventQ::writeData));
    EXPECT_EQ(5U, virtualSlotOf(&SMultiEventQ::dataPointer));
}

TEST_F(MultiEventQ, SizeCountsTheObjectTheRingTheMasksAndTheData)
{
    constexpr unsigned int events = 100;
    const unsigned int mask = static_cast<unsigned int>(CBitMask(events).size());
    const unsigned int base = sizeof(SMultiEventQ) + 2 * events + 2 * mask;
    EXPECT_EQ(base, SMultiEventQ(events, 0, 0, 0, nullptr).size());
    EXPECT_EQ(base + events, SMultiEventQ8(events, 0, 0, 0, nullptr).size());
    EXPECT_EQ(base + 2 * events, SMultiEventQ16(events, 0, 0, 0, nullptr).size());
    EXPECT_EQ(base + 4 * events, SMultiEventQ32(events, 0, 0, 0, nullptr).size());
}

TEST_F(MultiEventQ, WriteDataReplacesExactlyTheMaskedBitsWithinTheWidth)
{
    SMultiEventQ queue0(4, 0, 0, 0, nullptr);
    SMultiEventQ8 queue8(4, 0, 0, 0, nullptr);
    SMultiEventQ16 queue16(4, 0, 0, 0, nullptr);
    SMultiEventQ32 queue32(4, 0, 0, 0, nullptr);
    for (SMultiEventQ *queue : {&queue0, static_cast<SMultiEventQ *>(&queue8), static_cast<SMultiEventQ *>(&queue16),
                                static_cast<SMultiEventQ *>(&queue32)}) {
        queue->writeData(2, 0x55555555, All);
        queue->writeData(2, 0xFFFFFFFF, 0x0F0F0F0F);
        queue->writeData(2, 0, 0x40404040);
    }
    EXPECT_EQ(0U, queue0.readData(2));
    EXPECT_EQ(0x1FU, queue8.readData(2));
    EXPECT_EQ(0x1F1FU, queue16.readData(2));
    EXPECT_EQ(0x1F1F1F1FU, queue32.readData(2));
    EXPECT_EQ(0U, queue32.readData(1));
    EXPECT_EQ(0U, queue32.readData(3));
}

TEST_F(MultiEventQ, DataPointerIsTheArrayOrNull)
{
    SMultiEventQ queue0(4, 0, 0, 0, nullptr);
    SMultiEventQ8 queue8(4, 0, 0, 0, nullptr);
    SMultiEventQ16 queue16(4, 0, 0, 0, nullptr);
    SMultiEventQ32 queue32(4, 0, 0, 0, nullptr);
    EXPECT_EQ(nullptr, queue0.dataPointer());
    EXPECT_EQ(queue8.dataPtr, queue8.dataPointer());
    EXPECT_EQ(queue16.dataPtr, queue16.dataPointer());
    EXPECT_EQ(queue32.dataPtr, queue32.dataPointer());
}

TEST_F(MultiEventQ, FailedAllocationPassesTheExceptionOnAndLeavesNothingBehind)
{
    int failures = 0;
    for (int nth = 1;; ++nth) {
        bool failed = false;
        bool thrown = false;
        printedBy([&] { // the semaphore's failure is not an exception but a line
            FailAllocation failing(nth);
            try {
                SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
                failed = failing.happened();
                if (failed && queue.cflag == nullptr)
                    thrown = true;
            } catch (const std::bad_alloc &) {
                failed = failing.happened();
                thrown = true;
            }
        });
        if (!failed)
            break;
        EXPECT_TRUE(thrown) << "allocation " << nth;
        ++failures;
    }
    EXPECT_GE(failures, 6); // the ring, two masks with their words, the data; and the semaphore's
    SMultiEventQ8 queue(4, 0, 0, 0, nullptr);
    EXPECT_EQ(0, send(queue, 1));
}

TEST_F(MultiEventQ, EventsAreReceivedInTheOrderSent)
{
    SMultiEventQ32 queue(6, 0, 0, 0, nullptr);
    for (unsigned short id : std::initializer_list<unsigned short>{4, 0, 5})
        EXPECT_EQ(0, send(queue, id, id * 100U));
    for (unsigned short id : std::initializer_list<unsigned short>{4, 0, 5}) {
        EXPECT_EQ(0, recv(queue));
        EXPECT_EQ(id, event);
        EXPECT_EQ(id * 100U, data);
    }
    EXPECT_EQ(-1, recv(queue));
    EXPECT_EQ(1, queue.empty);
}

TEST_F(MultiEventQ, EventIdEqualToTheSizeIsRefusedWithoutTheLock)
{
    SMultiEventQ32 queue(6, 0, 0, 0, nullptr);
    SEM_ID lockSem = SBaseQ::lockSem;
    SemLock hold(lockSem);
    std::thread([&] { // would hang if it locked
        EXPECT_EQ(-1, send(queue, 6));
        EXPECT_EQ(-1, send(queue, 0xFFFF));
        unsigned int looked = 7;
        EXPECT_EQ(-1, queue.snoop(6, looked));
        EXPECT_EQ(7U, looked);
    })
        .join();
}

TEST_F(MultiEventQ, SentAgainWithOtherDataIsOneEntryWithTheLastDataAndTheMark)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 1);
    send(queue, 5, 2);
    EXPECT_EQ(1, givesOf(queue.cflag)); // the second send signals nobody
    EXPECT_EQ(-2, recv(queue));
    EXPECT_EQ(5, event);
    EXPECT_EQ(2U, data);
    EXPECT_EQ(-1, recv(queue));
    send(queue, 5, 2);
    EXPECT_EQ(0, recv(queue)); // the mark went with the entry
}

TEST_F(MultiEventQ, SentAgainWithTheSameDataIsUnchanged)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 1);
    send(queue, 5, 1);
    EXPECT_EQ(0, recv(queue));
    EXPECT_EQ(1U, data);
}

TEST_F(MultiEventQ, ChangeThatIsTakenBackStaysAChange)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 1);
    send(queue, 5, 2);
    send(queue, 5, 1);
    EXPECT_EQ(-2, recv(queue));
    EXPECT_EQ(1U, data);
}

TEST_F(MultiEventQ, OnlyBitsOfTheComparisonMaskCountAsAChange)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 0xF0);
    queue.send(5, 0xF7, 0xF0, All, 0);
    EXPECT_EQ(0, recv(queue));
    EXPECT_EQ(0xF7U, data);
    send(queue, 5, 0xF0);
    queue.send(5, 0x70, 0xF0, 0, 0); // changed, though nothing is written
    EXPECT_EQ(-2, recv(queue));
    EXPECT_EQ(0xF0U, data);
}

TEST_F(MultiEventQ, DataIsComparedBeforeItIsCutToTheWidth)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 0x101);
    EXPECT_EQ(0x01U, queue.readData(5));
    send(queue, 5, 0x101);
    EXPECT_EQ(-2, recv(queue));
    EXPECT_EQ(0x01U, data);
    SMultiEventQ none(8, 0, 0, 0, nullptr);
    send(none, 5, 1);
    send(none, 5, 1);
    EXPECT_EQ(-2, recv(none));
}

TEST_F(MultiEventQ, SentAgainReplacesOnlyTheBitsOfTheWriteMask)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 0x12345678);
    queue.send(5, 0xFFFFFFFF, 0, 0x0000FF00, 0);
    EXPECT_EQ(0, recv(queue));
    EXPECT_EQ(0x1234FF78U, data);
}

TEST_F(MultiEventQ, FirstSendReplacesTheWholeWordWithZeroOutsideTheWriteMask)
{
    SMultiEventQ32 queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 0xFFFFFFFF);
    recv(queue);
    EXPECT_EQ(0xFFFFFFFFU, queue.readData(5)); // left behind by the receive
    queue.send(5, 0x12345678, 0, 0x0000FFFF, 0);
    EXPECT_EQ(0, recv(queue));
    EXPECT_EQ(0x00005678U, data);
}

TEST_F(MultiEventQ, WidthZeroAlwaysReceivesZero)
{
    SMultiEventQ queue(8, 0, 0, 0, nullptr);
    send(queue, 5, 99);
    EXPECT_EQ(0, recv(queue));
    EXPECT_EQ(5, event);
    EXPECT_EQ(0U, data);
}

TEST_F(MultiEventQ, RingHoldsEveryEventOnceAndWraps)
{
    SMultiEventQ16 queue(3, 0, 0, 0, nullptr);
    for (unsigned short round = 0; round < 10; ++round) {
        for (unsigned short id : std::initializer_list<unsigned short>{2, 0, 1})
            EXPECT_EQ(0, send(queue, id, round));
        EXPECT_EQ(0, queue.empty);
        EXPECT_EQ(queue.pRead, queue.pWrite); // full
        for (unsigned short id : std::initializer_list<unsigned short>{2, 0, 1})
            EXPECT_EQ(0, send(queue, id, round)); // merged, and nothing overflows
        for (unsigned short id : std::initializer_list<unsigned short>{2, 0, 1}) {
            EXPECT_EQ(0, recv(queue));
            EXPECT_EQ(id, event);
        }
        EXPECT_EQ(1, queue.empty);
        send(queue, 1);
        recv(queue); // one further, so that the next round starts elsewhere
    }
}

TEST_F(MultiEventQ, WithoutADelayEveryEventIsGivenAtOnce)
{
    SMultiEventQ8 queue(8, 0, 8, 0, external);
    for (unsigned short id = 0; id < 3; ++id) {
        send(queue, id);
        EXPECT_EQ(id + 1, givesOf(queue.cflag));
        EXPECT_EQ(id + 1, givesOf(external));
    }
    EXPECT_EQ(0, givesOf(SBaseQ::timerSig));
}

TEST_F(MultiEventQ, HoldsBackBelowTheThresholdAndGivesAllAtIt)
{
    SMultiEventQ8 queue(8, 0, 3, 50, external);
    send(queue, 0);
    send(queue, 1);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(2, queue.delayedGives);
    send(queue, 2);
    EXPECT_EQ(3, givesOf(queue.cflag));
    EXPECT_EQ(0, queue.delayedGives);
    EXPECT_EQ(2, givesOf(external)); // once for the two held back, once for the third
    SemLock hold(SBaseQ::lockSem);
    EXPECT_FALSE(queue.aging);
}

TEST_F(MultiEventQ, UrgencyOfTwoOrMoreGivesAtOnceWithAllThatIsHeldBack)
{
    for (int urgency : {2, 3, std::numeric_limits<int>::max()}) {
        SMultiEventQ8 queue(8, 0, 8, 50, nullptr);
        send(queue, 0);
        send(queue, 1, 0, urgency);
        EXPECT_EQ(2, givesOf(queue.cflag)) << urgency;
    }
    for (int urgency : {1, 0, -1, std::numeric_limits<int>::min()}) {
        SMultiEventQ8 queue(8, 0, 8, 50, nullptr);
        send(queue, 1, 0, urgency);
        EXPECT_EQ(0, givesOf(queue.cflag)) << urgency;
        EXPECT_EQ(1, queue.delayedGives) << urgency;
    }
}

TEST_F(MultiEventQ, UrgentSendOfAnEventThatIsQueuedSignalsNobody)
{
    SMultiEventQ8 queue(8, 0, 8, 50, nullptr);
    send(queue, 0, 1);
    send(queue, 0, 2, 2);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(1, queue.delayedGives);
}

TEST_F(MultiEventQ, PollingReceiverTakesAllThatIsHeldBackAtOnce)
{
    SMultiEventQ8 queue(8, 0, 8, 50, nullptr);
    send(queue, 3);
    send(queue, 4);
    EXPECT_EQ(0, recv(queue, 0));
    EXPECT_EQ(3, event);
    EXPECT_EQ(1, givesOf(queue.cflag));
    EXPECT_EQ(0, queue.delayedGives);
    EXPECT_EQ(0, recv(queue, 0));
    EXPECT_EQ(4, event);
}

TEST_F(MultiEventQ, WaitingReceiverFallsBackWhenItsTimeIsOver)
{
    SMultiEventQ8 queue(8, 0, 8, 1000, nullptr);
    send(queue, 3);
    const auto waited = timeOf([&] { EXPECT_EQ(0, recv(queue, 3)); });
    EXPECT_GE(waited, 29ms);
    EXPECT_LT(waited, 5s);
    EXPECT_EQ(3, event);
}

TEST_F(MultiEventQ, ReceiveOfNothingLeavesTheResultsAlone)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(-1, recv(queue, 0)); }));
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(-1, recv(queue, 1)); }));
    EXPECT_EQ(0xEEEE, event);
    EXPECT_EQ(0xDDDDDDDDU, data);
}

// A product of ticks and microseconds that is negative in 32 bits is a deadline in the past.
TEST_F(MultiEventQ, WaitThatWrapsEndsAtOnce)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    const auto waited = timeOf([&] { EXPECT_EQ(-1, recv(queue, 214749)); });
    EXPECT_LT(waited, 5s);
}

TEST_F(MultiEventQ, GiveWithoutAnEntryIsReportedAsAnEmptyQueue)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    semGive(queue.cflag);
    EXPECT_EQ(formatted("2|4: SMultiEventQ::recv empty Q (%p)\n", static_cast<void *>(&queue)),
              printedBy([&] { EXPECT_EQ(-1, recv(queue, 0)); }));
}

TEST_F(MultiEventQ, FailedTakeWithoutLimitIsReported)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    const SEM_ID cflag = queue.cflag;
    queue.cflag = nullptr; // as when it could not be created
    std::string printed = printedBy([&] {
        errno = 77;
        EXPECT_EQ(-1, recv(queue, WAIT_FOREVER));
    });
    EXPECT_EQ("semTake: error taking sem\n2|4: SMultiEventQ::recv semTake failure ((nil),-1,77)\n", printed);
    printed = printedBy([&] { EXPECT_EQ(-1, recv(queue, 0)); }); // the second take fails first
    EXPECT_EQ("semTake: error taking sem\nsemTake: error taking sem\n", printed);
    queue.externalFlag = external;
    printed = printedBy([&] { EXPECT_EQ(-1, recv(queue, WAIT_FOREVER)); });
    EXPECT_EQ("semTake: error taking sem\nsemTake: error taking sem\n", printed);
    queue.cflag = cflag;
}

TEST_F(MultiEventQ, WaitWithoutLimitThatASignalEndsIsReportedAndFails)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    std::atomic<bool> done = false;
    const std::string printed = printedBy([&] {
        std::thread receiver([&] {
            EXPECT_EQ(-1, recv(queue, WAIT_FOREVER));
            done = true;
        });
        while (!done) {
            pthread_kill(receiver.native_handle(), SIGUSR1);
            std::this_thread::yield();
        }
        receiver.join();
    });
    EXPECT_EQ(
        formatted("2|4: SMultiEventQ::recv semTake failure (%p,-1,%d)\n", static_cast<void *>(queue.cflag), EINTR),
        printed);
}

TEST_F(MultiEventQ, WithAnExternalFlagAReceiveNeverWaits)
{
    SMultiEventQ8 queue(8, 0, 8, 50, external);
    const auto waited = timeOf([&] {
        EXPECT_EQ("", printedBy([&] { EXPECT_EQ(-1, recv(queue, WAIT_FOREVER)); })); // nor reports
    });
    EXPECT_LT(waited, 5s);
    send(queue, 3);
    EXPECT_EQ(0, recv(queue, WAIT_FOREVER)); // falls back to what is held back
    EXPECT_EQ(3, event);
}

TEST_F(MultiEventQ, ExternalFlagIsGivenAgainWhileEntriesRemain)
{
    SMultiEventQ8 queue(8, 0, 3, 50, external);
    for (unsigned short id = 0; id < 3; ++id)
        send(queue, id);
    ASSERT_EQ(2, givesOf(external));
    recv(queue);
    EXPECT_EQ(3, givesOf(external));
    recv(queue);
    EXPECT_EQ(4, givesOf(external));
    recv(queue);
    EXPECT_EQ(4, givesOf(external)); // empty now
}

TEST_F(MultiEventQ, RecvQTakesAnEntryWithoutItsGive)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    send(queue, 3, 7);
    EXPECT_EQ(0, queue.recvQ(event, data));
    EXPECT_EQ(3, event);
    EXPECT_EQ(7U, data);
    EXPECT_EQ(1, givesOf(queue.cflag));
}

TEST_F(MultiEventQ, RecvQWithoutAnEntryWritesTheIdAndMovesNothing)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    EXPECT_EQ(-1, queue.recvQ(event, data));
    EXPECT_EQ(0, event); // what the slot holds
    EXPECT_EQ(0xDDDDDDDDU, data);
    EXPECT_EQ(0, queue.pRead);
}

// `empty` is not consulted: the bit of the id in the slot decides.
TEST_F(MultiEventQ, RecvQLooksAtTheBitsAndNotAtEmpty)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    send(queue, 3, 7);
    queue.empty = 1;
    EXPECT_EQ(0, queue.recvQ(event, data));
    EXPECT_EQ(3, event);
}

TEST_F(MultiEventQ, SnoopTellsTheStateAndChangesNothing)
{
    SMultiEventQ8 queue(8, 0, 0, 0, nullptr);
    EXPECT_EQ(-1, queue.snoop(3, data));
    EXPECT_EQ(0U, data); // written though nothing is queued
    send(queue, 3, 7);
    EXPECT_EQ(0, queue.snoop(3, data));
    EXPECT_EQ(7U, data);
    send(queue, 3, 8);
    EXPECT_EQ(-2, queue.snoop(3, data));
    EXPECT_EQ(-2, queue.snoop(3, data));
    EXPECT_EQ(8U, data);
    EXPECT_EQ(-2, recv(queue));
    EXPECT_EQ(-1, queue.snoop(3, data));
    EXPECT_EQ(8U, data); // the word stays
}

TEST_F(MultiEventQ, DestructionDeliversToTheExternalFlag)
{
    {
        SMultiEventQ32 queue(8, 0, 8, 50, external);
        send(queue, 1);
    }
    EXPECT_EQ(1, givesOf(external));
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(nullptr, SBaseQ::head);
}

TEST_F(MultiEventQ, QueueWithoutEventsRefusesAllOfThem)
{
    SMultiEventQ32 queue(0, 0, 0, 0, nullptr);
    EXPECT_EQ(-1, send(queue, 0));
    EXPECT_EQ(-1, recv(queue));
    EXPECT_EQ(-1, queue.recvQ(event, data));
}

TEST_F(MultiEventQ, LargestQueueHoldsEveryEvent)
{
    SMultiEventQ32 queue(0xFFFF, 0, 0, 0, nullptr);
    for (unsigned int id = 0; id < 0xFFFF; ++id)
        EXPECT_EQ(0, send(queue, static_cast<unsigned short>(id), ~id));
    for (unsigned int id = 0; id < 0xFFFF; ++id) {
        ASSERT_EQ(0, recv(queue));
        ASSERT_EQ(id, event);
        ASSERT_EQ(~id, data);
    }
    EXPECT_EQ(-1, recv(queue));
}
