// The timer task for real, with the gives and the spawn of the library passing through this test.
#include "queues.h"

#include "harness/time_of.h"
#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{
std::mutex seenLock;
auto &given = *new std::vector<SEM_ID>; // every semaphore given, in order; the timer task outlives the statics
std::atomic<SEM_ID> watched;            // gives of this one note when the queues' lock is held meanwhile
std::atomic<int> watchedGives;
std::atomic<bool> givenUnderTheLock;

struct Spawned {
    std::string name;
    int priority;
    int stackSize;
};
std::vector<Spawned> spawned;
bool spawnFails;

template <class Function>
Function *libraryOwn(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
} // namespace

namespace
{
// Asked by a thread of its own, because the lock is recursive. Another thread may hold it for a moment, so it waits.
bool lockIsFree()
{
    bool isFree = false;
    std::thread([&] {
        static const auto own = libraryOwn<int(SEM_ID)>("semGive");
        SEM_ID lockSem = SBaseQ::lockSem;
        isFree = semTake(lockSem, 500) == 0;
        if (isFree)
            own(lockSem);
    }).join();
    return isFree;
}
} // namespace

// These two take the place of the library's own and call them.
int semGive(SEM_ID sem)
{
    static const auto own = libraryOwn<int(SEM_ID)>("semGive");
    if (sem != nullptr && sem == watched) {
        if (!lockIsFree())
            givenUnderTheLock = true;
        ++watchedGives;
    }
    {
        std::lock_guard hold(seenLock);
        given.push_back(sem);
    }
    return own(sem);
}

int taskSpawn(const char *name, int priority, int options, int stackSize, FUNCPTR entry, int arg1, int arg2, int arg3,
              int arg4, int arg5, int arg6, int arg7, int arg8, int arg9, int arg10)
{
    static const auto own =
        libraryOwn<int(const char *, int, int, int, FUNCPTR, int, int, int, int, int, int, int, int, int, int)>(
            "taskSpawn");
    spawned.push_back({name, priority, stackSize});
    if (spawnFails)
        return EAGAIN;
    return own(name, priority, options, stackSize, entry, arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, arg9, arg10);
}

namespace
{
// Once for all tests: a spawn that fails, then one that works.
class Start : public testing::Environment
{
public:
    void SetUp() override
    {
        spawnFails = true;
        failedResult = kel_utils_init();
        semDelete(SBaseQ::lockSem);
        semDelete(SBaseQ::timerSig);
        spawnFails = false;
        result = kel_utils_init();
    }
    static inline int failedResult = -1;
    static inline int result = -1;
};
const auto *const start = testing::AddGlobalTestEnvironment(new Start);

std::vector<SEM_ID> givenOf(const std::vector<SEM_ID> &wanted)
{
    std::lock_guard hold(seenLock);
    std::vector<SEM_ID> seen;
    for (SEM_ID sem : given)
        for (SEM_ID want : wanted)
            if (sem == want)
                seen.push_back(sem);
    return seen;
}

bool isIdle(const SBaseQ &queue)
{
    SemLock hold(SBaseQ::lockSem);
    return !queue.aging && !queue.expired;
}

// Until the timer task has let go of it.
void waitUntilIdle(const SBaseQ &queue)
{
    while (!isIdle(queue))
        std::this_thread::yield();
}
} // namespace

TEST(AgingTimer, StartReportsASpawnThatFails)
{
    EXPECT_EQ(EAGAIN, Start::failedResult);
}

TEST(AgingTimer, StartMakesTheLockTheSignalAndOneTask)
{
    EXPECT_EQ(0, Start::result);
    EXPECT_EQ(0, SBaseQ::taskId);
    EXPECT_EQ(0, SBaseQ::lockSem->kind);  // mutual exclusion
    EXPECT_EQ(1, SBaseQ::timerSig->kind); // binary
    ASSERT_EQ(2U, spawned.size());
    EXPECT_EQ("tQtimer", spawned.back().name);
    EXPECT_EQ(3, spawned.back().priority);
    EXPECT_EQ(4096, spawned.back().stackSize);
}

