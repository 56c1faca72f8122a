// Waiting for a block: every kind of time-out, several waiters, signals, and the end of a pool whose blocks are out.
#include "mempool.h"

#include "harness/time_of.h"
#include "models/memory_pool_model.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

namespace
{
void drain(SEM_ID sem)
{
    while (semTake(sem, 0) == 0) {
    }
}

// A pool with every block out and nothing left in availSem, so that an allocation really waits.
class EmptyPool : public testing::Test
{
protected:
    explicit EmptyPool(unsigned int blocks = 3) : pool(16, blocks)
    {
        while (void *block = pool.vxAlloc(0))
            out.push_back(block);
        drain(pool.availSem);
    }
    ~EmptyPool() override
    {
        semGive(pool.availSem);
    } // so that the destructor does not wait

    vxFixedSizeMemPool pool;
    std::vector<void *> out;
};

// Below its own time-out, the tick clock makes a waiter that is woken for nothing give up
// (RemainingTicks.NoneWhileTheClockIsBelowTheTimeOut): 0.1 s after boot, and every 497 days. Waits until the clock is
// past those ticks, also when it is about to reach them.
void leaveTheFirstTicksOfTheClock()
{
    constexpr uint32_t soon = 100;
    while (tickGet() + soon < soon + 20)
        taskDelay(1);
}

constexpr auto JustBelow(int ticks)
{
    return std::chrono::milliseconds(10 * ticks - 1); // 1 ms for the two clocks
}
} // namespace

TEST_F(EmptyPool, TimeOutOf0ReturnsNullAtOnce)
{
    EXPECT_LT(timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(0)); }), 5s);
}

TEST_F(EmptyPool, TimeOutOf5TicksReturnsNullAfterThem)
{
    const auto waited = timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(5)); });
    EXPECT_GE(waited, JustBelow(5));
    EXPECT_LT(waited, 5s);
}

TEST_F(EmptyPool, NegativeTimeOutOtherThanMinus1DoesNotWait)
{
    EXPECT_LT(timeOf([&] {
                  EXPECT_EQ(nullptr, pool.vxAlloc(-2));
                  EXPECT_EQ(nullptr, pool.vxAlloc(INT32_MIN));
              }),
              5s);
}

// 214749 ticks times 10,000 is negative as a 32-bit number, a deadline in the past.
TEST_F(EmptyPool, TickProductThatIsNegativeEndsTheWaitAtOnce)
{
    EXPECT_LT(timeOf([&] {
                  EXPECT_EQ(nullptr, pool.vxAlloc(214749));
                  EXPECT_EQ(nullptr, pool.vxAlloc(400000));
              }),
              5s);
}

TEST_F(EmptyPool, TickProductThatIsNegativeStillTakesABlockThatIsFree)
{
    pool.vxFree(out[1]);
    EXPECT_EQ(out[1], pool.vxAlloc(214749));
}

// Far above 214749 ticks: of those, no more than 214748 are left after a tick, which is a wait of 35 minutes.
TEST_F(EmptyPool, TickProductThatIsNegativeUsesUpTheSurplusAndEnds)
{
    for (int i = 0; i < 1000; ++i)
        semGive(pool.availSem);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(300000)); }), 5s);
}

TEST_F(EmptyPool, WaitWithoutLimitEndsWhenAnotherThreadFreesABlock)
{
    std::thread freeing([&] { pool.vxFree(out[2]); });
    EXPECT_EQ(out[2], pool.vxAlloc(-1));
    freeing.join();
}

TEST_F(EmptyPool, TimedWaitEndsWhenAnotherThreadFreesABlock)
{
    std::thread freeing([&] { pool.vxFree(out[0]); });
    EXPECT_LT(timeOf([&] { EXPECT_EQ(out[0], pool.vxAlloc(6000)); }), 50s);
    freeing.join();
}

// What a waiter sees that was woken but came too late for the block.
TEST_F(EmptyPool, WaiterWokenForNothingWaitsForTheRestOfItsTime)
{
    leaveTheFirstTicksOfTheClock();
    semGive(pool.availSem);
    semGive(pool.availSem);
    const auto waited = timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(10)); });
    EXPECT_GE(waited, JustBelow(9)); // the deadline is in whole ticks
    EXPECT_LT(waited, 5s);
}

TEST(FixedSizeMemPool, SurplusGivesAreUsedUpByAWaitingAllocation)
{
    vxFixedSizeMemPool pool(8, 1);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(0U, pool.vxFree(pool.vxAlloc(0)));
    void *block = pool.vxAlloc(0);
    EXPECT_EQ(0, semTake(pool.availSem, 0)); // though no block is free
    semGive(pool.availSem);

    leaveTheFirstTicksOfTheClock();
    const auto waited = timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(5)); });
    EXPECT_GE(waited, JustBelow(4)); // the time-out counts while they are used up
    EXPECT_LT(waited, 5s);
    EXPECT_EQ(EAGAIN, semTake(pool.availSem, 0));
    pool.vxFree(block);
}

