// base_q.cpp: what all queues share.
//
// Locking:    one recursive lock for all queues. Gives go out after this file's own unlock; a derived queue may still
//             hold the lock around the call.
// Invariants: a give is delivered at once or counted in delayedGives, never both and never neither. delayedGives is 0
//             in an idle queue.
//
//           age_start            age_stop                 timer task
// idle      aging, hold a give   (nothing held)           -
// aging     hold another give    idle, give all held      expired, when due
// expired   give at once         (the timer task gives)   idle, when all are given
#include "queues/aging_list.h"
#include "queues/signalling.h"
#include "queues/type_mark.h"
#include "vxw_shim/sem_lock.h"

SEM_ID SBaseQ::lockSem;
SEM_ID SBaseQ::timerSig;
int SBaseQ::taskId;
SBaseQ *SBaseQ::head;
SBaseQ *SBaseQ::tail;
int SBaseQ::headTime;
int SBaseQ::tailTime;
int SBaseQ::sleepStart;
uint32_t SBaseQ::numQueues;
uint32_t SBaseQ::timeoutNull;

namespace
{
enum class Start { HeldBack, WakesTimer, GivesNow };

uint32_t nextQueueId()
{
    SemLock hold(SBaseQ::lockSem);
    return ++SBaseQ::numQueues;
}

// Holds one give back, if the timer task lets it. The list starts to count from a second reading of the clock.
Start holdBack(SBaseQ &queue)
{
    SemLock hold(SBaseQ::lockSem);
    if (queue.expired)
        return Start::GivesNow;
    if (queue.aging) {
        queue.delayedGives = static_cast<int>(static_cast<uint32_t>(queue.delayedGives) + 1);
        return Start::HeldBack;
    }
    queues::aging_list::rebase(tickGet());
    SBaseQ::sleepStart = static_cast<int>(tickGet());
    return queues::aging_list::insert(queue) ? Start::WakesTimer : Start::HeldBack;
}

// Takes the queue off the list. Returns the gives that are the caller's to deliver now.
int takeHeldBack(SBaseQ &queue)
{
    SemLock hold(SBaseQ::lockSem);
    if (queue.aging)
        queues::aging_list::remove(queue);
    if (queue.expired)
        return 0;
    const int gives = queue.delayedGives;
    queue.delayedGives = 0;
    return gives;
}

bool isBeingDelivered(SBaseQ &queue)
{
    SemLock hold(SBaseQ::lockSem);
    return queue.expired;
}

// A receiver may delete its queue right after the last give, while the timer task still has to mark it as delivered.
// That takes microseconds and happens rarely, so looking again every tick is enough.
void waitUntilDelivered(SBaseQ &queue)
{
    while (isBeingDelivered(queue))
        taskDelay(1);
}
} // namespace

SBaseQ::SBaseQ(int slots, int pendOption, int delay, int threshold, mutex_sem *flag)
{
    queueId = nextQueueId();
    externalFlag = flag;
    magic = queues::BaseMark;
    cflag = semCCreate(pendOption != 0 ? SEM_Q_PRIORITY : SEM_Q_FIFO, 0);
    empty = 1;
    queueSize = slots;
    maxDelay = delay;
    rxThreshold = threshold;
    pRead = 0;
    pWrite = 0;
    aging = false;
    expired = false;
    agePrev = nullptr;
    ageNext = nullptr;
    ageTtl = 0;
    delayedGives = 0;
    if (cflag == nullptr)
        logEarly(2, 4, "SBaseQ::SBaseQ creation failed (%p)", static_cast<void *>(this));
}

SBaseQ::~SBaseQ()
{
    age_stop(0);
    waitUntilDelivered(*this);
    semDelete(cflag);
}

unsigned int SBaseQ::size()
{
    return sizeof(SBaseQ);
}

void SBaseQ::lock() KEL_UNCHECKED_LOCKING
{
    if (lockSem != nullptr)
        semTake(lockSem, vxw_shim::WaitForever);
}

void SBaseQ::unLock() KEL_UNCHECKED_LOCKING
{
    if (lockSem != nullptr)
        semGive(lockSem);
}

void SBaseQ::age_start(int)
{
    switch (holdBack(*this)) {
    case Start::HeldBack:
        break;
    case Start::WakesTimer:
        semGive(timerSig);
        break;
    case Start::GivesNow:
        queues::giveBatch(cflag, externalFlag, 1);
        break;
    }
}

void SBaseQ::age_stop(int)
{
    const int gives = takeHeldBack(*this);
    if (gives != 0)
        queues::giveBatch(cflag, externalFlag, gives > 0 ? gives : 1);
}
