// aging_list.h: the list of queues that hold gives back, in order of expiry.
#pragma once

#include "queues.h"

namespace queues::aging_list
{
// Ticks from sleepStart to `now`.
int32_t elapsedTicks(uint32_t now) KEL_REQUIRES(SBaseQ::lockSem);

// Moves the head's time on to `now`, but not past its expiry. The caller stores the new sleepStart.
void rebase(uint32_t now) KEL_REQUIRES(SBaseQ::lockSem);

// Links an idle queue by its maxDelay, counted from sleepStart, and holds its first give back. Returns whether the
// timer task sleeps too long now.
bool insert(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem);

// Unlinks an aging queue and leaves its own links as they were.
void remove(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem);

// Starts a sleep at `now`; returns the ticks to sleep, 0xFFFFFFFF when nothing ages.
uint32_t startSleep(uint32_t now) KEL_REQUIRES(SBaseQ::lockSem);

// Takes the queues that are due at `now` off the list and marks them expired. Returns them chained through ageNext, the
// last to expire first, or null. Moves the times of the rest on to `now`.
SBaseQ *takeExpired(uint32_t now) KEL_REQUIRES(SBaseQ::lockSem);
} // namespace queues::aging_list
