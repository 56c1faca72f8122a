#include "queues.h"

#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <cstring>

// Written in C, in queues_from_c.c: returns the number of the first call that answers wrongly, or 0.
extern "C" int firstWrongAnswerFromC(void);

namespace
{
unsigned short event;
unsigned int data;
} // namespace

TEST(MultiEventQC, EveryEntryPointWorksFromC)
{
    EXPECT_EQ(0, firstWrongAnswerFromC());
}

TEST(MultiEventQC, WidthsAreBytes)
{
    for (int width : {0, 1, 2, 4}) {
        SMultiEventQ *queue = meqCreate(width, 3, nullptr);
        ASSERT_NE(nullptr, queue);
        EXPECT_EQ(0, meqSend(queue, 1, 0xFFFFFFFF));
        EXPECT_EQ(0, meqRecv(queue, &event, &data));
        EXPECT_EQ(width == 4 ? 0xFFFFFFFFU : (1U << (8 * width)) - 1, data);
        meqDelete(queue);
    }
}

TEST(MultiEventQC, AnyOtherWidthAndNoEventsAreRefused)
{
    for (int width : {3, 5, 8, -1})
        EXPECT_EQ(nullptr, meqCreateX(width, 3, 1, 0, 0, nullptr)) << width;
    for (int width : {0, 1, 2, 3, 4})
        EXPECT_EQ(nullptr, meqCreateX(width, 0, 1, 0, 0, nullptr)) << width;
    EXPECT_EQ(nullptr, meqCreate(3, 3, nullptr));
    EXPECT_EQ(nullptr, meqCreate(1, 0, nullptr));
}

TEST(MultiEventQC, CreateXTakesTheThresholdBeforeTheDelay)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SMultiEventQ *queue = meqCreateX(4, 9, 1, 3, 20, external);
    EXPECT_EQ(9, queue->queueSize);
    EXPECT_EQ(3, queue->rxThreshold);
    EXPECT_EQ(20, queue->maxDelay);
    EXPECT_EQ(external, queue->externalFlag);
    meqDelete(queue);
    semDelete(external);
}

TEST(MultiEventQC, CreateHasNoThresholdAndNoDelay)
{
    SMultiEventQ *queue = meqCreate(4, 9, nullptr);
    EXPECT_EQ(0, queue->rxThreshold);
    EXPECT_EQ(0, queue->maxDelay);
    EXPECT_EQ(nullptr, queue->externalFlag);
    meqDelete(queue);
}

TEST(MultiEventQC, EventIdEqualToTheSizeIsRefused)
{
    SMultiEventQ *queue = meqCreate(4, 9, nullptr);
    EXPECT_EQ(-1, meqSend(queue, 9, 1));
    EXPECT_EQ(-1, meqSnoop(queue, 9, &data));
    EXPECT_EQ(0, meqSend(queue, 8, 1));
    meqDelete(queue);
}

TEST(MultiEventQC, XAddsTheMasks)
{
    SMultiEventQ *queue = meqCreate(4, 9, nullptr);
    EXPECT_EQ(0, meqSendX(queue, 1, 0x1234, 0, 0x00FF));
    EXPECT_EQ(-1 + 1, meqSnoop(queue, 1, &data));
    EXPECT_EQ(0x34U, data);
    EXPECT_EQ(0, meqSendX(queue, 1, 0xFF35, 0xFF00, 0));
    EXPECT_EQ(-2, meqSnoop(queue, 1, &data)); // differs under the comparison mask
    EXPECT_EQ(0x34U, data);
    meqDelete(queue);
}

