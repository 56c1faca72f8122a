#include "models/memory_pool_model.h"

#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

TEST(MemoryPoolModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 1000; ++seed) {
        SeededChooser choose(seed);
        MemoryPoolProgram program(choose);
        for (int step = 0; step < 200; ++step)
            ASSERT_STREQ(nullptr, program.step(choose)) << "seed " << seed << ", step " << step;
    }
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