// Ticks are counted whole, so the delay may end within the tick before.
TEST(AgingTimer, DeliversWhatIsHeldBackAfterTheDelayAndNotBefore)
{
    SBaseQ queue(4, 0, 8, 4, nullptr);
    const auto waited = timeOf([&] {
        queue.age_start(1);
        queue.age_start(1);
        EXPECT_EQ(0, semTake(queue.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    });
    EXPECT_GE(waited, 69ms);
    EXPECT_LT(waited, 5s);
    EXPECT_EQ(0, semTake(queue.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    waitUntilIdle(queue);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(0, queue.delayedGives);
    EXPECT_EQ(nullptr, queue.ageNext);
}

TEST(AgingTimer, GivesTheExternalFlagOnceABatch)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(4, 0, 2, 4, external);
    queue.age_start(1);
    queue.age_start(1);
    queue.age_start(1);
    EXPECT_EQ(0, semTake(external, static_cast<unsigned int>(WAIT_FOREVER)));
    waitUntilIdle(queue);
    EXPECT_EQ(0, givesOf(external));
    EXPECT_EQ(3, givesOf(queue.cflag));
    EXPECT_EQ(0, semDelete(external));
}

TEST(AgingTimer, ShorterDelayShortensTheSleep)
{
    SBaseQ late(4, 0, 1000, 4, nullptr);
    SBaseQ soon(4, 0, 3, 4, nullptr);
    late.age_start(1);
    const auto waited = timeOf([&] {
        soon.age_start(1);
        EXPECT_EQ(0, semTake(soon.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    });
    EXPECT_GE(waited, 19ms);
    EXPECT_LT(waited, 5s);
    EXPECT_EQ(0, givesOf(late.cflag));
}

// The lock is held until all are overdue, so that one pass takes them all.
TEST(AgingTimer, DeliversTheQueueThatExpiredLastFirst)
{
    SBaseQ first(4, 0, 1, 4, nullptr);
    SBaseQ second(4, 0, 2, 4, nullptr);
    SBaseQ third(4, 0, 3, 4, nullptr);
    SBaseQ::lock();
    first.age_start(1);
    second.age_start(1);
    third.age_start(1);
    taskDelay(6);
    SBaseQ::unLock();
    for (SBaseQ *queue : {&first, &second, &third})
        EXPECT_EQ(0, semTake(queue->cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    EXPECT_EQ((std::vector<SEM_ID>{third.cflag, second.cflag, first.cflag}),
              givenOf({first.cflag, second.cflag, third.cflag}));
}

TEST(AgingTimer, QueueWithoutHeldBackGivesExpiresWithoutGiving)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SBaseQ queue(4, 0, 1, 4, external);
    SBaseQ::lock();
    queue.age_start(1);
    queue.delayedGives = 0;
    SBaseQ::unLock();
    waitUntilIdle(queue);
    EXPECT_EQ(0, givesOf(queue.cflag));
    EXPECT_EQ(0, givesOf(external));
    EXPECT_EQ(0, semDelete(external));
}

// Whoever waits on the external flag does not wait again on the queue: all of the batch has to be there before it.
TEST(AgingTimer, ExternalFlagIsGivenAfterTheGivesOfItsBatch)
{
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    SMultiEventQ8 queue(8, 0, 8, 2, external);
    const auto send = [&](unsigned short event, int urgency) {
        EXPECT_EQ(0, queue.send(event, 0, 0xFFFFFFFF, 0xFFFFFFFF, urgency));
    };
    const std::vector<SEM_ID> both{queue.cflag, external};
    SBaseQ::lock(); // no sooner than all are held back
    send(0, 0);
    send(1, 0);
    SBaseQ::unLock();
    EXPECT_EQ(0, semTake(external, static_cast<unsigned int>(WAIT_FOREVER))); // by the timer task
    waitUntilIdle(queue);
    std::vector<SEM_ID> expected{queue.cflag, queue.cflag, external};
    EXPECT_EQ(expected, givenOf(both));

    SBaseQ::lock();
    send(2, 0);
    send(3, 0);
    queue.age_stop(1);
    send(4, 2); // at once
    queue.expired = true;
    queue.age_start(1); // while the timer task is delivering
    queue.expired = false;
    SBaseQ::unLock();
    expected.insert(expected.end(), {queue.cflag, queue.cflag, external});
    expected.insert(expected.end(), {queue.cflag, external});
    expected.insert(expected.end(), {queue.cflag, external});
    EXPECT_EQ(expected, givenOf(both));
    EXPECT_EQ(0, semDelete(external));
}

TEST(AgingTimer, GivesGoOutWithoutTheLock)
{
    SMsgQueueX queue(8, 4, 0, 8, 8, 1, nullptr);
    const auto watch = [](SEM_ID sem) {
        watchedGives = 0;
        watched = sem;
    };
    watch(queue.cflag);
    EXPECT_EQ(0, queue.send("a", 1, 0, 2)); // at once
    EXPECT_EQ(1, watchedGives);
    queue.age_start(1);
    queue.age_stop(1); // or the timer task, if it was quicker
    EXPECT_EQ(0, semTake(queue.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    EXPECT_EQ(0, semTake(queue.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    queue.age_start(1);
    EXPECT_EQ(0, semTake(queue.cflag, static_cast<unsigned int>(WAIT_FOREVER))); // by the timer task
    EXPECT_EQ(3, watchedGives);
    waitUntilIdle(queue);
    watch(SBaseQ::timerSig);
    queue.age_start(1);
    EXPECT_EQ(1, watchedGives);
    watch(nullptr);
    EXPECT_FALSE(givenUnderTheLock);
}

// 300000 ticks are a deadline in the past, and still are a few ticks later.
TEST(AgingTimer, DelayWhoseDeadlineIsInThePastIsHeldBackAllTheSame)
{
    SBaseQ late(4, 0, 300000, 4, nullptr);
    SBaseQ soon(4, 0, 1, 4, nullptr);
    late.age_start(1);
    for (int round = 0; round < 3; ++round) {
        soon.age_start(1);
        EXPECT_EQ(0, semTake(soon.cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    }
    EXPECT_EQ(0, givesOf(late.cflag));
    SemLock hold(SBaseQ::lockSem);
    EXPECT_TRUE(late.aging);
}

TEST(AgingTimer, NegativeDelayIsDeliveredAtOnce)
{
    for (int delay : {-1, -2, -5000}) {
        SBaseQ queue(4, 0, delay, 4, nullptr);
        queue.age_start(1);
        EXPECT_EQ(0, semTake(queue.cflag, 500)) << delay;
        waitUntilIdle(queue);
    }
}

TEST(AgingTimer, QueueWithoutADelayIsDeliveredAtOnce)
{
    SBaseQ waiting(4, 0, 3000, 4, nullptr);
    SBaseQ queue(4, 0, 0, 4, nullptr);
    waiting.age_start(1);
    queue.age_start(1);
    EXPECT_EQ(0, semTake(queue.cflag, 500));
    EXPECT_EQ(0, givesOf(waiting.cflag));
}

TEST(AgingTimer, ReceiverMayDeleteTheQueueRightAfterItsLastGive)
{
    for (int round = 0; round < 30; ++round) {
        auto queue = std::make_unique<SMultiEventQ32>(static_cast<unsigned short>(8), 0, 8, 1, nullptr);
        for (unsigned short event = 0; event < 4; ++event)
            EXPECT_EQ(0, queue->send(event, event, 0xFFFFFFFF, 0xFFFFFFFF, 0));
        for (int received = 0; received < 4; ++received) {
            unsigned short event;
            unsigned int data;
            EXPECT_EQ(0, queue->recv(event, data, WAIT_FOREVER));
            EXPECT_EQ(event, data);
        }
    }
}

TEST(AgingTimer, TwoSendsAreReceivedFiftyTicksAfterTheFirst)
{
    SMultiEventQ8 queue(10, 0, 3, 50, nullptr);
    unsigned short event = 0;
    unsigned int data = 0;
    const auto held = timeOf([&] {
        queue.send(1, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0);
        queue.send(2, 2, 0xFFFFFFFF, 0xFFFFFFFF, 0);
        EXPECT_EQ(0, queue.recv(event, data, WAIT_FOREVER));
    });
    EXPECT_GE(held, 489ms);
    EXPECT_LT(held, 10s);
    EXPECT_EQ(1, event);
    EXPECT_EQ(0, queue.recv(event, data, WAIT_FOREVER));
    EXPECT_EQ(2, event);
}

TEST(AgingTimer, ThirdSendWakesTheReceiverBeforeTheDelayIsOver)
{
    SMultiEventQ8 queue(10, 0, 3, 3000, nullptr);
    unsigned short event = 0;
    std::thread receiver([&] {
        unsigned int data;
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(0, queue.recv(event, data, WAIT_FOREVER));
    });
    const auto waited = timeOf([&] {
        for (unsigned short sent = 1; sent <= 3; ++sent)
            queue.send(sent, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0);
        receiver.join();
    });
    EXPECT_EQ(3, event);
    EXPECT_LT(waited, 10s);
}

TEST(AgingTimer, VariableQueueIsReceivedAfterTheDelayOrAtTheThreshold)
{
    SMsgQueueX queue(10, 4, 0, 3, 10, 8, nullptr);
    char got[4];
    const auto held = timeOf([&] {
        EXPECT_EQ(0, queue.send("one", 3, 0, 0));
        EXPECT_EQ(0, queue.send("two", 3, 0, 0));
        EXPECT_EQ(3, queue.recv(got, 4, WAIT_FOREVER));
    });
    EXPECT_GE(held, 69ms);
    EXPECT_LT(held, 5s);
    EXPECT_EQ(3, queue.recv(got, 4, WAIT_FOREVER));
    waitUntilIdle(queue);
    for (const char *message : {"one", "two", "six"})
        EXPECT_EQ(0, queue.send(message, 3, 0, 0));
    EXPECT_EQ(3, givesOf(queue.cflag));
}

// Senders, stoppers and the timer task on the same queues: in the end every give is there once.
TEST(AgingTimer, NoGiveIsLostOrDoubledBetweenSendersStoppersAndTheTask)
{
    constexpr int senders = 3;
    constexpr int startsOfEach = 2000;
    std::vector<std::unique_ptr<SBaseQ>> queues;
    for (int delay = 0; delay < 4; ++delay)
        queues.push_back(std::make_unique<SBaseQ>(4, 0, delay, 4, nullptr));
    std::vector<std::thread> threads;
    std::atomic<bool> sending = true;
    for (int sender = 0; sender < senders; ++sender)
        threads.emplace_back([&] {
            for (int i = 0; i < startsOfEach; ++i)
                for (auto &queue : queues)
                    queue->age_start(1);
        });
    std::thread stopper([&] {
        while (sending)
            for (auto &queue : queues)
                queue->age_stop(1);
    });
    for (std::thread &thread : threads)
        thread.join();
    sending = false;
    stopper.join();
    for (auto &queue : queues) {
        waitUntilIdle(*queue);
        EXPECT_EQ(senders * startsOfEach, givesOf(queue->cflag));
    }
}
