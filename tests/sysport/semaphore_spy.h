// semaphore_spy.h: counts what the port map does with semaphores. Include it in one source of a test program: the
// definitions here win over the library's and pass every call on to it.
#pragma once

#include "vxw_shim.h"

#include <dlfcn.h>

#include <atomic>
#include <functional>
#include <vector>

struct SemaphoreSpy {
    std::atomic<int> takes{0};
    std::atomic<int> gives{0};
    std::atomic<unsigned> lastTimeout{0};
    std::vector<int> createdWith; // options of each semMCreate()
    bool createFails = false;
    std::vector<std::pair<SEM_ID, int>> shown;
    std::function<void()> beforeTake; // runs in each semTake()

    void reset()
    {
        takes = gives = 0;
        lastTimeout = 0;
        createdWith.clear();
        createFails = false;
        shown.clear();
        beforeTake = nullptr;
    }
};

inline SemaphoreSpy spy;

template <class Function>
Function *inTheLibrary(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

extern "C" {
int semTake(SEM_ID sem, unsigned int timeout)
{
    static auto *const real = inTheLibrary<int(SEM_ID, unsigned)>("semTake");
    if (spy.beforeTake)
        spy.beforeTake();
    const int result = real(sem, timeout);
    ++spy.takes;
    spy.lastTimeout = timeout;
    return result;
}

int semGive(SEM_ID sem)
{
    static auto *const real = inTheLibrary<int(SEM_ID)>("semGive");
    ++spy.gives;
    return real(sem);
}

SEM_ID semMCreate(int options)
{
    static auto *const real = inTheLibrary<SEM_ID(int)>("semMCreate");
    spy.createdWith.push_back(options);
    return spy.createFails ? nullptr : real(options);
}

void semShow(SEM_ID sem, int level)
{
    spy.shown.emplace_back(sem, level);
}
}
