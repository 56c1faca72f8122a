// fail_allocation.h: makes one allocation fail, or all from one on.
//
// Replaces malloc, calloc, realloc, free and the new and delete operators of the whole program, so exactly one source
// of a test program includes it. Only the thread that holds a FailAllocation is failed; every other allocation goes on
// to the C library, or under a sanitizer to its allocator, so that leaks on failure paths are still found.
#pragma once

#include "harness/countdown.h"
#include "harness/instrumented.h"

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>

#include <new>

#if defined(KEL_UNDER_ASAN) || defined(KEL_UNDER_TSAN)
#define KEL_ALLOCATOR(call) __interceptor_##call
#else
#define KEL_ALLOCATOR(call) __libc_##call
#endif

// Inlined into its caller, a free() of what came from new looks like a mistake to the compiler.
#define KEL_OPERATOR KEL_NOT_INSTRUMENTED __attribute__((noinline))

extern "C" {
void *KEL_ALLOCATOR(malloc)(size_t bytes);
void *KEL_ALLOCATOR(calloc)(size_t count, size_t bytes);
void *KEL_ALLOCATOR(realloc)(void *old, size_t bytes);
void KEL_ALLOCATOR(free)(void *memory);
}

// Fails the nth allocation of this thread, counted from 1, and lets all others through. One at a time.
//
//     for (int nth = 1;; ++nth) {
//         FailAllocation failing(nth);
//         SEM_ID sem = semMCreate(0);
//         if (!failing.happened()) { EXPECT_EQ(0, semDelete(sem)); break; }
//         EXPECT_EQ(nullptr, sem) << "allocation " << nth;
//     }
class FailAllocation
{
public:
    explicit FailAllocation(int nth, Failing mode = Failing::Once)
    {
        countdown().start(nth, mode);
    }
    ~FailAllocation()
    {
        countdown().stop();
    }
    FailAllocation(const FailAllocation &) = delete;
    FailAllocation &operator=(const FailAllocation &) = delete;

    // Whether the allocation has failed. Nothing fails any more once this was asked: what the test does next is safe.
    bool happened()
    {
        return countdown().stop() > 0;
    }

    // Asked by the allocators below.
    KEL_NOT_INSTRUMENTED static bool isDue()
    {
        if (!countdown().isDue())
            return false;
        errno = ENOMEM;
        return true;
    }

    KEL_NOT_INSTRUMENTED static Countdown &countdown()
    {
        static thread_local constinit Countdown allocations;
        return allocations;
    }
};

// The blocks that this thread has allocated, less those it has released.
KEL_NOT_INSTRUMENTED inline long &liveBlocks()
{
    static thread_local constinit long blocks = 0;
    return blocks;
}

KEL_NOT_INSTRUMENTED inline void *counted(void *memory)
{
    if (memory != nullptr)
        ++liveBlocks();
    return memory;
}

extern "C" {
KEL_NOT_INSTRUMENTED void *malloc(size_t bytes) noexcept
{
    return FailAllocation::isDue() ? nullptr : counted(KEL_ALLOCATOR(malloc)(bytes));
}

KEL_NOT_INSTRUMENTED void *calloc(size_t count, size_t bytes) noexcept
{
    return FailAllocation::isDue() ? nullptr : counted(KEL_ALLOCATOR(calloc)(count, bytes));
}

KEL_NOT_INSTRUMENTED void *realloc(void *old, size_t bytes) noexcept
{
    if (FailAllocation::isDue())
        return nullptr;
    void *const memory = KEL_ALLOCATOR(realloc)(old, bytes);
    return old == nullptr ? counted(memory) : memory;
}

KEL_NOT_INSTRUMENTED void free(void *memory) noexcept
{
    if (memory != nullptr)
        --liveBlocks();
    KEL_ALLOCATOR(free)(memory);
}
}

KEL_OPERATOR void *operator new(size_t bytes)
{
    if (void *memory = malloc(bytes != 0 ? bytes : 1))
        return memory;
    throw std::bad_alloc();
}

KEL_OPERATOR void *operator new[](size_t bytes)
{
    return operator new(bytes);
}

KEL_OPERATOR void *operator new(size_t bytes, const std::nothrow_t &) noexcept
{
    return malloc(bytes != 0 ? bytes : 1);
}

KEL_OPERATOR void *operator new[](size_t bytes, const std::nothrow_t &) noexcept
{
    return malloc(bytes != 0 ? bytes : 1);
}

KEL_OPERATOR void operator delete(void *memory) noexcept
{
    free(memory);
}

KEL_OPERATOR void operator delete[](void *memory) noexcept
{
    free(memory);
}

KEL_OPERATOR void operator delete(void *memory, size_t) noexcept
{
    free(memory);
}

KEL_OPERATOR void operator delete[](void *memory, size_t) noexcept
{
    free(memory);
}

KEL_OPERATOR void operator delete(void *memory, const std::nothrow_t &) noexcept
{
    free(memory);
}

KEL_OPERATOR void operator delete[](void *memory, const std::nothrow_t &) noexcept
{
    free(memory);
}
