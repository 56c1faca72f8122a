// aging_list.cpp: pure list arithmetic; the clock readings are handed in, and nothing is given or waited for.
//
// Policy:     a queue goes in front of a head that is due together with it, but behind all others that are; the queue
//             that expired last is delivered first.
// Locking:    everything is under SBaseQ::lockSem.
// Invariants: aging is set exactly while a queue is linked; each ageTtl counts from the expiry of the queue before, the
//             head's from sleepStart; headTime is the head's ageTtl, tailTime the sum of all; an empty list is all 0.
// Cost:       insert walks from the tail, over the queues that expire later; all else is constant for each queue moved.
// Arithmetic: times wrap at 32 bits, so it is done unsigned and converted.
#include "queues/aging_list.h"

#include "vxw_shim/probe.h"
#include "vxw_shim/tick_deadline.h"

#include <algorithm>
#include <assert.h>
#include <stdio.h>

namespace
{
int32_t sum(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int32_t difference(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

void linkAlone(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
{
    queue.agePrev = nullptr;
    queue.ageNext = nullptr;
    queue.ageTtl = queue.maxDelay;
    SBaseQ::head = &queue;
    SBaseQ::tail = &queue;
    SBaseQ::headTime = queue.maxDelay;
    SBaseQ::tailTime = queue.maxDelay;
}

// Returns the ticks by which the head comes earlier now.
//
// Kept: a queue that is due together with the head goes in front of it, and nobody is woken for it
// (AgingList.ExactlyTheHeadsRemainingTimeBecomesTheHeadAndWakesNobody).
int32_t linkAsHead(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
{
    SBaseQ *const second = SBaseQ::head;
    const int32_t earlier = difference(SBaseQ::headTime, queue.maxDelay);
    second->agePrev = &queue;
    second->ageTtl = earlier;
    queue.agePrev = nullptr;
    queue.ageNext = second;
    queue.ageTtl = queue.maxDelay;
    SBaseQ::head = &queue;
    SBaseQ::headTime = queue.maxDelay;
    return earlier;
}

void linkAfter(SBaseQ &before, SBaseQ &queue, int32_t ttl) KEL_REQUIRES(SBaseQ::lockSem)
{
    queue.agePrev = &before;
    queue.ageTtl = ttl;
    queue.ageNext = before.ageNext;
    before.ageNext = &queue;
    if (queue.ageNext != nullptr) {
        queue.ageNext->agePrev = &queue;
        queue.ageNext->ageTtl = difference(queue.ageNext->ageTtl, ttl);
    } else {
        SBaseQ::tail = &queue;
        SBaseQ::tailTime = sum(SBaseQ::tailTime, ttl);
    }
}

// Ends the process: a give that is lost or doubled from here on would be worse. What a core dump is searched for is
// stored through volatile, and the fault is one, because the optimiser may drop plain stores before a trap.
[[noreturn]] __attribute__((no_sanitize("undefined"))) void missedHead(SBaseQ &queue, int32_t ttl)
    KEL_REQUIRES(SBaseQ::lockSem)
{
    logEarly(2, 0, "SBaseQ::age_start missed list head (%u)", queue.queueId);
    fflush(stdout);
    const_cast<SBaseQ *volatile &>(queue.agePrev) = nullptr;
    const_cast<volatile int &>(queue.ageTtl) = ttl;
    volatile int *volatile nowhere = nullptr;
    *nowhere = 0;
    __builtin_trap();
}

// Links `queue` behind the last queue that expires no later. The head does, so there is one.
void linkByExpiry(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
{
    SBaseQ *before = SBaseQ::tail;
    int32_t expiry = SBaseQ::tailTime; // of `before`
    while (before != nullptr && queue.maxDelay < expiry) {
        expiry = difference(expiry, before->ageTtl);
        before = before->agePrev;
    }
    const int32_t ttl = difference(queue.maxDelay, expiry);
    if (before == nullptr)
        missedHead(queue, ttl);
    linkAfter(*before, queue, ttl);
}

// Moves the head onto the chain of expired queues; returns the chain. The new head has no queue before it.
SBaseQ *expireHead(SBaseQ *chain) KEL_REQUIRES(SBaseQ::lockSem)
{
    SBaseQ &queue = *SBaseQ::head;
    SBaseQ::head = queue.ageNext;
    if (SBaseQ::head != nullptr)
        SBaseQ::head->agePrev = nullptr;
    KEL_PROBE(aging_expire, &queue, queue.delayedGives);
    queue.aging = false;
    queue.expired = true;
    queue.ageTtl = 0;
    queue.ageNext = chain;
    return &queue;
}
} // namespace

namespace queues::aging_list
{
// Kept: the clock wraps as a signed number here, and just after it has, one tick is missing; a queue then expires a
// tick late once in 497 days (AgingList.ElapsedIsOneTickShortOnceTheClockHasWrapped).
int32_t elapsedTicks(uint32_t now)
{
    const auto start = static_cast<uint32_t>(SBaseQ::sleepStart);
    if (SBaseQ::sleepStart > static_cast<int32_t>(now))
        return static_cast<int32_t>(~start + now);
    return static_cast<int32_t>(now - start);
}

// Kept: an overdue head is not moved past its expiry, and the queues behind it lose the ticks beyond that
// (AgingList.RebasingStopsAtTheHeadsExpiry).
void rebase(uint32_t now)
{
    if (SBaseQ::head == nullptr)
        return;
    const int32_t passed = std::min(SBaseQ::headTime, elapsedTicks(now));
    SBaseQ::headTime = difference(SBaseQ::head->ageTtl, passed);
    SBaseQ::tailTime = difference(SBaseQ::tailTime, passed);
    SBaseQ::head->ageTtl = SBaseQ::headTime;
}

bool insert(SBaseQ &queue)
{
    assert(!queue.aging && !queue.expired);
    bool sleepsTooLong = false;
    if (SBaseQ::head == nullptr) {
        linkAlone(queue);
        sleepsTooLong = true;
    } else if (queue.maxDelay <= SBaseQ::headTime) {
        sleepsTooLong = linkAsHead(queue) > 0;
    } else {
        linkByExpiry(queue);
    }
    KEL_PROBE(aging_start, &queue, queue.maxDelay);
    queue.aging = true;
    queue.delayedGives = sum(queue.delayedGives, 1);
    return sleepsTooLong;
}

// Kept: the queue's own links and time stay as they were, for a person who reads them afterwards
// (AgingList.RemovedQueueKeepsItsOwnLinksAndTime).
void remove(SBaseQ &queue)
{
    assert(queue.aging && !queue.expired);
    KEL_PROBE(aging_stop, &queue, queue.delayedGives);
    SBaseQ *const before = queue.agePrev;
    SBaseQ *const behind = queue.ageNext;
    if (before != nullptr && behind != nullptr) {
        before->ageNext = behind;
        behind->agePrev = before;
        behind->ageTtl = sum(behind->ageTtl, queue.ageTtl);
    } else if (before != nullptr) {
        before->ageNext = nullptr;
        SBaseQ::tail = before;
        SBaseQ::tailTime = difference(SBaseQ::tailTime, queue.ageTtl);
    } else if (behind != nullptr) {
        SBaseQ::head = behind;
        SBaseQ::headTime = sum(SBaseQ::headTime, behind->ageTtl);
        behind->agePrev = nullptr;
        behind->ageTtl = sum(behind->ageTtl, queue.ageTtl);
    } else {
        SBaseQ::head = nullptr;
        SBaseQ::tail = nullptr;
        SBaseQ::headTime = 0;
        SBaseQ::tailTime = 0;
    }
    queue.aging = false;
}

uint32_t startSleep(uint32_t now)
{
    SBaseQ::sleepStart = static_cast<int32_t>(now);
    if (SBaseQ::head == nullptr)
        return vxw_shim::WaitForever;
    if (SBaseQ::head->ageTtl == 0)
        ++SBaseQ::timeoutNull;
    return static_cast<uint32_t>(SBaseQ::head->ageTtl);
}

// Kept: sleepStart stays, so a sender that comes before the next startSleep() moves the list on by the same ticks once
// more: the queues that are left are then delivered early
// (AgingList.SenderBetweenAPassAndTheNextSleepMovesTheListOnTwice).
SBaseQ *takeExpired(uint32_t now)
{
    int32_t elapsed = elapsedTicks(now);
    if (SBaseQ::head == nullptr || elapsed < 0)
        return nullptr;

    SBaseQ *chain = nullptr;
    while (SBaseQ::head != nullptr && SBaseQ::head->ageTtl <= elapsed) {
        elapsed = difference(elapsed, SBaseQ::head->ageTtl);
        SBaseQ::tailTime = difference(SBaseQ::tailTime, SBaseQ::head->ageTtl);
        chain = expireHead(chain);
    }
    if (SBaseQ::head == nullptr) {
        SBaseQ::tail = nullptr;
        SBaseQ::headTime = 0;
        return chain;
    }
    SBaseQ::head->ageTtl = difference(SBaseQ::head->ageTtl, elapsed);
    SBaseQ::headTime = SBaseQ::head->ageTtl;
    SBaseQ::tailTime = difference(SBaseQ::tailTime, elapsed);
    return chain;
}
} // namespace queues::aging_list
