// semaphore.cpp: VxWorks-style semaphores on POSIX mutexes and semaphores.
//
// Locking:    none; the record is written at creation only, the POSIX object does the rest.
// Invariants: kind is 0, 1 or 2; impl is a heap pthread_mutex_t for kind 0, a heap sem_t otherwise.
// Results:    those of the POSIX call, unchanged; no wait is restarted after a signal handler.
// Cost:       two allocations to create, the POSIX call and a switch otherwise; nothing else allocates. What is rare or
//             waits for a deadline stands out of line, so that the other calls need no stack of their own.
#include "vxw_shim.h"

#include "vxw_shim/assertion.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/tick_deadline.h"

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

mutex_sem mutex_sem_t;

namespace
{
using vxw_shim::ticksToAbsTime;
using vxw_shim::WaitForever;

enum Kind { MutualExclusion = 0, Binary = 1, Counting = 2 };

pthread_mutex_t *mutexOf(SEM_ID sem)
{
    return static_cast<pthread_mutex_t *>(sem->impl);
}

sem_t *countOf(SEM_ID sem)
{
    return static_cast<sem_t *>(sem->impl);
}

// In a function of its own, so that the leak that is meant (see semDelete) can be named precisely.
[[gnu::noinline]] SEM_ID newRecord(Kind kind)
{
    auto *sem = static_cast<SEM_ID>(malloc(sizeof(mutex_sem)));
    if (sem != nullptr)
        sem->kind = kind;
    return sem;
}

static_assert(sizeof(sem_t) == 32, "processes linked earlier expect this size");

// A process-private POSIX semaphore on the heap, or null.
sem_t *semAllocPosix(unsigned int initialCount)
{
    auto *count = static_cast<sem_t *>(malloc(sizeof(sem_t)));
    if (count != nullptr && sem_init(count, 0, initialCount) != 0) {
        free(count);
        return nullptr;
    }
    return count;
}

SEM_ID createCount(Kind kind, unsigned int initialCount)
{
    SEM_ID sem = newRecord(kind);
    if (sem == nullptr)
        return nullptr;
    sem->impl = semAllocPosix(initialCount);
    if (sem->impl == nullptr) {
        free(sem);
        return nullptr;
    }
    return sem;
}

// Kept: the attribute object is never destroyed; it owns nothing (MutexSemaphore.ItsAttributeObjectIsNotDestroyed).
bool initRecursive(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    return pthread_mutexattr_init(&attributes) == 0 &&
           pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
           pthread_mutex_init(mutex, &attributes) == 0;
}

// 0, or why a POSIX semaphore call failed.
int resultOf(int posixResult)
{
    return posixResult == 0 ? 0 : errno;
}

[[gnu::noinline]] int takeMutexUntil(pthread_mutex_t *mutex, uint32_t timeout)
{
    const timespec deadline = ticksToAbsTime(timeout);
    return pthread_mutex_timedlock(mutex, &deadline);
}

[[gnu::noinline]] int takeCountUntil(sem_t *count, uint32_t timeout)
{
    const timespec deadline = ticksToAbsTime(timeout);
    return resultOf(sem_timedwait(count, &deadline));
}

int takeMutex(pthread_mutex_t *mutex, uint32_t timeout)
{
    if (mutex == nullptr)
        return EINVAL;
    if (timeout == WaitForever)
        return pthread_mutex_lock(mutex);
    if (timeout == 0)
        return pthread_mutex_trylock(mutex);
    return takeMutexUntil(mutex, timeout);
}

int takeCount(sem_t *count, uint32_t timeout)
{
    if (timeout == WaitForever)
        return resultOf(sem_wait(count));
    if (timeout == 0)
        return resultOf(sem_trywait(count));
    return takeCountUntil(count, timeout);
}

// Out of line, so that a take that goes through keeps no time-out across the POSIX call.
[[gnu::noinline]] int tracedFailure(int result, SEM_ID sem, uint32_t timeout)
{
    KEL_PROBE(sem_timeout, sem, sem->kind, result, timeout);
    return result;
}

// Tells tracers how a take of `timeout` ticks ended; returns its result.
[[gnu::always_inline]] inline int traced(int result, SEM_ID sem, uint32_t timeout)
{
    if (result != 0)
        return tracedFailure(result, sem, timeout);
    KEL_PROBE(sem_take, sem, sem->kind);
    return result;
}

[[gnu::always_inline]] inline int take(SEM_ID sem, uint32_t timeout)
{
    switch (sem->kind) {
    case MutualExclusion:
        return traced(takeMutex(mutexOf(sem), timeout), sem, timeout);
    case Binary:
    case Counting:
        return traced(takeCount(countOf(sem), timeout), sem, timeout);
    default:
        vxw_shim::endProcess(vxw_shim::UnknownKindTaken);
    }
}

// A function of its own, so that semTake() sets up no more than a take without a limit needs: most are.
[[gnu::noinline]] int takeWithin(SEM_ID sem, uint32_t timeout)
{
    return take(sem, timeout);
}

int giveCount(sem_t *count)
{
    if (count == nullptr)
        return EINVAL;
    return resultOf(sem_post(count));
}

// A handle that is null is a caller's mistake, which a line on standard output tells.
[[gnu::noinline, gnu::cold]] int refuseNull(const char *format, const char *caller)
{
    printf(format, caller);
    return EINVAL;
}

int deleteMutex(pthread_mutex_t *mutex)
{
    if (mutex == nullptr)
        return EINVAL;
    const int result = pthread_mutex_destroy(mutex);
    free(mutex);
    return result;
}

int deleteCount(sem_t *count)
{
    if (sem_destroy(count) != 0)
        return errno;
    free(count);
    return 0;
}
} // namespace

