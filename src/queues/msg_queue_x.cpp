// msg_queue_x.cpp: a bounded queue of byte messages with sender flow control.
//
// Policy:     senders take turns on sendFlag. Once the ring is full the turn stays with the receivers; they pass it on
//             when no more than txThreshold messages are left. Only a sender without a limit waits for room.
// Locking:    the ring and txBlocking are under SBaseQ::lockSem; send() signals after it is released. txBlocking and
//             the message count are also read without it.
// Invariants: a message in the ring lies inside the memory that was really allocated; every one is one give of cflag,
//             given, held back, or about to be given by its sender.
// Cost:       one copy in, one copy out; nothing is allocated after construction.
#include "queues/signalling.h"
#include "queues/type_mark.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/sem_lock.h"

#include <algorithm>
#include <new>
#include <string.h>

namespace
{
enum Result { Done = 0, Failed = -1 };
constexpr int WithoutLimit = -1;

// The bytes of all slots.
//
// Kept: the product is a 32-bit number. It may be negative, which is a creation failure, or less than the slots need
// (MsgQueueX.SizeProductThatIsNegativeIn32BitsIsACreationFailure,
// MsgQueueX.SizeProductThatWrapsKeepsEverySlotInsideItsMemory).
int32_t bytesOfSlots(const SMsgQueueX &queue)
{
    return static_cast<int32_t>(static_cast<uint32_t>(queue.queueSize) * static_cast<uint32_t>(queue.maxMsgLength));
}

// Memory that cannot be had leaves msgQ null, and then nothing is ever queued.
void allocateSlots(SMsgQueueX &queue)
{
    const int32_t bytes = bytesOfSlots(queue);
    queue.msgQ = nullptr;
    queue.msgLen = nullptr;
    if (bytes < 0 || queue.queueSize < 0)
        return;
    queue.msgLen = new (std::nothrow) uint16_t[static_cast<size_t>(queue.queueSize)];
    if (queue.msgLen != nullptr)
        queue.msgQ = new (std::nothrow) uint8_t[static_cast<size_t>(bytes)];
}

uint8_t *slotBytes(const SMsgQueueX &queue, int slot)
{
    return queue.msgQ + static_cast<size_t>(slot) * static_cast<size_t>(queue.maxMsgLength);
}

// Whether a slot exists in memory: not where the product of the sizes wrapped.
bool isAllocated(const SMsgQueueX &queue, int slot)
{
    return slot >= 0 && slot < queue.queueSize && (int64_t{slot} + 1) * queue.maxMsgLength <= bytesOfSlots(queue);
}

void copyBytes(void *destination, const void *source, int count)
{
    if (count > 0)
        memcpy(destination, source, static_cast<size_t>(count));
}

bool fill(SMsgQueueX &queue, int slot, const char *msg, int len) KEL_REQUIRES(SBaseQ::lockSem)
{
    if (!isAllocated(queue, slot))
        return false;
    // Kept: the length is cut to 16 bits (MsgQueueX.LengthIsKeptIn16Bits).
    queue.msgLen[slot] = static_cast<uint16_t>(len);
    copyBytes(slotBytes(queue, slot), msg, len);
    return true;
}

bool putLast(SMsgQueueX &queue, const char *msg, int len) KEL_REQUIRES(SBaseQ::lockSem)
{
    if (!fill(queue, queue.pWrite, msg, len))
        return false;
    writeUnlocked(queue.pWrite, queues::nextSlot(queue, queue.pWrite));
    return true;
}

bool putFirst(SMsgQueueX &queue, const char *msg, int len) KEL_REQUIRES(SBaseQ::lockSem)
{
    const int slot = queues::previousSlot(queue, queue.pRead);
    if (!fill(queue, slot, msg, len))
        return false;
    writeUnlocked(queue.pRead, slot);
    return true;
}

// A sender's turn, or for one that does not wait a look whether senders have to.
bool takeTurn(const SMsgQueueX &queue, int timeout)
{
    if (timeout == 0)
        return !readUnlocked(queue.txBlocking);
    return semTake(queue.sendFlag, static_cast<uint32_t>(timeout)) == 0;
}

// Stores a message in a ring that has room, and passes the turn on.
//
// Kept: a sender that did not wait passes on a turn it never took, so the count of sendFlag grows above 1
// (MsgQueueX.SendersThatDoNotWaitRaiseTheTurnsAboveOne).
int store(SMsgQueueX &queue, const char *msg, int len, int timeout, bool toFront) KEL_REQUIRES(SBaseQ::lockSem)
{
    const bool stored = toFront ? putFirst(queue, msg, len) : putLast(queue, msg, len);
    if (stored) {
        KEL_PROBE(msg_send, &queue, len);
        writeUnlocked(queue.empty, 0);
    }
    const bool tookTurn = timeout != 0;
    if (queues::isFull(queue))
        writeUnlocked(queue.txBlocking, true);
    else if (!queue.txBlocking && (stored || tookTurn))
        semGive(queue.sendFlag);
    return stored ? Done : Failed;
}

// Copies the first message out and removes it; returns the bytes copied.
int takeFirst(SMsgQueueX &queue, char *buf, int maxLen) KEL_REQUIRES(SBaseQ::lockSem)
{
    const int len = std::min<int>(queue.msgLen[queue.pRead], maxLen);
    copyBytes(buf, slotBytes(queue, queue.pRead), len);
    KEL_PROBE(msg_receive, &queue, len);
    writeUnlocked(queue.pRead, queues::nextSlot(queue, queue.pRead));
    if (queue.pRead == queue.pWrite)
        writeUnlocked(queue.empty, 1);
    else if (queue.externalFlag != nullptr)
        semGive(queue.externalFlag); // the flag went once for a batch; whoever waits on it comes back for the rest
    return len;
}
} // namespace

