// fixed_size_mem_pool.cpp: equal blocks from one region, with allocation that can wait.
//
// Policy:     the free list is a stack; at first the highest block is on top.
// Locking:    listLock guards the free list, its count and the bitmap. availSem counts gives, one for each block that
//             was freed; it is taken outside listLock, so a waiting allocation holds nothing.
// Invariants: bit i of checkMap is set exactly when block i is in the free list, which has freeCount blocks. The first
//             8 bytes of a free block hold the address of the next one, big-endian, or zeros.
// Cost:       one lock and a few instructions for each call; nothing allocates after construction.
#include "mempool.h"

#include "mempool/remaining_ticks.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/tick_deadline.h"
#include "vxw_shim/unlocked_access.h"

#include <endian.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

namespace
{
using mempool::nextWait;
using mempool::remainingTicks;
using vxw_shim::WaitForever;

constexpr uint32_t Done = 0, Refused = 0xFFFFFFFF;
constexpr uint32_t LinkBytes = 8;

enum : uint32_t { BlockTooSmall = 1, NoRegion = 2, NoBitmap = 4, NoListLock = 8, NoAvailSem = 16 };

// A take that a signal handler ended is taken again: these two semaphores keep memory safe, so a wait without limit
// must not come back empty-handed.
void takeForSure(SEM_ID sem)
{
    while (semTake(sem, WaitForever) == EINTR) {
    }
}

// Holds the list lock for a scope. The handle is copied: whoever destroys the pool may be waiting for the give.
class KEL_SCOPED_CAPABILITY ListLock
{
public:
    explicit ListLock(SEM_ID sem) KEL_ACQUIRE(sem) KEL_UNCHECKED_LOCKING : sem_(sem)
    {
        takeForSure(sem_);
    }
    ~ListLock() KEL_RELEASE() KEL_UNCHECKED_LOCKING
    {
        semGive(sem_);
    }
    ListLock(const ListLock &) = delete;
    ListLock &operator=(const ListLock &) = delete;

private:
    SEM_ID sem_;
};

void takeAndDelete(SEM_ID sem)
{
    if (sem == nullptr)
        return;
    takeForSure(sem);
    semDelete(sem);
}

void writeLink(unsigned char *block, const unsigned char *next)
{
    const uint64_t bigEndian = htobe64(reinterpret_cast<uintptr_t>(next));
    memcpy(block, &bigEndian, LinkBytes);
}

unsigned char *readLink(const unsigned char *block)
{
    uint64_t bigEndian;
    memcpy(&bigEndian, block, LinkBytes);
    return reinterpret_cast<unsigned char *>(static_cast<uintptr_t>(be64toh(bigEndian)));
}

// Bytes from the start of the region to `block`; a pointer below it gives a huge offset.
uint64_t offsetOf(const vxFixedSizeMemPool &pool, const unsigned char *block)
{
    return reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(pool.memBase);
}

// The number of the block that `block` points into, or blockCount for a pointer from elsewhere.
uint64_t indexOf(const vxFixedSizeMemPool &pool, const unsigned char *block)
{
    if (pool.memBase == nullptr || pool.checkMap == nullptr)
        return pool.blockCount;
    const uint64_t index = offsetOf(pool, block) / pool.blockSize;
    return index < pool.blockCount ? index : pool.blockCount;
}

unsigned char bitOf(uint64_t index)
{
    return static_cast<unsigned char>(1U << index % 8);
}
} // namespace

// The size product is taken in 64 bits, so a pool never believes in more memory than it has.
vxFixedSizeMemPool::vxFixedSizeMemPool(unsigned int blockBytes, unsigned int blocks)
    : memBase(nullptr), checkMap(nullptr), checkMapSize(0), listLock(nullptr), availSem(nullptr), freeHead(nullptr),
      blockSize(blockBytes), blockCount(blocks), freeCount(0), flagError(0)
{
    if (blockSize < LinkBytes) {
        flagError = BlockTooSmall;
        return;
    }
    memBase = static_cast<unsigned char *>(malloc(size_t{blockSize} * blockCount));
    if (memBase == nullptr)
        flagError |= NoRegion;
    checkMapSize = blockCount / 8 + 1;
    checkMap = static_cast<unsigned char *>(malloc(checkMapSize));
    if (checkMap == nullptr)
        flagError |= NoBitmap;
    listLock = semBCreate(SEM_Q_FIFO, SEM_FULL);
    if (listLock == nullptr)
        flagError |= NoListLock;
    availSem = semBCreate(SEM_Q_FIFO, SEM_FULL);
    if (availSem == nullptr)
        flagError |= NoAvailSem;
    if (memBase != nullptr && checkMap != nullptr) {
        memset(checkMap, 0, checkMapSize);
        vxInitMemLists();
    }
}