// More gives than can be used up in the time: the deadline is honoured all the same.
TEST_F(EmptyPool, SurplusThatKeepsGrowingDoesNotOutlastTheDeadline)
{
    std::atomic<bool> stop = false;
    for (int i = 0; i < 100000; ++i)
        semGive(pool.availSem);
    std::thread giving([&] {
        while (!stop)
            semGive(pool.availSem);
    });
    leaveTheFirstTicksOfTheClock();
    const auto waited = timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(5)); });
    stop = true;
    giving.join();
    EXPECT_GE(waited, JustBelow(4));
    EXPECT_LT(waited, 5s);
}

TEST_F(EmptyPool, EachWaiterHasItsOwnDeadline)
{
    std::vector<std::chrono::steady_clock::duration> waited(4);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back(
            [&, i] { waited[static_cast<size_t>(i)] = timeOf([&] { EXPECT_EQ(nullptr, pool.vxAlloc(3 * i + 2)); }); });
    for (std::thread &waiter : waiters)
        waiter.join();
    for (int i = 0; i < 4; ++i) {
        EXPECT_GE(waited[static_cast<size_t>(i)], JustBelow(3 * i + 2));
        EXPECT_LT(waited[static_cast<size_t>(i)], 5s);
    }
}

TEST_F(EmptyPool, OneFreeServesOneOfSeveralWaiters)
{
    constexpr int Waiters = 6;
    std::atomic<int> served = 0;
    SEM_ID oneServed = semCCreate(0, 0);
    std::vector<std::thread> waiters;
    for (int i = 0; i < Waiters; ++i)
        waiters.emplace_back([&, i] {
            EXPECT_NE(nullptr, pool.vxAlloc(i % 2 == 0 ? -1 : 6000)); // never given back
            ++served;
            semGive(oneServed);
        });
    for (int i = 1; i <= static_cast<int>(out.size()); ++i) {
        EXPECT_EQ(0U, pool.vxFree(out[static_cast<size_t>(i - 1)]));
        EXPECT_EQ(0, semTake(oneServed, 0xFFFFFFFF));
        EXPECT_EQ(i, served);
        EXPECT_EQ(0U, pool.getNodeCount());
    }
    for (int i = static_cast<int>(out.size()); i < Waiters; ++i) { // the blocks went round; serve the rest
        EXPECT_EQ(0U, pool.vxFree(out[static_cast<size_t>(i) - out.size()]));
        EXPECT_EQ(0, semTake(oneServed, 0xFFFFFFFF));
    }
    for (std::thread &waiter : waiters)
        waiter.join();
    EXPECT_EQ(Waiters, served);
    semDelete(oneServed);
}

TEST_F(EmptyPool, SignalHandlerEndsTheWaitAndItIsNotRestarted)
{
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) {}; // without SA_RESTART, by which the kernel would go on waiting itself
    sigaction(SIGUSR1, &action, &before);
    for (int timeout : {-1, 6000}) {
        std::atomic<bool> ended = false;
        std::thread waiter([&] {
            EXPECT_EQ(nullptr, pool.vxAlloc(timeout));
            ended = true;
        });
        while (!ended) { // until one has found it waiting
            pthread_kill(waiter.native_handle(), SIGUSR1);
            std::this_thread::yield();
        }
        waiter.join();
    }
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(FixedSizeMemPool, DestructionDoesNotWaitWhileGivesOfEarlierFreesAreLeft)
{
    auto pool = std::make_unique<vxFixedSizeMemPool>(8, 3);
    while (pool->vxAlloc(0) != nullptr) {
    }
    EXPECT_LT(timeOf([&] { pool.reset(); }), 5s);
}

// The block is freed by another thread once the destruction is about to start. One that did not wait would be over
// before that thread is woken.
TEST(FixedSizeMemPool, DestructionWaitsForAFreeWhenAvailSemIsEmpty)
{
    for (int round = 0; round < 20; ++round) {
        auto *pool = new vxFixedSizeMemPool(8, 1);
        void *block = pool->vxAlloc(0);
        drain(pool->availSem);
        SEM_ID starting = semBCreate(0, SEM_EMPTY);
        std::atomic<bool> freed = false;
        std::thread freeing([&] {
            semTake(starting, 0xFFFFFFFF);
            freed = true;
            EXPECT_EQ(0U, pool->vxFree(block));
        });
        semGive(starting);
        delete pool;
        EXPECT_TRUE(freed);
        freeing.join();
        semDelete(starting);
    }
}

TEST(FixedSizeMemPool, DestructionOfAPoolWithoutBlocksDoesNotWait)
{
    EXPECT_LT(timeOf([] { vxFixedSizeMemPool pool(8, 0); }), 5s);
}
