// Trace buffers: lines in order, the oldest dropped, any thread.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
using TraceRing = EmptyStandin;

int collect(void *user, int64_t, const char *text)
{
    static_cast<std::vector<std::string> *>(user)->emplace_back(text);
    return 1;
}

std::vector<std::string> linesOf(const char *name)
{
    std::vector<std::string> lines;
    const int count = kelStandinReadTrace(name, collect, &lines);
    EXPECT_EQ(static_cast<std::size_t>(count), lines.size());
    return lines;
}
} // namespace

TEST_F(TraceRing, LinesComeBackInOrderWithoutALineEnd)
{
    void *buffer = emsInitTraceBuffer("order", 4096, 0);
    emsTraceLogf(buffer, 0, "%s(%x):hashKey=%u", "addPortInst", 0x10001u, 256u);
    emsTraceLogf(buffer, 0, "second\n");
    emsTraceLogf(buffer, 0, "%s", "");
    EXPECT_THAT(linesOf("order"), ElementsAre("addPortInst(10001):hashKey=256", "second", ""));
}

TEST_F(TraceRing, LinesAreStampedWithTheWallClock)
{
    void *buffer = emsInitTraceBuffer("time", 4096, 0);
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        return time.tv_sec * 1000000000LL + time.tv_nsec;
    };
    const long long before = now();
    emsTraceLogf(buffer, 0, "stamped");
    static std::vector<int64_t> times;
    times.clear();
    kelStandinReadTrace(
        "time",
        [](void *, int64_t time, const char *) {
            times.push_back(time);
            return 1;
        },
        nullptr);
    ASSERT_EQ(1u, times.size());
    EXPECT_GE(times[0], before);
    EXPECT_LE(times[0], now());
}

TEST_F(TraceRing, FullBufferDropsTheOldestLinesWhole)
{
    void *buffer = emsInitTraceBuffer("wrap", 2000, 0);
    for (int line = 0; line < 1000; ++line)
        emsTraceLogf(buffer, 0, "line %d of a thousand", line);
    const auto lines = linesOf("wrap");
    ASSERT_GT(lines.size(), 20u);
    ASSERT_LT(lines.size(), 2000 / sizeof "line 999 of a thousand");
    for (std::size_t at = 0; at < lines.size(); ++at)
        EXPECT_EQ("line " + std::to_string(1000 - lines.size() + at) + " of a thousand", lines[at]);
}

// Every place of the wrap falls once inside a header and once inside a text.
TEST_F(TraceRing, LinesOfAllLengthsSurviveTheWrap)
{
    void *buffer = emsInitTraceBuffer("lengths", 1499, 0);
    for (int line = 0; line < 3000; ++line) {
        const std::string text(static_cast<std::size_t>(line % 97), static_cast<char>('a' + line % 26));
        emsTraceLogf(buffer, 0, "%s", text.c_str());
        ASSERT_EQ(text, linesOf("lengths").back()) << "line " << line;
    }
}

TEST_F(TraceRing, LongLineIsCutAndASmallBufferHoldsOneLine)
{
    void *buffer = emsInitTraceBuffer("small", 1, 0);
    const std::string tooLong(2000, 'x');
    emsTraceLogf(buffer, 0, "first");
    emsTraceLogf(buffer, 0, "%s", tooLong.c_str());
    EXPECT_THAT(linesOf("small"), ElementsAre(std::string(KEL_STANDIN_TRACE_LINE_SIZE - 1, 'x')));
    emsTraceLogf(buffer, 0, "next");
    EXPECT_THAT(linesOf("small"), ElementsAre("next"));
}

TEST_F(TraceRing, SameNameIsTheSameBuffer)
{
    void *buffer = emsInitTraceBuffer("same", 4096, 0);
    emsTraceLogf(buffer, 0, "kept");
    EXPECT_EQ(buffer, emsInitTraceBuffer("same", 100, 0));
    EXPECT_NE(buffer, emsInitTraceBuffer("other", 4096, 0));
    EXPECT_THAT(linesOf("same"), ElementsAre("kept"));
    EXPECT_THAT(linesOf("other"), IsEmpty());
}

