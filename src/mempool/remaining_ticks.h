// remaining_ticks.h: how long an allocation that was woken for nothing waits on. Pure arithmetic, modulo 2^32.
#pragma once

#include <stdint.h>

namespace mempool
{
// Ticks from `now` to `deadline`; `last` is the previous result, at first the time-out itself.
//
// Kept: `last` is a time span and is compared with clock readings. So in the first ticks after boot, while the clock
// has not yet reached the time-out, a waiter that is woken for nothing gives up
// (RemainingTicks.NoneWhileTheClockIsBelowTheTimeOut), and when the deadline is past the wrap of the clock it waits one
// tick less (RemainingTicks.OneLessAcrossTheWrapOfTheClock).
constexpr uint32_t remainingTicks(uint32_t deadline, uint32_t last, uint32_t now)
{
    if (last > now && last < deadline)
        return 0;
    if (last < now && last > deadline)
        return deadline - 1 - now;
    return deadline - now;
}

// The next wait: what remains, but never longer than the wait before; nothing when the deadline has passed.
constexpr int32_t nextWait(uint32_t remaining, int32_t wait)
{
    const auto ticks = static_cast<int32_t>(remaining);
    return ticks < 0 || ticks > wait ? 0 : ticks;
}
} // namespace mempool