// While no block is free this waits for one, and it does so before anything is released: the thread that frees the
// block finds a whole pool, and has let go of it when the list lock can be taken.
//
// Kept: the semaphores are taken before they are deleted, so that a pool whose availSem is empty is not destroyed
// before a block is freed (FixedSizeMemPool.DestructionWaitsForAFreeWhenAvailSemIsEmpty).
vxFixedSizeMemPool::~vxFixedSizeMemPool()
{
    if (availSem != nullptr) {
        takeForSure(availSem);
        semGive(availSem);
    }
    free(memBase);
    free(checkMap);
    takeAndDelete(listLock);
    takeAndDelete(availSem);
}

// Kept: availSem is not capped at 1: with each free its count rises, and an allocation that finds no block first uses
// up what earlier frees have left there, without waiting, before it waits for the next one; its time-out counts all the
// while (FixedSizeMemPool.SurplusGivesAreUsedUpByAWaitingAllocation).
void *vxFixedSizeMemPool::vxAlloc(int timeout)
{
    if (flagError != 0)
        return nullptr;
    // Only a wait with a limit ever looks at its deadline, so only that one asks for the time.
    const uint32_t deadline = timeout > 0 ? static_cast<uint32_t>(timeout) + tickGet() : 0;
    uint32_t last = static_cast<uint32_t>(timeout);
    int wait = timeout;
    for (;;) {
        {
            const ListLock lock(listLock);
            if (unsigned char *block = vxRemoveNode()) {
                KEL_PROBE(pool_allocate, this, block);
                return block;
            }
        }
        if ((wait < 1 && wait != WAIT_FOREVER) || semTake(availSem, static_cast<uint32_t>(wait)) != 0) {
            KEL_PROBE(pool_fail, this, timeout);
            return nullptr;
        }
        if (wait == WAIT_FOREVER)
            continue;
        last = remainingTicks(deadline, last, tickGet());
        wait = nextWait(last, wait);
    }
}

uint32_t vxFixedSizeMemPool::vxFree(void *block)
{
    if (flagError != 0)
        return Refused;
    const ListLock lock(listLock);
    return vxAddNode(static_cast<unsigned char *>(block));
}

// Kept: the bitmap is not cleared here, so in a pool that is in use the blocks that were free are refused and lost
// (FixedSizeMemPool.InitInAPoolThatIsInUseTakesOnlyTheBlocksThatAreOut).
uint32_t vxFixedSizeMemPool::vxInitMemLists()
{
    writeUnlocked(freeHead, nullptr);
    writeUnlocked(freeCount, 0);
    for (uint32_t i = 0; memBase != nullptr && i < blockCount; ++i)
        vxAddNode(memBase + size_t{i} * blockSize);
    return blockCount;
}

// Kept: a block that is refused because the list is full stays marked as free
// (FixedSizeMemPool.AddToAFullListIsRefusedAndLeavesTheBitSet).
uint32_t vxFixedSizeMemPool::vxAddNode(unsigned char *block)
{
    if (vxMemCheckIn(block) != Done)
        return Refused;
    if (freeCount == blockCount)
        return Refused;
    writeLink(block, freeCount == 0 ? nullptr : freeHead);
    writeUnlocked(freeHead, block);
    writeUnlocked(freeCount, freeCount + 1);
    if (availSem != nullptr) // without one the pool is not usable, and nobody waits
        semGive(availSem);
    return Done;
}

unsigned char *vxFixedSizeMemPool::vxRemoveNode()
{
    if (freeCount == 0 || vxMemCheckOut(freeHead) != Done)
        return nullptr;
    unsigned char *block = freeHead;
    writeUnlocked(freeHead, readLink(block));
    writeUnlocked(freeCount, freeCount - 1);
    if (freeCount == 0)
        semTake(availSem, 0);
    return block;
}

uint32_t vxFixedSizeMemPool::vxMemCheckIn(unsigned char *block)
{
    const uint64_t index = indexOf(*this, block);
    if (index == blockCount || offsetOf(*this, block) % blockSize != 0)
        return Refused;
    unsigned char &bits = checkMap[index / 8];
    if ((bits & bitOf(index)) != 0)
        return Refused;
    bits |= bitOf(index);
    return Done;
}

// No test of the offset: any byte of a free block stands for the block.
uint32_t vxFixedSizeMemPool::vxMemCheckOut(unsigned char *block)
{
    const uint64_t index = indexOf(*this, block);
    if (index == blockCount)
        return Refused;
    unsigned char &bits = checkMap[index / 8];
    if ((bits & bitOf(index)) == 0)
        return Refused;
    bits &= static_cast<unsigned char>(~bitOf(index));
    return Done;
}

unsigned char *vxFixedSizeMemPool::getMemBase()
{
    return memBase;
}

KEL_UNCHECKED_LOCKING unsigned char *vxFixedSizeMemPool::getMemHeader()
{
    return readUnlocked(freeHead);
}

KEL_UNCHECKED_LOCKING uint32_t vxFixedSizeMemPool::getNodeCount()
{
    return readUnlocked(freeCount);
}

uint32_t vxFixedSizeMemPool::getFlagError()
{
    return flagError;
}
