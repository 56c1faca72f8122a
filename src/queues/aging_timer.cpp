// aging_timer.cpp: library start-up, and the task that delivers what was held back when it is due.
//
// Policy:     the queue that expired last is delivered first.
// Locking:    gives go out without the lock. The task has an expired queue's ageNext and delayedGives for itself; then
//             senders give at once, receivers leave it alone, a destructor waits. After letGo() it touches it no more.
// Cost:       sleeps until the first queue is due; one lock for each queue delivered.
#include "queues/aging_list.h"
#include "queues/signalling.h"
#include "vxw_shim/sem_lock.h"

namespace
{
namespace aging_list = queues::aging_list;

uint32_t startSleep()
{
    SemLock hold(SBaseQ::lockSem);
    return aging_list::startSleep(tickGet());
}

SBaseQ *takeExpired()
{
    SemLock hold(SBaseQ::lockSem);
    return aging_list::takeExpired(tickGet());
}

// Makes the queue idle; it may be gone afterwards. Returns the next one on its chain.
SBaseQ *letGo(SBaseQ &queue)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ *const next = queue.ageNext;
    queue.expired = false;
    queue.ageNext = nullptr;
    queue.delayedGives = 0;
    return next;
}

void deliver(SBaseQ *chain)
{
    while (chain != nullptr) {
        if (chain->delayedGives != 0)
            queues::giveBatch(chain->cflag, chain->externalFlag, chain->delayedGives);
        chain = letGo(*chain);
    }
}

// A task's entry takes any argument list; the call of the timer routine itself has to be one of its own type.
int timerTask(...)
{
    SBaseQ::timer_callback(0);
}
} // namespace

// Kept: only the task's start is reported. Without memory for the lock, queues work unlocked; without memory for the
// semaphore, the task never sleeps, delivers nothing and prints a line each time
// (StartFaults.TheLibraryStartsWhateverItsSemaphoresAre).
int SBaseQ::init()
{
    constexpr int priority = 3;
    constexpr int stackBytes = 4096;
    lockSem = semMCreate(SEM_Q_PRIORITY | SEM_DELETE_SAFE | SEM_INVERSION_SAFE);
    timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    taskId = taskSpawn("tQtimer", priority, 0, stackBytes, timerTask, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    return taskId;
}

// Kept: a delay whose tick product wraps to a deadline in the past ends the take at once, so until less is left the
// task polls (AgingTimer.DelayWhoseDeadlineIsInThePastIsHeldBackAllTheSame).
int SBaseQ::timer_callback(int)
{
    for (;;) {
        semTake(timerSig, startSleep());
        deliver(takeExpired());
    }
}

int kel_utils_init()
{
    return SBaseQ::init();
}
