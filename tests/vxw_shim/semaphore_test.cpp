#include "vxw_shim.h"

#include "harness/fail_allocation.h"
#include "harness/instrumented.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <thread>
#include <vector>

// The library calls these through the dynamic linker, so the ones here come first: they fail on demand.
namespace
{
bool failAttributeInit, failAttributeType, failMutexInit, failCountDestroy;
int attributesDestroyed;

template <class Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
} // namespace

extern "C" {
int pthread_mutexattr_init(pthread_mutexattr_t *attributes) noexcept
{
    static auto *const real = next<int(pthread_mutexattr_t *)>("pthread_mutexattr_init");
    return failAttributeInit ? ENOMEM : real(attributes);
}

int pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int type) noexcept
{
    static auto *const real = next<int(pthread_mutexattr_t *, int)>("pthread_mutexattr_settype");
    return failAttributeType ? EINVAL : real(attributes, type);
}

int pthread_mutexattr_destroy(pthread_mutexattr_t *attributes) noexcept
{
    static auto *const real = next<int(pthread_mutexattr_t *)>("pthread_mutexattr_destroy");
    ++attributesDestroyed;
    return real(attributes);
}

int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) noexcept
{
    static auto *const real = next<int(pthread_mutex_t *, const pthread_mutexattr_t *)>("pthread_mutex_init");
    return failMutexInit ? EAGAIN : real(mutex, attributes);
}

int sem_destroy(sem_t *count) noexcept
{
    static auto *const real = next<int(sem_t *)>("sem_destroy");
    if (failCountDestroy) {
        errno = EBUSY;
        return -1;
    }
    return real(count);
}
}

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;

// A semaphore that ends with the test.
class Owned
{
public:
    explicit Owned(SEM_ID sem) : sem_(sem)
    {
        EXPECT_NE(nullptr, sem);
    }
    ~Owned()
    {
        EXPECT_EQ(0, semDelete(sem_));
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    operator SEM_ID() const
    {
        return sem_;
    }
    SEM_ID operator->() const
    {
        return sem_;
    }

private:
    SEM_ID sem_;
};

// What `code` returns when another thread runs it.
template <class Code>
int elsewhere(Code code)
{
    int result = -1;
    std::thread([&] { result = code(); }).join();
    return result;
}

// Runs `code` in a thread that is hit by signals, each with a handler, until it returns.
template <class Code>
int underSignals(Code code)
{
    struct sigaction handled = {}, before;
    handled.sa_handler = [](int) {};
    sigaction(SIGUSR1, &handled, &before);
    std::atomic<bool> ended{false};
    int result = -1;
    std::thread waiting([&] {
        result = code();
        ended = true;
    });
    while (!ended) {
        pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiting.join();
    sigaction(SIGUSR1, &before, nullptr);
    return result;
}
} // namespace

TEST(BinarySemaphore, TwoGivesLetTwoTakesThrough)
{
    Owned sem(semBCreate(SEM_Q_FIFO, SEM_EMPTY));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
}

TEST(BinarySemaphore, InitialStateIsTheCountHoweverLarge)
{
    Owned sem(semBCreate(SEM_Q_PRIORITY, 3));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
}

TEST(BinarySemaphore, RecordSaysKind1)
{
    Owned sem(semBCreate(-1, SEM_FULL));
    EXPECT_EQ(1, sem->kind);
    EXPECT_NE(nullptr, sem->impl);
}

TEST(CountingSemaphore, LetsItsInitialCountThroughAndThenEveryGive)
{
    Owned sem(semCCreate(0, 2));
    EXPECT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(0, semTake(sem, 1));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
}

TEST(CountingSemaphore, RecordSaysKind2)
{
    Owned sem(semCCreate(0, 0));
    EXPECT_EQ(2, sem->kind);
    EXPECT_NE(nullptr, sem->impl);
}

TEST(CountingSemaphore, GiveAtTheLargestCountReturnsItsErrno)
{
    Owned sem(semCCreate(0, SEM_VALUE_MAX));
    EXPECT_EQ(EOVERFLOW, semGive(sem));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semGive(sem));
}

TEST(CountingSemaphore, CountAboveTheLargestIsRefusedWithoutAWord)
{
    EXPECT_EQ("", printedBy([] {
                  EXPECT_EQ(nullptr, semCCreate(0, SEM_VALUE_MAX + 1U));
                  EXPECT_EQ(nullptr, semCCreate(0, 0xFFFFFFFF));
                  EXPECT_EQ(nullptr, semBCreate(0, 0x80000000));
              }));
}

TEST(MutexSemaphore, RecordSaysKind0)
{
    Owned sem(semMCreate(SEM_Q_PRIORITY | SEM_DELETE_SAFE | SEM_INVERSION_SAFE));
    EXPECT_EQ(0, sem->kind);
    EXPECT_NE(nullptr, sem->impl);
}

