#include "queues.h"

#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>
#include <thread>
#include <vector>

namespace
{
unsigned int ticksSlept;
std::vector<int> sleptBefore; // the number of messages in the queue at each sleep
} // namespace

// Takes the place of the library's own, so that a test sees the pauses and none has to be waited for. Queues that are
// deleted while the timer task is delivering them pause as well.
int taskDelay(unsigned int ticks)
{
    ticksSlept += ticks;
    std::this_thread::yield();
    if (msg_q_x_test_id != nullptr)
        sleptBefore.push_back(msgQxNumMsgs(msg_q_x_test_id));
    return 0;
}

namespace
{
// Pointers become P, and results of memcmp, lines that are only a number, become -1, 0 or 1.
std::string withoutAddresses(const std::string &text)
{
    std::string plain;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t pointer = line.find("0x");
        if (pointer != std::string::npos)
            line.replace(pointer, line.find_first_not_of("0123456789abcdef", pointer + 2) - pointer, "P");
        else if (!line.empty() && line.find_first_not_of("-0123456789") == std::string::npos)
            line = line[0] == '-' ? "-1" : line == "0" ? "0" : "1";
        plain += line + "\n";
    }
    return plain;
}

std::string four(const char *label, const unsigned char *bytes)
{
    return formatted("%s: %2x %2x %2x %2x\n", label, bytes[0], bytes[1], bytes[2], bytes[3]);
}

template <class Word>
unsigned int inHostOrder(const unsigned char *from)
{
    Word value;
    memcpy(&value, from, sizeof value);
    return value;
}

std::string expectedByteOrder()
{
    static constexpr unsigned char bytes[16] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
    std::string text = "Initial : 12 34 56 78\n";
    for (int offset = 0; offset < 4; ++offset) {
        const unsigned char *at = bytes + offset;
        text += "*******ptr = P\n";
        text += formatted("READ_32 : %8x\n", inHostOrder<uint32_t>(at)) + four("WRITE_32", at);
        text += formatted("READ_16 : %4x\n", inHostOrder<uint16_t>(at)) + four("WRITE_16", at);
        text += formatted("READ_8 : %4x\n", at[0]) + four("WRITE_8", at);
        text += "*******ptr = P\n";
        text += formatted("NET_READ_32 : %2x%02x%02x%02x\n", at[0], at[1], at[2], at[3]) + four("NET_WRITE_32", at);
        text += formatted("NET_READ_16 : %2x%02x\n", at[0], at[1]) + four("NET_WRITE_16", at);
        text += formatted("NET_READ_8 : %4x\n", at[0]) + four("NET_WRITE_8", at);
    }
    return text;
}

// Only the first comparison finds the second buffer smaller: 15 against the pattern's 0x12.
const char *const ExpectedMemoryFunctions = "*******ptr = P\nptr2= P\n"
                                            "FAST_MEMSET(ptr2) :  f  f  f  f\n-1\n1\n"
                                            "FAST_MEMCPY(ptr ) :  f  f  f  f\n0\n"
                                            "*******ptr = P\nptr2= P\n"
                                            "FAST_MEMSET(ptr2) : 10 10 10 10\n1\n-1\n"
                                            "FAST_MEMCPY(ptr ) : 10 10 10 10\n0\n"
                                            "*******ptr = P\nptr2= P\n"
                                            "FAST_MEMSET(ptr2) : 11 11 11 11\n1\n-1\n"
                                            "FAST_MEMCPY(ptr ) : 11 11 11 11\n0\n"
                                            "*******ptr = P\nptr2= P\n"
                                            "FAST_MEMSET(ptr2) : 12 12 12 12\n1\n-1\n"
                                            "FAST_MEMCPY(ptr ) : 12 12 12 12\n0\n";

const char *const ExpectedQueues = "Test MSG_QX \n"
                                   "queue created P\nqueue created P\nqueue created P\n"
                                   "10 x3 sends done\n"
                                   "10 msgQ3 recvs done\n10 msgQ2 recvs done\n10 msgQ1 recvs done\n"
                                   "Test MEQ \n"
                                   "queue created P\nqueue created P\nqueue created P\n"
                                   "10 x3 sends done\n"
                                   "10 meqQ3 recvs done\n10 meqQ2 recvs done\n10 meqQ1 recvs done\n";

class Start : public testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_EQ(0, kel_utils_init());
    }
};
const auto *const start = testing::AddGlobalTestEnvironment(new Start);

// Standard output as lines that can be waited for.
class OutputLines
{
public:
    OutputLines()
    {
        fflush(stdout);
        int ends[2];
        if (pipe(ends) != 0)
            abort();
        saved_ = dup(STDOUT_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        lines_ = fdopen(ends[0], "r");
        setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    }
    ~OutputLines()
    {
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        fclose(lines_);
    }
    OutputLines(const OutputLines &) = delete;
    OutputLines &operator=(const OutputLines &) = delete;

    std::string next()
    {
        char line[64];
        return fgets(line, sizeof line, lines_) != nullptr ? line : "end";
    }

private:
    int saved_;
    FILE *lines_;
};
} // namespace

