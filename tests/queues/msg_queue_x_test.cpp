// Variable-length queues without the timer task.
#include "queues.h"

#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "harness/virtual_slot.h"
#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace
{
class MsgQueueX : public testing::Test
{
protected:
    MsgQueueX()
    {
        SBaseQ::lockSem = semMCreate(SEM_Q_PRIORITY);
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
        external = semCCreate(SEM_Q_FIFO, 0);
    }
    ~MsgQueueX() override
    {
        semDelete(external);
        for (SEM_ID *sem : {&SBaseQ::timerSig, &SBaseQ::lockSem}) {
            semDelete(*sem);
            *sem = nullptr;
        }
    }

    static int send(SMsgQueueX &queue, const char *text, int timeout = 0, int flags = 0)
    {
        return queue.send(text, static_cast<int>(strlen(text)), timeout, flags);
    }

    // The next message, or "none".
    static std::string next(SMsgQueueX &queue, int timeout = 0)
    {
        char bytes[64];
        const int length = queue.recv(bytes, sizeof bytes, timeout);
        return length < 0 ? "none" : std::string(bytes, static_cast<size_t>(length));
    }

    SEM_ID external = nullptr;
};
} // namespace

TEST_F(MsgQueueX, IsMadeEmptyWithOneTurnForSenders)
{
    SMsgQueueX queue(9, 20, 1, 3, 5, 40, external);
    EXPECT_EQ(0xFD0550DFU, queue.magic);
    EXPECT_EQ(9, queue.queueSize);
    EXPECT_EQ(20, queue.maxMsgLength);
    EXPECT_EQ(3, queue.rxThreshold);
    EXPECT_EQ(5, queue.txThreshold);
    EXPECT_EQ(40, queue.maxDelay);
    EXPECT_EQ(external, queue.externalFlag);
    EXPECT_FALSE(queue.txBlocking);
    EXPECT_EQ(1, queue.sendFlag->kind); // a binary semaphore
    EXPECT_EQ(1, givesOf(queue.sendFlag));
    EXPECT_EQ(1, queue.empty);
}

TEST_F(MsgQueueX, VirtualSlotsAreTheDestructorsAndSize)
{
    EXPECT_EQ(2U, virtualSlotOf(&SMsgQueueX::size));
}

TEST_F(MsgQueueX, SizeCountsTheObjectTheBodiesAndTheLengths)
{
    EXPECT_EQ(sizeof(SMsgQueueX) + 9 * 20 + 2 * 9, SMsgQueueX(9, 20, 1, 3, 5, 40, nullptr).size());
}

TEST_F(MsgQueueX, MemoryThatIsNotToBeHadIsReportedAndEverythingFails)
{
    for (int nth = 1;; ++nth) {
        alignas(SMsgQueueX) static unsigned char memory[sizeof(SMsgQueueX)];
        SMsgQueueX *made = nullptr;
        bool failed = false;
        const std::string printed = printedBy([&] {
            FailAllocation failing(nth);
            made = new (memory) SMsgQueueX(2, 4, 0, 0, 2, 0, nullptr);
            failed = failing.happened();
        });
        if (!failed) {
            made->~SMsgQueueX();
            break;
        }
        const void *address = made;
        if (made->cflag == nullptr) {
            EXPECT_EQ(formatted("2|4: SBaseQ::SBaseQ creation failed (%p)\n", address), printed);
        } else {
            EXPECT_EQ(formatted("2|4: SMsgQueueX::SMsgQueueX creation failed (%p)\n", address), printed);
        }
        if (made->msgQ == nullptr) {
            for (int timeout : {0, 1, static_cast<int>(WAIT_FOREVER)}) {
                char bytes[4];
                EXPECT_EQ(-1, made->send("abc", 3, timeout, 0));
                EXPECT_EQ(-1, made->recv(bytes, 4, timeout)); // does not wait for what cannot come
                EXPECT_EQ(-1, made->recvQ(bytes, 4));
            }
        }
        printedBy([&] { made->~SMsgQueueX(); });
    }
}

