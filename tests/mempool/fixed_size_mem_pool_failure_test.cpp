// What happens when memory or a semaphore cannot be had, and when a signal ends a take of the list lock. This program
// stands in for the semaphore calls: the library makes them through the dynamic linker, which finds these first.
#include "mempool.h"

#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "models/memory_pool_model.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cerrno>
#include <memory>
#include <new>

// The sanitizers would end the process where malloc() is to return null.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace
{
unsigned failingCreations = 0; // bit n: the nth semBCreate() from now on returns null
int creations = 0;
SEM_ID interrupted = nullptr; // takes of it without limit end with a signal...
int interruptions = 0;        // ... so many times

template <class Function>
Function *realOf(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

constexpr uint32_t Refused = 0xFFFFFFFF;
} // namespace

extern "C" SEM_ID semBCreate(int options, unsigned int initialState)
{
    static const auto real = realOf<SEM_ID(int, unsigned int)>("semBCreate");
    return (failingCreations >> creations++ & 1) != 0 ? nullptr : real(options, initialState);
}

extern "C" int semTake(SEM_ID sem, unsigned int timeout)
{
    static const auto real = realOf<int(SEM_ID, unsigned int)>("semTake");
    if (sem == interrupted && timeout == 0xFFFFFFFF && interruptions > 0) {
        --interruptions;
        return EINTR;
    }
    return real(sem, timeout);
}

namespace
{
// Builds a pool of which some semaphores cannot be created, and checks that it refuses all work and prints nothing.
void expectUnusable(uint32_t flagError, unsigned failing)
{
    failingCreations = failing;
    creations = 0;
    EXPECT_EQ("", printedBy([&] {
                  vxFixedSizeMemPool pool(8, 3);
                  EXPECT_EQ(flagError, pool.getFlagError());
                  EXPECT_NE(nullptr, pool.getMemBase());
                  EXPECT_EQ(3U, pool.getNodeCount()); // the list was built all the same
                  EXPECT_EQ(nullptr, pool.vxAlloc(0));
                  EXPECT_EQ(nullptr, pool.vxAlloc(-1));
                  EXPECT_EQ(Refused, pool.vxFree(pool.getMemBase()));
              }));
    EXPECT_EQ(2, creations);
    failingCreations = 0;
}
} // namespace

TEST(FixedSizeMemPoolFailure, ListLockThatCannotBeCreatedGivesBit8)
{
    expectUnusable(8, 1);
}

TEST(FixedSizeMemPoolFailure, AvailSemThatCannotBeCreatedGivesBit16)
{
    expectUnusable(16, 2);
}

TEST(FixedSizeMemPoolFailure, BothSemaphoresMissingGiveTheirSum)
{
    expectUnusable(24, 3);
}

// Six allocations: the region, the bitmap, and a record and a count for each semaphore.
TEST(FixedSizeMemPoolFailure, EachAllocationThatFailsGivesItsBit)
{
    const uint32_t expected[] = {2, 4, 8, 8, 16, 16, 0};
    for (int nth = 1; nth <= 7; ++nth) {
        alignas(vxFixedSizeMemPool) unsigned char memory[sizeof(vxFixedSizeMemPool)];
        FailAllocation failing(nth);
        auto *pool = new (memory) vxFixedSizeMemPool(8, 3);
        EXPECT_EQ(nth < 7, failing.happened());
        EXPECT_EQ(expected[nth - 1], pool->getFlagError()) << "allocation " << nth;
        EXPECT_EQ(nth != 1, pool->getMemBase() != nullptr);
        EXPECT_EQ(nth != 2, pool->checkMap != nullptr);
        EXPECT_EQ(nth <= 2 ? 0U : 3U, pool->getNodeCount());
        if (nth < 7) {
            EXPECT_EQ(nullptr, pool->vxAlloc(-1));
            EXPECT_EQ(Refused, pool->vxFree(pool->getMemBase()));
        }
        if (nth <= 2) { // nothing to look the block up in
            EXPECT_EQ(Refused, pool->vxMemCheckIn(pool->getMemBase()));
            EXPECT_EQ(Refused, pool->vxMemCheckOut(pool->getMemBase()));
        }
        pool->~vxFixedSizeMemPool();
    }
}

// 2^31 x 2^17: the product is 0 in 32 bits, and a pool that believed in it would hand out memory that is not there.
TEST(FixedSizeMemPoolFailure, RegionThatIsTooLargeGivesBit2BecauseTheProductIsTakenIn64Bits)
{
    vxFixedSizeMemPool pool(0x80000000, 0x20000);
    EXPECT_EQ(2U, pool.getFlagError());
    EXPECT_EQ(nullptr, pool.getMemBase());
    EXPECT_NE(nullptr, pool.checkMap);
    EXPECT_NE(nullptr, pool.listLock);
    EXPECT_NE(nullptr, pool.availSem);
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_EQ(nullptr, pool.vxAlloc(-1));
    EXPECT_EQ(Refused, pool.vxFree(nullptr));
    EXPECT_EQ(Refused, pool.vxMemCheckIn(nullptr));
    EXPECT_EQ(0x20000U, pool.vxInitMemLists());
    EXPECT_EQ(0U, pool.getNodeCount());
}

// A lock that was not taken must not be used: two threads would hand out one block twice.
TEST(FixedSizeMemPoolFailure, ListLockIsTakenAgainAfterASignal)
{
    vxFixedSizeMemPool pool(8, 2);
    interrupted = pool.listLock;
    interruptions = 3;
    void *block = pool.vxAlloc(0);
    EXPECT_NE(nullptr, block);
    EXPECT_EQ(0, interruptions);
    EXPECT_EQ(0, semTake(pool.listLock, 0)); // it was taken and given once
    EXPECT_EQ(EAGAIN, semTake(pool.listLock, 0));
    semGive(pool.listLock);
    interruptions = 2;
    EXPECT_EQ(0U, pool.vxFree(block));
    EXPECT_EQ(0, interruptions);
    EXPECT_EQ(0, semTake(pool.listLock, 0));
    EXPECT_EQ(EAGAIN, semTake(pool.listLock, 0));
    semGive(pool.listLock);
}

TEST(FixedSizeMemPoolFailure, DestructorTakesBothSemaphoresAgainAfterASignal)
{
    for (int second = 0; second < 2; ++second) {
        auto pool = std::make_unique<vxFixedSizeMemPool>(8, 2);
        interrupted = second == 0 ? pool->listLock : pool->availSem;
        interruptions = 2;
        pool.reset();
        EXPECT_EQ(0, interruptions);
    }
}