SMsgQueueX::SMsgQueueX(int maxMsgs, int maxLength, int pendOption, int threshold, int drained, int delay,
                       mutex_sem *flag)
    : SBaseQ(maxMsgs, pendOption, delay, threshold, flag)
{
    magic = queues::MsgQueueXMark;
    sendFlag = semBCreate(pendOption != 0 ? SEM_Q_PRIORITY : SEM_Q_FIFO, SEM_FULL);
    txThreshold = drained;
    txBlocking = false;
    maxMsgLength = maxLength;
    allocateSlots(*this);
    if (msgQ == nullptr || sendFlag == nullptr)
        logEarly(2, 4, "SMsgQueueX::SMsgQueueX creation failed (%p)", static_cast<void *>(this));
}

SMsgQueueX::~SMsgQueueX()
{
    if (sendFlag != nullptr)
        semDelete(sendFlag);
    delete[] msgQ;
    delete[] msgLen;
}

unsigned int SMsgQueueX::size()
{
    return static_cast<unsigned int>(sizeof(SMsgQueueX)) + static_cast<unsigned int>(bytesOfSlots(*this)) +
           2 * static_cast<unsigned int>(queueSize);
}

int SMsgQueueX::send(const char *msg, int len, int timeout, int flags)
{
    constexpr int toFront = 1;
    constexpr int urgent = 2;
    if (sendQ(msg, len, timeout, flags & toFront) != Done)
        return Failed;
    queues::signalSent(*this, flags >= urgent);
    return Done;
}

// Kept: a sender with a limit waits for its turn only; having it in a full ring, it gives up at once and keeps the turn
// (MsgQueueX.SenderWithATimeoutGivesUpWhenItFindsTheRingFull).
int SMsgQueueX::sendQ(const char *msg, int len, int timeout, int front)
{
    if (len < 0 || len > maxMsgLength || msgQ == nullptr)
        return Failed;
    if (!takeTurn(*this, timeout)) {
        KEL_PROBE(msg_full, this, len);
        return Failed;
    }
    for (;;) {
        {
            SemLock hold(lockSem);
            if (!queues::isFull(*this))
                return store(*this, msg, len, timeout, front == 1);
            writeUnlocked(txBlocking, true);
            KEL_PROBE(msg_full, this, len);
        }
        if (timeout != WithoutLimit || semTake(sendFlag, vxw_shim::WaitForever) != 0)
            return Failed;
    }
}

int SMsgQueueX::recv(char *buf, int maxLen, int timeout)
{
    if (maxLen < 0 || msgQ == nullptr)
        return Failed;
    if (!queues::takeGive(*this, timeout, "SMsgQueueX"))
        return Failed;
    const int result = recvQ(buf, maxLen);
    if (result == Failed)
        logEarly(2, 4, "SMsgQueueX::recv empty Q (%p)", static_cast<void *>(this));
    return result;
}

// Kept: a receive that finds nothing passes a turn on as well, and clears txBlocking
// (MsgQueueX.ReceiveOfNothingStillPassesATurnOn).
int SMsgQueueX::recvQ(char *buf, int maxLen)
{
    SemLock hold(lockSem);
    const int result = empty ? Failed : takeFirst(*this, buf, maxLen);
    if (txThreshold >= queues::messageCount(*this)) {
        writeUnlocked(txBlocking, false);
        semGive(sendFlag);
    }
    return result;
}