TEST_F(MsgQueueX, WithoutItsSendersSemaphoreOnlySendersThatDoNotWaitGetThrough)
{
    SMsgQueueX queue(3, 4, 0, 0, 3, 0, nullptr);
    semDelete(queue.sendFlag);
    queue.sendFlag = nullptr; // as when it could not be created
    printedBy([&] {
        EXPECT_EQ(-1, send(queue, "a", 1));
        EXPECT_EQ(-1, send(queue, "b", WAIT_FOREVER));
        EXPECT_EQ(0, send(queue, "c", 0));
        EXPECT_EQ("c", next(queue));
    });
}

TEST_F(MsgQueueX, SizeProductThatIsNegativeIn32BitsIsACreationFailure)
{
    std::unique_ptr<SMsgQueueX> queue;
    const std::string printed =
        printedBy([&] { queue = std::make_unique<SMsgQueueX>(0x8000, 0x10000, 0, 0, 0x8000, 0, nullptr); });
    EXPECT_EQ(formatted("2|4: SMsgQueueX::SMsgQueueX creation failed (%p)\n", static_cast<void *>(queue.get())),
              printed);
    EXPECT_EQ(nullptr, queue->msgQ);
    char bytes[4];
    EXPECT_EQ(-1, queue->send("abc", 3, WAIT_FOREVER, 0));
    EXPECT_EQ(-1, queue->recv(bytes, 4, WAIT_FOREVER));
}

// 65537 slots of 65537 bytes are 131073 bytes in 32 bits: room for one.
TEST_F(MsgQueueX, SizeProductThatWrapsKeepsEverySlotInsideItsMemory)
{
    std::vector<char> body(65537, 'x');
    char got[8];
    SMsgQueueX queue(65537, 65537, 0, 0, 65537, 0, nullptr);
    ASSERT_NE(nullptr, queue.msgQ);
    EXPECT_EQ(sizeof(SMsgQueueX) + 131073 + 2 * 65537, queue.size());
    EXPECT_EQ(-1, queue.send(body.data(), 8, 0, 1)); // the front is the last slot
    EXPECT_EQ(1, queue.empty);
    EXPECT_EQ(0, queue.send(body.data(), 65537, WAIT_FOREVER, 0));
    EXPECT_EQ(-1, queue.send(body.data(), 8, WAIT_FOREVER, 0)); // the second slot
    EXPECT_EQ(-1, queue.send(body.data(), 8, WAIT_FOREVER, 0)); // and the turn was passed on
    EXPECT_EQ(1, queue.recv(got, 8, 0));                        // 65537 bytes in 16 bits
    EXPECT_EQ(-1, queue.send(body.data(), 8, 0, 0));
    EXPECT_EQ(-1, queue.recv(got, 8, 0));
}

TEST_F(MsgQueueX, SizesThatMakeNoSenseQueueNothing)
{
    char got[4];
    for (const auto &[slots, length] : {std::pair(0, 4), std::pair(0, 0), std::pair(-3, 4), std::pair(4, -3),
                                        std::pair(-3, -3), std::pair(-0x10000, -0x10000), std::pair(0x10000, -0x10000)})
        printedBy([&, slotCount = slots, bytes = length] {
            SMsgQueueX queue(slotCount, bytes, 0, 0, 0, 0, nullptr);
            EXPECT_EQ(-1, queue.send("abc", 3, 0, 0));
            EXPECT_EQ(-1, queue.send("abc", 3, 0, 1));
            EXPECT_EQ(-1, queue.send("", 0, 0, 0));
            EXPECT_EQ(-1, queue.send("", 0, 0, 1));
            EXPECT_EQ(-1, queue.recv(got, 4, 0));
            EXPECT_EQ(1, queue.empty);
        });
}

TEST_F(MsgQueueX, SlotsOfNoBytesHoldEmptyMessages)
{
    SMsgQueueX queue(2, 0, 0, 0, 2, 0, nullptr);
    EXPECT_EQ(-1, queue.send("a", 1, 0, 0));
    EXPECT_EQ(0, queue.send(nullptr, 0, 0, 0));
    EXPECT_EQ(0, queue.recv(nullptr, 0, 0));
}