TEST(MutexSemaphore, TakenTwiceByItsOwnerIsReleasedByTwoGives)
{
    Owned sem(semMCreate(0));
    EXPECT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semTake(sem, 1));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(EBUSY, elsewhere([&] { return semTake(sem, 0); }));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, elsewhere([&] {
                  const int taken = semTake(sem, 0);
                  return taken != 0 ? taken : semGive(sem);
              }));
}

TEST(MutexSemaphore, TriedOnceWhileAnotherThreadHoldsItIs16)
{
    Owned sem(semMCreate(0));
    ASSERT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(16, elsewhere([&] { return semTake(sem, 0); }));
    EXPECT_EQ(0, semGive(sem));
}

TEST(MutexSemaphore, WaitForAHeldOneIs110NeverEarly)
{
    Owned sem(semMCreate(0));
    ASSERT_EQ(0, semTake(sem, Forever));
    const auto waited = timeOf([&] { EXPECT_EQ(110, elsewhere([&] { return semTake(sem, 5); })); });
    EXPECT_GE(waited, 49ms);
    EXPECT_LT(waited, 5s);
    EXPECT_EQ(0, semGive(sem));
}

TEST(MutexSemaphore, WaitEndsWhenItsOwnerGives)
{
    Owned sem(semMCreate(0));
    for (unsigned timeout : {Forever, 100000U}) {
        ASSERT_EQ(0, semTake(sem, Forever));
        std::atomic<bool> started{false};
        std::thread waiting([&] {
            started = true;
            EXPECT_EQ(0, semTake(sem, timeout));
            EXPECT_EQ(0, semGive(sem));
        });
        while (!started)
            std::this_thread::yield();
        EXPECT_EQ(0, semGive(sem));
        waiting.join();
    }
}

// A give by another thread than the owner's is passed on as the thread library answers it.
TEST(MutexSemaphore, GiveByANonOwnerIsRefusedWith1AndReleasesNothing)
{
    if (UnderThreadSanitizer)
        GTEST_SKIP() << "the thread sanitizer ends a program that unlocks what it does not own";
    Owned sem(semMCreate(0));
    EXPECT_EQ(1, semGive(sem));
    ASSERT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(1, elsewhere([&] { return semGive(sem); }));
    EXPECT_EQ(EBUSY, elsewhere([&] { return semTake(sem, 0); }));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(1, semGive(sem));
}

TEST(MutexSemaphore, ItsAttributeObjectIsNotDestroyed)
{
    attributesDestroyed = 0;
    Owned sem(semMCreate(0));
    EXPECT_EQ(0, attributesDestroyed);
}

TEST(MutexSemaphore, AnyOfTheThreeInitialisationsThatFailsGivesNullWithoutAWord)
{
    for (bool *fail : {&failAttributeInit, &failAttributeType, &failMutexInit}) {
        SEM_ID sem = nullptr;
        const std::string printed = printedBy([&] {
            *fail = true;
            sem = semMCreate(0);
            *fail = false;
        });
        EXPECT_EQ(nullptr, sem);
        EXPECT_EQ("", printed);
    }
}

TEST(SemCreate, IsNullWheneverAnAllocationFails)
{
    const auto binary = [] { return semBCreate(0, 1); };
    const auto counting = [] { return semCCreate(0, 1); };
    const auto mutex = [] { return semMCreate(0); };
    int fewestAllocations = 100;
    const auto failEach = [&](auto create) {
        for (int nth = 1;; ++nth) {
            FailAllocation failing(nth);
            SEM_ID sem = create();
            if (!failing.happened()) {
                EXPECT_EQ(0, semDelete(sem));
                fewestAllocations = std::min(fewestAllocations, nth - 1);
                return;
            }
            EXPECT_EQ(nullptr, sem) << "allocation " << nth;
        }
    };
    EXPECT_EQ("", printedBy([&] {
                  failEach(binary);
                  failEach(counting);
                  failEach(mutex);
              }));
    EXPECT_EQ(2, fewestAllocations) << "the record and the lock behind it";
}

TEST(SemGive, OfANullHandlePrintsALineAndIs22)
{
    int result = 0;
    EXPECT_EQ("semGive: error giving sem\n", printedBy([&] { result = semGive(nullptr); }));
    EXPECT_EQ(22, result);
}

TEST(SemTake, OfANullHandlePrintsALineAndIs22)
{
    for (unsigned timeout : {0U, 1U, Forever}) {
        int result = 0;
        EXPECT_EQ("semTake: error taking sem\n", printedBy([&] { result = semTake(nullptr, timeout); }));
        EXPECT_EQ(22, result);
    }
}

