// start_faults_test.cpp: the library's start under faults, its timer task, and the self-tests that make queues.
//
// A start is for the life of a process, so each is made in a child of its own: with the timer task running, a queue
// that holds back is delivered by time; without it the start says so, and queues work that hold nothing back. This
// program starts no thread of its own before it forks.
#include "fault_table.h"

#include "harness/instrumented.h"
#include "harness/printed_by.h"

#include "bitset.h"
#include "queues.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace faults;

namespace
{
constexpr int Forever = -1;
enum Outcome { Good = 0, NotReached = 1, Bad = 2 };

// Runs `code` in a child; returns the outcome it ends with.
template <class Code>
int inAChild(Code code)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        freopen("/dev/null", "w", stdout);
        alarm(60); // a child that hangs is a failure, and no more than that
        _exit(code());
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : Bad;
}

// Whether the lock of all queues can be had. The timer task may hold it for a moment.
bool isUnlocked()
{
    constexpr unsigned aMinute = 6000;
    bool isFree = SBaseQ::lockSem == nullptr;
    if (!isFree)
        std::thread([&] { isFree = semTake(SBaseQ::lockSem, aMinute) == 0 && semGive(SBaseQ::lockSem) == 0; }).join();
    return isFree;
}

// Whether an event goes through a queue; one that holds back relies on the timer task.
bool isDelivered(int threshold, int delay)
{
    unsigned short event = 0;
    unsigned int data = 0;
    SMultiEventQ *queue = meqCreateX(1, 2, 0, threshold, delay, nullptr);
    const bool received = meqSend(queue, 1, 3) == 0 && meqRecvX(queue, &event, &data, Forever) == 0;
    meqDelete(queue);
    return received && event == 1 && data == 3;
}

// The result is that of spawning the timer task, whatever became of the semaphores before.
int startsOrSaysSo(Injection &injection, int (*start)())
{
    const int result = injection.during(start);
    if (!injection.failed())
        return NotReached;
    if (!isUnlocked() || !isDelivered(0, 0) || result != SBaseQ::taskId)
        return Bad;
    if (result == 0)
        return SBaseQ::lockSem == nullptr || SBaseQ::timerSig == nullptr || isDelivered(2, 1) ? Good : Bad;
    return result == EAGAIN ? Good : Bad;
}

// The task is started though one of its two semaphores is missing.
int startsWithoutOne(Injection &injection)
{
    const int result = injection.during(kel_utils_init);
    if (!injection.failed())
        return NotReached;
    return result == 0 && (SBaseQ::lockSem == nullptr) != (SBaseQ::timerSig == nullptr) ? Good : Bad;
}

// Makes the nth call of a kind fail in one child after the other, until one gets through without.
template <class Code>
void makeEachFail(Call call, Failing mode, Code inChild, int limit = 100)
{
    for (int nth = 1; nth <= limit; ++nth) {
        const int outcome = inAChild([&] {
            Injection injection(call, nth, mode);
            return inChild(injection);
        });
        if (outcome == NotReached)
            return;
        ++score().injected;
        score().passed += outcome == Good ? 1 : 0;
        EXPECT_EQ(Good, outcome) << "call " << nth << " of kind " << static_cast<int>(call)
                                 << (mode == Failing::Once ? "" : " and all after it");
    }
}

template <class Code>
void makeEachFail(const std::vector<Call> &calls, Code inChild, int limit = 100)
{
    for (const Call call : calls) {
        makeEachFail(call, Failing::Once, inChild, limit);
        makeEachFail(call, Failing::FromThenOn, inChild, limit);
    }
}

// The timer task as this thread, under a fault, with a sender and receiver beside it. Events whose give is lost or late
// are taken by a receiver that does not wait without end.
int runsTheTimer(Injection &injection)
{
    SBaseQ::lockSem = semMCreate(0);
    SBaseQ::timerSig = semBCreate(0, SEM_EMPTY);
    std::thread([] {
        unsigned short event = 0;
        unsigned int data = 0;
        SMultiEventQ *queue = meqCreateX(1, 2, 0, 5, 1, nullptr);
        for (int round = 0; round < 3; ++round) {
            if (meqSend(queue, 1, 3) != 0)
                _exit(Bad);
            int result = -1;
            for (int tries = 0; result == -1 && tries < 100; ++tries) {
                result = meqRecvX(queue, &event, &data, 5);
                if (result == -1 && queue->recvQ(event, data) == 0)
                    result = 0; // its give was lost, and the event was not
            }
            if (result == -1 || !isUnlocked())
                _exit(Bad);
        }
        _exit(Good);
    }).detach();
    injection.during([] { SBaseQ::timer_callback(0); });
    return Bad;
}

[[maybe_unused]] const auto *const environment =
    testing::AddGlobalTestEnvironment(new PrintsTheScore("faults at the start injected / passed"));

