// Four senders and two receivers on one variable-length queue: a million messages, mixed time-outs, front insertion,
// full rings, deletion at the end.
//
// Each sender numbers its messages. Those that were not put to the front reach each receiver in the order sent; every
// one is received once; every blocked sender gets through.
#include "queues.h"

#include "harness/instrumented.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

namespace
{
constexpr int Senders = 4;
constexpr int Receivers = 2;
constexpr int Capacity = 16;
constexpr int MaxLength = 40;
constexpr uint32_t End = 0xFFFFFFFF;

struct Message {
    uint32_t sender; // or End
    uint32_t number;
    bool front;
};

struct Setting {
    const char *name;
    int messages;
    int rxThreshold;
    int txThreshold;
    int delay;
    bool external;
};

class Start : public testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_EQ(0, kel_utils_init());
    }
};
const auto *const start = testing::AddGlobalTestEnvironment(new Start);

// A message with a tail whose length and bytes follow from its number.
int encode(const Message &message, char *bytes)
{
    const auto length = static_cast<int>(sizeof message + message.number % (MaxLength - sizeof message + 1));
    memcpy(bytes, &message, sizeof message);
    memset(bytes + sizeof message, static_cast<int>(message.number), static_cast<size_t>(length) - sizeof message);
    return length;
}

Message decode(const char *bytes, int length)
{
    Message message{};
    memcpy(&message, bytes, sizeof message);
    char expected[MaxLength] = {};
    EXPECT_EQ(encode(message, expected), length);
    EXPECT_EQ(0, memcmp(expected, bytes, static_cast<size_t>(length)));
    return message;
}

// Senders that do not wait, or not for long, try again.
void sendAll(SMsgQueueX *queue, uint32_t sender, int messages)
{
    for (uint32_t number = 0; number < static_cast<uint32_t>(messages); ++number) {
        const bool front = number % 7 == 3;
        const bool urgent = number % 100 == 99;
        const Message message{sender, number, front};
        char bytes[MaxLength] = {};
        const int length = encode(message, bytes);
        static constexpr int timeouts[] = {WAIT_FOREVER, 0, 1, WAIT_FOREVER, 2};
        while (msgQxSend(queue, bytes, length, timeouts[number % 5], (front ? 1 : 0) + (urgent ? 2 : 0)) != 0)
            std::this_thread::yield();
    }
}

void receiveAll(SMsgQueueX *queue, SEM_ID external, std::vector<Message> &received)
{
    for (unsigned turn = 0;; ++turn) {
        if (external != nullptr && turn % 4 != 0) // now and then without having waited
            semTake(external, turn % 4 == 1 ? 1U : static_cast<unsigned int>(WAIT_FOREVER));
        static constexpr int timeouts[] = {0, 1, WAIT_FOREVER, 3};
        char bytes[MaxLength] = {};
        const int length = msgQxRecv(queue, bytes, sizeof bytes, timeouts[turn % 4]);
        if (length == -1)
            continue;
        const Message message = decode(bytes, length);
        if (message.sender == End)
            return;
        received.push_back(message);
    }
}

// What is wrong with what the receivers got; null when nothing is.
const char *wrongWith(const std::vector<std::vector<Message>> &received, int messagesOfEach)
{
    std::vector<std::vector<bool>> seen(Senders, std::vector<bool>(static_cast<size_t>(messagesOfEach)));
    size_t total = 0;
    for (const std::vector<Message> &each : received) {
        std::vector<int64_t> last(Senders, -1);
        for (const Message &message : each) {
            if (seen[message.sender][message.number])
                return "a message was received twice";
            seen[message.sender][message.number] = true;
            ++total;
            if (message.front)
                continue;
            if (message.number < last[message.sender])
                return "a message overtook another of its sender";
            last[message.sender] = message.number;
        }
    }
    return total != static_cast<size_t>(messagesOfEach) * Senders ? "a message was lost" : nullptr;
}

void run(const Setting &setting)
{
    SEM_ID external = setting.external ? semCCreate(SEM_Q_FIFO, 0) : nullptr;
    SMsgQueueX *queue =
        msgQxCreateX(Capacity, MaxLength, 1, setting.rxThreshold, setting.txThreshold, setting.delay, external);
    std::vector<std::vector<Message>> received(Receivers);
    std::vector<std::thread> receivers;
    for (std::vector<Message> &each : received)
        receivers.emplace_back(receiveAll, queue, external, std::ref(each));
    const int messagesOfEach = setting.messages / Senders;
    std::vector<std::thread> senders;
    for (uint32_t sender = 0; sender < Senders; ++sender)
        senders.emplace_back(sendAll, queue, sender, messagesOfEach);
    for (std::thread &sender : senders)
        sender.join(); // every blocked one was released
    for (int receiver = 0; receiver < Receivers; ++receiver) {
        char bytes[MaxLength] = {};
        const int length = encode({End, 0, false}, bytes);
        EXPECT_EQ(0, msgQxSend(queue, bytes, length, WAIT_FOREVER, 0));
    }
    for (std::thread &receiver : receivers)
        receiver.join();
    EXPECT_EQ(0, msgQxNumMsgs(queue));
    msgQxDelete(queue); // the timer task may still be at it
    if (external != nullptr)
        semDelete(external);
    EXPECT_STREQ(nullptr, wrongWith(received, messagesOfEach)) << setting.name;
}
} // namespace

TEST(MsgQueueXStress, NothingIsLostDoubledOrOutOfOrder)
{
    for (const Setting &setting :
         {Setting{"batches", 1000000, 8, 4, 2, false}, Setting{"at once", scaled(200000), 0, Capacity, 0, false},
          Setting{"drained", scaled(200000), 4, 0, 1, false}, Setting{"external flag", scaled(200000), 8, 4, 2, true}})
        EXPECT_EQ("", printedBy([&] { run(setting); })); // and no receive found its give without a message
}

// The checks above find what they look for.
TEST(MsgQueueXStress, MessagesThatAreWrongAreFound)
{
    EXPECT_STREQ("a message was lost", wrongWith({{{0, 0, false}}}, 1));
    EXPECT_STREQ("a message was received twice", wrongWith({{{0, 0, false}}, {{0, 0, false}}}, 1));
    EXPECT_STREQ("a message overtook another of its sender", wrongWith({{{0, 1, false}, {0, 0, false}}}, 2));
    EXPECT_STREQ(nullptr, wrongWith({{{0, 1, true}, {0, 0, false}, {1, 0, false}, {1, 1, false}},
                                     {{2, 0, false}, {2, 1, false}, {3, 1, false}, {3, 0, true}}},
                                    2));
}
