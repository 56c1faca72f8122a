// task.cpp: tasks are joinable POSIX threads that nobody joins.
#include "vxw_shim.h"

#include <pthread.h>

namespace
{
// Runs a task. The entry routine expects an argument list of its own, which the interface fills with one null.
void *runTask(void *entry)
{
    reinterpret_cast<FUNCPTR>(entry)(nullptr);
    return nullptr;
}
} // namespace

// Kept: the attribute object is not destroyed, and a finished task is not joined; processes linked earlier see threads
// that stay joinable (Task.StaysJoinable).
int taskSpawn(const char *, int, int, int stackSize, FUNCPTR entry, int, int, int, int, int, int, int, int, int, int)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackSize != 0) {
        // A size that is refused leaves the default; a spawn never fails for it.
        const auto request = static_cast<int32_t>(static_cast<uint32_t>(stackSize) * 3U);
        pthread_attr_setstacksize(&attributes, static_cast<size_t>(request));
    }
    pthread_t discarded;
    return pthread_create(&discarded, &attributes, runTask, reinterpret_cast<void *>(entry));
}
