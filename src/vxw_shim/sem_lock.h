// sem_lock.h: a scope that holds a semaphore.
#pragma once

#include "vxw_shim.h"

#include "vxw_shim/tick_deadline.h"

// Takes `sem` without limit and gives it at the end of the scope. A null semaphore is no lock at all.
class KEL_SCOPED_CAPABILITY SemLock
{
public:
    explicit SemLock(SEM_ID sem) KEL_ACQUIRE(sem) KEL_UNCHECKED_LOCKING : sem_(sem)
    {
        if (sem_ != nullptr)
            semTake(sem_, vxw_shim::WaitForever);
    }
    ~SemLock() KEL_RELEASE() KEL_UNCHECKED_LOCKING
    {
        if (sem_ != nullptr)
            semGive(sem_);
    }
    SemLock(const SemLock &) = delete;
    SemLock &operator=(const SemLock &) = delete;

private:
    SEM_ID sem_;
};
