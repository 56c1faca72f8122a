#include "models/memory_pool_model.h"

#include <gtest/gtest.h>

#include <random>

namespace
{
// Random allocations and frees, honest and hostile, on a pool and its model.
const char *differenceAfterProgram(unsigned seed)
{
    std::mt19937 random(seed);
    const auto below = [&](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    PoolAndModel both(static_cast<uint32_t>(8 + below(25)), static_cast<uint32_t>(below(40)));
    const size_t region = size_t{both.pool.blockSize} * both.pool.blockCount;
    unsigned char foreign[16] = {};

    for (int step = 0; step < 200; ++step) {
        switch (below(8)) {
        case 0:
        case 1:
        case 2:
            both.alloc(0);
            break;
        case 3:
        case 4:
            if (!both.blocksOut().empty())
                both.free(below(both.blocksOut().size()));
            break;
        case 5: // free already
            if (!both.freeBlocks().empty())
                both.freeRefused(both.addressOf(both.freeBlocks()[below(both.freeBlocks().size())]));
            break;
        case 6: { // anywhere inside, but not at the start of a block
            const size_t offset = region == 0 ? 0 : below(region);
            if (region == 0 || offset % both.pool.blockSize != 0)
                both.freeRefused(both.pool.memBase + offset);
            break;
        }
        default: { // outside
            unsigned char *base = both.pool.memBase;
            const auto address = reinterpret_cast<uintptr_t>(base);
            void *const outside[] = {nullptr,
                                     foreign,
                                     base + region,
                                     reinterpret_cast<void *>(address - both.pool.blockSize),
                                     reinterpret_cast<void *>(address + region + both.pool.blockSize),
                                     reinterpret_cast<void *>(UINTPTR_MAX)};
            both.freeRefused(outside[below(std::size(outside))]);
        }
        }
        if (const char *difference = both.differs())
            return difference;
    }
    return nullptr;
}
} // namespace

TEST(MemoryPoolModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 1000; ++seed)
        ASSERT_STREQ(nullptr, differenceAfterProgram(seed)) << "seed " << seed;
}

// The same comparison must see each kind of damage, or the test above proves nothing.
TEST(MemoryPoolModel, NoticesABlockTakenBehindItsBack)
{
    PoolAndModel both(16, 5);
    ASSERT_STREQ(nullptr, both.differs());
    both.pool.vxAlloc(0);
    EXPECT_STREQ("the count is that of the model", both.differs());
}

TEST(MemoryPoolModel, NoticesBlocksInAnotherOrder)
{
    PoolAndModel both(16, 5);
    void *first = both.pool.vxAlloc(0);
    void *second = both.pool.vxAlloc(0);
    both.pool.vxFree(first);
    both.pool.vxFree(second);
    EXPECT_STREQ("the free list has the order of the model", both.differs());
}

TEST(MemoryPoolModel, NoticesAWriteIntoABlockThatIsOut)
{
    PoolAndModel both(16, 5);
    both.alloc(0);
    both.addressOf(4)[15] ^= 1;
    EXPECT_STREQ("a block that is out is left alone", both.differs());
}

TEST(MemoryPoolModel, NoticesAWrongBlock)
{
    PoolAndModel both(16, 5);
    both.pool.vxAlloc(0);
    both.alloc(0);
    EXPECT_STREQ("the block freed last is handed out first", both.differs());
}

TEST(MemoryPoolInvariants, EachIsMissedByName)
{
    const auto brokenBy = [](auto damage) {
        vxFixedSizeMemPool pool(16, 20);
        damage(pool);
        return brokenInvariant(pool);
    };
    EXPECT_STREQ(nullptr, brokenBy([](vxFixedSizeMemPool &) {}));
    EXPECT_STREQ("as many bits are set as blocks are free",
                 brokenBy([](vxFixedSizeMemPool &pool) { pool.checkMap[1] ^= 1; }));
    EXPECT_STREQ("as many bits are set as blocks are free",
                 brokenBy([](vxFixedSizeMemPool &pool) { --pool.freeCount; }));
    EXPECT_STREQ("freeHead is null when nothing is free", brokenBy([](vxFixedSizeMemPool &pool) {
                     pool.freeCount = 0;
                     memset(pool.checkMap, 0, pool.checkMapSize);
                 }));
    EXPECT_STREQ("the free list leads through blocks of the pool",
                 brokenBy([](vxFixedSizeMemPool &pool) { pool.freeHead += 1; }));
    EXPECT_STREQ("the free list leads through blocks of the pool",
                 brokenBy([](vxFixedSizeMemPool &pool) { memset(pool.memBase + 32, 0xFF, 8); }));
    EXPECT_STREQ("the bit of each block in the free list is set", brokenBy([](vxFixedSizeMemPool &pool) {
                     pool.checkMap[0] ^= 1;
                     pool.checkMap[2] ^= 1 << 4;
                 }));
    EXPECT_STREQ("the last free block holds zeros", brokenBy([](vxFixedSizeMemPool &pool) { pool.memBase[7] = 1; }));
}