TEST_F(TraceRing, ResetDropsLinesAndKeepsHandlesValid)
{
    void *buffer = emsInitTraceBuffer("reset", 4096, 0);
    emsTraceLogf(buffer, 0, "old");
    kelStandinReset();
    EXPECT_THAT(linesOf("reset"), IsEmpty());
    emsTraceLogf(buffer, 0, "new");
    EXPECT_THAT(linesOf("reset"), ElementsAre("new"));
}

TEST_F(TraceRing, WhatIsNotThereIsNotReadNorWritten)
{
    EXPECT_EQ(-1, kelStandinReadTrace("nobody opened this", collect, nullptr));
    EXPECT_EQ(-1, kelStandinReadTrace("order", nullptr, nullptr));
    EXPECT_EQ(nullptr, emsInitTraceBuffer("no size", 0, 0));
    emsTraceLogf(nullptr, 0, "into nothing");
}

TEST_F(TraceRing, ReaderStopsTheReading)
{
    void *buffer = emsInitTraceBuffer("stop", 4096, 0);
    for (int line = 0; line < 5; ++line)
        emsTraceLogf(buffer, 0, "line");
    EXPECT_EQ(1, kelStandinReadTrace(
                     "stop", [](void *, int64_t, const char *) { return 0; }, nullptr));
}

// The reader runs without the lock: it may write, and hears of nothing newer than the start of the reading.
TEST_F(TraceRing, ReaderMayWriteAndTheReadingStillEnds)
{
    static void *buffer;
    buffer = emsInitTraceBuffer("writing reader", 4096, 0);
    for (int line = 0; line < 10; ++line)
        emsTraceLogf(buffer, 0, "line");
    EXPECT_EQ(10, kelStandinReadTrace(
                      "writing reader",
                      [](void *, int64_t, const char *) {
                          emsTraceLogf(buffer, 0, "from the reader");
                          return 1;
                      },
                      nullptr));
}

TEST_F(TraceRing, ReaderThatIsOvertakenGoesOnWithTheOldestLine)
{
    static void *buffer;
    buffer = emsInitTraceBuffer("overtaken", 2000, 0);
    for (int line = 0; line < 10; ++line)
        emsTraceLogf(buffer, 0, "old %d", line);
    EXPECT_EQ(1, kelStandinReadTrace(
                     "overtaken",
                     [](void *, int64_t, const char *) {
                         for (int line = 0; line < 200; ++line)
                             emsTraceLogf(buffer, 0, "new %d", line);
                         return 1;
                     },
                     nullptr))
        << "the other old lines are gone, and the new ones were not there at the start";
}

TEST_F(TraceRing, WritersAndReadersShareABuffer)
{
    void *buffer = emsInitTraceBuffer("shared", 8192, 0);
    constexpr int writers = 3;
    constexpr int linesEach = 5000;
    std::atomic<int> running{writers};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer)
        threads.emplace_back([=, &running] {
            for (int line = 0; line < linesEach; ++line)
                emsTraceLogf(buffer, 0, "%d %d", writer, line);
            --running;
        });
    const auto checkOrder = [] {
        std::map<std::string, int> latest;
        for (const std::string &line : linesOf("shared")) {
            const std::size_t space = line.find(' ');
            ASSERT_NE(std::string::npos, space) << "a torn line: " << line;
            const int number = std::stoi(line.substr(space));
            int &last = latest.try_emplace(line.substr(0, space), -1).first->second;
            ASSERT_GT(number, last) << "the lines of one writer out of order";
            last = number;
        }
    };
    while (running > 0)
        checkOrder();
    for (std::thread &thread : threads)
        thread.join();
    checkOrder();
    EXPECT_THAT(linesOf("shared"), testing::Not(IsEmpty()));
}
