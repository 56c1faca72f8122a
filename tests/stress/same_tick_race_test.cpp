// The arrival and the time-out of a wait fall in the same tick: for every waiting call, what arrives is taken or still
// there, never both and never neither.
//
// The waits are of one tick, but the waiter reads a wall clock that is almost a tick slow, so its deadline is some
// microseconds away and a million races take two minutes. The other thread acts at a random moment before or after.
#include "mempool.h"
#include "queues.h"

#include "harness/effort.h"
#include "harness/instrumented.h"
#include "models/memory_pool_model.h"
#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <random>
#include <thread>

namespace
{
constexpr unsigned int OneTick = 1;
constexpr int64_t TickNs = 10000000;
constexpr int64_t LongestWaitNs = 40000;
constexpr int64_t StepNs = 2000;

// How far the wall clock of this thread is behind.
thread_local constinit int64_t behindNs = 0;

int64_t nowNs(clockid_t clock)
{
    timespec now;
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

unsigned seed()
{
    static const unsigned chosen = [] {
        const unsigned made = std::random_device{}();
        printf("seed %u\n", made);
        return made;
    }();
    return chosen;
}

// Lets a moment pass without sleeping.
void spin(int64_t ns)
{
    for (const int64_t end = nowNs(CLOCK_MONOTONIC) + ns; nowNs(CLOCK_MONOTONIC) < end;) {
    }
}

struct Outcome {
    int arrived = 0;  // the wait took what came
    int timedOut = 0; // the wait was over first
    int wrong = 0;    // lost, doubled, or a result that is not documented
};

// One race a round. `waits` waits one tick and says whether it got what `acts` gave in the meantime; `isThere` says,
// with both threads at rest, whether that is still there, and puts everything back for the next round. `prepares` runs
// on the other thread before the wait begins.
//
// How long the other thread lets pass before it acts follows the outcomes, so that about every second wait is over
// first, on any machine and under any load: that is where the two meet.
template <class Waits, class Acts, class IsThere, class Prepares = void (*)()>
Outcome race(
    Waits waits, Acts acts, IsThere isThere, Prepares prepares = [] {})
{
    const int rounds = effort(scaled(2000), 1000000);
    Outcome outcome;
    bool got = false;
    int64_t delayNs = LongestWaitNs;
    std::atomic<bool> prepared{false};
    std::atomic<bool> waiting{false};
    std::barrier together(2, [&]() noexcept {
        prepared = false;
        waiting = false;
        ++(got ? outcome.arrived : outcome.timedOut);
        delayNs = std::clamp<int64_t>(delayNs + (got ? StepNs : -StepNs), 0, 100 * LongestWaitNs);
        outcome.wrong += got == isThere();
    });
    std::thread other([&] {
        std::minstd_rand random(seed() + 1);
        for (int round = 0; round < rounds; ++round) {
            prepares();
            prepared = true;
            while (!waiting)
                std::this_thread::yield();
            spin(delayNs + static_cast<int64_t>(random() % StepNs));
            acts();
            together.arrive_and_wait();
        }
    });
    std::minstd_rand random(seed() + 2);
    prctl(PR_SET_TIMERSLACK, 1); // ns; only waits for a time-out are measured by it
    for (int round = 0; round < rounds; ++round) {
        while (!prepared)
            std::this_thread::yield();
        behindNs = TickNs - static_cast<int64_t>(random() % LongestWaitNs);
        waiting = true;
        got = waits();
        behindNs = 0;
        together.arrive_and_wait();
    }
    prctl(PR_SET_TIMERSLACK, 0);
    other.join();
    return outcome;
}

int allRaces = 0;
int allWrong = 0;

class Start : public testing::Environment
{
public:
    void SetUp() override
    {
        ASSERT_EQ(0, kel_utils_init());
    }
    void TearDown() override
    {
        printf("trust: arrival and time-out in one tick, every waiting call | %d races, %d lost or doubled\n", allRaces,
               allWrong);
    }
};
const auto *const start = testing::AddGlobalTestEnvironment(new Start);

// Both ends of the race were seen, and nothing was wrong in any.
void check(const Outcome &outcome)
{
    EXPECT_EQ(0, outcome.wrong);
    EXPECT_GT(outcome.arrived, 0);
    EXPECT_GT(outcome.timedOut, 0);
    printf("%d arrived, %d timed out\n", outcome.arrived, outcome.timedOut);
    allRaces += outcome.arrived + outcome.timedOut;
    allWrong += outcome.wrong;
}

bool taken(int result)
{
    EXPECT_TRUE(result == 0 || result == ETIMEDOUT) << result;
    return result == 0;
}
} // namespace

// The library reads its clock through the dynamic linker, so this one comes first.
extern "C" int gettimeofday(timeval *time, void *) noexcept
{
    const int64_t now = nowNs(CLOCK_REALTIME) - behindNs;
    *time = {now / 1000000000, now % 1000000000 / 1000};
    return 0;
}

class SameTickOnSemaphore : public testing::TestWithParam<SEM_ID (*)(int, unsigned int)>
{
};

TEST_P(SameTickOnSemaphore, GiveIsTakenOrStillThere)
{
    SEM_ID sem = GetParam()(0, 0);
    check(race([sem] { return taken(semTake(sem, OneTick)); }, [sem] { EXPECT_EQ(0, semGive(sem)); },
               [sem] { return semTake(sem, 0) == 0; }));
    EXPECT_EQ(0, givesOf(sem)); // none doubled
    EXPECT_EQ(0, semDelete(sem));
}

INSTANTIATE_TEST_SUITE_P(Kinds, SameTickOnSemaphore, testing::Values(semBCreate, semCCreate));

// The other thread owns the mutual-exclusion semaphore when the wait begins, and gives it. Before the next round it
// takes it without waiting, which a waiter who has it and does not know would refuse.
TEST(SameTick, MutexIsTakenOrFreeAfterwards)
{
    SEM_ID sem = semMCreate(0);
    bool tookIt = false;
    check(race(
        [&] {
            tookIt = taken(semTake(sem, OneTick));
            if (tookIt) {
                EXPECT_EQ(0, semGive(sem));
            }
            if (!UnderThreadSanitizer) { // it objects to giving what is not one's own
                EXPECT_EQ(EPERM, semGive(sem));
            }
            return tookIt;
        },
        [&] { EXPECT_EQ(0, semGive(sem)); }, [&] { return !tookIt; }, [&] { EXPECT_EQ(0, semTake(sem, 0)); }));
    EXPECT_EQ(0, semDelete(sem));
}

TEST(SameTick, FixedQueueMessageIsReceivedOrStillThere)
{
    static const MSG_Q_ID queue = msgQCreate(1, 4, 0); // there is no call that deletes it
    const auto receive = [](unsigned int timeout) {
        char byte = 0;
        const unsigned int bytes = msgQReceive(queue, &byte, 1, timeout);
        EXPECT_TRUE((bytes == 1 && byte == 'm') || bytes == 0xFFFFFFFF);
        return bytes == 1;
    };
    check(race([&] { return receive(OneTick); }, [] { EXPECT_EQ(0, msgQSend(queue, "m", 1, 0, 0)); },
               [&] { return receive(0); }));
}

TEST(SameTick, FixedQueueRoomIsUsedOrStillThere)
{
    static const MSG_Q_ID queue = msgQCreate(1, 4, 0);
    char byte;
    ASSERT_EQ(0, msgQSend(queue, "m", 1, 0, 0));
    check(race([] { return msgQSend(queue, "m", 1, OneTick, 0) == 0; },
               [&] { EXPECT_EQ(1U, msgQReceive(queue, &byte, 1, 0)); },
               [] { return msgQSend(queue, "m", 1, 0, 0) == 0; }));
}

TEST(SameTick, EventIsReceivedOrStillThere)
{
    SMultiEventQ *queue = meqCreate(4, 2, nullptr);
    const auto receive = [queue](int timeout) {
        unsigned short event = 9;
        unsigned int data = 0;
        const int result = meqRecvX(queue, &event, &data, timeout);
        EXPECT_TRUE((result == 0 && event == 1 && data == 7) || result == -1);
        return result == 0;
    };
    check(race([&] { return receive(OneTick); }, [queue] { EXPECT_EQ(0, meqSend(queue, 1, 7)); },
               [&] { return receive(0); }));
    EXPECT_EQ(0, givesOf(queue->cflag));
    meqDelete(queue);
}

// The wake-up is held back, so it comes from the receiver itself when its wait is over, or from a second sender.
TEST(SameTick, EventsThatAreHeldBackAreReceivedOrStillThere)
{
    SMultiEventQ *queue = meqCreateX(4, 2, 0, 2, 3, nullptr);
    const auto receive = [queue](int timeout) {
        unsigned short event;
        unsigned int data;
        return meqRecvX(queue, &event, &data, timeout) == 0;
    };
    const Outcome outcome = race([&] { return receive(OneTick); },
                                 [queue] {
                                     EXPECT_EQ(0, meqSend(queue, 0, 7));
                                     EXPECT_EQ(0, meqSend(queue, 1, 7));
                                 },
                                 [&] {
                                     const int left = receive(0) + receive(0);
                                     EXPECT_GE(left, 1);
                                     EXPECT_FALSE(receive(0));
                                     return left == 2;
                                 });
    check(outcome);
    EXPECT_EQ(0, givesOf(queue->cflag));
    EXPECT_EQ(0, queue->delayedGives);
    meqDelete(queue);
}

TEST(SameTick, VariableLengthMessageIsReceivedOrStillThere)
{
    SMsgQueueX *queue = msgQxCreate(2, 4, 0, 0, 0, nullptr);
    const auto receive = [queue](int timeout) {
        char byte = 0;
        const int bytes = msgQxRecv(queue, &byte, 1, timeout);
        EXPECT_TRUE((bytes == 1 && byte == 'm') || bytes == -1);
        return bytes == 1;
    };
    check(race([&] { return receive(OneTick); }, [queue] { EXPECT_EQ(0, msgQxSend(queue, "m", 1, 0, 0)); },
               [&] { return receive(0); }));
    EXPECT_EQ(0, givesOf(queue->cflag));
    msgQxDelete(queue);
}

// A sender with a limit waits for its turn in a full ring. Its message is in the ring, or there is room and a turn.
TEST(SameTick, VariableLengthQueuesRoomIsUsedOrStillThere)
{
    SMsgQueueX *queue = msgQxCreate(1, 4, 0, 0, 0, nullptr);
    char byte;
    const auto emptyTurns = [queue] {
        while (semTake(queue->sendFlag, 0) == 0) {
        }
    };
    ASSERT_EQ(0, msgQxSend(queue, "m", 1, 0, 0));
    emptyTurns();
    check(race([queue] { return msgQxSend(queue, "m", 1, OneTick, 0) == 0; },
               [&] { EXPECT_EQ(1, msgQxRecv(queue, &byte, 1, 0)); },
               [&] {
                   const bool room = msgQxNumMsgs(queue) == 0;
                   if (room) {
                       EXPECT_EQ(1, givesOf(queue->sendFlag));
                       EXPECT_EQ(0, msgQxSend(queue, "m", 1, static_cast<int>(OneTick), 0));
                   }
                   emptyTurns();
                   return room;
               }));
    EXPECT_EQ(1, givesOf(queue->cflag)); // of the message in the ring
    msgQxDelete(queue);
}

TEST(SameTick, BlockIsAllocatedOrStillFree)
{
    vxFixedSizeMemPool pool(16, 1);
    void *block = pool.vxAlloc(0);
    const auto emptySurplus = [&] {
        while (semTake(pool.availSem, 0) == 0) {
        }
    };
    emptySurplus();
    check(race(
        [&] {
            void *const allocated = pool.vxAlloc(static_cast<int>(OneTick));
            EXPECT_TRUE(allocated == nullptr || allocated == block);
            return allocated != nullptr;
        },
        [&] { EXPECT_EQ(0U, pool.vxFree(block)); },
        [&] {
            EXPECT_STREQ(nullptr, brokenInvariant(pool));
            const bool isFree = pool.vxAlloc(0) != nullptr;
            emptySurplus();
            return isFree;
        }));
    EXPECT_EQ(0U, pool.vxFree(block));
}
