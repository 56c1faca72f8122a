#include "queues.h"

#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

namespace
{
char got[16];
}

TEST(MsgQueueXC, CreateSetsTheTransmitThresholdToTheCapacity)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SMsgQueueX *queue = msgQxCreate(9, 20, 1, 3, 40, external);
    ASSERT_NE(nullptr, queue);
    EXPECT_EQ(9, queue->queueSize);
    EXPECT_EQ(20, queue->maxMsgLength);
    EXPECT_EQ(3, queue->rxThreshold);
    EXPECT_EQ(9, queue->txThreshold);
    EXPECT_EQ(40, queue->maxDelay);
    EXPECT_EQ(external, queue->externalFlag);
    msgQxDelete(queue);
    semDelete(external);
}

TEST(MsgQueueXC, CreateXCutsTheTransmitThresholdToTheCapacity)
{
    for (const auto &[wanted, kept] : {std::pair(0, 0), std::pair(4, 4), std::pair(9, 9), std::pair(10, 9)}) {
        SMsgQueueX *queue = msgQxCreateX(9, 20, 1, 3, wanted, 40, nullptr);
        ASSERT_NE(nullptr, queue);
        EXPECT_EQ(kept, queue->txThreshold);
        EXPECT_EQ(40, queue->maxDelay);
        msgQxDelete(queue);
    }
}

TEST(MsgQueueXC, ParametersOutOfRangeAreRefused)
{
    constexpr int lowest = std::numeric_limits<int>::min();
    for (int messages : {0, -1, lowest})
        EXPECT_EQ(nullptr, msgQxCreate(messages, 4, 0, 0, 0, nullptr));
    for (int length : {0, -1, lowest})
        EXPECT_EQ(nullptr, msgQxCreate(4, length, 0, 0, 0, nullptr));
    for (int rxThreshold : {-1, lowest, 5})
        EXPECT_EQ(nullptr, msgQxCreate(4, 4, 0, rxThreshold, 0, nullptr));
    for (int maxDelay : {-1, lowest})
        EXPECT_EQ(nullptr, msgQxCreate(4, 4, 0, 0, maxDelay, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(0, 4, 0, 0, 0, 0, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(4, 0, 0, 0, 0, 0, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(4, 4, 0, 5, 0, 0, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(4, 4, 0, -1, 0, 0, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(4, 4, 0, 0, -1, 0, nullptr));
    EXPECT_EQ(nullptr, msgQxCreateX(4, 4, 0, 0, 0, -1, nullptr));
}

TEST(MsgQueueXC, SmallestAndEqualParametersAreTaken)
{
    SMsgQueueX *queue = msgQxCreateX(1, 1, 0, 1, 0, 0, nullptr);
    EXPECT_NE(nullptr, queue);
    msgQxDelete(queue);
}

TEST(MsgQueueXC, QueueWithoutMemoryIsHandedOutAndRefusesEverything)
{
    SMsgQueueX *queue = nullptr;
    const std::string printed = printedBy([&] { queue = msgQxCreate(0x8000, 0x10000, 0, 0, 0, nullptr); });
    EXPECT_EQ(formatted("2|4: SMsgQueueX::SMsgQueueX creation failed (%p)\n", static_cast<void *>(queue)), printed);
    EXPECT_EQ(-1, msgQxSend(queue, "x", 1, WAIT_FOREVER, 0));
    EXPECT_EQ(-1, msgQxRecv(queue, got, 1, WAIT_FOREVER));
    EXPECT_EQ(0, msgQxNumMsgs(queue));
    msgQxDelete(queue);
}

TEST(MsgQueueXC, NumMsgsCountsAroundTheEndOfTheRing)
{
    SMsgQueueX *queue = msgQxCreate(3, 4, 0, 0, 0, nullptr);
    EXPECT_EQ(0, msgQxNumMsgs(queue));
    for (int round = 0; round < 4; ++round) {
        for (int sent = 1; sent <= 3; ++sent) {
            EXPECT_EQ(0, msgQxSend(queue, "abc", 3, 0, 0));
            EXPECT_EQ(sent, msgQxNumMsgs(queue));
        }
        for (int left = 2; left >= 0; --left) {
            EXPECT_EQ(3, msgQxRecv(queue, got, 4, 0));
            EXPECT_EQ(left, msgQxNumMsgs(queue));
        }
        msgQxSend(queue, "abc", 3, 0, 0);
        msgQxRecv(queue, got, 4, 0);
    }
    msgQxDelete(queue);
}

TEST(MsgQueueXC, SizeIsThatOfTheQueue)
{
    SMsgQueueX *queue = msgQxCreate(3, 4, 0, 0, 0, nullptr);
    EXPECT_EQ(sizeof(SMsgQueueX) + 3 * 4 + 2 * 3, msgQxSize(queue));
    msgQxDelete(queue);
}

TEST(MsgQueueXC, NullIsRefusedByEveryCall)
{
    EXPECT_EQ(-1, msgQxSend(nullptr, "x", 1, WAIT_FOREVER, 0));
    EXPECT_EQ(-1, msgQxRecv(nullptr, got, 1, WAIT_FOREVER));
    EXPECT_EQ(0, msgQxNumMsgs(nullptr));
    EXPECT_EQ(0U, msgQxSize(nullptr));
    msgQxDelete(nullptr);
}

// Another kind of queue, a plain base queue, and memory that is no queue at all.
TEST(MsgQueueXC, HandleOfAnotherKindIsRefusedByEveryCall)
{
    SMultiEventQ *other = meqCreate(1, 1, nullptr);
    SBaseQ base(1, 0, 0, 0, nullptr);
    alignas(SMsgQueueX) unsigned char memory[sizeof(SMsgQueueX)];
    memset(memory, 0xFD, sizeof memory);
    for (void *handle : {static_cast<void *>(other), static_cast<void *>(&base), static_cast<void *>(memory)}) {
        auto *queue = static_cast<SMsgQueueX *>(handle);
        EXPECT_EQ(-1, msgQxSend(queue, "x", 1, WAIT_FOREVER, 0));
        EXPECT_EQ(-1, msgQxRecv(queue, got, 1, WAIT_FOREVER));
        EXPECT_EQ(0, msgQxNumMsgs(queue));
        EXPECT_EQ(0U, msgQxSize(queue));
        msgQxDelete(queue);
    }
    EXPECT_EQ(0, meqSend(other, 0, 0)); // it is still there
    meqDelete(other);
}
