// delta_list_lock.h: how this room takes a list's semaphore and reports a failure.
#pragma once

#include "vxw_shim.h"

#include "vxw_shim/tick_deadline.h"

#include <stdio.h>

namespace deltalist
{
// One line "text:code" on standard output. The texts are what field scripts look for.
inline void report(const char *text, int code)
{
    printf("%s:%d\n", text, code);
}

// Holds `sem` for a scope.
//
// Kept: only -1 counts as a failed take, and semTake() never returns it: any other result goes on, with the lock or
// without (DeltaListLock.OnlyMinusOneCountsAsAFailedTake).
class KEL_SCOPED_CAPABILITY Lock
{
public:
    explicit Lock(SEM_ID sem) KEL_ACQUIRE(sem) KEL_UNCHECKED_LOCKING
        : sem_(sem),
          failed_(semTake(sem, vxw_shim::WaitForever) == -1)
    {
    }
    ~Lock() KEL_RELEASE() KEL_UNCHECKED_LOCKING
    {
        if (!failed_)
            semGive(sem_);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    bool failed() const
    {
        return failed_;
    }

private:
    SEM_ID sem_;
    bool failed_;
};
} // namespace deltalist
