#include "mempool/remaining_ticks.h"

#include <gtest/gtest.h>

using mempool::nextWait;
using mempool::remainingTicks;

TEST(RemainingTicks, AreTheDistanceToTheDeadline)
{
    EXPECT_EQ(30U, remainingTicks(1000050, 50, 1000020)); // 20 of 50 ticks have passed
    EXPECT_EQ(50U, remainingTicks(1000050, 50, 1000000));
    EXPECT_EQ(0U, remainingTicks(1000050, 50, 1000050));
    EXPECT_EQ(10U, remainingTicks(1000050, 30, 1000040)); // the second wait
}

TEST(RemainingTicks, ArePastTheDeadlineAsANegativeNumber)
{
    EXPECT_EQ(0xFFFFFFFDU, remainingTicks(1000050, 50, 1000053));
    EXPECT_EQ(0, nextWait(remainingTicks(1000050, 50, 1000053), 50));
}

// In the first 500 ticks after boot a wait of 500 ticks has last > now and last < deadline.
TEST(RemainingTicks, NoneWhileTheClockIsBelowTheTimeOut)
{
    EXPECT_EQ(0U, remainingTicks(90 + 500, 500, 100));
    EXPECT_EQ(0U, remainingTicks(1 + 500, 500, 499));
    // Not once the clock has reached the time-out, nor when the deadline is the time-out itself.
    EXPECT_EQ(90U, remainingTicks(90 + 500, 500, 500));
    EXPECT_EQ(400U, remainingTicks(0 + 500, 500, 100));
}

// started at 0xFFFFFFF0 with 30 ticks: the deadline is 14, and last < now and last > deadline.
TEST(RemainingTicks, OneLessAcrossTheWrapOfTheClock)
{
    EXPECT_EQ(29U, remainingTicks(14, 30, 0xFFFFFFF0));
    EXPECT_EQ(14U, remainingTicks(14, 29, 0xFFFFFFFF));
    // Behind the wrap it is the distance again.
    EXPECT_EQ(9U, remainingTicks(14, 14, 5));
    EXPECT_EQ(14U, remainingTicks(14, 30, 0));
    // A deadline right at the wrap: last is above it too.
    EXPECT_EQ(0xFFFFFFFFU - 0xFFFFFFF0U, remainingTicks(0, 16, 0xFFFFFFF0));
}

TEST(RemainingTicks, AreTheDistanceWhenTheLastWaitEqualsTheClockOrTheDeadline)
{
    EXPECT_EQ(50U, remainingTicks(150, 100, 100));
    EXPECT_EQ(0xFFFFFFFFU, remainingTicks(99, 100, 100));
    EXPECT_EQ(150U - 400U, remainingTicks(150, 150, 400));
    EXPECT_EQ(50U, remainingTicks(150, 150, 100));
}

TEST(NextWait, IsWhatRemains)
{
    EXPECT_EQ(30, nextWait(30, 50));
    EXPECT_EQ(50, nextWait(50, 50));
    EXPECT_EQ(0, nextWait(0, 50));
}

TEST(NextWait, IsNothingWhenMoreRemainsThanBeforeOrTheDeadlineHasPassed)
{
    EXPECT_EQ(0, nextWait(51, 50));
    EXPECT_EQ(0, nextWait(0x7FFFFFFF, 50));
    EXPECT_EQ(0, nextWait(0x80000000, 0x7FFFFFFF));
    EXPECT_EQ(0, nextWait(0xFFFFFFFF, 50));
}
