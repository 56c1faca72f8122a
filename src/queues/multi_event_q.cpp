// multi_event_q.cpp: numbered events, each pending at most once.
//
// Policy:     first sent, first received; an event that is sent again keeps its place and only its data changes.
// Locking:    everything is under SBaseQ::lockSem, recursive: it stays held around age_start, age_stop and gives.
// Invariants: inUse holds exactly the ids in the ring, so the ring cannot overflow; multiUse holds a part of them.
//             One give of cflag, given or held back, for each id in the ring; none for a merged send.
// Cost:       constant for each call; nothing is allocated after construction.
#include "queues/signalling.h"
#include "queues/type_mark.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/sem_lock.h"

#include "bitset.h"

#include <algorithm>
#include <memory>

namespace
{
enum Result { Done = 0, Failed = -1, DataChanged = -2 };

// What an event's word becomes: the bits `mask` of `value`, the others as before.
template <class Word>
Word merged(Word old, unsigned int value, unsigned int mask)
{
    return static_cast<Word>(old ^ ((old ^ value) & mask));
}

// A ring always has a slot, so that looking at the next event of a queue without events is a look at something.
size_t ringSlots(unsigned short numEvents)
{
    return std::max<size_t>(numEvents, 1);
}

// The queue's two masks are plain ones of its own, so their words are used in place: calls through the bit mask's table
// cost more than all else that a send does besides locking.
uint32_t &wordOf(CBitMask &mask, unsigned short event)
{
    return mask.maskPtr[event / 32];
}

uint32_t bitOf(unsigned short event)
{
    return 0x80000000U >> event % 32;
}

bool isPending(const SMultiEventQ &queue, unsigned short event) KEL_REQUIRES(SBaseQ::lockSem)
{
    const bool isEvent = event < queue.queueSize; // a queue without events has no words either
    return isEvent && (wordOf(*queue.inUse, event) & bitOf(event)) != 0;
}

void mergeInto(SMultiEventQ &queue, unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask)
    KEL_REQUIRES(SBaseQ::lockSem)
{
    // Kept: compared before it is cut to the queue's width, so a difference above the width is a change
    // (MultiEventQ.DataIsComparedBeforeItIsCutToTheWidth).
    if ((data & cmpMask) != (queue.readData(event) & cmpMask))
        wordOf(*queue.multiUse, event) |= bitOf(event);
    queue.writeData(event, data, wrMask);
}

void append(SMultiEventQ &queue, unsigned short event, unsigned int data) KEL_REQUIRES(SBaseQ::lockSem)
{
    constexpr unsigned int wholeWord = 0xFFFFFFFF;
    queue.queuePtr[queue.pWrite] = event;
    wordOf(*queue.inUse, event) |= bitOf(event);
    writeUnlocked(queue.empty, 0);
    writeUnlocked(queue.pWrite, queues::nextSlot(queue, queue.pWrite));
    queue.writeData(event, data, wholeWord);
}

void removeFirst(SMultiEventQ &queue, unsigned short event) KEL_REQUIRES(SBaseQ::lockSem)
{
    wordOf(*queue.inUse, event) &= ~bitOf(event);
    wordOf(*queue.multiUse, event) &= ~bitOf(event);
    writeUnlocked(queue.pRead, queues::nextSlot(queue, queue.pRead));
    if (queue.pRead == queue.pWrite)
        writeUnlocked(queue.empty, 1);
    else if (queue.externalFlag != nullptr)
        semGive(queue.externalFlag); // the flag went once for a batch; whoever waits on it comes back for the rest
}

// 0, or -2 when the data of a pending event changed.
int pendingResult(const SMultiEventQ &queue, unsigned short event) KEL_REQUIRES(SBaseQ::lockSem)
{
    return (wordOf(*queue.multiUse, event) & bitOf(event)) != 0 ? DataChanged : Done;
}
} // namespace

SMultiEventQ::SMultiEventQ(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag)
    : SBaseQ(numEvents, pendOption, delay, threshold, flag)
{
    magic = queues::MultiEventMark;
    auto ring = std::make_unique<uint16_t[]>(ringSlots(numEvents));
    auto pending = std::make_unique<CBitMask>(numEvents);
    auto changed = std::make_unique<CBitMask>(numEvents);
    queuePtr = ring.release();
    inUse = pending.release();
    multiUse = changed.release();
}

SMultiEventQ::~SMultiEventQ()
{
    delete[] queuePtr;
    delete inUse;
    delete multiUse;
}

unsigned int SMultiEventQ::size()
{
    SemLock hold(lockSem);
    const size_t ring = sizeof(uint16_t) * static_cast<size_t>(queueSize);
    return static_cast<unsigned int>(sizeof(SMultiEventQ) + ring + inUse->size() + multiUse->size());
}

