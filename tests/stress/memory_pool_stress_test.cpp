// Many threads on one pool.
#include "models/memory_pool_model.h"
#include "vxw_shim.h"

#include "harness/instrumented.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <random>
#include <thread>
#include <vector>

namespace
{
constexpr uint32_t Refused = 0xFFFFFFFF;
constexpr unsigned Threads = 8, BlockSize = 24;

// Who owns each block, so that a block handed out twice is seen at once.
class Owners
{
public:
    explicit Owners(const vxFixedSizeMemPool &pool) : pool_(pool), owners_(pool.blockCount) {}

    void take(const void *block, unsigned thread)
    {
        EXPECT_EQ(0U, of(block).exchange(thread + 1)) << "handed out twice";
    }
    void giveUp(const void *block, unsigned thread)
    {
        EXPECT_EQ(thread + 1, of(block).exchange(0));
    }

private:
    std::atomic<unsigned> &of(const void *block)
    {
        const auto offset = static_cast<const unsigned char *>(block) - pool_.memBase;
        EXPECT_EQ(0, offset % BlockSize);
        return owners_.at(static_cast<size_t>(offset) / BlockSize);
    }

    const vxFixedSizeMemPool &pool_;
    std::vector<std::atomic<unsigned>> owners_;
};

class Worker
{
public:
    Worker(vxFixedSizeMemPool &pool, Owners &owners, unsigned thread)
        : pool_(pool), owners_(owners), thread_(thread), random_(thread)
    {
    }

    // Holds at most one block at a time, so that a wait without limit always ends.
    void run(int rounds)
    {
        constexpr int Timeouts[] = {0, 0, 1, 2, -1, -1, -2, 6000, 214749};
        for (int i = 0; i < rounds; ++i) {
            const int timeout = Timeouts[below(std::size(Timeouts))];
            auto *block = static_cast<unsigned char *>(pool_.vxAlloc(timeout));
            if (block == nullptr) {
                EXPECT_NE(-1, timeout);
                // A minute: no thread is kept waiting so long. In the first minute of the tick clock one that was woken
                // for nothing gives up instead (RemainingTicks.NoneWhileTheClockIsBelowTheTimeOut).
                EXPECT_TRUE(timeout != 6000 || tickGet() < 6100);
                continue;
            }
            ++handedOut;
            owners_.take(block, thread_);
            memset(block, static_cast<int>(thread_), BlockSize);
            freeWhatIsNoBlock(block);
            for (unsigned byte = 0; byte < BlockSize; ++byte)
                ASSERT_EQ(thread_, block[byte]) << "somebody else wrote into the block";
            owners_.giveUp(block, thread_);
            ASSERT_EQ(0U, pool_.vxFree(block));
        }
    }

    int handedOut = 0;

private:
    size_t below(size_t limit)
    {
        return random_() % limit;
    }

    void freeWhatIsNoBlock(unsigned char *block)
    {
        const size_t region = size_t{BlockSize} * pool_.blockCount;
        unsigned char foreign[BlockSize];
        void *const hostile[] = {nullptr, foreign,          block + 1, block + BlockSize - 1, pool_.memBase + region,
                                 &pool_,  pool_.memBase + 1};
        EXPECT_EQ(Refused, pool_.vxFree(hostile[below(std::size(hostile))]));
    }

    vxFixedSizeMemPool &pool_;
    Owners &owners_;
    unsigned thread_;
    std::mt19937 random_;
};
} // namespace

TEST(MemoryPoolStress, EightThreadsNeverGetOneBlockTwice)
{
    const int rounds = scaled(100000);
    for (uint32_t blocks : {1U, 3U, 7U, 40U}) {
        vxFixedSizeMemPool pool(BlockSize, blocks);
        Owners owners(pool);
        std::vector<Worker> workers;
        for (unsigned i = 0; i < Threads; ++i)
            workers.emplace_back(pool, owners, i);
        std::vector<std::thread> threads;
        for (Worker &worker : workers)
            threads.emplace_back([&] { worker.run(rounds); });
        int handedOut = 0;
        for (unsigned i = 0; i < Threads; ++i) {
            threads[i].join();
            handedOut += workers[i].handedOut;
        }
        EXPECT_GT(handedOut, rounds);
        EXPECT_EQ(blocks, pool.getNodeCount());
        EXPECT_STREQ(nullptr, brokenInvariant(pool));
    }
}

// Two threads free the same block: one is right, the other is refused, and the block is in the list once.
TEST(MemoryPoolStress, RaceOfTwoFreesHasOneWinner)
{
    const int rounds = scaled(20000);
    vxFixedSizeMemPool pool(BlockSize, 2);
    void *block = nullptr;
    std::atomic<int> freed = 0;
    std::barrier together(2);
    const auto race = [&](bool allocates) {
        for (int round = 0; round < rounds; ++round) {
            if (allocates)
                block = pool.vxAlloc(0);
            together.arrive_and_wait();
            if (pool.vxFree(block) == 0)
                ++freed;
            together.arrive_and_wait();
        }
    };
    std::thread other(race, false);
    race(true);
    other.join();
    EXPECT_EQ(rounds, freed);
    EXPECT_EQ(2U, pool.getNodeCount());
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
}
