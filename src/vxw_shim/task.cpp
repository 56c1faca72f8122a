// task.cpp: tasks are joinable POSIX threads that nobody joins.
//
// Policy:  the stack request decides how much stack there is, never whether the task starts.
// Locking: none; nothing is remembered about a task.
#include "vxw_shim.h"

#include <pthread.h>

namespace
{
// Ported code casts entries of every shape to FUNCPTR, which is the interface's own habit; clang's check of indirect
// calls would end such a program.
#ifdef __clang__
#define KEL_ANY_ENTRY __attribute__((no_sanitize("function")))
#else
#define KEL_ANY_ENTRY
#endif

// Runs a task. The entry routine expects an argument list of its own, which the interface fills with one null.
KEL_ANY_ENTRY void *runTask(void *entry)
{
    reinterpret_cast<FUNCPTR>(entry)(nullptr);
    return nullptr;
}
} // namespace

// Kept: the attribute object is not destroyed, and a finished task is not joined; processes linked earlier see threads
// that stay joinable (Task.StaysJoinable).
int taskSpawn(const char *, int, int, int stackSize, FUNCPTR entry, int, int, int, int, int, int, int, int, int, int)
{
    void *const start = reinterpret_cast<void *>(entry);
    pthread_t discarded;
    if (stackSize != 0) {
        pthread_attr_t attributes;
        const auto request = static_cast<int32_t>(static_cast<uint32_t>(stackSize) * 3U);
        // Sizes that are too small are refused here, sizes that are too large (a negative product) only on creation.
        if (pthread_attr_init(&attributes) == 0 &&
            pthread_attr_setstacksize(&attributes, static_cast<size_t>(request)) == 0 &&
            pthread_create(&discarded, &attributes, runTask, start) == 0)
            return 0;
    }
    return pthread_create(&discarded, nullptr, runTask, start);
}
