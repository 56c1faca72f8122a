// The timer task against senders, receivers and deletion: every give is counted, and no queue is touched once it is
// gone.
#include "queues.h"

#include "harness/instrumented.h"
#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{
constexpr int Workers = 8;
constexpr int Senders = 2;
constexpr int StartsOfEach = 50;

// One queue's life: senders hold gives back or flush them, a receiver takes exactly as many and deletes the queue at
// once, often while the task still has to let go of it.
void liveAndDie(unsigned round, SEM_ID external)
{
    auto *queue = new SBaseQ(4, 0, static_cast<int>(round % 4), 4, external);
    std::vector<std::thread> senders;
    for (int sender = 0; sender < Senders; ++sender)
        senders.emplace_back([queue, sender, round] {
            for (int i = 0; i < StartsOfEach; ++i) {
                queue->age_start(1);
                if ((i + sender) % 16 == static_cast<int>(round % 32))
                    queue->age_stop(1);
            }
        });
    const SEM_ID cflag = queue->cflag;
    for (int taken = 0; taken < Senders * StartsOfEach - 1; ++taken)
        EXPECT_EQ(0, semTake(cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_EQ(0, semTake(cflag, static_cast<unsigned int>(WAIT_FOREVER)));
    EXPECT_EQ(0, givesOf(cflag)); // none doubled
    delete queue;
}
} // namespace

TEST(AgingTimerStress, EveryGiveIsDeliveredOnceAndNoQueueIsTouchedOnceItIsGone)
{
    ASSERT_EQ(0, kel_utils_init());
    SEM_ID external = semCCreate(SEM_Q_FIFO, 0);
    std::vector<std::thread> workers;
    for (unsigned worker = 0; worker < Workers; ++worker)
        workers.emplace_back([external, worker] {
            const auto rounds = static_cast<unsigned>(scaled(300));
            for (unsigned round = 0; round < rounds; ++round)
                liveAndDie(round + worker, external);
        });
    for (std::thread &worker : workers)
        worker.join();
    EXPECT_EQ(nullptr, [] {
        SBaseQ::lock();
        const SBaseQ *head = SBaseQ::head;
        SBaseQ::unLock();
        return head;
    }());
    EXPECT_GT(givesOf(external), 0);
    EXPECT_EQ(0, semDelete(external));
}