TEST_F(MsgQueueX, MessagesAreReceivedInTheOrderSent)
{
    SMsgQueueX queue(3, 8, 0, 0, 3, 0, nullptr);
    for (int round = 0; round < 5; ++round) { // around the ring
        EXPECT_EQ(0, send(queue, "one"));
        EXPECT_EQ(0, send(queue, ""));
        EXPECT_EQ("one", next(queue));
        EXPECT_EQ(0, send(queue, "three"));
        EXPECT_EQ("", next(queue));
        EXPECT_EQ("three", next(queue));
        EXPECT_EQ("none", next(queue));
    }
}

TEST_F(MsgQueueX, MessageOfExactlyTheMaximumIsTakenAndOneByteMoreRefused)
{
    SMsgQueueX queue(3, 4, 0, 0, 3, 0, nullptr);
    EXPECT_EQ(0, queue.send("abcd", 4, 0, 0));
    EXPECT_EQ(-1, queue.send("abcde", 5, 0, 0));
    EXPECT_EQ(1, msgQxNumMsgs(&queue));
    EXPECT_EQ("abcd", next(queue));
}

TEST_F(MsgQueueX, OverlongMessageIsRefusedBeforeAnyWait)
{
    SMsgQueueX queue(3, 4, 0, 0, 3, 0, nullptr);
    ASSERT_EQ(0, semTake(queue.sendFlag, 0));
    EXPECT_EQ(-1, queue.send("abcde", 5, WAIT_FOREVER, 0));
}

TEST_F(MsgQueueX, NegativeLengthIsRefused)
{
    SMsgQueueX queue(3, 4, 0, 0, 3, 0, nullptr);
    EXPECT_EQ(-1, queue.send("abcd", -1, 0, 0));
    EXPECT_EQ(-1, queue.send("abcd", std::numeric_limits<int>::min(), WAIT_FOREVER, 0));
    EXPECT_EQ(1, queue.empty);
}

TEST_F(MsgQueueX, MessageIsCutToTheReceiversRoomAndTheRestIsLost)
{
    SMsgQueueX queue(3, 8, 0, 0, 3, 0, nullptr);
    send(queue, "abcdef");
    send(queue, "next");
    char got[4] = {'?', '?', '?', '?'};
    EXPECT_EQ(3, queue.recv(got, 3, 0));
    EXPECT_EQ(0, memcmp(got, "abc?", 4));
    EXPECT_EQ("next", next(queue));
}

TEST_F(MsgQueueX, LengthIsKeptIn16Bits)
{
    std::vector<char> body(70000, 'x');
    SMsgQueueX queue(1, 70000, 0, 0, 1, 0, nullptr);
    EXPECT_EQ(0, queue.send(body.data(), 70000, 0, 0));
    EXPECT_EQ(70000 - 65536, queue.recv(body.data(), 70000, 0));
}

TEST_F(MsgQueueX, ReceiveWithNegativeRoomDoesNotTouchTheQueue)
{
    SMsgQueueX queue(3, 8, 0, 2, 3, 50, nullptr);
    send(queue, "a");
    char got[4];
    EXPECT_EQ(-1, queue.recv(got, -1, WAIT_FOREVER));
    EXPECT_EQ(1, queue.delayedGives);
    EXPECT_EQ(1, msgQxNumMsgs(&queue));
}

TEST_F(MsgQueueX, FlagOneSendsToTheFront)
{
    SMsgQueueX queue(4, 8, 0, 0, 4, 0, nullptr);
    send(queue, "A");
    send(queue, "B");
    EXPECT_EQ(0, send(queue, "new", 0, 1));
    EXPECT_EQ(3, queue.pRead); // before slot 0 is the last
    EXPECT_EQ("new", next(queue));
    EXPECT_EQ("A", next(queue));
    EXPECT_EQ("B", next(queue));
}

TEST_F(MsgQueueX, FrontOfAnEmptyQueueAndOfAFullOne)
{
    SMsgQueueX queue(2, 8, 0, 0, 2, 0, nullptr);
    EXPECT_EQ(0, send(queue, "first", 0, 1));
    EXPECT_EQ(0, send(queue, "before", 0, 1));
    EXPECT_TRUE(queue.txBlocking); // full by front insertion
    EXPECT_EQ(-1, send(queue, "more", 0, 1));
    EXPECT_EQ("before", next(queue));
    EXPECT_EQ("first", next(queue));
    EXPECT_EQ("none", next(queue));
}

