// fault_table.h: runs a table of operations under every fault that can reach them.
//
// A row names exported functions and has a check: it sets up, calls them in Injection::during(), and compares what came
// of it with what is documented. The table counts which calls of fail_call.h the row reaches, and then makes the first
// of a kind fail, the second, and so on until the row gets through, once and from then on. After each fault the locks
// of the library can be taken by another thread, and nothing is left of the heap but records of deleted semaphores.
#pragma once

#include "vxw_shim.h"

#include "harness/call.h"
#include "harness/countdown.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <new>
#include <span>
#include <type_traits>

namespace faults
{
inline constexpr int NoFault = 0;

class Injection
{
public:
    Injection(Call call, int nth, Failing mode) : call_(call), nth_(nth), mode_(mode) {}

    // Runs the operation under the fault. An allocator's exception that it lets pass gives a value-initialised result.
    template <class Code>
    auto during(Code code) -> std::invoke_result_t<Code>
    {
        using Result = std::invoke_result_t<Code>;
        if constexpr (std::is_void_v<Result>) {
            run([&] { code(); });
        } else {
            Result result{};
            run([&] { result = code(); });
            return result;
        }
    }

    // Whether a call has failed.
    bool failed() const
    {
        return failed_;
    }
    // Whether that was a call of this kind.
    bool failed(Call call) const
    {
        return failed_ && call_ == call;
    }
    // Whether exactly this call of the kind has failed, and no other.
    bool failedOnce(Call call, int nth) const
    {
        return failed(call) && nth_ == nth && mode_ == Failing::Once;
    }
    int nth() const
    {
        return nth_;
    }
    bool fromThenOn() const
    {
        return mode_ == Failing::FromThenOn;
    }
    // Whether the allocator's exception came out of the operation.
    bool threw() const
    {
        return threw_;
    }
    // Posts of this semaphore are neither counted nor failed.
    void sparing(SEM_ID sem)
    {
        spared_ = sem->impl;
    }
    // The operation gives memory away for good: not balanced.
    void keepsMemory()
    {
        keepsMemory_ = true;
    }
    bool balances() const
    {
        return !keepsMemory_;
    }

    std::array<int, EveryCall.size()> counted{}; // when no call is to fail: the calls made, by kind
    bool ran = false;                            // then: whether during() was called

private:
    void run(const std::function<void()> &code);

    Call call_;
    int nth_;
    Failing mode_;
    bool failed_ = false;
    bool threw_ = false;
    bool keepsMemory_ = false;
    const void *spared_ = nullptr;
};

struct Row {
    const char *names; // exported, one a line
    void (*check)(Injection &);
    enum { Reaches, ReachesNothing } kind = Reaches;
    bool (*ignores)(Call) = nullptr; // kinds that are not made to fail
};

// For rows whose only memory is what the C library keeps about time zones and name services.
bool memoryOfTheCLibrary(Call call);

// Runs all rows. What they print is shown only when something is wrong.
void runTable(std::span<const Row> rows);

// Runs a row's check once and looks after the locks and the heap. Returns whether all was as it should be.
bool runCase(const Row &row, Injection &injection);

// Whether another thread can take `sem` at once.
bool isFree(SEM_ID sem);

// Faults made so far, and how many of them had the documented result.
struct Score {
    int injected = 0;
    int passed = 0;
};
Score &score();

// Prints the score as a row of the table of trust when all tests have run.
class PrintsTheScore : public testing::Environment
{
public:
    explicit PrintsTheScore(const char *rowTitle) : title(rowTitle) {}

private:
    void TearDown() override
    {
        printf("trust: %s | %d / %d\n", title, score().injected, score().passed);
    }
    const char *title;
};
} // namespace faults
