// call.h: the kinds of calls that fail_call.h makes fail.
#pragma once

#include <array>
#include <cstddef>

enum class Call {
    Allocate,
    SemInit,
    SemPost,
    MutexInit,
    MutexAttributes,
    MutexType,
    ConditionInit,
    ThreadCreate,
    ThreadAttributes,
    ThreadStackSize,
    AddressLookup,
    NameLookup,
    Receive,
    Send,
    MonotonicClock,
    WallClock,
    LocalTime,
    MakeTime
};

inline constexpr std::array EveryCall{Call::Allocate,         Call::SemInit,
                                      Call::SemPost,          Call::MutexInit,
                                      Call::MutexAttributes,  Call::MutexType,
                                      Call::ConditionInit,    Call::ThreadCreate,
                                      Call::ThreadAttributes, Call::ThreadStackSize,
                                      Call::AddressLookup,    Call::NameLookup,
                                      Call::Receive,          Call::Send,
                                      Call::MonotonicClock,   Call::WallClock,
                                      Call::LocalTime,        Call::MakeTime};

inline const char *nameOf(Call call)
{
    constexpr const char *names[] = {"malloc, calloc, new",
                                     "sem_init",
                                     "sem_post",
                                     "pthread_mutex_init",
                                     "pthread_mutexattr_init",
                                     "pthread_mutexattr_settype",
                                     "pthread_cond_init",
                                     "pthread_create",
                                     "pthread_attr_init",
                                     "pthread_attr_setstacksize",
                                     "getaddrinfo",
                                     "getnameinfo",
                                     "recvmsg",
                                     "sendmsg",
                                     "clock_gettime",
                                     "gettimeofday",
                                     "localtime_r",
                                     "mktime"};
    return names[static_cast<size_t>(call)];
}
