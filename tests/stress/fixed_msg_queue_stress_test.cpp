// A million messages through small fixed-size queues: none lost, none twice, none out of its sender's order.
#include "harness/instrumented.h"
#include "models/fixed_msg_queue.h"

#include "vxw_shim.h"

#include <gtest/gtest.h>

#include <string.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;
constexpr unsigned Nothing = 0xFFFFFFFF;
constexpr uint32_t Senders = 4, Receivers = 2;
constexpr uint32_t MessagesEach = scaled(1000000) / Senders;
constexpr uint32_t LongestMessage = 40;

// 0, a tick, many ticks, no limit, and a deadline that lies in the past.
unsigned anyTimeout(std::mt19937 &random)
{
    const unsigned timeouts[] = {0, 1, 500, Forever, 0xFFFFFFFE};
    return timeouts[random() % std::size(timeouts)];
}

struct Message {
    uint32_t sender;   // Senders: no more messages come
    uint32_t sequence; // of this sender, from 0
    uint32_t bytes;    // of the whole message
};

unsigned char paddingOf(const Message &message, uint32_t place)
{
    return static_cast<unsigned char>(message.sender * 7 + message.sequence * 13 + place);
}

void sendUntilSent(MSG_Q_ID queue, const Message &message, std::mt19937 &random)
{
    unsigned char bytes[LongestMessage];
    memcpy(bytes, &message, sizeof message);
    for (uint32_t i = sizeof message; i < message.bytes; ++i)
        bytes[i] = paddingOf(message, i);
    while (msgQSend(queue, bytes, message.bytes, anyTimeout(random), 0) != 0)
        std::this_thread::yield();
}

void sendAll(MSG_Q_ID queue, uint32_t sender)
{
    std::mt19937 random(sender);
    for (uint32_t sequence = 0; sequence < MessagesEach; ++sequence) {
        const auto padding = static_cast<uint32_t>(random() % (LongestMessage - sizeof(Message) + 1));
        sendUntilSent(queue, {sender, sequence, static_cast<uint32_t>(sizeof(Message)) + padding}, random);
    }
}

// What one receiver knows: the latest sequence number of each sender, and what went wrong first.
struct Receiver {
    int64_t latest[Senders] = {-1, -1, -1, -1};
    std::string wrong;
};

// Names what is wrong with a message, or returns "". Counts it in `seen`.
std::string wrongWith(const unsigned char *bytes, uint32_t copied, int64_t *latest,
                      std::vector<std::atomic<unsigned char>> &seen)
{
    Message message;
    memcpy(&message, bytes, sizeof message);
    if (message.sender >= Senders || message.sequence >= MessagesEach || message.bytes != copied)
        return "a message that nobody sent";
    for (uint32_t i = sizeof message; i < copied; ++i)
        if (bytes[i] != paddingOf(message, i))
            return "a message with foreign bytes";
    if (message.sequence <= latest[message.sender])
        return "a message out of its sender's order";
    latest[message.sender] = message.sequence;
    return seen[size_t{message.sender} * MessagesEach + message.sequence]++ == 0 ? "" : "a message twice";
}

// Goes on after something went wrong, so that no sender waits without end.
void receiveAll(MSG_Q_ID queue, unsigned seed, Receiver &receiver, std::vector<std::atomic<unsigned char>> &seen)
{
    std::mt19937 random(seed);
    for (;;) {
        unsigned char bytes[LongestMessage];
        const unsigned copied = msgQReceive(queue, bytes, sizeof bytes, anyTimeout(random));
        if (copied == Nothing) {
            std::this_thread::yield();
            continue;
        }
        uint32_t sender = 0;
        memcpy(&sender, bytes, sizeof sender);
        if (copied == sizeof(Message) && sender == Senders)
            return;
        const std::string wrong =
            copied < sizeof(Message) ? "a message is cut" : wrongWith(bytes, copied, receiver.latest, seen);
        if (receiver.wrong.empty())
            receiver.wrong = wrong;
    }
}

void runMessagesThrough(int slots)
{
    MSG_Q_ID queue = msgQCreate(slots, LongestMessage, 0);
    ASSERT_NE(nullptr, queue);
    std::vector<std::atomic<unsigned char>> seen(size_t{Senders} * MessagesEach);
    Receiver receivers[Receivers];
    std::vector<std::thread> sending, receiving;
    for (unsigned i = 0; i < Receivers; ++i)
        receiving.emplace_back([&, i] { receiveAll(queue, Senders + i, receivers[i], seen); });
    for (uint32_t sender = 0; sender < Senders; ++sender)
        sending.emplace_back([&, sender] { sendAll(queue, sender); });
    for (auto &thread : sending)
        thread.join();
    std::mt19937 random(0);
    for (uint32_t receiver = 0; receiver < Receivers; ++receiver)
        sendUntilSent(queue, {Senders, 0, sizeof(Message)}, random);
    for (auto &thread : receiving)
        thread.join();

    for (const Receiver &each : receivers)
        EXPECT_EQ("", each.wrong);
    size_t lost = 0;
    for (const auto &count : seen)
        lost += count == 0;
    EXPECT_EQ(0U, lost);
    EXPECT_EQ(0, queue->num_requests);
    EXPECT_STREQ(nullptr, brokenInvariant(queue));
    releaseQueue(queue);
}
} // namespace

// Hardly ever full or empty.
TEST(FixedMsgQueueStress, AMillionMessagesThroughAWideQueue)
{
    runMessagesThrough(64);
}

// Always full or empty: every message waits for another.
TEST(FixedMsgQueueStress, AMillionMessagesThroughANarrowQueue)
{
    runMessagesThrough(3);
}
