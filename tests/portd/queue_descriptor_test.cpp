#include "queue_descriptor.h"

#include "queues.h"

#include <gtest/gtest.h>

#include <poll.h>

namespace
{
// Readable within a minute; at once when `wait` is false.
bool isReadable(const QueueDescriptor &queues, bool wait)
{
    pollfd polled = {queues.descriptor(), POLLIN, 0};
    return poll(&polled, 1, wait ? 60'000 : 0) == 1;
}
} // namespace

TEST(QueueDescriptor, IsReadableWhenAQueueHasSomethingAndNotBefore)
{
    ASSERT_EQ(0, kel_utils_init());
    const QueueDescriptor queues;
    SMultiEventQ *queue = meqCreate(1, 8, queues.flag());
    EXPECT_FALSE(isReadable(queues, false));
    meqSend(queue, 3, 1);
    EXPECT_TRUE(isReadable(queues, true));
    queues.clear();
    EXPECT_FALSE(isReadable(queues, false));
    unsigned short event = 0;
    unsigned int data = 0;
    EXPECT_EQ(0, meqRecv(queue, &event, &data));
    EXPECT_EQ(3, event);
    meqDelete(queue);
}

TEST(QueueDescriptor, ServesSeveralQueues)
{
    const QueueDescriptor queues;
    SMultiEventQ *events = meqCreate(1, 8, queues.flag());
    SMsgQueueX *messages = msgQxCreate(4, 8, 0, 0, 0, queues.flag());
    for (int round = 0; round < 1000; ++round) {
        if (round % 2 == 0)
            meqSend(events, 5, 1);
        else
            msgQxSend(messages, "hello", 5, 0, 0);
        ASSERT_TRUE(isReadable(queues, true)) << round;
        queues.clear();
        unsigned short event = 0;
        unsigned int data = 0;
        char text[8];
        ASSERT_EQ(round % 2 == 0 ? 0 : -1, meqRecv(events, &event, &data));
        ASSERT_EQ(round % 2 == 0 ? -1 : 5, msgQxRecv(messages, text, sizeof text, 0));
    }
    msgQxDelete(messages);
    meqDelete(events);
}

// Whatever is sent between clear() and the last receive, and behind it, makes it readable again.
TEST(QueueDescriptor, LosesNoEventOfASenderThatDoesNotWait)
{
    const QueueDescriptor queues;
    SMsgQueueX *messages = msgQxCreateX(4, 4, 0, 2, 4, 1, queues.flag());
    constexpr int count = 20'000;
    std::thread sender([&] {
        for (int value = 0; value < count; ++value)
            ASSERT_EQ(0, msgQxSend(messages, reinterpret_cast<const char *>(&value), sizeof value, -1, 0));
    });
    int expected = 0;
    while (expected < count) {
        ASSERT_TRUE(isReadable(queues, true)) << "after " << expected;
        queues.clear();
        for (int value = -1; msgQxRecv(messages, reinterpret_cast<char *>(&value), sizeof value, 0) == sizeof value;)
            ASSERT_EQ(expected++, value);
    }
    sender.join();
    msgQxDelete(messages);
}

TEST(QueueDescriptor, EndsAtOnceWithoutAQueue)
{
    const QueueDescriptor queues;
    SUCCEED();
}
