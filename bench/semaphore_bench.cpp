// semaphore_bench.cpp: semaphores and the tick clock beside the calls they are made of, and beside other locks.
#include "vxw_shim.h"

#include "beside.h"

#include <absl/synchronization/mutex.h>
#include <benchmark/benchmark.h>
#include <boost/interprocess/sync/interprocess_semaphore.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <pthread.h>
#include <semaphore.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>

#include <chrono>
#include <mutex>
#include <semaphore>

namespace
{
constexpr unsigned LimitTicks = 100;

void initRecursive(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attributes);
}

// ---- Mutual exclusion ----

struct OurMutex {
    SEM_ID sem = semMCreate(SEM_Q_FIFO);
    ~OurMutex()
    {
        semDelete(sem);
    }
    void lock()
    {
        semTake(sem, WAIT_FOREVER);
    }
    void unlock()
    {
        semGive(sem);
    }
    void lockWithLimit()
    {
        semTake(sem, LimitTicks);
    }
};

struct RawMutex {
    pthread_mutex_t mutex;
    RawMutex()
    {
        initRecursive(&mutex);
    }
    ~RawMutex()
    {
        pthread_mutex_destroy(&mutex);
    }
    void lock()
    {
        pthread_mutex_lock(&mutex);
    }
    void unlock()
    {
        pthread_mutex_unlock(&mutex);
    }
    void lockWithLimit()
    {
        timeval now;
        gettimeofday(&now, nullptr);
        const timespec deadline{now.tv_sec + LimitTicks / 100, now.tv_usec * 1000};
        pthread_mutex_timedlock(&mutex, &deadline);
    }
};

struct AbslMutex {
    absl::Mutex mutex;
    void lock()
    {
        mutex.Lock();
    }
    void unlock()
    {
        mutex.Unlock();
    }
};

template <class Mutex>
void mutexPair(benchmark::State &state)
{
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(mutexPair<OurMutex>)->Name("sem_mutex_pair/ours");
BENCHMARK(mutexPair<RawMutex>)->Name("sem_mutex_pair/floor");
BENCHMARK(mutexPair<AbslMutex>)->Name("sem_mutex_pair/absl_mutex");
BENCHMARK(mutexPair<boost::recursive_mutex>)->Name("sem_mutex_pair/boost_recursive_mutex");
BENCHMARK(mutexPair<std::recursive_mutex>)->Name("sem_mutex_pair/std_recursive_mutex");

template <class Mutex>
void mutexPairWithLimit(benchmark::State &state)
{
    Mutex mutex;
    for (auto _ : state) {
        mutex.lockWithLimit();
        mutex.unlock();
    }
}
BENCHMARK(mutexPairWithLimit<OurMutex>)->Name("sem_mutex_pair_with_limit/ours");
BENCHMARK(mutexPairWithLimit<RawMutex>)->Name("sem_mutex_pair_with_limit/floor");

template <class Mutex>
void mutexContended(benchmark::State &state)
{
    static Mutex mutex;
    static int guarded;
    for (auto _ : state) {
        mutex.lock();
        benchmark::DoNotOptimize(++guarded);
        mutex.unlock();
    }
}
BENCHMARK(mutexContended<OurMutex>)->Name("sem_mutex_contended/ours")->Threads(2)->UseRealTime();
BENCHMARK(mutexContended<RawMutex>)->Name("sem_mutex_contended/floor")->Threads(2)->UseRealTime();
BENCHMARK(mutexContended<AbslMutex>)->Name("sem_mutex_contended/absl_mutex")->Threads(2)->UseRealTime();
BENCHMARK(mutexContended<boost::recursive_mutex>)
    ->Name("sem_mutex_contended/boost_recursive_mutex")
    ->Threads(2)
    ->UseRealTime();

// ---- Counting ----

struct OurCount {
    SEM_ID sem = semCCreate(SEM_Q_FIFO, 0);
    ~OurCount()
    {
        semDelete(sem);
    }
    void give()
    {
        semGive(sem);
    }
    void take()
    {
        semTake(sem, WAIT_FOREVER);
    }
};

struct RawCount {
    sem_t sem;
    RawCount()
    {
        sem_init(&sem, 0, 0);
    }
    ~RawCount()
    {
        sem_destroy(&sem);
    }
    void give()
    {
        sem_post(&sem);
    }
    void take()
    {
        sem_wait(&sem);
    }
};

struct BoostCount {
    boost::interprocess::interprocess_semaphore sem{0};
    void give()
    {
        sem.post();
    }
    void take()
    {
        sem.wait();
    }
};

struct StdCount {
    std::counting_semaphore<> sem{0};
    void give()
    {
        sem.release();
    }
    void take()
    {
        sem.acquire();
    }
};

struct AbslCount {
    absl::Mutex mutex;
    int count = 0;
    void give()
    {
        absl::MutexLock hold(&mutex);
        ++count;
    }
    void take()
    {
        absl::MutexLock hold(&mutex);
        mutex.Await(absl::Condition(
            +[](int *held) { return *held > 0; }, &count));
        --count;
    }
};

template <class Count>
void countPair(benchmark::State &state)
{
    Count count;
    for (auto _ : state) {
        count.give();
        count.take();
    }
}
BENCHMARK(countPair<OurCount>)->Name("sem_count_pair/ours");
BENCHMARK(countPair<RawCount>)->Name("sem_count_pair/floor");
BENCHMARK(countPair<BoostCount>)->Name("sem_count_pair/boost_semaphore");
BENCHMARK(countPair<StdCount>)->Name("sem_count_pair/std_semaphore");
BENCHMARK(countPair<AbslCount>)->Name("sem_count_pair/absl_mutex");

template <class Count>
void wakeRoundTrip(benchmark::State &state)
{
    const beside::OnOneCpu oneCpu;
    Count there, back;
    beside::Loop partner([&] {
        there.take();
        back.give();
    });
    for (auto _ : state) {
        there.give();
        back.take();
    }
    partner.stop();
    there.give();
}
BENCHMARK(wakeRoundTrip<OurCount>)->Name("sem_wake_round_trip/ours")->UseRealTime()->Iterations(beside::RoundTrips);
BENCHMARK(wakeRoundTrip<RawCount>)->Name("sem_wake_round_trip/floor")->UseRealTime()->Iterations(beside::RoundTrips);
BENCHMARK(wakeRoundTrip<BoostCount>)
    ->Name("sem_wake_round_trip/boost_semaphore")
    ->UseRealTime()
    ->Iterations(beside::RoundTrips);
BENCHMARK(wakeRoundTrip<AbslCount>)
    ->Name("sem_wake_round_trip/absl_mutex")
    ->UseRealTime()
    ->Iterations(beside::RoundTrips);

// ---- Creation ----

// The record of a deleted semaphore stays allocated for good, so the number of rounds is limited.
constexpr int CreationRounds = 20000;
constexpr size_t RecordBytes = 16;

void createMutexOurs(benchmark::State &state)
{
    for (auto _ : state)
        semDelete(semMCreate(SEM_Q_FIFO));
}

void createMutexFloor(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(malloc(RecordBytes));
        auto *mutex = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
        initRecursive(mutex);
        pthread_mutex_destroy(mutex);
        free(mutex);
    }
}

