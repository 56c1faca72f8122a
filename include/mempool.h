/**
 * @file mempool.h
 * A pool of equal blocks from one region, with allocation that can wait until a block is freed.
 *
 * Results of this family:
 * 1. vxAlloc() and vxRemoveNode() return a block, or null.
 * 2. vxFree(), vxAddNode(), vxMemCheckIn() and vxMemCheckOut() return 0, or 0xFFFFFFFF when they refuse the pointer.
 * 3. getFlagError() says why a pool is not usable, as a sum of bits: 1 the block size is below 8, 2 no memory for the
 *    region, 4 no memory for the bitmap, 8 no list lock, 16 no semaphore for waiting. 0: the pool is usable.
 *
 * Nothing here prints. Time-outs are ticks of 10 ms; counts above 214748 (35 minutes) wrap in semTake(). A product of
 * ticks and 10,000 that is negative as a 32-bit number ends the wait at once.
 */
#ifndef MEMPOOL_H
#define MEMPOOL_H

#include <stddef.h>
#include <stdint.h>

#include "vxw_shim.h"

#pragma GCC visibility push(default)

/**
 * Hands out blocks of one size and takes them back, in constant time and without the heap.
 *
 * A block carries no header: the caller may use all of it. A free block holds, in its first 8 bytes, the address of the
 * next free one, most significant byte first; the last holds zeros. Each pointer that comes back is checked against the
 * region and a bitmap, so a foreign or misaligned pointer and a second free are refused and corrupt nothing.
 *
 * Calls that may run together: vxAlloc, vxFree and the four get calls, freely. With listLock held by the caller:
 * vxAddNode, vxRemoveNode, vxMemCheckIn, vxMemCheckOut, vxInitMemLists.
 */
class vxFixedSizeMemPool
{
public:
    /**
     * Builds a pool with all blocks free; getFlagError() says whether it worked.
     *
     * @param blockBytes  bytes in a block, at least 8
     * @param blocks      number of blocks; with 0 there is nothing to hand out and every pointer is refused
     * @blocking no    @locks nothing    @context any thread; allocates the region, the bitmap and two semaphores
     */
    vxFixedSizeMemPool(unsigned int blockBytes, unsigned int blocks);
    /** The pool owns its region; what was handed out points into it. */
    vxFixedSizeMemPool(const vxFixedSizeMemPool &) = delete;
    vxFixedSizeMemPool &operator=(const vxFixedSizeMemPool &) = delete;

    /**
     * Releases the region, the blocks that are still out included.
     *
     * It takes availSem once: while that is empty, that is when no block is free and waiting allocations have used up
     * the gives of earlier frees, it waits until a block is freed. Apart from such a vxFree() nobody may use the pool.
     * @blocking while availSem is empty    @locks both semaphores, and deletes them    @context any thread
     */
    ~vxFixedSizeMemPool();

    /**
     * Hands out a block, waiting for one to be freed if there is none.
     *
     * Allocation starts with the highest block, and the block freed last comes first. One free wakes one waiter; a
     * waiter that finds no block waits on for the rest of its time. In the first @p timeout ticks after boot, and
     * across the wrap of the tick clock, a waiter that was woken for nothing may give up early.
     *
     * @param timeout  ticks; 0 does not wait, -1 waits without limit, below -1 is as 0
     * @return a block, to be returned with vxFree(); null when none became free in time, when a signal handler ended
     *         the wait, or when the pool is not usable
     * @blocking unless timeout is 0    @locks listLock, not while it waits    @context any thread
     */
    void *vxAlloc(int timeout);

    /**
     * Takes a block back.
     *
     * @param block  from vxAlloc() of this pool. Anything else, null included, and a block that is free already are
     *               refused.
     * @retval 0           taken
     * @retval 0xFFFFFFFF  refused; or the pool is not usable
     * @blocking while others hold listLock    @locks listLock    @context any thread
     */
    uint32_t vxFree(void *block);

