// fault_table.cpp: the table's engine. The only source of the program that stands in front of the faulted functions.
#include "fault_table.h"

#include "harness/fail_call.h"
#include "harness/printed_by.h"

#include "queues.h"
#include "sysport.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// The sanitizers would end the process where malloc() is to return null.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options()
{
    return "allocator_may_return_null=1:die_after_fork=0:atexit_sleep_ms=0"; // start_faults_test.cpp forks often
}

namespace faults
{
namespace
{
// Tries locks from a thread of its own, one that stays: its memory must not count.
class LockTester
{
public:
    LockTester() : thread([this] { serve(); }) {}
    ~LockTester()
    {
        {
            const std::lock_guard hold(mutex);
            ended = true;
        }
        changed.notify_all();
        thread.join();
    }
    bool isFree(SEM_ID sem)
    {
        std::unique_lock hold(mutex);
        asked = sem;
        changed.notify_all();
        changed.wait(hold, [this] { return asked == nullptr; });
        return answer;
    }

private:
    void serve()
    {
        std::unique_lock hold(mutex);
        for (;;) {
            changed.wait(hold, [this] { return ended || asked != nullptr; });
            if (ended)
                return;
            answer = semTake(asked, 0) == 0;
            if (answer)
                semGive(asked);
            asked = nullptr;
            changed.notify_all();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    SEM_ID asked = nullptr;
    bool answer = false;
    bool ended = false;
    std::thread thread;
};

LockTester &lockTester()
{
    static LockTester tester;
    return tester;
}

int failuresSoFar()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

void expectLibraryUnlocked()
{
    for (const SEM_ID lock : {SBaseQ::lockSem, kelSysPortUtil::mSem})
        EXPECT_TRUE(lock == nullptr || isFree(lock)) << "a lock of the library is left held";
}

} // namespace

bool runCase(const Row &row, Injection &injection)
{
    const int before = failuresSoFar();
    const long blocks = liveBlocks();
    const long records = keptRecords();
    row.check(injection);
    const long left = liveBlocks() - blocks;
    if (failuresSoFar() == before && injection.balances()) {
        EXPECT_EQ(keptRecords() - records, left) << "blocks are left on the heap";
    }
    expectLibraryUnlocked();
    return failuresSoFar() == before;
}

namespace
{
// The calls that a row makes, by kind, when nothing fails. What the C library allocates once was allocated before.
auto callsOf(const Row &row)
{
    Injection warmUp(Call::Allocate, NoFault, Failing::Once);
    row.check(warmUp);
    Injection count(Call::Allocate, NoFault, Failing::Once);
    runCase(row, count);
    EXPECT_TRUE(count.ran) << "the row never calls what it is about";
    return count.counted;
}

void makeEachFail(const Row &row, Call call, Failing mode)
{
    constexpr int endless = 1000;
    for (int nth = 1; nth < endless; ++nth) {
        const std::string what = std::string(row.names) + ", " + nameOf(call) + " number " + std::to_string(nth) +
                                 (mode == Failing::Once ? "" : " and all after it");
        SCOPED_TRACE(what);
        Injection injection(call, nth, mode);
        const bool good = runCase(row, injection);
        if (!injection.failed())
            return;
        ++score().injected;
        score().passed += good ? 1 : 0;
    }
    ADD_FAILURE() << row.names << " does not get through without " << nameOf(call);
}

void checkRow(const Row &row)
{
    SCOPED_TRACE(row.names);
    const auto calls = callsOf(row);
    bool reached = false;
    for (const Call call : EveryCall) {
        const bool ignored = row.ignores != nullptr && row.ignores(call);
        if (calls[static_cast<size_t>(call)] == 0 || ignored)
            continue;
        reached = true;
        EXPECT_EQ(Row::Reaches, row.kind) << "it is said to make no call that can fail, and makes " << nameOf(call);
        makeEachFail(row, call, Failing::Once);
        makeEachFail(row, call, Failing::FromThenOn);
    }
    EXPECT_TRUE(reached || row.kind == Row::ReachesNothing) << "no fault reaches it";
}
} // namespace

void Injection::run(const std::function<void()> &code)
{
    FailCall::neverOverflowing() = spared_;
    if (nth_ == NoFault) {
        std::array<std::optional<FailCall>, EveryCall.size()> counters;
        for (const Call call : EveryCall)
            counters[static_cast<size_t>(call)].emplace(call, FailCall::Never, Failing::Once);
        code();
        for (auto &counter : counters)
            counter->happened();
        for (const Call call : EveryCall)
            counted[static_cast<size_t>(call)] = counters[static_cast<size_t>(call)]->calls();
        ran = true;
    } else {
        FailCall failing(call_, nth_, mode_);
        try {
            code();
        } catch (const std::bad_alloc &) {
            threw_ = true;
        }
        failed_ = failing.happened();
        EXPECT_TRUE(!threw_ || failed(Call::Allocate)) << "an exception without an allocation that failed";
    }
    FailCall::neverOverflowing() = nullptr;
}

bool memoryOfTheCLibrary(Call call)
{
    return call == Call::Allocate;
}

void runTable(std::span<const Row> rows)
{
    const int before = failuresSoFar();
    const std::string printed = printedBy([&] {
        for (const Row &row : rows)
            checkRow(row);
    });
    if (failuresSoFar() != before)
        fputs(printed.c_str(), stdout);
}

bool isFree(SEM_ID sem)
{
    return lockTester().isFree(sem);
}

Score &score()
{
    static Score total;
    return total;
}
} // namespace faults
