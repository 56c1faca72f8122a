#include "change_writer.h"

#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace
{
class ChangeWriterTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(0, kel_utils_init());
    }
    ChangeWriterTest()
    {
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        writer.emplace(ends[1], counters);
    }
    ~ChangeWriterTest() override
    {
        writer.reset();
        closeReader();
        close(ends[1]);
    }
    void closeReader()
    {
        if (ends[0] >= 0)
            close(ends[0]);
        ends[0] = -1;
    }
    void put(uint32_t port)
    {
        ChangeRecord record = {};
        record.systemPort = port;
        fillField(record.name, "swp" + std::to_string(port));
        fillField(record.what, "link up");
        writer->put(record);
    }
    // Puts records that nobody reads until so many were lost; returns how many were put. The first losses may come
    // before the pipe is full, because the writer has not been scheduled yet.
    uint32_t putUntilLost(uint32_t lost)
    {
        uint32_t count = 0;
        while (counters.linesLost < lost)
            put(++count);
        return count;
    }
    // Reads lines until `count` of them are there, or the writer is gone.
    std::vector<std::string> read(size_t count)
    {
        char bytes[4096];
        while (lines.size() < count) {
            const ssize_t some = ::read(ends[0], bytes, sizeof bytes);
            if (some <= 0)
                break;
            pending.append(bytes, size_t(some));
            for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
                lines.push_back(pending.substr(0, end));
                pending.erase(0, end + 1);
            }
        }
        return lines;
    }

    int ends[2];
    Counters counters;
    std::optional<ChangeWriter> writer;
    std::string pending;
    std::vector<std::string> lines;
};
} // namespace

TEST_F(ChangeWriterTest, PrintsTheTitleAndThenTheRecordsInOrder)
{
    writer->start("TITLE\n");
    for (uint32_t port = 1; port <= 20; ++port)
        put(port);
    const auto printed = read(21);
    ASSERT_EQ(21u, printed.size());
    EXPECT_EQ("TITLE", printed[0]);
    for (uint32_t port = 1; port <= 20; ++port)
        EXPECT_NE(std::string::npos, printed[port].find("  swp" + std::to_string(port) + " ")) << printed[port];
}

TEST_F(ChangeWriterTest, StopPrintsWhatIsStillQueued)
{
    for (uint32_t port = 1; port <= 10; ++port)
        put(port);
    writer->start("");
    writer->stop(60s);
    EXPECT_EQ(10u, read(10).size());
    EXPECT_EQ(10u, counters.linesPrinted);
    EXPECT_EQ(ChangeWriter::records, writer->memory().getNodeCount());
}

TEST_F(ChangeWriterTest, StuckOutputLosesRecordsAndNeverHoldsUpTheCaller)
{
    writer->start("");
    EXPECT_GE(putUntilLost(101), ChangeWriter::records + 101);
}

TEST_F(ChangeWriterTest, LossIsToldWhenTheOutputTakesTextAgainAndNothingElseIsMissing)
{
    writer->start("");
    const uint32_t taken = putUntilLost(2) - 2;
    std::vector<std::string> printed = read(taken);
    put(99999);
    while (printed.back().find("swp99999") == std::string::npos)
        printed = read(printed.size() + 1);
    uint32_t told = 0, losses = 0;
    for (const std::string &line : printed) {
        unsigned lost = 0;
        if (sscanf(line.c_str(), "... %u changes not printed: the output was too slow", &lost) == 1) {
            ++told;
            losses += lost;
        }
    }
    EXPECT_EQ(2u, losses);
    EXPECT_EQ(taken + 1, printed.size() - told);
}

TEST_F(ChangeWriterTest, StopGivesUpOnAStuckOutput)
{
    writer->start("");
    putUntilLost(1);
    EXPECT_LT(timeOf([&] { writer->stop(100ms); }), 30s);
    EXPECT_EQ(ChangeWriter::records, writer->memory().getNodeCount()) << "every block is back all the same";
}

TEST_F(ChangeWriterTest, ReaderThatIsGoneIsNoReasonToKeepRecords)
{
    writer->start("");
    closeReader();
    for (uint32_t port = 1; port <= 3 * ChangeWriter::records; ++port)
        put(port);
    writer->stop(60s);
    EXPECT_EQ(ChangeWriter::records, writer->memory().getNodeCount());
}

TEST_F(ChangeWriterTest, WithoutAnOutputRecordsGoNowhere)
{
    Counters counted;
    ChangeWriter nowhere(-1, counted);
    nowhere.start("TITLE\n");
    nowhere.put({});
    EXPECT_LT(timeOf([&] { nowhere.stop(60s); }), 30s);
}

TEST_F(ChangeWriterTest, EndsWithoutEverHavingStarted)
{
    put(1);
    writer->stop();
}
