#include "vxw_shim.h"

#include "harness/instrumented.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <atomic>
#include <optional>

// The library calls these through the dynamic linker, so the ones here come first: they note what was asked.
namespace
{
thread_local bool noting; // until taskSpawn asks for a stack; the sanitizers ask for more on its way
std::optional<size_t> requestedStack;
thread_local int attributesDestroyed;

template <class Function>
KEL_NOT_INSTRUMENTED Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
} // namespace

extern "C" {
KEL_NOT_INSTRUMENTED int pthread_attr_setstacksize(pthread_attr_t *attributes, size_t bytes) noexcept
{
    if (noting) {
        requestedStack = bytes;
        noting = false;
    }
    return next<int(pthread_attr_t *, size_t)>("pthread_attr_setstacksize")(attributes, bytes);
}

KEL_NOT_INSTRUMENTED int pthread_attr_destroy(pthread_attr_t *attributes) noexcept
{
    ++attributesDestroyed;
    return next<int(pthread_attr_t *)>("pthread_attr_destroy")(attributes);
}
}

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;

// What the task of the test saw; written before it gives `ended`.
struct Seen {
    SEM_ID ended = nullptr;
    pthread_t thread;
    void *argument;
    size_t stackBytes;
};
Seen seen;

int noteEverything(void *argument)
{
    seen.argument = argument;
    seen.thread = pthread_self();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &seen.stackBytes);
    pthread_attr_destroy(&attributes);
    semGive(seen.ended);
    return 1;
}

class Task : public testing::Test
{
protected:
    void SetUp() override
    {
        seen = {};
        seen.ended = semBCreate(0, SEM_EMPTY);
        seen.argument = this; // anything but null
        requestedStack.reset();
    }

    void TearDown() override
    {
        EXPECT_EQ(0, semDelete(seen.ended));
    }

    static int spawn(int stackSize)
    {
        noting = true;
        const int result = taskSpawn("tNote", 3, 0, stackSize, reinterpret_cast<FUNCPTR>(noteEverything), 1, 2, 3, 4, 5,
                                     6, 7, 8, 9, 10);
        noting = false;
        return result;
    }

    // Spawns a task that must start, and waits for its end.
    static void run(int stackSize)
    {
        ASSERT_EQ(0, spawn(stackSize));
        ASSERT_EQ(0, semTake(seen.ended, Forever));
        EXPECT_EQ(0, pthread_join(seen.thread, nullptr));
    }

    static size_t defaultStack()
    {
        pthread_attr_t attributes;
        size_t bytes = 0;
        EXPECT_EQ(0, pthread_getattr_default_np(&attributes));
        pthread_attr_getstacksize(&attributes, &bytes);
        pthread_attr_destroy(&attributes);
        return bytes;
    }
};
} // namespace

TEST_F(Task, RunsItsEntryInAnotherThreadWithANullArgument)
{
    run(0);
    EXPECT_EQ(nullptr, seen.argument);
    EXPECT_FALSE(pthread_equal(pthread_self(), seen.thread));
}

TEST_F(Task, StaysJoinable)
{
    ASSERT_EQ(0, spawn(0));
    ASSERT_EQ(0, semTake(seen.ended, Forever));
    EXPECT_EQ(0, pthread_join(seen.thread, nullptr)) << "a detached thread gives EINVAL";
}

