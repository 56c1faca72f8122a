// faults_test.cpp: the table itself is seen to fail, and the total of all rooms is printed at the end.
#include "fault_table.h"

#include "queues.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

using namespace faults;

namespace
{
std::vector<void *> forgotten(1);

void leaks(Injection &injection)
{
    void *first = nullptr;
    void *second = nullptr;
    forgotten.reserve(10);
    injection.during([&] {
        first = malloc(1);
        second = malloc(1);
    });
    if (second == nullptr)
        forgotten.push_back(first);
    else
        free(first);
    free(second);
}

void keepsTheLock(Injection &injection)
{
    static bool isHeld = false;
    if (isHeld)
        semGive(SBaseQ::lockSem);
    void *memory = nullptr;
    injection.during([&] { memory = malloc(1); });
    isHeld = memory == nullptr;
    if (isHeld)
        semTake(SBaseQ::lockSem, 0);
    free(memory);
}

void allocates(Injection &injection)
{
    void *memory = nullptr;
    injection.during([&] { memory = malloc(1); });
    free(memory);
}

// The failures of a table of one row.
int failuresOf(const Row &row)
{
    const Score before = score();
    testing::TestPartResultArray failures;
    {
        testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        runTable({&row, 1});
    }
    score() = before;
    return failures.size();
}

[[maybe_unused]] const auto *const environment =
    testing::AddGlobalTestEnvironment(new PrintsTheScore("faults injected / passed"));
} // namespace

// The failure of the second allocation leaves the first behind, once and from then on.
TEST(FaultTable, NoticesALeakOnAFailurePath)
{
    EXPECT_EQ(2, failuresOf({"leaks", leaks}));
    for (void *block : forgotten)
        free(block);
    forgotten.clear();
}

TEST(FaultTable, NoticesALockThatIsLeftHeld)
{
    SBaseQ::lockSem = semMCreate(0);
    EXPECT_EQ(2, failuresOf({"keeps the lock", keepsTheLock}));
    semDelete(SBaseQ::lockSem);
    SBaseQ::lockSem = nullptr;
}

TEST(FaultTable, NoticesAnAllocationWhereNoneIsSaidToBe)
{
    EXPECT_EQ(1, failuresOf({"allocates", allocates, Row::ReachesNothing}));
}

TEST(FaultTable, NoticesARowThatNoFaultReaches)
{
    EXPECT_EQ(1, failuresOf({"reaches nothing", [](Injection &injection) { injection.during([] {}); }}));
    EXPECT_EQ(2, failuresOf({"calls nothing", [](Injection &) {}}));
}
