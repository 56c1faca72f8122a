#include "mempool.h"

#include "models/memory_pool_model.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <type_traits>
#include <vector>

namespace
{
constexpr uint32_t Refused = 0xFFFFFFFF;

std::vector<void *> allOf(vxFixedSizeMemPool &pool)
{
    std::vector<void *> blocks;
    while (void *block = pool.vxAlloc(0))
        blocks.push_back(block);
    return blocks;
}

// A pointer that no object stands behind; only its value is used.
void *pointerAt(const void *base, std::ptrdiff_t offset)
{
    return reinterpret_cast<void *>(reinterpret_cast<intptr_t>(base) + offset);
}
} // namespace

TEST(FixedSizeMemPool, IsBuiltWithEveryBlockFree)
{
    vxFixedSizeMemPool pool(16, 20);
    EXPECT_EQ(0U, pool.getFlagError());
    EXPECT_EQ(20U, pool.getNodeCount());
    EXPECT_NE(nullptr, pool.getMemBase());
    EXPECT_EQ(pool.getMemBase() + 19 * 16, pool.getMemHeader());
    EXPECT_EQ(16U, pool.blockSize);
    EXPECT_EQ(20U, pool.blockCount);
    EXPECT_EQ(3U, pool.checkMapSize);
    EXPECT_EQ(0xFF, pool.checkMap[0]);
    EXPECT_EQ(0xFF, pool.checkMap[1]);
    EXPECT_EQ(0x0F, pool.checkMap[2]); // lowest bit first
    EXPECT_EQ(1, pool.listLock->kind);
    EXPECT_EQ(1, pool.availSem->kind);
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}

TEST(FixedSizeMemPool, BitmapHasOneByteMoreThanFullBytes)
{
    EXPECT_EQ(1U, vxFixedSizeMemPool(8, 7).checkMapSize);
    EXPECT_EQ(2U, vxFixedSizeMemPool(8, 8).checkMapSize);
    EXPECT_EQ(2U, vxFixedSizeMemPool(8, 15).checkMapSize);
}

TEST(FixedSizeMemPool, IsNotCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<vxFixedSizeMemPool>);
    EXPECT_FALSE(std::is_copy_assignable_v<vxFixedSizeMemPool>);
    EXPECT_FALSE(std::is_polymorphic_v<vxFixedSizeMemPool>);
}

TEST(FixedSizeMemPool, ThreeBlocksAreHandedOutFromTheHighestDownAndTheFourthIsNull)
{
    vxFixedSizeMemPool pool(8, 3);
    EXPECT_EQ(pool.getMemBase() + 16, pool.vxAlloc(0));
    EXPECT_EQ(pool.getMemBase() + 8, pool.vxAlloc(0));
    EXPECT_EQ(pool.getMemBase(), pool.vxAlloc(0));
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_EQ(nullptr, pool.getMemHeader());
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
    EXPECT_EQ(0U, pool.getNodeCount());
}

TEST(FixedSizeMemPool, BlockFreedLastComesFirst)
{
    vxFixedSizeMemPool pool(8, 3);
    const std::vector<void *> blocks = allOf(pool);
    EXPECT_EQ(0U, pool.vxFree(blocks[1]));
    EXPECT_EQ(0U, pool.vxFree(blocks[0]));
    EXPECT_EQ(blocks[0], pool.vxAlloc(0));
    EXPECT_EQ(blocks[1], pool.vxAlloc(0));
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
}