// What a self-test makes before memory runs out is released on the way out.
bool leavesNothing(Injection &injection)
{
    injection.during(test_utils);
    EXPECT_EQ(injection.failed(), injection.threw());
    return injection.failed();
}
} // namespace

TEST(StartFaults, TheLibraryStartsOrSaysSo)
{
    std::vector<Call> calls{Call::Allocate,  Call::SemInit,      Call::MutexInit,      Call::MutexAttributes,
                            Call::MutexType, Call::ThreadCreate, Call::ThreadStackSize};
    // The thread sanitizer makes an attribute object of its own in each pthread_create(), and does not look at the
    // result.
    if (!UnderThreadSanitizer)
        calls.push_back(Call::ThreadAttributes);
    for (int (*start)() : {kel_utils_init, SBaseQ::init})
        makeEachFail(calls, [start](Injection &injection) { return startsOrSaysSo(injection, start); });
}

TEST(StartFaults, TheLibraryStartsWhateverItsSemaphoresAre)
{
    for (const Call call : {Call::MutexInit, Call::SemInit})
        EXPECT_EQ(Good, inAChild([call] {
                      Injection injection(call, 1, Failing::Once);
                      return startsWithoutOne(injection);
                  }));
}

TEST(StartFaults, TheTimerTaskOutlivesClocksAndGivesThatFail)
{
    makeEachFail({Call::MonotonicClock, Call::WallClock, Call::SemPost}, runsTheTimer, 4);
}

// A flag that cannot be made leaves a queue that nobody serves; memory for the queue itself lets the exception pass.
TEST(StartFaults, TheTestQueueIsReturnedUnservedWithoutItsFlag)
{
    const auto startsUnserved = [](Call call, int nth, Failing mode) {
        Injection injection(call, nth, mode);
        SMsgQueueX *queue = injection.during([] { return msg_q_x_test_start(4, 0, 0, 2, 0); });
        const bool noQueue = call == Call::Allocate && (nth == 3 || mode == Failing::FromThenOn);
        EXPECT_TRUE(injection.failed());
        EXPECT_EQ(noQueue, injection.threw());
        EXPECT_EQ(noQueue, queue == nullptr);
        EXPECT_EQ(nth < 3, msg_q_x_test_sem == nullptr);
        EXPECT_EQ(queue, msg_q_x_test_id);
        msgQxDelete(queue);
        if (msg_q_x_test_sem != nullptr)
            semDelete(msg_q_x_test_sem);
        msg_q_x_test_id = nullptr;
        msg_q_x_test_sem = nullptr;
        ++score().injected;
        score().passed += HasFailure() ? 0 : 1;
    };
    for (const Failing mode : {Failing::Once, Failing::FromThenOn}) {
        for (int nth = 1; nth <= 3; ++nth)
            startsUnserved(Call::Allocate, nth, mode);
        startsUnserved(Call::SemInit, 1, mode);
    }
}

// Queues without a count to give or take refuse every wait at once: the self-test ends, and leaves nothing.
TEST(StartFaults, TheSelfTestEndsWithoutAnyCounts)
{
    const std::string text = printedBy([] {
        Row row{"test_utils()", [](Injection &injection) {
                    injection.during(test_utils);
                    EXPECT_TRUE(injection.failed());
                }};
        Injection injection(Call::SemInit, 1, Failing::FromThenOn);
        runCase(row, injection);
    });
    EXPECT_NE(std::string::npos, text.find("0 msgQ1 recvs done"));
    EXPECT_NE(std::string::npos, text.find("0 meqQ1 recvs done"));
    ++score().injected;
    score().passed += HasFailure() ? 0 : 1;
}

// Seven allocations a queue; up to the third queue's, whose failure comes before anything waits.
TEST(StartFaults, TheSelfTestLeavesNoQueueBehindWhenMemoryRunsOut)
{
    for (int nth = 1; nth <= 15; ++nth) {
        printedBy([&] {
            Row row{"test_utils()", [](Injection &injection) { EXPECT_TRUE(leavesNothing(injection)); }};
            Injection injection(Call::Allocate, nth, Failing::FromThenOn);
            runCase(row, injection);
        });
        ++score().injected;
        score().passed += HasFailure() ? 0 : 1;
    }
}

namespace
{
void testsMasks(Injection &injection)
{
    injection.during(test_bitmask);
    EXPECT_EQ(injection.failed(), injection.threw());
}

const Row selfTests[] = {{"test_bitmask()", testsMasks}};

// Covered by the cases above, in children or up to where they never return:
// "kel_utils_init" "SBaseQ::init()" "SBaseQ::timer_callback(int)" "msg_q_x_test_start(int, int, int, int, int)"
} // namespace

TEST(StartFaults, TheMasksSelfTestLeavesNothingWhenMemoryRunsOut)
{
    runTable(selfTests);
}
