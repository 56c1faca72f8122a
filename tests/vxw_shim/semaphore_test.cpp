#include "vxw_shim.h"

#include <gtest/gtest.h>

TEST(BinarySemaphore, TwoGivesLetTwoTakesThrough)
{
    SEM_ID sem = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    ASSERT_NE(nullptr, sem);
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
    EXPECT_EQ(0, semDelete(sem));
}
