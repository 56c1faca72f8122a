// The main task's part without its thread: events sent by hand, batches taken by hand.
#include "change_reporter.h"

#include "harness/time_of.h"

#include <gtest/gtest.h>

namespace
{
constexpr uint32_t forever = 6000; // ticks; only a hang lasts so long

class ChangeReporterTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0, kel_utils_init());
    }
    void make(uint32_t maxDelay, uint32_t threshold)
    {
        events.emplace(maxDelay, threshold, counters);
        reporter.emplace(*events, board, counters, [this](const ChangeRecord &record) { records.push_back(record); });
    }
    void appear(uint32_t port, const std::string &name, bool up = false)
    {
        events->send(port, board.appeared({port, 1000 + port, port, 0x10000 + port, name}, up));
    }
    void disappear(uint32_t port)
    {
        events->send(port, *board.disappeared(port, ""));
    }
    void link(uint32_t port, bool up)
    {
        events->send(port, *board.linkChanged(port, up, ""));
    }

    Counters counters;
    PortBoard board;
    std::optional<PortEvents> events;
    std::optional<ChangeReporter> reporter;
    std::vector<ChangeRecord> records;
};
} // namespace

TEST_F(ChangeReporterTest, WithoutDelayEachChangeIsThereAtOnce)
{
    make(0, 8);
    appear(3, "swp3");
    ASSERT_TRUE(events->wait(forever));
    EXPECT_EQ(1u, reporter->reportBatch());
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(3u, records[0].systemPort);
    EXPECT_EQ(1003u, records[0].ifIndex);
    EXPECT_EQ(3u, records[0].bridgePort);
    EXPECT_EQ(0x10003u, records[0].portInstance);
    EXPECT_STREQ("swp3", records[0].name);
    EXPECT_STREQ("added, link down", records[0].what);
    EXPECT_FALSE(records[0].coalesced);
    EXPECT_FALSE(events->wait(0));
}

TEST_F(ChangeReporterTest, HeldBackChangesComeTogetherWhenTheDelayIsOver)
{
    make(20, 100);
    const auto waited = timeOf([&] {
        for (uint32_t port = 1; port <= 10; ++port)
            appear(port, "p");
        ASSERT_TRUE(events->wait(forever));
    });
    EXPECT_GE(waited, 189ms);
    EXPECT_EQ(10u, reporter->reportBatch());
    for (const ChangeRecord &record : records)
        EXPECT_EQ(1u, record.batch);
    EXPECT_EQ(1u, counters.batches);
    EXPECT_EQ(10u, counters.largestBatch);
}

TEST_F(ChangeReporterTest, ThresholdDeliversTheBatchBeforeTheDelayIsOver)
{
    make(forever, 3);
    appear(1, "a");
    appear(2, "b");
    EXPECT_FALSE(events->wait(0));
    appear(3, "c");
    ASSERT_TRUE(events->wait(0));
    EXPECT_EQ(3u, reporter->reportBatch());
}

TEST_F(ChangeReporterTest, WakeUpComesAtOnceAndIsNoLine)
{
    make(forever, 100);
    appear(1, "a");
    events->wake();
    ASSERT_TRUE(events->wait(0));
    EXPECT_EQ(1u, reporter->reportBatch());
    EXPECT_EQ(1u, counters.eventsReceived);
}

TEST_F(ChangeReporterTest, SeveralChangesOfAQueuedPortAreOneCoalescedLine)
{
    make(0, 8);
    appear(1, "a", true);
    reporter->reportBatch();
    link(1, false);
    link(1, true);
    EXPECT_EQ(1u, reporter->reportBatch());
    EXPECT_STREQ("link flapped, still up", records[1].what);
    EXPECT_TRUE(records[1].coalesced);
    EXPECT_EQ(1u, counters.eventsCoalesced);
}

// The event says that the first interface is gone; by the time it is received another one has the number.
TEST_F(ChangeReporterTest, EventOfTheInterfaceThatHadTheNumberBeforeIsToldUnderItsName)
{
    make(0, 8);
    appear(1, "old");
    reporter->reportBatch();
    disappear(1);
    board.appeared({1, 2001, 129, 0x20001, "new"}, true);
    EXPECT_EQ(1u, reporter->reportBatch());
    EXPECT_STREQ("old", records[1].name);
    EXPECT_EQ(1001u, records[1].ifIndex);
    EXPECT_STREQ("removed", records[1].what);
    events->send(1, board.row(1)->word);
    reporter->reportBatch();
    EXPECT_STREQ("new", records[2].name);
    EXPECT_STREQ("added, link up", records[2].what);
}

TEST_F(ChangeReporterTest, EventOfASystemPortThatNobodyEverHadIsNoLine)
{
    make(0, 8);
    events->send(9, stateWord(1, statePresent));
    EXPECT_EQ(1u, reporter->reportBatch());
    EXPECT_TRUE(records.empty());
}

// Senders on several threads; whatever is coalesced, the last state of every port is told last.
TEST_F(ChangeReporterTest, LastStateOfEveryPortIsToldWhateverIsCoalesced)
{
    make(1, 16);
    constexpr uint32_t ports = 8;
    for (uint32_t port = 1; port <= ports; ++port)
        appear(port, "p");
    std::vector<std::thread> senders;
    for (uint32_t port = 1; port <= ports; ++port)
        senders.emplace_back([this, port] {
            for (int i = 0; i < 501; ++i)
                link(port, i % 2 == 0);
        });
    std::atomic<bool> sent = false;
    std::thread ender([&] {
        for (std::thread &sender : senders)
            sender.join();
        sent = true;
        events->wake();
    });
    while (!sent) {
        if (events->wait(forever))
            reporter->reportBatch();
    }
    ender.join();
    while (reporter->reportBatch() > 0)
        continue;
    std::vector<std::string> last(ports + 1);
    for (const ChangeRecord &record : records)
        last[record.systemPort] = record.what;
    for (uint32_t port = 1; port <= ports; ++port)
        EXPECT_TRUE(last[port] == "link up" || last[port] == "link flapped, still up" || last[port] == "added, link up")
            << last[port];
    EXPECT_EQ(counters.eventsSent, ports * 502u);
}