TEST(FixedSizeMemPool, FreeBlocksAreLinkedBigEndianAndTheLastHoldsZeros)
{
    vxFixedSizeMemPool pool(8, 3);
    const unsigned char *base = pool.getMemBase();
    const auto next = reinterpret_cast<uintptr_t>(base + 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(static_cast<unsigned char>(next >> (56 - 8 * i)), base[16 + i]) << "byte " << i;
    EXPECT_EQ(base, linkOf(base + 8));
    const unsigned char zeros[8] = {};
    EXPECT_EQ(0, memcmp(base, zeros, sizeof zeros));
}

// Whatever a careless caller wrote into the last free block, the next list does not go on there.
TEST(FixedSizeMemPool, FirstBlockOfAnEmptyListHoldsZeros)
{
    vxFixedSizeMemPool pool(8, 2);
    memset(pool.getMemBase(), 0x41, 8);
    void *block = allOf(pool)[0];
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_EQ(0U, pool.vxFree(block));
    EXPECT_EQ(nullptr, linkOf(static_cast<unsigned char *>(block)));
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}

TEST(FixedSizeMemPool, BlocksNeedNoAlignment)
{
    vxFixedSizeMemPool pool(9, 17);
    const std::vector<void *> blocks = allOf(pool);
    EXPECT_EQ(17U, blocks.size());
    for (void *block : blocks)
        memset(block, 0xA5, 9); // all of it is the caller's
    for (void *block : blocks)
        EXPECT_EQ(0U, pool.vxFree(block));
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
    EXPECT_EQ(17U, allOf(pool).size());
}

TEST(FixedSizeMemPool, SecondFreeOfABlockIsRefusedAndTheCountStays)
{
    vxFixedSizeMemPool pool(8, 3);
    void *block = pool.vxAlloc(0);
    EXPECT_EQ(0U, pool.vxFree(block));
    EXPECT_EQ(3U, pool.getNodeCount());
    EXPECT_EQ(Refused, pool.vxFree(block));
    EXPECT_EQ(3U, pool.getNodeCount());
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}

TEST(FixedSizeMemPool, SecondFreeIsRefusedAlsoWhenOtherBlocksAreOut)
{
    vxFixedSizeMemPool pool(8, 3);
    const std::vector<void *> blocks = allOf(pool);
    EXPECT_EQ(0U, pool.vxFree(blocks[1]));
    EXPECT_EQ(Refused, pool.vxFree(blocks[1]));
    EXPECT_EQ(1U, pool.getNodeCount());
}

TEST(FixedSizeMemPool, PointersFromElsewhereAreRefusedAndChangeNothing)
{
    vxFixedSizeMemPool pool(16, 4);
    vxFixedSizeMemPool other(16, 4);
    unsigned char *base = pool.getMemBase();
    allOf(pool);
    allOf(other);
    unsigned char onTheStack[16] = {};
    EXPECT_EQ(Refused, pool.vxFree(nullptr));
    EXPECT_EQ(Refused, pool.vxFree(onTheStack));
    EXPECT_EQ(Refused, pool.vxFree(&pool));
    EXPECT_EQ(Refused, pool.vxFree(other.getMemBase()));
    EXPECT_EQ(Refused, pool.vxFree(base + 64)); // one block past the end
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(base, 80)));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(base, -16)));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(base, -1)));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(nullptr, -1)));
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}

TEST(FixedSizeMemPool, MisalignedPointersAreRefusedAndChangeNothing)
{
    vxFixedSizeMemPool pool(16, 4);
    unsigned char *base = pool.getMemBase();
    allOf(pool);
    for (std::ptrdiff_t offset = 0; offset < 64; ++offset) {
        if (offset % 16 != 0) {
            EXPECT_EQ(Refused, pool.vxFree(base + offset)) << offset;
        }
    }
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
    EXPECT_EQ(0U, pool.vxFree(base + 48)); // the last block is one
}

TEST(FixedSizeMemPool, NoBlocksRefusesEveryPointer)
{
    vxFixedSizeMemPool pool(8, 0);
    EXPECT_EQ(0U, pool.getFlagError());
    EXPECT_EQ(0U, pool.getNodeCount());
    EXPECT_EQ(1U, pool.checkMapSize);
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
    EXPECT_EQ(Refused, pool.vxFree(pool.getMemBase()));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(pool.getMemBase(), 8)));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(pool.getMemBase(), -8)));
    EXPECT_EQ(Refused, pool.vxFree(nullptr));
    EXPECT_EQ(Refused, pool.vxFree(pointerAt(nullptr, -1)));
    EXPECT_EQ(0, pool.checkMap[0]);
}