TEST(MultiEventQC, YAddsTheUrgency)
{
    SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    SMultiEventQ *queue = meqCreateX(4, 9, 1, 9, 50, nullptr);
    EXPECT_EQ(0, meqSend(queue, 1, 1));
    EXPECT_EQ(0, meqSendX(queue, 2, 1, 0, 0));
    EXPECT_EQ(0, meqSendY(queue, 3, 1, 1));
    EXPECT_EQ(0, meqSendXY(queue, 4, 1, 0, 0, 1));
    EXPECT_EQ(0, givesOf(queue->cflag));
    EXPECT_EQ(0, meqSendY(queue, 5, 1, 2));
    EXPECT_EQ(5, givesOf(queue->cflag));
    EXPECT_EQ(0, meqSendXY(queue, 6, 1, 0, 0, 2));
    EXPECT_EQ(6, givesOf(queue->cflag));
    meqDelete(queue);
    semDelete(SBaseQ::timerSig);
    SBaseQ::timerSig = nullptr;
}

TEST(MultiEventQC, RecvNeverWaitsAndRecvXDoes)
{
    SMultiEventQ *queue = meqCreate(4, 9, nullptr);
    EXPECT_EQ(-1, meqRecv(queue, &event, &data));
    EXPECT_EQ(-1, meqRecvX(queue, &event, &data, 1));
    meqSend(queue, 3, 4);
    meqSend(queue, 3, 5);
    EXPECT_EQ(-2, meqRecvX(queue, &event, &data, WAIT_FOREVER));
    EXPECT_EQ(3, event);
    EXPECT_EQ(5U, data);
    meqDelete(queue);
}

TEST(MultiEventQC, SizeIsThatOfTheQueue)
{
    SMultiEventQ *queue = meqCreate(4, 9, nullptr);
    EXPECT_EQ(queue->size(), meqSize(queue));
    EXPECT_LT(sizeof(SMultiEventQ), meqSize(queue));
    meqDelete(queue);
}

TEST(MultiEventQC, NullIsRefusedByEveryCall)
{
    EXPECT_EQ(0U, meqSize(nullptr));
    EXPECT_EQ(-1, meqSnoop(nullptr, 0, &data));
    EXPECT_EQ(-1, meqRecv(nullptr, &event, &data));
    EXPECT_EQ(-1, meqRecvX(nullptr, &event, &data, WAIT_FOREVER));
    EXPECT_EQ(-1, meqSend(nullptr, 0, 0));
    EXPECT_EQ(-1, meqSendY(nullptr, 0, 0, 2));
    EXPECT_EQ(-1, meqSendX(nullptr, 0, 0, 0, 0));
    EXPECT_EQ(-1, meqSendXY(nullptr, 0, 0, 0, 0, 2));
    meqDelete(nullptr);
}

// Another kind of queue, a plain base queue, and memory that is no queue at all.
TEST(MultiEventQC, HandleOfAnotherKindIsRefusedByEveryCall)
{
    SMsgQueueX *other = msgQxCreate(1, 1, 0, 0, 0, nullptr);
    SBaseQ base(1, 0, 0, 0, nullptr);
    alignas(SMultiEventQ32) unsigned char memory[sizeof(SMultiEventQ32)];
    memset(memory, 0xFD, sizeof memory);
    for (void *handle : {static_cast<void *>(other), static_cast<void *>(&base), static_cast<void *>(memory)}) {
        auto *queue = static_cast<SMultiEventQ *>(handle);
        EXPECT_EQ(0U, meqSize(queue));
        EXPECT_EQ(-1, meqSnoop(queue, 0, &data));
        EXPECT_EQ(-1, meqRecv(queue, &event, &data));
        EXPECT_EQ(-1, meqRecvX(queue, &event, &data, WAIT_FOREVER));
        EXPECT_EQ(-1, meqSend(queue, 0, 0));
        EXPECT_EQ(-1, meqSendY(queue, 0, 0, 2));
        EXPECT_EQ(-1, meqSendX(queue, 0, 0, 0, 0));
        EXPECT_EQ(-1, meqSendXY(queue, 0, 0, 0, 0, 2));
        meqDelete(queue);
    }
    EXPECT_EQ(0, msgQxSend(other, "x", 1, 0, 0)); // it is still there
    msgQxDelete(other);
}
