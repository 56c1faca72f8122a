// tick_deadline.h: from a time-out in ticks to a deadline on the wall clock.
#pragma once

#include <stdint.h>
#include <time.h>

namespace vxw_shim
{
inline constexpr uint32_t WaitForever = 0xFFFFFFFF;
inline constexpr uint32_t MicrosecondsPerTick = 10000;

// The absolute CLOCK_REALTIME time `ticks` ticks from now, always a valid time.
//
// Kept: ticks x 10000 is a 32-bit product, then sign-extended. 214749 ticks is a deadline in the past, and ported code
// may count on such a wait ending at once (TickDeadline.ProductIsTakenIn32BitsAndSignExtended).
timespec ticksToAbsTime(uint32_t ticks);
} // namespace vxw_shim
