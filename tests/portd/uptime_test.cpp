#include "uptime.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace
{
const Uptime::Clock::time_point start{1234567h};
const Uptime uptime(start);
constexpr uint32_t longest = 6000;
} // namespace

TEST(Uptime, IsWholeSeconds)
{
    EXPECT_EQ(0u, uptime.seconds(start));
    EXPECT_EQ(0u, uptime.seconds(start + 999ms));
    EXPECT_EQ(1u, uptime.seconds(start + 1s));
}

// A count of ticks begins anew after 497 days.
TEST(Uptime, GoesOnAfter497Days)
{
    EXPECT_EQ(500u * 86400, uptime.seconds(start + 500 * 24h));
    EXPECT_EQ(36500u * 86400, uptime.seconds(start + 36500 * 24h));
}

TEST(Uptime, TimeLeftIsBoundedNeverZeroTooEarlyAndThenZero)
{
    EXPECT_EQ(250u, uptime.ticksLeft(2.5, longest, start));
    EXPECT_EQ(longest, uptime.ticksLeft(1e9, longest, start));
    EXPECT_EQ(1u, uptime.ticksLeft(2.5, longest, start + 2499ms));
    EXPECT_EQ(0u, uptime.ticksLeft(2.5, longest, start + 2500ms));
    EXPECT_EQ(0u, uptime.ticksLeft(2.5, longest, start + 500 * 24h)) << "over stays over";
    EXPECT_EQ(100u, uptime.ticksLeft(500 * 86400.0, longest, start + 500 * 24h - 1s)) << "and is not over early";
}