// The first queue's time-out falls back to what is held back; the others are delivered by the timer task.
TEST(QueueSelfTest, PrintsTheSameBytesEveryTime)
{
    std::string printed;
    const auto waited = timeOf([&] { printed = withoutAddresses(printedBy([] { test_utils(); })); });
    EXPECT_EQ(expectedByteOrder() + ExpectedMemoryFunctions + ExpectedQueues, printed);
    EXPECT_GE(waited, 9900ms); // the aging delay of 1000 ticks
    EXPECT_LT(waited, 60s);
}

TEST(QueueSelfTest, InjectsNothingWithoutATestQueue)
{
    ticksSlept = 0;
    EXPECT_EQ(nullptr, msg_q_x_test_id);
    EXPECT_EQ(0, msg_q_x_test_inject(5, 10, 2));
    EXPECT_EQ(0U, ticksSlept);
}

TEST(QueueSelfTest, TestQueueThatCannotBeCreatedEndsTheStart)
{
    EXPECT_EQ(nullptr, msg_q_x_test_start(0, 0, 0, 0, 0));
    EXPECT_EQ(nullptr, msg_q_x_test_id);
    ASSERT_NE(nullptr, msg_q_x_test_sem); // made before the queue, and left
    semDelete(msg_q_x_test_sem);
}

// Without its flag there would be nothing to wait on, so nobody serves the queue.
TEST(QueueSelfTest, FlagThatCannotBeCreatedLeavesAQueueWithoutAConsumer)
{
    SMsgQueueX *queue = nullptr;
    {
        FailAllocation failing(1);
        queue = msg_q_x_test_start(10, 0, 0, 10, 0);
        EXPECT_TRUE(failing.happened());
    }
    ASSERT_NE(nullptr, queue);
    EXPECT_EQ(queue, msg_q_x_test_id);
    EXPECT_EQ(nullptr, msg_q_x_test_sem);
    EXPECT_EQ(nullptr, queue->externalFlag);
    msg_q_x_test_id = nullptr;
    msgQxDelete(queue);
}

// Without the consumer: a queue of the test's own in the place of the test queue.
TEST(QueueSelfTest, InjectionSleepsBeforeTheFirstOfEachBurst)
{
    SMsgQueueX *queue = msgQxCreate(20, 4, 0, 0, 0, nullptr);
    msg_q_x_test_id = queue;
    ticksSlept = 0;
    sleptBefore.clear();
    EXPECT_EQ(5, msg_q_x_test_inject(5, 10, 2));
    EXPECT_EQ(20U, ticksSlept);
    EXPECT_EQ((std::vector<int>{0, 3}), sleptBefore);
    for (uint32_t expected = 0; expected < 5; ++expected) {
        uint32_t value = 99;
        EXPECT_EQ(4, msgQxRecv(queue, reinterpret_cast<char *>(&value), 4, 0));
        EXPECT_EQ(expected, value);
    }

    sleptBefore.clear();
    EXPECT_EQ(3, msg_q_x_test_inject(3, 1, 0)); // no burst: before every message
    EXPECT_EQ((std::vector<int>{0, 1, 2}), sleptBefore);
    EXPECT_EQ(0, msg_q_x_test_inject(0, 1, 1));
    EXPECT_EQ(0, msg_q_x_test_inject(-4, 1, 1));
    EXPECT_EQ(30, msg_q_x_test_inject(30, 0, 100)); // does not wait for room
    EXPECT_EQ(20, msgQxNumMsgs(queue));
    msg_q_x_test_id = nullptr;
    msgQxDelete(queue);
}

TEST(QueueSelfTest, ConsumerPrintsEachValueAndASecondStartReturnsItsQueue)
{
    OutputLines output;
    std::thread([] { msg_q_x_test_start(10, 0, 0, 10, 0); }).detach();
    while (msg_q_x_test_inject(1, 0, 0) == 0)
        std::this_thread::yield();
    EXPECT_EQ("0\n", output.next());
    EXPECT_EQ(3, msg_q_x_test_inject(3, 0, 9));
    for (const char *line : {"0\n", "1\n", "2\n"})
        EXPECT_EQ(line, output.next());
    EXPECT_EQ(msg_q_x_test_id, msg_q_x_test_start(0, 0, 0, 0, 0));
    EXPECT_EQ(msg_q_x_test_sem, msg_q_x_test_id->externalFlag);
    EXPECT_EQ(10, msg_q_x_test_id->queueSize);
    EXPECT_EQ(4, msg_q_x_test_id->maxMsgLength);

    // It waits for the flag instead of polling, so it takes every give.
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (givesOf(msg_q_x_test_sem) != 0 && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    EXPECT_EQ(0, givesOf(msg_q_x_test_sem));
}