TEST(FixedSizeMemPool, AddToAFullListIsRefusedAndLeavesTheBitSet)
{
    vxFixedSizeMemPool pool(8, 3);
    unsigned char *block = pool.getMemBase() + 8;
    EXPECT_EQ(0U, pool.vxMemCheckOut(block)); // behind the list's back
    EXPECT_EQ(Refused, pool.vxFree(block));
    EXPECT_EQ(3U, pool.getNodeCount());
    EXPECT_EQ(0x07, pool.checkMap[0]);
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}

TEST(FixedSizeMemPool, CheckInMarksTheBlockOnce)
{
    vxFixedSizeMemPool pool(8, 12);
    allOf(pool);
    EXPECT_EQ(0U, pool.vxMemCheckIn(pool.getMemBase() + 8 * 9));
    EXPECT_EQ(0x02, pool.checkMap[1]);
    EXPECT_EQ(Refused, pool.vxMemCheckIn(pool.getMemBase() + 8 * 9));
    EXPECT_EQ(Refused, pool.vxMemCheckIn(pool.getMemBase() + 8 * 9 + 1));
    EXPECT_EQ(Refused, pool.vxMemCheckIn(pool.getMemBase() + 8 * 12));
    EXPECT_EQ(Refused, pool.vxMemCheckIn(nullptr));
    EXPECT_EQ(0x00, pool.checkMap[0]);
    EXPECT_EQ(0x02, pool.checkMap[1]);
}

TEST(FixedSizeMemPool, CheckOutTakesAnyByteOfABlockAndNothingFromElsewhere)
{
    vxFixedSizeMemPool pool(8, 12);
    EXPECT_EQ(0U, pool.vxMemCheckOut(pool.getMemBase() + 8 * 9 + 3));
    EXPECT_EQ(0x0D, pool.checkMap[1]);
    EXPECT_EQ(Refused, pool.vxMemCheckOut(pool.getMemBase() + 8 * 9));
    EXPECT_EQ(Refused, pool.vxMemCheckOut(pool.getMemBase() + 8 * 12));
    EXPECT_EQ(Refused, pool.vxMemCheckOut(static_cast<unsigned char *>(pointerAt(pool.getMemBase(), 8 * 16))));
    EXPECT_EQ(Refused, pool.vxMemCheckOut(static_cast<unsigned char *>(pointerAt(pool.getMemBase(), 1 << 30))));
    EXPECT_EQ(Refused, pool.vxMemCheckOut(static_cast<unsigned char *>(pointerAt(pool.getMemBase(), -1))));
    EXPECT_EQ(Refused, pool.vxMemCheckOut(nullptr));
    EXPECT_EQ(0xFF, pool.checkMap[0]);
    EXPECT_EQ(0x0D, pool.checkMap[1]);
}

TEST(FixedSizeMemPool, RemoveLeavesTheListAsItIsWhenTheBitmapDisagrees)
{
    vxFixedSizeMemPool pool(8, 3);
    EXPECT_EQ(0U, pool.vxMemCheckOut(pool.getMemHeader()));
    EXPECT_EQ(nullptr, pool.vxRemoveNode());
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
    EXPECT_EQ(3U, pool.getNodeCount());
    EXPECT_EQ(pool.getMemBase() + 16, pool.getMemHeader());
}

// A caller that writes into a block after freeing it breaks the link; nothing outside the pool is handed out for it.
TEST(FixedSizeMemPool, LinkThatLeadsElsewhereEndsTheList)
{
    vxFixedSizeMemPool pool(8, 3);
    memset(pool.getMemHeader(), 0x41, 8);
    EXPECT_EQ(pool.getMemBase() + 16, pool.vxAlloc(0));
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
    EXPECT_EQ(2U, pool.getNodeCount());
}