unsigned int SMultiEventQ::readData(unsigned short)
{
    return 0;
}

unsigned int SMultiEventQ::writeData(unsigned short, unsigned int, unsigned int)
{
    return 0;
}

void *SMultiEventQ::dataPointer()
{
    return nullptr;
}

int SMultiEventQ::send(unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask, int urgency)
{
    constexpr int urgent = 2;
    if (event >= queueSize)
        return Failed;
    SemLock hold(lockSem);
    if (isPending(*this, event)) {
        KEL_PROBE(event_coalesce, this, event, data);
        mergeInto(*this, event, data, cmpMask, wrMask);
        return Done;
    }
    KEL_PROBE(event_send, this, event, data);
    append(*this, event, data & wrMask);
    queues::signalSent(*this, urgency >= urgent);
    return Done;
}

int SMultiEventQ::recv(unsigned short &event, unsigned int &data, int timeout)
{
    if (!queues::takeGive(*this, timeout, "SMultiEventQ"))
        return Failed;
    const int result = recvQ(event, data);
    if (result == Failed)
        logEarly(2, 4, "SMultiEventQ::recv empty Q (%p)", static_cast<void *>(this));
    return result;
}

// Kept: whether there is an entry is told by the bit of the id in the slot, not by `empty`, and the id is handed out
// either way (MultiEventQ.RecvQLooksAtTheBitsAndNotAtEmpty, MultiEventQ.RecvQWithoutAnEntryWritesTheIdAndMovesNothing).
int SMultiEventQ::recvQ(unsigned short &event, unsigned int &data)
{
    SemLock hold(lockSem);
    event = queuePtr[pRead];
    if (!isPending(*this, event))
        return Failed;
    data = readData(event);
    const int result = pendingResult(*this, event);
    KEL_PROBE(event_receive, this, event, data);
    removeFirst(*this, event);
    return result;
}

int SMultiEventQ::snoop(unsigned short event, unsigned int &data)
{
    if (event >= queueSize)
        return Failed;
    SemLock hold(lockSem);
    data = readData(event);
    return isPending(*this, event) ? pendingResult(*this, event) : Failed;
}

SMultiEventQ8::SMultiEventQ8(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag)
    : SMultiEventQ(numEvents, pendOption, threshold, delay, flag), dataPtr(new uint8_t[numEvents]())
{
}

SMultiEventQ8::~SMultiEventQ8()
{
    delete[] dataPtr;
}

unsigned int SMultiEventQ8::size()
{
    return SMultiEventQ::size() + static_cast<unsigned int>(queueSize);
}

unsigned int SMultiEventQ8::readData(unsigned short event)
{
    return dataPtr[event];
}

unsigned int SMultiEventQ8::writeData(unsigned short event, unsigned int value, unsigned int mask)
{
    return dataPtr[event] = merged(dataPtr[event], value, mask);
}

void *SMultiEventQ8::dataPointer()
{
    return dataPtr;
}

SMultiEventQ16::SMultiEventQ16(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag)
    : SMultiEventQ(numEvents, pendOption, threshold, delay, flag), dataPtr(new uint16_t[numEvents]())
{
}

SMultiEventQ16::~SMultiEventQ16()
{
    delete[] dataPtr;
}

unsigned int SMultiEventQ16::size()
{
    return SMultiEventQ::size() + 2 * static_cast<unsigned int>(queueSize);
}

unsigned int SMultiEventQ16::readData(unsigned short event)
{
    return dataPtr[event];
}

unsigned int SMultiEventQ16::writeData(unsigned short event, unsigned int value, unsigned int mask)
{
    return dataPtr[event] = merged(dataPtr[event], value, mask);
}

void *SMultiEventQ16::dataPointer()
{
    return dataPtr;
}

SMultiEventQ32::SMultiEventQ32(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag)
    : SMultiEventQ(numEvents, pendOption, threshold, delay, flag), dataPtr(new uint32_t[numEvents]())
{
}

SMultiEventQ32::~SMultiEventQ32()
{
    delete[] dataPtr;
}

unsigned int SMultiEventQ32::size()
{
    return SMultiEventQ::size() + 4 * static_cast<unsigned int>(queueSize);
}

unsigned int SMultiEventQ32::readData(unsigned short event)
{
    return dataPtr[event];
}

unsigned int SMultiEventQ32::writeData(unsigned short event, unsigned int value, unsigned int mask)
{
    return dataPtr[event] = merged(dataPtr[event], value, mask);
}

void *SMultiEventQ32::dataPointer()
{
    return dataPtr;
}
