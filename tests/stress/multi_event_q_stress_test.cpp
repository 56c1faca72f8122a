// Four senders and two receivers on one multi-event queue: a million events, mixed time-outs, batches, deletion at the
// end.
//
// Each event id belongs to one sender, who sends it with values 1, 2, 3 ... A value that is not received was merged
// into a later one, so the receipts of an id, in order, tell whether anything was lost, doubled, or marked wrongly.
#include "queues.h"

#include "harness/instrumented.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

namespace
{
constexpr int Senders = 4;
constexpr int Receivers = 2;
constexpr int IdsOfEach = 32;
constexpr unsigned short FirstEnd = Senders * IdsOfEach; // an id for each receiver that ends it
constexpr unsigned short NumEvents = FirstEnd + Receivers;

struct Receipt {
    unsigned int value;
    bool changed;
};
using Receipts = std::vector<std::vector<Receipt>>; // by event id

struct Setting {
    const char *name;
    int messages;
    int threshold;
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

void sendAll(SMultiEventQ *queue, int sender, int messages)
{
    for (int i = 0; i < messages; ++i) {
        const auto id = static_cast<unsigned short>(sender * IdsOfEach + i % IdsOfEach);
        const auto value = static_cast<unsigned int>(i / IdsOfEach + 1);
        const int urgency = i % 1000 == 999 ? 2 : 0;
        EXPECT_EQ(0, meqSendY(queue, id, value, urgency));
        if (i % 8 == 7)
            std::this_thread::yield(); // else nearly all are merged before a receiver runs
    }
}

void receiveAll(SMultiEventQ *queue, SEM_ID external, Receipts &receipts)
{
    for (unsigned turn = 0;; ++turn) {
        if (external != nullptr && turn % 4 != 0) // now and then without having waited
            semTake(external, turn % 4 == 1 ? 1U : static_cast<unsigned int>(WAIT_FOREVER));
        static constexpr int timeouts[] = {0, 1, WAIT_FOREVER, 3};
        unsigned short id;
        unsigned int value;
        const int result = meqRecvX(queue, &id, &value, timeouts[turn % 4]);
        if (result == -1)
            continue;
        if (id >= FirstEnd)
            return;
        receipts[id].push_back({value, result == -2});
    }
}

// What is wrong with the receipts of an id whose last value sent was `last`; null when nothing is.
const char *wrongWith(std::vector<Receipt> receipts, unsigned int last)
{
    std::sort(receipts.begin(), receipts.end(), [](Receipt a, Receipt b) { return a.value < b.value; });
    unsigned int before = 0;
    for (const Receipt &receipt : receipts) {
        if (receipt.value == before)
            return "a value was received twice";
        if (receipt.changed != (receipt.value != before + 1))
            return "the mark is not that of a merged send";
        before = receipt.value;
    }
    return before != last ? "the last value was not received" : nullptr;
}

bool isInOrder(const std::vector<Receipt> &receipts)
{
    return std::is_sorted(receipts.begin(), receipts.end(), [](Receipt a, Receipt b) { return a.value < b.value; });
}

void run(const Setting &setting)
{
    SEM_ID external = setting.external ? semCCreate(SEM_Q_FIFO, 0) : nullptr;
    SMultiEventQ *queue = meqCreateX(4, NumEvents, 1, setting.threshold, setting.delay, external);
    std::vector<Receipts> receipts(Receivers, Receipts(NumEvents));
    std::vector<std::thread> receivers;
    for (Receipts &each : receipts)
        receivers.emplace_back(receiveAll, queue, external, std::ref(each));
    const int messagesOfEach = setting.messages / Senders;
    std::vector<std::thread> senders;
    for (int sender = 0; sender < Senders; ++sender)
        senders.emplace_back(sendAll, queue, sender, messagesOfEach);
    for (std::thread &sender : senders)
        sender.join();
    for (int receiver = 0; receiver < Receivers; ++receiver)
        EXPECT_EQ(0, meqSend(queue, static_cast<unsigned short>(FirstEnd + receiver), 0));
    for (std::thread &receiver : receivers)
        receiver.join();
    meqDelete(queue); // the timer task may still be at it
    if (external != nullptr)
        semDelete(external);

    size_t received = 0;
    for (unsigned short id = 0; id < FirstEnd; ++id) {
        std::vector<Receipt> all;
        for (const Receipts &each : receipts) {
            EXPECT_TRUE(isInOrder(each[id])) << "event " << id;
            all.insert(all.end(), each[id].begin(), each[id].end());
        }
        received += all.size();
        const int place = id % IdsOfEach;
        const auto last = static_cast<unsigned int>((messagesOfEach - 1 - place) / IdsOfEach + 1);
        EXPECT_STREQ(nullptr, wrongWith(all, last)) << setting.name << ", event " << id;
    }
    EXPECT_GT(received, size_t{FirstEnd}) << setting.name; // not all were merged
}
} // namespace

TEST(MultiEventQStress, NothingIsLostDoubledOrOutOfOrder)
{
    for (const Setting &setting :
         {Setting{"batches", 1000000, 8, 2, false}, Setting{"at once", scaled(200000), 0, 0, false},
          Setting{"external flag", scaled(200000), 8, 2, true}})
        EXPECT_EQ("", printedBy([&] { run(setting); })); // and no receive found its give without an event
}

// The checks above find what they look for.
TEST(MultiEventQStress, ReceiptsThatAreWrongAreFound)
{
    EXPECT_STREQ(nullptr, wrongWith({{1, false}, {4, true}, {5, false}}, 5));
    EXPECT_STREQ("a value was received twice", wrongWith({{1, false}, {2, false}, {2, false}}, 2));
    EXPECT_STREQ("the mark is not that of a merged send", wrongWith({{1, false}, {3, false}}, 3));
    EXPECT_STREQ("the mark is not that of a merged send", wrongWith({{1, true}}, 1));
    EXPECT_STREQ("the last value was not received", wrongWith({{1, false}}, 2));
    EXPECT_FALSE(isInOrder({{2, false}, {1, false}}));
}
