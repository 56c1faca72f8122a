// mempool_faults.cpp: the fixed-size pool under faults.
//
// The pool's list lock is a semaphore that is given once for each take. sem_post() fails at the highest count only, so
// a give of the lock cannot fail and is spared here; those of availSem, whose count rises with each free, can.
#include "fault_table.h"

#include "mempool.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>

using namespace faults;

namespace
{
constexpr uint32_t Refused = 0xFFFFFFFF;

// The flag bit of the nth allocation: the region, the bitmap, and a record and a count for each semaphore.
uint32_t flagsOf(Injection &injection)
{
    const uint32_t ofAllocation[] = {2, 4, 8, 8, 16, 16};
    if (injection.failed(Call::SemInit))
        return injection.nth() == 2 ? 16 : injection.fromThenOn() ? 24 : 8;
    if (!injection.failed(Call::Allocate))
        return 0;
    uint32_t flags = ofAllocation[injection.nth() - 1];
    for (int i = injection.nth(); injection.fromThenOn() && i < 6; ++i)
        flags |= ofAllocation[i];
    return flags;
}

void constructs(Injection &injection)
{
    alignas(vxFixedSizeMemPool) unsigned char memory[sizeof(vxFixedSizeMemPool)];
    auto *pool = injection.during([&] { return new (memory) vxFixedSizeMemPool(8, 3); });
    ASSERT_NE(nullptr, pool);
    const uint32_t flags = flagsOf(injection);
    EXPECT_EQ(flags, pool->getFlagError());
    void *block = pool->vxAlloc(0);
    EXPECT_EQ(flags != 0, block == nullptr);
    EXPECT_EQ(flags != 0 ? Refused : 0, pool->vxFree(block != nullptr ? block : pool->getMemBase()));
    EXPECT_TRUE(pool->listLock == nullptr || isFree(pool->listLock));
    pool->~vxFixedSizeMemPool();
}

void allocates(Injection &injection)
{
    vxFixedSizeMemPool pool(8, 2);
    injection.sparing(pool.listLock);
    void *blocks[3] = {};
    injection.during([&] {
        blocks[0] = pool.vxAlloc(0);
        blocks[1] = pool.vxAlloc(100);
        blocks[2] = pool.vxAlloc(1); // uses up what the first gives left, then finds none
    });
    EXPECT_NE(nullptr, blocks[0]);
    EXPECT_NE(nullptr, blocks[1]);
    EXPECT_EQ(nullptr, blocks[2]);
    EXPECT_TRUE(isFree(pool.listLock));
    EXPECT_EQ(0U, pool.vxFree(blocks[0]));
    EXPECT_EQ(0U, pool.vxFree(blocks[1]));
    EXPECT_EQ(2U, pool.getNodeCount());
}

// A give that is lost costs a waiter its wake-up, and no block.
void frees(Injection &injection)
{
    vxFixedSizeMemPool pool(8, 2);
    injection.sparing(pool.listLock);
    void *block = pool.vxAlloc(0);
    uint32_t results[2] = {};
    injection.during([&] {
        results[0] = pool.vxFree(block);
        results[1] = pool.vxFree(block);
    });
    EXPECT_EQ(0U, results[0]);
    EXPECT_EQ(Refused, results[1]);
    EXPECT_EQ(2U, pool.getNodeCount());
    EXPECT_TRUE(isFree(pool.listLock));
}

void movesNodes(Injection &injection)
{
    vxFixedSizeMemPool pool(8, 2);
    uint32_t added = Refused;
    unsigned char *block = nullptr;
    injection.during([&]() KEL_UNCHECKED_LOCKING {
        EXPECT_EQ(0U, pool.vxMemCheckOut(pool.getMemBase()));
        EXPECT_EQ(0U, pool.vxMemCheckIn(pool.getMemBase()));
        block = pool.vxRemoveNode();
        added = pool.vxAddNode(block);
        EXPECT_EQ(2U, pool.vxInitMemLists()); // every block is refused: all are marked as free
    });
    EXPECT_NE(nullptr, block);
    EXPECT_EQ(0U, added);
    EXPECT_EQ(0U, pool.getNodeCount());
}

void looks(Injection &injection)
{
    vxFixedSizeMemPool pool(8, 2);
    injection.during([&] {
        EXPECT_NE(nullptr, pool.getMemBase());
        EXPECT_NE(nullptr, pool.getMemHeader());
        EXPECT_EQ(2U, pool.getNodeCount());
        EXPECT_EQ(0U, pool.getFlagError());
    });
}

// The destructor takes availSem and gives it back before it takes it for good; the count here is above 1.
void destroys(Injection &injection)
{
    auto pool = std::make_unique<vxFixedSizeMemPool>(8, 2);
    injection.during([&] { pool.reset(); });
}

const Row rows[] = {
    {"vxFixedSizeMemPool::vxFixedSizeMemPool(unsigned int, unsigned int)", constructs},
    {"vxFixedSizeMemPool::vxAlloc(int)", allocates},
    {"vxFixedSizeMemPool::vxFree(void*)", frees},
    {"vxFixedSizeMemPool::vxAddNode(unsigned char*)\n"
     "vxFixedSizeMemPool::vxRemoveNode()\n"
     "vxFixedSizeMemPool::vxMemCheckIn(unsigned char*)\n"
     "vxFixedSizeMemPool::vxMemCheckOut(unsigned char*)\n"
     "vxFixedSizeMemPool::vxInitMemLists()",
     movesNodes},
    {"vxFixedSizeMemPool::getMemBase()\n"
     "vxFixedSizeMemPool::getMemHeader()\n"
     "vxFixedSizeMemPool::getNodeCount()\n"
     "vxFixedSizeMemPool::getFlagError()",
     looks, Row::ReachesNothing},
    {"vxFixedSizeMemPool::~vxFixedSizeMemPool()", destroys},
};
} // namespace

TEST(FixedSizeMemPoolFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
