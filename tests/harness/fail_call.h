// fail_call.h: makes the nth call of one kind fail, once or from then on: allocations, the creation of threads and
// locks, clocks, sockets and name look-ups.
//
// Defines those functions for the whole program, where the library finds them first through the dynamic linker, so
// exactly one source of a test program includes it. Only calls of the thread that holds a FailCall are counted and
// failed; every other call goes on to the C library, or to a sanitizer's own version where there is one.
#pragma once

#include "harness/call.h"
#include "harness/fail_allocation.h"

#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include <array>

// Fails the nth call of a kind by this thread, counted from 1. One of a kind at a time.
class FailCall
{
public:
    // Counts and fails nothing.
    static constexpr int Never = 0x7FFFFFFF;

    FailCall(Call call, int nth, Failing mode) : countdown_(countdownOf(call))
    {
        countdown_.start(nth, mode);
    }
    ~FailCall()
    {
        countdown_.stop();
    }
    FailCall(const FailCall &) = delete;
    FailCall &operator=(const FailCall &) = delete;

    // Whether a call has failed. Nothing fails any more once this was asked.
    bool happened()
    {
        return countdown_.stop() > 0;
    }
    int calls() const
    {
        return countdown_.calls;
    }

    KEL_NOT_INSTRUMENTED static bool isDue(Call call)
    {
        return countdownOf(call).isDue();
    }

    // A semaphore whose posts are neither counted nor failed: sem_post() fails at the highest count alone, which a
    // semaphore that serves as a lock never has.
    KEL_NOT_INSTRUMENTED static const void *&neverOverflowing()
    {
        static thread_local constinit const void *semaphore = nullptr;
        return semaphore;
    }

private:
    KEL_NOT_INSTRUMENTED static Countdown &countdownOf(Call call)
    {
        static thread_local constinit std::array<Countdown, EveryCall.size()> others;
        return call == Call::Allocate ? FailAllocation::countdown() : others[static_cast<size_t>(call)];
    }
    Countdown &countdown_;
};

// The semaphore records that this thread's semDelete() has left behind: each ends one POSIX object, and keeps its own.
KEL_NOT_INSTRUMENTED inline long &keptRecords()
{
    static thread_local constinit long records = 0;
    return records;
}

template <class Function>
KEL_NOT_INSTRUMENTED Function *realCall(Function *intercepted, const char *name)
{
    return intercepted != nullptr ? intercepted : reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// The function that this program's own definition of `name` stands in front of.
#define KEL_REAL(name)                                                                                                 \
    ([]() KEL_NOT_INSTRUMENTED {                                                                                       \
        static auto *const real = realCall(&__interceptor_##name, #name);                                              \
        return real;                                                                                                   \
    }())

extern "C" {
#define KEL_INTERCEPTED(name) __attribute__((weak)) decltype(name) __interceptor_##name
KEL_INTERCEPTED(sem_init);
KEL_INTERCEPTED(sem_post);
KEL_INTERCEPTED(sem_destroy);
KEL_INTERCEPTED(pthread_mutex_init);
KEL_INTERCEPTED(pthread_mutex_destroy);
KEL_INTERCEPTED(pthread_mutexattr_init);
KEL_INTERCEPTED(pthread_mutexattr_settype);
KEL_INTERCEPTED(pthread_cond_init);
KEL_INTERCEPTED(pthread_create);
KEL_INTERCEPTED(pthread_attr_init);
KEL_INTERCEPTED(pthread_attr_setstacksize);
KEL_INTERCEPTED(getaddrinfo);
KEL_INTERCEPTED(getnameinfo);
KEL_INTERCEPTED(recvmsg);
KEL_INTERCEPTED(sendmsg);
KEL_INTERCEPTED(clock_gettime);
KEL_INTERCEPTED(gettimeofday);
KEL_INTERCEPTED(localtime_r);
KEL_INTERCEPTED(mktime);
#undef KEL_INTERCEPTED

KEL_NOT_INSTRUMENTED int sem_init(sem_t *semaphore, int shared, unsigned int count) noexcept
{
    if (!FailCall::isDue(Call::SemInit))
        return KEL_REAL(sem_init)(semaphore, shared, count);
    errno = ENOSPC;
    return -1;
}

KEL_NOT_INSTRUMENTED int sem_post(sem_t *semaphore) noexcept
{
    if (semaphore == FailCall::neverOverflowing() || !FailCall::isDue(Call::SemPost))
        return KEL_REAL(sem_post)(semaphore);
    errno = EOVERFLOW;
    return -1;
}

KEL_NOT_INSTRUMENTED int sem_destroy(sem_t *semaphore) noexcept
{
    ++keptRecords();
    return KEL_REAL(sem_destroy)(semaphore);
}

KEL_NOT_INSTRUMENTED int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept
{
    ++keptRecords();
    return KEL_REAL(pthread_mutex_destroy)(mutex);
}

KEL_NOT_INSTRUMENTED int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) noexcept
{
    return FailCall::isDue(Call::MutexInit) ? ENOMEM : KEL_REAL(pthread_mutex_init)(mutex, attributes);
}

KEL_NOT_INSTRUMENTED int pthread_mutexattr_init(pthread_mutexattr_t *attributes) noexcept
{
    return FailCall::isDue(Call::MutexAttributes) ? ENOMEM : KEL_REAL(pthread_mutexattr_init)(attributes);
}

KEL_NOT_INSTRUMENTED int pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int type) noexcept
{
    return FailCall::isDue(Call::MutexType) ? EINVAL : KEL_REAL(pthread_mutexattr_settype)(attributes, type);
}

KEL_NOT_INSTRUMENTED int pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) noexcept
{
    return FailCall::isDue(Call::ConditionInit) ? ENOMEM : KEL_REAL(pthread_cond_init)(condition, attributes);
}