TEST_F(MsgQueueX, SendQPutsToTheFrontForExactlyOne)
{
    SMsgQueueX queue(4, 8, 0, 0, 4, 0, nullptr);
    EXPECT_EQ(0, queue.sendQ("a", 1, 0, 0));
    EXPECT_EQ(0, queue.sendQ("b", 1, 0, 2));
    EXPECT_EQ(0, queue.sendQ("c", 1, 0, 1));
    EXPECT_EQ(0, givesOf(queue.cflag)); // wakes nobody
    char got[2];
    for (char expected : {'c', 'a', 'b'}) {
        EXPECT_EQ(1, queue.recvQ(got, 2));
        EXPECT_EQ(expected, got[0]);
    }
    EXPECT_EQ(-1, queue.recvQ(got, 2));
}

TEST_F(MsgQueueX, FullQueueRefusesSendersThatDoNotWaitUntilItHasDrainedToTheThreshold)
{
    SMsgQueueX queue(4, 8, 0, 0, 1, 0, nullptr);
    for (const char *text : {"a", "b", "c", "d"})
        EXPECT_EQ(0, send(queue, text));
    EXPECT_TRUE(queue.txBlocking);
    EXPECT_EQ(-1, send(queue, "e"));
    EXPECT_EQ("a", next(queue)); // 3 left
    EXPECT_EQ(-1, send(queue, "e"));
    EXPECT_EQ("b", next(queue)); // 2 left
    EXPECT_TRUE(queue.txBlocking);
    EXPECT_EQ(-1, send(queue, "e"));
    EXPECT_EQ("c", next(queue)); // 1 left: the threshold
    EXPECT_FALSE(queue.txBlocking);
    EXPECT_EQ(0, send(queue, "e"));
    EXPECT_EQ("d", next(queue));
    EXPECT_EQ("e", next(queue));
}

// A sender that takes a turn though the ring is full, because the turns have risen above one.
TEST_F(MsgQueueX, SenderWithATimeoutGivesUpWhenItFindsTheRingFull)
{
    SMsgQueueX queue(1, 8, 0, 0, 1, 0, nullptr);
    send(queue, "a");
    queue.txBlocking = false;
    ASSERT_EQ(1, givesOf(queue.sendFlag));
    EXPECT_EQ(-1, send(queue, "b", 1000));
    EXPECT_TRUE(queue.txBlocking);
    EXPECT_EQ(0, givesOf(queue.sendFlag)); // the turn is the receiver's to pass on
    EXPECT_EQ("a", next(queue));
    EXPECT_EQ(1, givesOf(queue.sendFlag));
}

TEST_F(MsgQueueX, SenderWithATimeoutWaitsOnlyForItsTurn)
{
    SMsgQueueX queue(1, 8, 0, 0, 1, 0, nullptr);
    EXPECT_EQ(0, send(queue, "a", WAIT_FOREVER));
    ASSERT_EQ(0, givesOf(queue.sendFlag)); // full: the turn stays with the receiver
    const auto waited = timeOf([&] { EXPECT_EQ(-1, send(queue, "b", 3)); });
    EXPECT_GE(waited, 29ms);
    EXPECT_LT(waited, 5s);
}

// A product of ticks and microseconds that is negative in 32 bits is a deadline in the past.
TEST_F(MsgQueueX, WaitThatWrapsTakesWhatIsThereAndElseEndsAtOnce)
{
    SMsgQueueX queue(1, 8, 0, 0, 1, 0, nullptr);
    EXPECT_EQ(0, send(queue, "a", 214749));
    const auto waited = timeOf([&] { EXPECT_EQ(-1, send(queue, "b", 214749)); });
    EXPECT_LT(waited, 5s);
    EXPECT_EQ("a", next(queue, 214749));
    EXPECT_EQ("none", next(queue, 214749));
}