// Kept: a binary semaphore is not capped at 1. Two gives let two takes through, and processes linked earlier may count
// on it (BinarySemaphore.TwoGivesLetTwoTakesThrough).
SEM_ID semBCreate(int, unsigned int initialState)
{
    return createCount(Binary, initialState);
}

SEM_ID semCCreate(int, unsigned int initialCount)
{
    return createCount(Counting, initialCount);
}

SEM_ID semMCreate(int)
{
    SEM_ID sem = newRecord(MutualExclusion);
    if (sem == nullptr)
        return nullptr;
    auto *mutex = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
    if (mutex == nullptr || !initRecursive(mutex)) {
        free(mutex);
        free(sem);
        return nullptr;
    }
    sem->impl = mutex;
    return sem;
}

int semGive(SEM_ID sem)
{
    if (sem == nullptr)
        return refuseNull("%s: error giving sem\n", "semGive");
    KEL_PROBE(sem_give, sem, sem->kind);
    switch (sem->kind) {
    case MutualExclusion:
        return mutexOf(sem) == nullptr ? EINVAL : pthread_mutex_unlock(mutexOf(sem));
    case Binary:
    case Counting:
        return giveCount(countOf(sem));
    default:
        vxw_shim::endProcess(vxw_shim::UnknownKindGiven);
    }
}

int semTake(SEM_ID sem, unsigned int timeout)
{
    if (sem == nullptr)
        return refuseNull("%s: error taking sem\n", "semTake");
    return timeout == WaitForever ? take(sem, WaitForever) : takeWithin(sem, timeout);
}

// Kept: the record is never freed and keeps its fields, so that a late call on a stale handle meets readable memory
// (SemDelete.LeavesTheRecordAsItWas).
int semDelete(SEM_ID sem)
{
    if (sem == nullptr)
        return EINVAL;
    switch (sem->kind) {
    case MutualExclusion:
        return deleteMutex(mutexOf(sem));
    case Binary:
    case Counting:
        return deleteCount(countOf(sem));
    default:
        vxw_shim::endProcess(vxw_shim::UnknownKindDeleted);
    }
}

void semShow(SEM_ID, int) {}