TEST(SemDelete, OfANullHandleIs22WithoutAWord)
{
    int result = 0;
    EXPECT_EQ("", printedBy([&] { result = semDelete(nullptr); }));
    EXPECT_EQ(22, result);
}

TEST(SemGive, WithoutALockBehindTheRecordIs22WithoutAWord)
{
    EXPECT_EQ("", printedBy([] {
                  for (int kind : {0, 1, 2}) {
                      mutex_sem hollow = {kind, nullptr};
                      EXPECT_EQ(22, semGive(&hollow)) << kind;
                  }
              }));
}

TEST(SemTake, OfAMutexWithoutALockBehindTheRecordIs22WithoutAWord)
{
    mutex_sem hollow = {0, nullptr};
    EXPECT_EQ("", printedBy([&] {
                  EXPECT_EQ(22, semTake(&hollow, 0));
                  EXPECT_EQ(22, semTake(&hollow, 1));
                  EXPECT_EQ(22, semTake(&hollow, Forever));
              }));
}

TEST(SemDelete, OfAMutexWithoutALockBehindTheRecordIs22WithoutAWord)
{
    mutex_sem hollow = {0, nullptr};
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(22, semDelete(&hollow)); }));
}

TEST(SemTake, TriedOnceOnAnEmptyCountIs11)
{
    Owned binary(semBCreate(0, SEM_EMPTY));
    Owned counting(semCCreate(0, 0));
    EXPECT_EQ(11, semTake(binary, 0));
    EXPECT_EQ(11, semTake(counting, 0));
}

TEST(SemTake, WaitOfOneTickOnAnEmptyCountIs110AfterTenMilliseconds)
{
    Owned binary(semBCreate(0, SEM_EMPTY));
    Owned counting(semCCreate(0, 0));
    for (SEM_ID sem : {SEM_ID(binary), SEM_ID(counting)}) {
        const auto waited = timeOf([&] { EXPECT_EQ(110, semTake(sem, 1)); });
        EXPECT_GE(waited, 9ms);
        EXPECT_LT(waited, 5s);
    }
}

TEST(SemTake, WaitForACountEndsWithTheGive)
{
    Owned sem(semBCreate(0, SEM_EMPTY));
    for (unsigned timeout : {Forever, 100000U}) {
        std::atomic<bool> started{false};
        std::thread waiting([&] {
            started = true;
            EXPECT_EQ(0, semTake(sem, timeout));
        });
        while (!started)
            std::this_thread::yield();
        EXPECT_EQ(0, semGive(sem));
        waiting.join();
        EXPECT_EQ(EAGAIN, semTake(sem, 0)) << "the waiting thread took the one give";
    }
}

TEST(SemTake, ASignalEndsTheWaitForACountWith4)
{
    Owned sem(semBCreate(0, SEM_EMPTY));
    EXPECT_EQ(4, underSignals([&] { return semTake(sem, Forever); }));
    EXPECT_EQ(4, underSignals([&] { return semTake(sem, 100000); }));
}

TEST(SemTake, ASignalDoesNotEndTheWaitForAMutex)
{
    Owned sem(semMCreate(0));
    ASSERT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(110, underSignals([&] { return semTake(sem, 5); }));
    EXPECT_EQ(0, semGive(sem));
}

TEST(SemDelete, LeavesTheRecordAsItWas)
{
    SEM_ID sems[] = {semMCreate(0), semBCreate(0, 0), semCCreate(0, 0)};
    for (int kind = 0; kind < 3; ++kind) {
        void *const impl = sems[kind]->impl;
        EXPECT_EQ(0, semDelete(sems[kind]));
        EXPECT_EQ(kind, sems[kind]->kind);
        EXPECT_EQ(impl, sems[kind]->impl);
    }
}

// The record that stays still points to what was freed, so a search for leaks sees nothing wrong when it was not.
TEST(SemDelete, KeepsNothingButTheRecord)
{
    if (UnderAddressSanitizer || UnderThreadSanitizer)
        GTEST_SKIP() << "a sanitizer's allocator does not tell what is in use";
    constexpr size_t rounds = 1000;
    constexpr size_t recordInHeap = 32; // 16 bytes and the C library's own
    for (int kind = 0; kind < 3; ++kind) {
        const size_t before = mallinfo2().uordblks;
        for (size_t i = 0; i < rounds; ++i)
            EXPECT_EQ(0, semDelete(kind == 0 ? semMCreate(0) : kind == 1 ? semBCreate(0, 0) : semCCreate(0, 0)));
        EXPECT_LT(mallinfo2().uordblks - before, rounds * recordInHeap + 8192) << "kind " << kind;
    }
}

// The memory of the mutex goes all the same: the address sanitizer would tell.
TEST(SemDelete, OfAHeldMutexIs16)
{
    if (UnderThreadSanitizer)
        GTEST_SKIP() << "the thread sanitizer ends a program that destroys a held mutex";
    SEM_ID sem = semMCreate(0);
    ASSERT_EQ(0, semTake(sem, Forever));
    EXPECT_EQ(16, semDelete(sem));
}