TEST_F(MsgQueueX, SendersThatDoNotWaitRaiseTheTurnsAboveOne)
{
    SMsgQueueX queue(9, 8, 0, 0, 9, 0, nullptr);
    send(queue, "a");
    send(queue, "b");
    EXPECT_EQ(3, givesOf(queue.sendFlag));
    send(queue, "c", 5); // takes one and passes it on
    EXPECT_EQ(3, givesOf(queue.sendFlag));
}

TEST_F(MsgQueueX, ReceiveOfNothingStillPassesATurnOn)
{
    SMsgQueueX queue(2, 8, 0, 0, 0, 0, nullptr);
    char got[4];
    queue.txBlocking = true;
    EXPECT_EQ(-1, queue.recvQ(got, 4));
    EXPECT_FALSE(queue.txBlocking);
    EXPECT_EQ(2, givesOf(queue.sendFlag));
}

TEST_F(MsgQueueX, SenderThatWaitsWithoutLimitWaitsForRoom)
{
    SMsgQueueX queue(2, 8, 0, 0, 0, 0, nullptr); // senders go on when it is empty
    send(queue, "a", WAIT_FOREVER);
    send(queue, "b", WAIT_FOREVER);
    std::atomic<bool> sent = false;
    std::thread sender([&] {
        EXPECT_EQ(0, send(queue, "c", WAIT_FOREVER));
        sent = true;
    });
    EXPECT_EQ("a", next(queue));
    taskDelay(3); // a sender that does not wait for the threshold is through by then
    EXPECT_FALSE(sent);
    EXPECT_EQ("b", next(queue));
    sender.join();
    EXPECT_EQ("c", next(queue, WAIT_FOREVER));
}

// With more turns than one, a sender without limit finds the ring full after its turn, and waits again.
TEST_F(MsgQueueX, SenderThatFindsTheRingFullAfterItsTurnWaitsForTheNextOne)
{
    SMsgQueueX queue(1, 8, 0, 0, 1, 0, nullptr);
    send(queue, "a");
    ASSERT_EQ(1, givesOf(queue.sendFlag));
    std::thread sender([&] { EXPECT_EQ(0, send(queue, "b", WAIT_FOREVER)); });
    while (givesOf(queue.sendFlag) != 0)
        std::this_thread::yield();
    EXPECT_EQ("a", next(queue));
    sender.join();
    EXPECT_EQ("b", next(queue, WAIT_FOREVER));
}

TEST_F(MsgQueueX, WaitForRoomThatASignalEndsFails)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    for (int turns : {0, 1}) { // while waiting for the turn, or for room after it
        SMsgQueueX queue(1, 8, 0, 0, 1, 0, nullptr);
        send(queue, "a", WAIT_FOREVER);
        if (turns == 1)
            semGive(queue.sendFlag);
        std::atomic<bool> done = false;
        std::thread sender([&] {
            EXPECT_EQ(-1, send(queue, "b", WAIT_FOREVER));
            done = true;
        });
        while (!done) {
            pthread_kill(sender.native_handle(), SIGUSR1);
            std::this_thread::yield();
        }
        sender.join();
        EXPECT_EQ("a", next(queue));
        EXPECT_EQ("none", next(queue));
    }
}

TEST_F(MsgQueueX, HoldsBackBelowTheThresholdAndGivesAllAtIt)
{
    SMsgQueueX queue(8, 8, 0, 3, 8, 50, external);
    send(queue, "a");
    send(queue, "b", 0, 1); // to the front, and held back as well
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(2, queue.delayedGives);
    send(queue, "c");
    EXPECT_EQ(3, givesOf(queue.cflag));
    EXPECT_EQ(2, givesOf(external)); // once for the two held back, once for the third
    EXPECT_EQ("b", next(queue));
}

TEST_F(MsgQueueX, FlagsOfTwoOrMoreGiveAtOnceAndOddOnesGoToTheFront)
{
    SMsgQueueX queue(8, 8, 0, 8, 8, 50, nullptr);
    send(queue, "a");
    EXPECT_EQ(0, givesOf(queue.cflag));
    send(queue, "b", 0, 2);
    EXPECT_EQ(2, givesOf(queue.cflag));
    send(queue, "c", 0, 3);
    EXPECT_EQ(3, givesOf(queue.cflag));
    send(queue, "d", 0, -2); // negative: nothing but bit 0 counts
    EXPECT_EQ(3, givesOf(queue.cflag));
    send(queue, "e", 0, -1);
    EXPECT_EQ(3, givesOf(queue.cflag));
    for (const char *text : {"e", "c", "a", "b", "d"})
        EXPECT_EQ(text, next(queue));
}

