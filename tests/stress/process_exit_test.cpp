// A process may end at any time, in any way, with the timer task and eight tasks at work: its status is 0.
#include "harness/effort.h"
#include "harness/instrumented.h"

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>

#include <random>
#include <string>
#include <vector>

namespace
{
// The status of a process that worked for some microseconds and then ended in this way.
int statusAfter(const char *way, unsigned microseconds)
{
    std::string program = EXITING_PROCESS;
    std::string how = way;
    std::string when = std::to_string(microseconds);
    std::string emulator = KEL_EMULATOR;
    std::vector<char *> arguments = {program.data(), how.data(), when.data(), nullptr};
    if (!emulator.empty())
        arguments.insert(arguments.begin(), emulator.data());
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
        return -1;
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}
} // namespace

TEST(ProcessExit, StatusIs0HoweverAndWheneverItEnds)
{
    const int rounds = effort(*KEL_EMULATOR ? 20 : scaled(200), 10000);
    const unsigned seed = std::random_device{}();
    printf("seed %u\n", seed);
    std::minstd_rand random(seed);
    int clean = 0;
    for (int round = 0; round < rounds; ++round) {
        static constexpr const char *ways[] = {"exit", "_exit", "return"};
        const auto microseconds = static_cast<unsigned>(random() % 2000);
        const int status = statusAfter(ways[round % 3], microseconds);
        clean += status == 0;
        ASSERT_EQ(0, status) << ways[round % 3] << " after " << microseconds << " us, round " << round;
    }
    printf("trust: exit, _exit and return from main with 9 tasks at work | %d of %d with status 0\n", clean, rounds);
}

// What this test looks for it would find: a crash in the same process is seen.
TEST(ProcessExit, ProcessThatCrashesIsSeen)
{
    EXPECT_NE(0, statusAfter("abort", 0));
}