// Instrumented, so that a report about a thread names who asked for it.
int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *argument) noexcept
{
    return FailCall::isDue(Call::ThreadCreate) ? EAGAIN : KEL_REAL(pthread_create)(thread, attributes, entry, argument);
}

KEL_NOT_INSTRUMENTED int pthread_attr_init(pthread_attr_t *attributes) noexcept
{
    return FailCall::isDue(Call::ThreadAttributes) ? ENOMEM : KEL_REAL(pthread_attr_init)(attributes);
}

KEL_NOT_INSTRUMENTED int pthread_attr_setstacksize(pthread_attr_t *attributes, size_t bytes) noexcept
{
    return FailCall::isDue(Call::ThreadStackSize) ? EINVAL : KEL_REAL(pthread_attr_setstacksize)(attributes, bytes);
}

KEL_NOT_INSTRUMENTED int getaddrinfo(const char *node, const char *service, const addrinfo *hints, addrinfo **list)
{
    return FailCall::isDue(Call::AddressLookup) ? EAI_AGAIN : KEL_REAL(getaddrinfo)(node, service, hints, list);
}

KEL_NOT_INSTRUMENTED int getnameinfo(const sockaddr *address, socklen_t addressBytes, char *host, socklen_t hostBytes,
                                     char *service, socklen_t serviceBytes, int flags)
{
    return FailCall::isDue(Call::NameLookup)
               ? EAI_AGAIN
               : KEL_REAL(getnameinfo)(address, addressBytes, host, hostBytes, service, serviceBytes, flags);
}

KEL_NOT_INSTRUMENTED ssize_t recvmsg(int socket, msghdr *message, int flags)
{
    if (!FailCall::isDue(Call::Receive))
        return KEL_REAL(recvmsg)(socket, message, flags);
    errno = ENOBUFS;
    return -1;
}

KEL_NOT_INSTRUMENTED ssize_t sendmsg(int socket, const msghdr *message, int flags)
{
    if (!FailCall::isDue(Call::Send))
        return KEL_REAL(sendmsg)(socket, message, flags);
    errno = ENOBUFS;
    return -1;
}

KEL_NOT_INSTRUMENTED int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    if (!FailCall::isDue(Call::MonotonicClock))
        return KEL_REAL(clock_gettime)(clock, now);
    errno = EINVAL;
    return -1;
}

KEL_NOT_INSTRUMENTED int gettimeofday(timeval *now, void *zone) noexcept
{
    if (!FailCall::isDue(Call::WallClock))
        return KEL_REAL(gettimeofday)(now, zone);
    errno = EINVAL;
    return -1;
}

KEL_NOT_INSTRUMENTED tm *localtime_r(const time_t *time, tm *local) noexcept
{
    if (!FailCall::isDue(Call::LocalTime))
        return KEL_REAL(localtime_r)(time, local);
    errno = EOVERFLOW;
    return nullptr;
}

KEL_NOT_INSTRUMENTED time_t mktime(tm *local) noexcept
{
    if (!FailCall::isDue(Call::MakeTime))
        return KEL_REAL(mktime)(local);
    errno = EOVERFLOW;
    return -1;
}
}