TEST(FixedSizeMemPool, AddAndRemoveWorkOnTheTopOfTheList)
{
    vxFixedSizeMemPool pool(8, 2);
    unsigned char *block = pool.vxRemoveNode();
    EXPECT_EQ(pool.getMemBase() + 8, block);
    EXPECT_EQ(0U, pool.vxAddNode(block));
    EXPECT_EQ(Refused, pool.vxAddNode(block));
    EXPECT_EQ(block, pool.vxRemoveNode());
    EXPECT_EQ(pool.getMemBase(), pool.vxRemoveNode());
    EXPECT_EQ(nullptr, pool.vxRemoveNode());
}

TEST(FixedSizeMemPool, InitInAPoolThatIsInUseTakesOnlyTheBlocksThatAreOut)
{
    vxFixedSizeMemPool pool(8, 3);
    void *block = pool.vxAlloc(0);
    EXPECT_EQ(3U, pool.vxInitMemLists());
    EXPECT_EQ(1U, pool.getNodeCount());
    EXPECT_EQ(block, pool.getMemHeader());
    EXPECT_EQ(0x07, pool.checkMap[0]);
    EXPECT_EQ(block, pool.vxAlloc(0));
    EXPECT_EQ(nullptr, pool.vxAlloc(0));
}

// A count of 1 when it is built full, one more for each block, and one less when the last block is taken.
TEST(FixedSizeMemPool, AvailSemCountsEveryAddAndIsNotCappedAt1)
{
    vxFixedSizeMemPool pool(8, 3);
    allOf(pool);
    for (int left = 3; left > 0; --left)
        EXPECT_EQ(0, semTake(pool.availSem, 0));
    EXPECT_EQ(EAGAIN, semTake(pool.availSem, 0));
    semGive(pool.availSem);
}

TEST(FixedSizeMemPool, LastBlockTakesAvailSemBackOnlyIfItCanBeHadAtOnce)
{
    vxFixedSizeMemPool pool(8, 1);
    while (semTake(pool.availSem, 0) == 0) {
    }
    EXPECT_NE(nullptr, pool.vxAlloc(0)); // does not wait for availSem
    semGive(pool.availSem);              // for the destructor
}

TEST(FixedSizeMemPool, BlockSizeBelow8GivesErrorBit1AndAPoolThatRefusesEverything)
{
    for (unsigned size : {7U, 1U, 0U}) {
        vxFixedSizeMemPool pool(size, 10);
        EXPECT_EQ(1U, pool.getFlagError());
        EXPECT_EQ(nullptr, pool.getMemBase());
        EXPECT_EQ(nullptr, pool.checkMap);
        EXPECT_EQ(0U, pool.checkMapSize);
        EXPECT_EQ(nullptr, pool.listLock);
        EXPECT_EQ(nullptr, pool.availSem);
        EXPECT_EQ(size, pool.blockSize);
        EXPECT_EQ(10U, pool.blockCount);
        EXPECT_EQ(nullptr, pool.vxAlloc(0));
        EXPECT_EQ(nullptr, pool.vxAlloc(-1)); // does not wait for what never comes
        unsigned char block[8] = {};
        for (unsigned char *pointer : {static_cast<unsigned char *>(nullptr), block}) {
            EXPECT_EQ(Refused, pool.vxFree(pointer));
            EXPECT_EQ(Refused, pool.vxAddNode(pointer));
            EXPECT_EQ(Refused, pool.vxMemCheckIn(pointer));
            EXPECT_EQ(Refused, pool.vxMemCheckOut(pointer));
        }
        EXPECT_EQ(nullptr, pool.vxRemoveNode());
        EXPECT_EQ(10U, pool.vxInitMemLists());
        EXPECT_EQ(0U, pool.getNodeCount());
        EXPECT_EQ(nullptr, pool.getMemHeader());
    }
}

TEST(FixedSizeMemPool, BlockSizeOf8IsTheSmallest)
{
    EXPECT_EQ(0U, vxFixedSizeMemPool(8, 1).getFlagError());
}