TEST_F(Task, NeedsNoName)
{
    ASSERT_EQ(0,
              taskSpawn(nullptr, -1, -1, 0, reinterpret_cast<FUNCPTR>(noteEverything), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    ASSERT_EQ(0, semTake(seen.ended, Forever));
    EXPECT_EQ(0, pthread_join(seen.thread, nullptr));
}

TEST_F(Task, StackSizeZeroUsesTheDefaultStack)
{
    run(0);
    EXPECT_EQ(std::nullopt, requestedStack);
    EXPECT_GE(seen.stackBytes, defaultStack() - 65536); // less the guard page
}

TEST_F(Task, StackSize16384Requests49152Bytes)
{
    run(16384);
    EXPECT_EQ(49152U, requestedStack);
}

// Above every system's lower limit, so that the request is also granted, and less than a quarter of the default stack,
// so that the thread library does not reuse one of those.
TEST_F(Task, AGrantedStackHasThreeTimesTheBytesAskedFor)
{
    run(1 << 18);
    EXPECT_EQ(3U << 18, requestedStack);
    if (!UnderAddressSanitizer && !UnderThreadSanitizer) { // which enlarge stacks for themselves
        EXPECT_EQ(3U << 18, (seen.stackBytes + 65535) / 65536 * 65536);
    }
    EXPECT_LT(seen.stackBytes, defaultStack());
}

// arm64 refuses everything below 128 KiB.
TEST_F(Task, AStackTooSmallForTheThreadLibraryGivesTheDefaultStack)
{
    for (int stackSize : {1, 1000, 5000}) {
        run(stackSize);
        EXPECT_EQ(static_cast<size_t>(stackSize) * 3, requestedStack);
        EXPECT_GE(seen.stackBytes, defaultStack() - 65536) << stackSize;
    }
}

TEST_F(Task, TheTripledStackIsA32BitProductAndSignExtended)
{
    run(-1);
    EXPECT_EQ(static_cast<size_t>(-3), requestedStack);
    run(0x40000000);
    EXPECT_EQ(static_cast<size_t>(-0x40000000), requestedStack);
    run(0x55580000);
    EXPECT_EQ(0x80000U, requestedStack);
}

TEST_F(Task, ANegativeStackGivesTheDefaultStack)
{
    for (int stackSize : {-1, 0x40000000, static_cast<int>(0x80000000)}) {
        run(stackSize);
        EXPECT_GE(seen.stackBytes, defaultStack() - 65536) << stackSize;
    }
}

TEST_F(Task, ItsAttributeObjectIsNotDestroyed)
{
    attributesDestroyed = 0;
    ASSERT_EQ(0, spawn(1 << 20));
    EXPECT_EQ(0, attributesDestroyed);
    ASSERT_EQ(0, semTake(seen.ended, Forever));
    EXPECT_EQ(0, pthread_join(seen.thread, nullptr));
}

TEST_F(Task, AThreadThatCannotBeCreatedIsReportedAsTheThreadLibraryDoes)
{
    pthread_attr_t before, endless;
    ASSERT_EQ(0, pthread_getattr_default_np(&before));
    ASSERT_EQ(0, pthread_getattr_default_np(&endless));
    ASSERT_EQ(0, pthread_attr_setstacksize(&endless, size_t{1} << 62));
    ASSERT_EQ(0, pthread_setattr_default_np(&endless));
    EXPECT_EQ(EAGAIN, spawn(0));
    EXPECT_EQ(0, pthread_setattr_default_np(&before));
    pthread_attr_destroy(&endless);
    pthread_attr_destroy(&before);
}

namespace
{
constexpr int Tasks = 16;
std::atomic<int> arrived;
pthread_t threads[Tasks];

// Ends only when every task runs: they run side by side.
int meetTheOthers(...)
{
    const int place = arrived++;
    threads[place] = pthread_self();
    while (arrived < Tasks)
        taskDelay(1);
    semGive(seen.ended);
    return 0;
}
} // namespace

TEST_F(Task, ManyRunSideBySide)
{
    arrived = 0;
    for (int i = 0; i < Tasks; ++i)
        ASSERT_EQ(0, taskSpawn("tMeet", i, 0, 1 << 18, meetTheOthers, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    for (int i = 0; i < Tasks; ++i)
        ASSERT_EQ(0, semTake(seen.ended, Forever));
    for (pthread_t thread : threads)
        EXPECT_EQ(0, pthread_join(thread, nullptr));
}