    /**
     * Puts every block into an emptied free list, block 0 first. The constructor calls it. The bitmap stays as it is,
     * so in a pool that is in use the blocks that were free are refused and are lost.
     *
     * @return the number of blocks of the pool
     * @blocking no    @locks caller holds listLock    @context any thread
     */
    uint32_t vxInitMemLists() KEL_REQUIRES(listLock);

    /**
     * Pushes a block onto the free list and gives availSem.
     *
     * @param block  one that is out
     * @retval 0           pushed
     * @retval 0xFFFFFFFF  vxMemCheckIn() refused it; or the list was full, and then the block stays marked as free
     * @blocking no    @locks caller holds listLock    @context any thread
     */
    uint32_t vxAddNode(unsigned char *block) KEL_REQUIRES(listLock);

    /**
     * Pops the block that was pushed last; with the last one, takes availSem back if it can be had at once.
     *
     * @return the block; null when there is none, or when the bitmap does not have it as free
     * @blocking no    @locks caller holds listLock    @context any thread
     */
    unsigned char *vxRemoveNode() KEL_REQUIRES(listLock);

    /**
     * Marks a block as free.
     *
     * @retval 0           marked
     * @retval 0xFFFFFFFF  not the start of a block of this pool, or free already
     * @blocking no    @locks caller holds listLock    @context any thread
     */
    uint32_t vxMemCheckIn(unsigned char *block) KEL_REQUIRES(listLock);

    /**
     * Marks the block that @p block points into as out; unlike vxMemCheckIn(), any byte of it will do.
     *
     * @retval 0           marked
     * @retval 0xFFFFFFFF  no block of this pool is marked as free there
     * @blocking no    @locks caller holds listLock    @context any thread
     */
    uint32_t vxMemCheckOut(unsigned char *block) KEL_REQUIRES(listLock);

    /** Returns the start of the region; null without one. @blocking no    @locks nothing    @context any thread */
    unsigned char *getMemBase();
    /** Returns the first free block, or null; may be old news. @blocking no    @locks nothing    @context any thread */
    unsigned char *getMemHeader();
    /** Returns the number of free blocks; may be old news. @blocking no    @locks nothing    @context any thread */
    uint32_t getNodeCount();
    /** Returns the error bits of the construction, 0 for none. @blocking no    @locks nothing    @context any thread */
    uint32_t getFlagError();

    unsigned char *memBase; /**< blockCount * blockSize bytes from malloc; owned, set once */
    unsigned char *checkMap KEL_PT_GUARDED_BY(listLock); /**< bit i % 8 (lowest first) of byte i / 8: block i is free */
    uint32_t checkMapSize;                               /**< bytes of checkMap; set once */
    SEM_ID listLock; /**< guards the free list, its count and checkMap's bytes; binary */
    SEM_ID availSem; /**< one give for each block that was freed; binary, not capped */
    unsigned char *freeHead KEL_GUARDED_BY(listLock); /**< first free block, or null; also read unlocked */
    uint32_t blockSize;                               /**< bytes in a block; set once */
    uint32_t blockCount;                              /**< blocks in the region; set once */
    uint32_t freeCount KEL_GUARDED_BY(listLock);      /**< blocks in the free list; also read unlocked */
    uint32_t flagError;                               /**< error bits of the construction; set once */
};

// Processes linked earlier rely on the layout: clients embed pools.
static_assert(sizeof(vxFixedSizeMemPool) == 64, "size of a pool");
static_assert(offsetof(vxFixedSizeMemPool, memBase) == 0, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, checkMap) == 8, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, checkMapSize) == 16, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, listLock) == 24, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, availSem) == 32, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, freeHead) == 40, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, blockSize) == 48, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, blockCount) == 52, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, freeCount) == 56, "layout of a pool");
static_assert(offsetof(vxFixedSizeMemPool, flagError) == 60, "layout of a pool");

#pragma GCC visibility pop

#endif
