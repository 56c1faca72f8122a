// forced_delay.cpp: a library to load before a test program, which lets random moments pass around every lock and
// semaphore call, so that schedules come up that are one in a million otherwise.
//
// Its seed is printed; KEL_DELAY_SEED in the environment repeats one, as far as threads can be repeated. After three
// seconds the program goes on at its own pace, unless the full effort is asked for (KEL_FULL_EFFORT=1).
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace
{
uint64_t seed;
uint64_t threads;            // numbered as they come
uint64_t delays;             // in all
int64_t endNs;               // of the delays, on the monotonic clock
thread_local uint64_t state; // of the thread's random numbers; 0 at first

int64_t nowNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

// Called before main and before any other thread.
[[gnu::constructor]] void begin()
{
    const char *const wanted = getenv("KEL_DELAY_SEED");
    seed = wanted != nullptr ? strtoull(wanted, nullptr, 10) : static_cast<uint64_t>(nowNs()) % 1000000 + 1;
    const char *const effort = getenv("KEL_FULL_EFFORT");
    endNs = effort != nullptr && strcmp(effort, "1") == 0 ? INT64_MAX : nowNs() + 3000000000;
    fprintf(stderr, "forced delays, KEL_DELAY_SEED=%ju\n", uintmax_t{seed});
}

// A run that nothing was delayed in shows nothing.
[[gnu::destructor]] void end()
{
    const uint64_t all = __atomic_load_n(&delays, __ATOMIC_RELAXED);
    fprintf(stderr, "%ju delays forced\n", uintmax_t{all});
    if (all == 0)
        _exit(3);
}

uint64_t nextRandom()
{
    if (state == 0)
        state = (seed + __atomic_add_fetch(&threads, 1, __ATOMIC_RELAXED)) * 0x9E3779B97F4A7C15 | 1;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

// Mostly nothing; now and then another thread comes first; seldom some of them get far.
void delay()
{
    constexpr uint64_t seldom = 2048;
    constexpr uint64_t nowAndThen = 16;
    constexpr uint64_t longestNs = 100000;
    const uint64_t random = nextRandom() >> 8;
    if (random % nowAndThen != 0 || nowNs() > endNs)
        return;
    const int error = errno;
    if (random % seldom == 0) {
        const timespec moment = {.tv_sec = 0, .tv_nsec = static_cast<long>(random / seldom % longestNs)};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    } else {
        sched_yield();
    }
    errno = error;
    __atomic_add_fetch(&delays, 1, __ATOMIC_RELAXED);
}

// The next definition of a function after this library's, a sanitizer's if there is one.
template <class Function>
Function *next(Function *&found, const char *name)
{
    Function *function = __atomic_load_n(&found, __ATOMIC_ACQUIRE);
    if (function == nullptr) {
        function = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
        __atomic_store_n(&found, function, __ATOMIC_RELEASE);
    }
    return function;
}
} // namespace

// NOLINTNEXTLINE(bugprone-macro-parentheses): the parameters and arguments are lists
#define KEL_DELAYED(name, exception, parameters, ...)                                                                  \
    extern "C" int name parameters exception                                                                           \
    {                                                                                                                  \
        static int(*real) parameters;                                                                                  \
        delay();                                                                                                       \
        const int result = next(real, #name)(__VA_ARGS__);                                                             \
        delay();                                                                                                       \
        return result;                                                                                                 \
    }

KEL_DELAYED(pthread_mutex_lock, noexcept, (pthread_mutex_t * mutex), mutex)
KEL_DELAYED(pthread_mutex_trylock, noexcept, (pthread_mutex_t * mutex), mutex)
KEL_DELAYED(pthread_mutex_timedlock, noexcept, (pthread_mutex_t * mutex, const timespec *deadline), mutex, deadline)
KEL_DELAYED(pthread_mutex_unlock, noexcept, (pthread_mutex_t * mutex), mutex)
KEL_DELAYED(sem_wait, , (sem_t * sem), sem)
KEL_DELAYED(sem_trywait, noexcept, (sem_t * sem), sem)
KEL_DELAYED(sem_timedwait, , (sem_t * sem, const timespec *deadline), sem, deadline)
KEL_DELAYED(sem_post, noexcept, (sem_t * sem), sem)
