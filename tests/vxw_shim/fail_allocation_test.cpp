// The tool itself: a test that never failed an allocation would prove nothing.
#include "harness/fail_allocation.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

namespace
{
// The optimiser may drop an allocation whose result is not looked at.
void *kept(void *memory)
{
    asm volatile("" : "+r"(memory));
    return memory;
}

void *allocate(size_t bytes)
{
    return kept(malloc(bytes));
}
} // namespace

TEST(FailAllocation, FailsTheNthAllocationAndNoOther)
{
    void *first, *second, *third, *fourth;
    bool happened;
    {
        FailAllocation failing(3);
        first = allocate(1);
        second = kept(calloc(2, 2));
        third = allocate(3);
        fourth = allocate(4);
        happened = failing.happened();
    }
    EXPECT_TRUE(happened);
    EXPECT_NE(nullptr, first);
    EXPECT_NE(nullptr, second);
    EXPECT_EQ(nullptr, third);
    EXPECT_NE(nullptr, fourth);
    free(first);
    free(second);
    free(fourth);
}

TEST(FailAllocation, SaysSoWhenTheAllocationWasNeverReached)
{
    FailAllocation failing(2);
    void *memory = allocate(1);
    EXPECT_FALSE(failing.happened());
    EXPECT_NE(nullptr, memory);
    free(memory);
}

TEST(FailAllocation, IsOverOnceAsked)
{
    FailAllocation failing(1);
    EXPECT_FALSE(failing.happened());
    void *memory = allocate(1);
    EXPECT_NE(nullptr, memory);
    free(memory);
}

TEST(FailAllocation, FailsAReallocationAndLeavesTheOldBlock)
{
    auto *old = static_cast<char *>(allocate(2));
    old[1] = 'x';
    FailAllocation failing(1);
    void *larger = kept(realloc(old, 100000));
    EXPECT_TRUE(failing.happened());
    EXPECT_EQ(nullptr, larger);
    EXPECT_EQ('x', old[1]);
    free(old);
}

TEST(FailAllocation, AFailedNewThrows)
{
    bool thrown = false;
    FailAllocation failing(1);
    try {
        std::string text(1000, 'x');
        kept(text.data());
    } catch (const std::bad_alloc &) {
        thrown = true;
    }
    EXPECT_TRUE(failing.happened());
    EXPECT_TRUE(thrown);
}

TEST(FailAllocation, OtherThreadsAreLeftAlone)
{
    void *memory = nullptr;
    std::unique_ptr<std::thread> other;
    {
        FailAllocation failing(1000);
        other = std::make_unique<std::thread>([&] {
            for (int i = 0; i < 2000; ++i) {
                free(memory);
                memory = allocate(1);
                ASSERT_NE(nullptr, memory);
            }
        });
        other->join();
        EXPECT_FALSE(failing.happened());
    }
    free(memory);
}
