// task_lock.h: a mutual-exclusion semaphore of the library as a lock that clang's analysis understands.
#pragma once

#include "vxw_shim.h"

#include <new>

class KEL_CAPABILITY("lock") TaskLock
{
public:
    TaskLock() : sem(semMCreate(0))
    {
        if (sem == nullptr)
            throw std::bad_alloc();
    }
    ~TaskLock()
    {
        semDelete(sem);
    }
    TaskLock(const TaskLock &) = delete;
    TaskLock &operator=(const TaskLock &) = delete;

    void take() KEL_ACQUIRE()
    {
        semTake(sem, 0xFFFFFFFF);
    }
    void give() KEL_RELEASE()
    {
        semGive(sem);
    }

    // For library objects that are told to use this lock. Whoever locks through it is outside the analysis.
    SEM_ID handle() const
    {
        return sem;
    }

private:
    SEM_ID sem; // recursive; set once
};

class KEL_SCOPED_CAPABILITY TaskGuard
{
public:
    explicit TaskGuard(TaskLock &taken) KEL_ACQUIRE(taken) : lock(taken)
    {
        lock.take();
    }
    ~TaskGuard() KEL_RELEASE()
    {
        lock.give();
    }
    TaskGuard(const TaskGuard &) = delete;
    TaskGuard &operator=(const TaskGuard &) = delete;

private:
    TaskLock &lock;
};