void createMutexStd(benchmark::State &state)
{
    for (auto _ : state) {
        auto *mutex = new std::recursive_mutex;
        benchmark::DoNotOptimize(mutex);
        delete mutex;
    }
}

void createMutexBoost(benchmark::State &state)
{
    for (auto _ : state) {
        auto *mutex = new boost::recursive_mutex;
        benchmark::DoNotOptimize(mutex);
        delete mutex;
    }
}
BENCHMARK(createMutexOurs)->Name("sem_mutex_create_delete/ours")->Iterations(CreationRounds);
BENCHMARK(createMutexFloor)->Name("sem_mutex_create_delete/floor")->Iterations(CreationRounds);
BENCHMARK(createMutexStd)->Name("sem_mutex_create_delete/std_recursive_mutex")->Iterations(CreationRounds);
BENCHMARK(createMutexBoost)->Name("sem_mutex_create_delete/boost_recursive_mutex")->Iterations(CreationRounds);

void createCountOurs(benchmark::State &state)
{
    for (auto _ : state)
        semDelete(semCCreate(SEM_Q_FIFO, 0));
}

void createCountFloor(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(malloc(RecordBytes));
        auto *sem = static_cast<sem_t *>(malloc(sizeof(sem_t)));
        sem_init(sem, 0, 0);
        sem_destroy(sem);
        free(sem);
    }
}

void createCountBoost(benchmark::State &state)
{
    for (auto _ : state) {
        auto *sem = new BoostCount;
        benchmark::DoNotOptimize(sem);
        delete sem;
    }
}
BENCHMARK(createCountOurs)->Name("sem_count_create_delete/ours")->Iterations(CreationRounds);
BENCHMARK(createCountFloor)->Name("sem_count_create_delete/floor")->Iterations(CreationRounds);
BENCHMARK(createCountBoost)->Name("sem_count_create_delete/boost_semaphore")->Iterations(CreationRounds);

// ---- The tick clock ----

void tickGetOurs(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(tickGet());
}

void tickGetFloor(benchmark::State &state)
{
    timespec now;
    for (auto _ : state) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
}

void tickGetSteadyClock(benchmark::State &state)
{
    using Ticks = std::chrono::duration<uint32_t, std::centi>;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now().time_since_epoch()));
}
BENCHMARK(tickGetOurs)->Name("tick_get/ours");
BENCHMARK(tickGetFloor)->Name("tick_get/floor");
BENCHMARK(tickGetSteadyClock)->Name("tick_get/steady_clock");
} // namespace