TEST(SemDelete, OfACountThatCannotBeDestroyedReturnsItsErrnoAndFreesNothing)
{
    Owned binary(semBCreate(0, SEM_EMPTY));
    Owned counting(semCCreate(0, 0));
    for (SEM_ID sem : {SEM_ID(binary), SEM_ID(counting)}) {
        failCountDestroy = true;
        EXPECT_EQ(EBUSY, semDelete(sem));
        failCountDestroy = false;
        EXPECT_EQ(0, semGive(sem));
        EXPECT_EQ(0, semTake(sem, 0));
    }
}

// Field tools look for these texts in core dumps.
TEST(SemDeathTest, AnUnknownKindEndsTheProcessWithAFixedText)
{
    for (int kind : {3, -1, 0x7FFFFFFF}) {
        mutex_sem wrong = {kind, nullptr};
        EXPECT_DEATH(semGive(&wrong), "src/vxw_shim\\.c:1057: semGive: Assertion `0' failed\\.");
        EXPECT_DEATH(semTake(&wrong, 0), "src/vxw_shim\\.c:1088: semTake: Assertion `0' failed\\.");
        EXPECT_DEATH(semDelete(&wrong), "src/vxw_shim\\.c:1118: semDelete: Assertion `0' failed\\.");
    }
}

TEST(SemShow, ShowsNothingAndReadsNothing)
{
    EXPECT_EQ("", printedBy([] {
                  semShow(nullptr, 1);
                  mutex_sem wrong = {77, nullptr};
                  semShow(&wrong, -1);
                  EXPECT_EQ(77, wrong.kind);
              }));
}

TEST(ExportedRecord, StaysEmpty)
{
    Owned sem(semMCreate(0));
    EXPECT_EQ(0, mutex_sem_t.kind);
    EXPECT_EQ(nullptr, mutex_sem_t.impl);
}

TEST(SemLock, HoldsTheSemaphoreToTheEndOfItsScope)
{
    Owned sem(semMCreate(0));
    const auto takeAgain = [&] {
        SemLock again(sem);
        EXPECT_EQ(EBUSY, elsewhere([&] { return semTake(sem, 0); }));
    };
    {
        SemLock lock(sem);
        takeAgain();
        EXPECT_EQ(EBUSY, elsewhere([&] { return semTake(sem, 0); })) << "the outer scope still holds it";
    }
    EXPECT_EQ(0, elsewhere([&] {
                  const int taken = semTake(sem, 0);
                  return taken != 0 ? taken : semGive(sem);
              }));
}

TEST(SemLock, OfNoSemaphoreIsNoLockAndSaysNothing)
{
    EXPECT_EQ("", printedBy([] { SemLock lock(nullptr); }));
}

TEST(SemaphoreThreads, AMutexLetsOneThreadInAtATime)
{
    Owned sem(semMCreate(0));
    constexpr int threads = 4, rounds = scaled(20000);
    int counted = 0; // guarded by sem
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            for (int round = 0; round < rounds; ++round) {
                unsigned timeout = Forever;
                if ((round + i) % 3 == 0)
                    timeout = 100000;
                if ((round + i) % 3 == 1) {
                    while (semTake(sem, 0) != 0)
                        std::this_thread::yield();
                } else {
                    ASSERT_EQ(0, semTake(sem, timeout));
                }
                ASSERT_EQ(0, semTake(sem, Forever)); // recursion
                ++counted;
                ASSERT_EQ(0, semGive(sem));
                ASSERT_EQ(0, semGive(sem));
            }
        });
    }
    for (auto &thread : running)
        thread.join();
    EXPECT_EQ(threads * rounds, counted);
}

TEST(SemaphoreThreads, EveryGiveLetsExactlyOneTakeThrough)
{
    Owned sem(semCCreate(0, 0));
    constexpr int givers = 2, takers = 3, rounds = scaled(30000);
    std::atomic<int> taken{0};
    std::vector<std::thread> running;
    for (int i = 0; i < givers; ++i) {
        running.emplace_back([&] {
            for (int round = 0; round < rounds; ++round)
                ASSERT_EQ(0, semGive(sem));
        });
    }
    for (int i = 0; i < takers; ++i) {
        running.emplace_back([&, i] {
            while (taken < givers * rounds) {
                const int result = semTake(sem, i == 0 ? 0 : 1);
                if (result == 0)
                    ++taken;
                else
                    ASSERT_EQ(i == 0 ? EAGAIN : ETIMEDOUT, result);
            }
        });
    }
    for (auto &thread : running)
        thread.join();
    EXPECT_EQ(givers * rounds, taken);
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
}
