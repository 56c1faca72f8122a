// queue_show.cpp: prints the state of a queue, for a person at a debug shell.
//
// Locking:    the state is read under SBaseQ::lockSem into one text, and printed after the lock is released, so that
//             slow output never holds up a queue.
// Invariants: the text has room for every line with its widest values.
#include "queues/ring.h"
#include "queues/type_mark.h"
#include "vxw_shim/sem_lock.h"

#include "bitset.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

namespace
{
class Report
{
public:
    __attribute__((format(printf, 2, 3))) void add(const char *format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(text + used, sizeof text - used, format, arguments);
        va_end(arguments);
        if (length > 0)
            used =
                used + static_cast<size_t>(length) < sizeof text ? used + static_cast<size_t>(length) : sizeof text - 1;
    }

    int print() const
    {
        return printf("%s", text);
    }

private:
    char text[2048] = "";
    size_t used = 0;
};

char yesOrNo(bool value)
{
    return value ? 'Y' : 'N';
}

const void *address(const void *of)
{
    return of;
}

bool isInMemory(const void *queue)
{
    return reinterpret_cast<uintptr_t>(queue) <= reinterpret_cast<uintptr_t>(sysPhysMemTop());
}

void addShared(Report &report) KEL_REQUIRES(SBaseQ::lockSem)
{
    report.add("Head (age)      = %-10p\t", address(SBaseQ::head));
    report.add("Tail (age)      = %-10p\n", address(SBaseQ::tail));
    report.add("HeadTime        = %-10d\t", SBaseQ::headTime);
    report.add("TailTime        = %-10d\n", SBaseQ::tailTime);
    report.add("Num Queues      = %-10u\t", SBaseQ::numQueues);
    report.add("NULL Timeouts   = %-10u\n", SBaseQ::timeoutNull);
    report.add("timerSig(SEM_ID)= %p\n", address(SBaseQ::timerSig));
}

void addQueue(Report &report, const SBaseQ &queue)
{
    report.add("cflag   (SEM_ID)= %-10p\t", address(queue.cflag));
    report.add("Queue Size      = %-10d\n", queue.queueSize);
    report.add("pRead           = %-10d\t", queue.pRead);
    report.add("pWrite          = %-10d\n", queue.pWrite);
    report.add("Num Msgs Q'd    = %-10d\t", queues::messageCount(queue));
    report.add("Empty           = %-10c\n", yesOrNo(queue.empty));
    report.add("External Flag   = %-10p\t", address(queue.externalFlag));
    report.add("Max Delay       = %-10d\n", queue.maxDelay);
    report.add("Queue ID        = %-10u\t", queue.queueId);
    report.add("RxThreshold     = %-10d\n", queue.rxThreshold);
}

void addAging(Report &report, const SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
{
    report.add("Aging           = %-10c\t", yesOrNo(queue.aging));
    report.add("Expired         = %-10c\n", yesOrNo(queue.expired));
    report.add("Prev (age)      = %-10p\t", address(queue.agePrev));
    report.add("Next (age)      = %-10p\n", address(queue.ageNext));
    report.add("TTL  (age)      = %-10d\t", queue.ageTtl);
    report.add("delayedGives    = %-10d\n", queue.delayedGives);
}

void addBase(Report &report, const SBaseQ *queue, int flag) KEL_REQUIRES(SBaseQ::lockSem)
{
    constexpr int withAging = 1;
    addShared(report);
    if (!isInMemory(queue) || !queues::isAnyQueue(queue))
        return;
    addQueue(report, *queue);
    if (flag == withAging)
        addAging(report, *queue);
}

unsigned int countSetBits(const CBitMask &mask)
{
    constexpr unsigned int none = 0xFFFFFFFF;
    unsigned int count = 0;
    for (unsigned int bit = mask.findSetBit(0); bit != none; bit = mask.findSetBit(bit + 1))
        ++count;
    return count;
}

void addMultiEvent(Report &report, SMultiEventQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
{
    report.add("queuePtr        = %-10p\t", address(queue.queuePtr));
    report.add("dataPtr         = %-10p\n", address(queue.dataPointer()));
    report.add("inUse           = %-10u\t", countSetBits(*queue.inUse));
    report.add("multiUse        = %-10u\n", countSetBits(*queue.multiUse));
}

void addMsgQueueX(Report &report, const SMsgQueueX &queue)
{
    report.add("sendFlag(SEM_ID)= %-10p\t", address(queue.sendFlag));
    report.add("Max Msg Length  = %-10d\n", queue.maxMsgLength);
    report.add("msgQ    (UINT8*)= %-10p\t", address(queue.msgQ));
    report.add("msgLen (UINT16*)= %-10p\n", address(queue.msgLen));
    report.add("TxThreshold     = %-10d\t", queue.txThreshold);
    report.add("TxBlocking      = %-10c\n", yesOrNo(queue.txBlocking));
}
} // namespace

int baseQShow(SBaseQ *queue, int flag)
{
    Report report;
    {
        SemLock hold(SBaseQ::lockSem);
        addBase(report, queue, flag);
    }
    return report.print();
}

int meqShow(SMultiEventQ *queue, int flag)
{
    Report report;
    {
        SemLock hold(SBaseQ::lockSem);
        addBase(report, queue, flag);
        if (isInMemory(queue) && queues::isMultiEventQ(queue))
            addMultiEvent(report, *queue);
    }
    return report.print();
}

int msgQxShow(SMsgQueueX *queue, int flag)
{
    Report report;
    {
        SemLock hold(SBaseQ::lockSem);
        addBase(report, queue, flag);
        if (isInMemory(queue) && queues::isMsgQueueX(queue))
            addMsgQueueX(report, *queue);
    }
    return report.print();
}
