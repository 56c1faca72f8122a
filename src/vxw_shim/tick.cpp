// tick.cpp: the tick clock and tick counts as times.
//
// A tick is 10 ms. tickGet() counts on the monotonic clock; deadlines are on the wall clock, because that is the clock
// of sem_timedwait, pthread_mutex_timedlock and pthread_cond_timedwait.
#include "vxw_shim/tick_deadline.h"

#include "vxw_shim.h"

#include <sys/time.h>
#include <unistd.h>

namespace vxw_shim
{
timespec ticksToAbsTime(uint32_t ticks)
{
    constexpr int64_t perSecond = 1000000;
    timeval now{}; // a clock that cannot be read makes a deadline long past: the wait ends at once
    gettimeofday(&now, nullptr);
    int64_t seconds = now.tv_sec;
    int64_t microseconds = now.tv_usec + static_cast<int32_t>(ticks * MicrosecondsPerTick);
    seconds += microseconds / perSecond;
    microseconds %= perSecond;
    if (microseconds < 0) { // a negative product: borrow, since a wait on a negative nanosecond field never ends
        seconds -= 1;
        microseconds += perSecond;
    }
    return {.tv_sec = seconds, .tv_nsec = microseconds * 1000};
}
} // namespace vxw_shim

int sysClkRateGet()
{
    return 100;
}

uint32_t tickGet()
{
    timespec now{}; // stays 0 when the clock cannot be read
    clock_gettime(CLOCK_MONOTONIC, &now);
    return 100 * static_cast<uint32_t>(now.tv_sec) + static_cast<uint32_t>(now.tv_nsec / 10000000);
}

int taskDelay(unsigned int ticks)
{
    usleep(ticks * vxw_shim::MicrosecondsPerTick);
    return 0;
}