TEST_F(MsgQueueX, WithoutADelayEveryMessageIsGivenAtOnce)
{
    SMsgQueueX queue(8, 8, 0, 8, 8, 0, external);
    send(queue, "a");
    send(queue, "b");
    EXPECT_EQ(2, givesOf(queue.cflag));
    EXPECT_EQ(2, givesOf(external));
    EXPECT_EQ(0, givesOf(SBaseQ::timerSig));
}

TEST_F(MsgQueueX, RefusedSendSignalsNobody)
{
    SMsgQueueX queue(1, 8, 0, 0, 1, 0, external);
    send(queue, "a");
    EXPECT_EQ(-1, send(queue, "b"));
    EXPECT_EQ(1, givesOf(queue.cflag));
    EXPECT_EQ(1, givesOf(external));
}

TEST_F(MsgQueueX, PollingReceiverTakesAllThatIsHeldBackAtOnce)
{
    SMsgQueueX queue(8, 8, 0, 8, 8, 50, nullptr);
    send(queue, "a");
    send(queue, "b");
    EXPECT_EQ("a", next(queue, 0));
    EXPECT_EQ(0, queue.delayedGives);
    EXPECT_EQ("b", next(queue, 0));
    EXPECT_EQ("none", next(queue, 0));
}

TEST_F(MsgQueueX, ExternalFlagIsGivenAgainWhileMessagesRemain)
{
    SMsgQueueX queue(8, 8, 0, 3, 8, 50, external);
    for (const char *text : {"a", "b", "c"})
        send(queue, text);
    ASSERT_EQ(2, givesOf(external));
    next(queue);
    EXPECT_EQ(3, givesOf(external));
    next(queue);
    EXPECT_EQ(4, givesOf(external));
    next(queue);
    EXPECT_EQ(4, givesOf(external));
}

TEST_F(MsgQueueX, WithAnExternalFlagAReceiveNeverWaitsNorReports)
{
    SMsgQueueX queue(8, 8, 0, 0, 8, 0, external);
    std::string printed;
    const auto waited = timeOf([&] { printed = printedBy([&] { EXPECT_EQ("none", next(queue, WAIT_FOREVER)); }); });
    EXPECT_LT(waited, 5s);
    EXPECT_EQ("", printed);
}

TEST_F(MsgQueueX, GiveWithoutAMessageIsReportedAsAnEmptyQueue)
{
    SMsgQueueX queue(8, 8, 0, 0, 8, 0, nullptr);
    semGive(queue.cflag);
    EXPECT_EQ(formatted("2|4: SMsgQueueX::recv empty Q (%p)\n", static_cast<void *>(&queue)),
              printedBy([&] { EXPECT_EQ("none", next(queue)); }));
}

TEST_F(MsgQueueX, FailedTakeWithoutLimitIsReported)
{
    SMsgQueueX queue(8, 8, 0, 0, 8, 0, nullptr);
    const SEM_ID cflag = queue.cflag;
    queue.cflag = nullptr; // as when it could not be created
    const std::string printed = printedBy([&] {
        errno = 77;
        EXPECT_EQ("none", next(queue, WAIT_FOREVER));
    });
    EXPECT_EQ("semTake: error taking sem\n2|4: SMsgQueueX::recv semTake failure ((nil),-1,77)\n", printed);
    queue.cflag = cflag;
}

TEST_F(MsgQueueX, DestructionDeliversToTheExternalFlag)
{
    {
        SMsgQueueX queue(8, 8, 0, 8, 8, 50, external);
        send(queue, "a");
    }
    EXPECT_EQ(1, givesOf(external));
    SemLock hold(SBaseQ::lockSem);
    EXPECT_EQ(nullptr, SBaseQ::head);
}
