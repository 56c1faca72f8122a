// uptime.h: how long the daemon has been running.
//
// Ticks would wrap after 497 days; this clock does not.
#pragma once

#include <chrono>
#include <cstdint>

class Uptime
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Uptime(Clock::time_point startTime = Clock::now()) : started(startTime) {}

    std::chrono::duration<double> elapsed(Clock::time_point now = Clock::now()) const
    {
        return now - started;
    }
    // Whole ones.
    uint64_t seconds(Clock::time_point now = Clock::now()) const
    {
        return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now - started).count());
    }
    // Ticks until the daemon has run for `limit_seconds`, at most `longest`; at least one while time is left, then 0.
    uint32_t ticksLeft(double limit_seconds, uint32_t longest, Clock::time_point now = Clock::now()) const
    {
        constexpr double ticksPerSecond = 100;
        const double left = (limit_seconds - elapsed(now).count()) * ticksPerSecond;
        if (left <= 0)
            return 0;
        return left >= longest ? longest : static_cast<uint32_t>(left < 1 ? 1 : left);
    }

private:
    Clock::time_point started;
};
