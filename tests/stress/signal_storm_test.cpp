// SIGUSR1 a thousand times a second to every task, with and without SA_RESTART: nothing crashes, no message is lost,
// every call has a documented result, and the pool's list, bitmap and count agree.
#include "mempool.h"
#include "queues.h"

#include "harness/effort.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "models/memory_pool_model.h"
#include "queues/gives_of.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{
const int Seconds = effort(1, 60); // for each setting
constexpr auto Forever = static_cast<unsigned int>(WAIT_FOREVER);

std::atomic<uint64_t> handled{0};

void count(int)
{
    handled.fetch_add(1, std::memory_order_relaxed);
}

// The threads of this process now, the timer task among them.
std::vector<pid_t> tasks()
{
    std::vector<pid_t> all;
    DIR *const directory = opendir("/proc/self/task");
    while (const dirent *entry = readdir(directory))
        if (entry->d_name[0] != '.')
            all.push_back(static_cast<pid_t>(std::stol(entry->d_name)));
    closedir(directory);
    return all;
}

// What the senders and the receiver of one kind of queue found.
struct Traffic {
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> received{0};
    std::atomic<uint64_t> interrupted{0}; // calls that a signal ended with their documented result
    std::atomic<uint64_t> wrong{0};
};

uint64_t allRounds = 0; // of a signal to every task
uint64_t allSignals = 0;
uint64_t allMessages = 0;
uint64_t allLost = 0;

class Figures : public testing::Environment
{
public:
    void TearDown() override
    {
        printf("trust: SIGUSR1 to every task, %d s without and %d s with SA_RESTART | %ju times a second, %ju signals "
               "handled, %ju messages, %ju lost\n",
               Seconds, Seconds, uintmax_t{allRounds / (2 * static_cast<unsigned>(Seconds))}, uintmax_t{allSignals},
               uintmax_t{allMessages}, uintmax_t{allLost});
    }
};
const auto *const figures = testing::AddGlobalTestEnvironment(new Figures);

class SignalStorm : public testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        static const int started = kel_utils_init();
        ASSERT_EQ(0, started);
        struct sigaction action = {};
        action.sa_handler = count;
        action.sa_flags = GetParam();
        ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    }

    void start(std::function<void()> code)
    {
        threads.emplace_back(std::move(code));
    }

    // Signals every task but this thread, a thousand times a second where this thread may go before the others.
    void storm(std::chrono::seconds duration)
    {
        const std::vector<pid_t> targets = tasks();
        sched_param priority = {};
        priority.sched_priority = 1;
        const bool comesFirst = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority) == 0;
        const auto end = std::chrono::steady_clock::now() + duration;
        auto next = std::chrono::steady_clock::now();
        while (next < end) {
            for (const pid_t task : targets)
                if (task != gettid())
                    tgkill(getpid(), task, SIGUSR1);
            ++rounds;
            next = std::max(next + 1ms, std::chrono::steady_clock::now());
            std::this_thread::sleep_until(next); // the rate of the signals, not a wait for anything
        }
        priority.sched_priority = 0;
        if (comesFirst)
            pthread_setschedparam(pthread_self(), SCHED_OTHER, &priority);
    }

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    uint64_t rounds = 0;
};

// Whether nothing was printed but the line of a wait without limit that a signal ended.
bool onlyTellsOfInterruptedWaits(const std::string &printed)
{
    std::istringstream lines(printed);
    for (std::string line; std::getline(lines, line);)
        if ((!line.starts_with("2|4: SMsgQueueX::recv semTake failure (") &&
             !line.starts_with("2|4: SMultiEventQ::recv semTake failure (")) ||
            !line.ends_with(",-1,4)"))
            return false;
    return true;
}

bool isOneOf(int result, std::initializer_list<int> documented)
{
    return std::find(documented.begin(), documented.end(), result) != documented.end();
}
} // namespace

TEST_P(SignalStorm, EveryCallHasADocumentedResultAndNothingIsLost)
{
    handled = 0;

    // Semaphores: gives are counted against takes.
    SEM_ID sem = semCCreate(0, 0);
    Traffic gives;
    start([&] {
        while (!stop) {
            gives.wrong += semGive(sem) != 0;
            ++gives.sent;
            taskDelay(0);
        }
    });
    start([&] {
        for (unsigned turn = 0; !stop; ++turn) {
            static constexpr unsigned int timeouts[] = {0, 1, Forever, 2};
            const unsigned int timeout = timeouts[turn % 4];
            const int result = semTake(sem, timeout);
            gives.received += result == 0;
            gives.interrupted += result == EINTR;
            gives.wrong += timeout == 0 ? !isOneOf(result, {0, EAGAIN}) : !isOneOf(result, {0, ETIMEDOUT, EINTR});
        }
    });

    // A mutual-exclusion semaphore: a wait for it is not ended by a signal.
    SEM_ID mutex = semMCreate(0);
    uint64_t guarded = 0;
    std::atomic<uint64_t> entered{0};
    for (int i = 0; i < 2; ++i)
        start([&] {
            while (!stop) {
                gives.wrong += semTake(mutex, Forever) != 0;
                ++guarded;
                gives.wrong += semGive(mutex) != 0;
                ++entered;
            }
        });

    start([&] {
        while (!stop) {
            const int result = semTake(mutex, 1);
            gives.wrong += !isOneOf(result, {0, ETIMEDOUT});
            gives.wrong += result == 0 && semGive(mutex) != 0;
        }
    });

    // The fixed-size queue: its waits are not ended by a signal, and a wait without limit always succeeds.
    static const MSG_Q_ID fixed = msgQCreate(8, sizeof(uint64_t), 0); // there is no call that deletes it
    Traffic fixedTraffic;
    start([&] {
        for (unsigned turn = 0; !stop; ++turn) {
            const uint64_t number = fixedTraffic.sent;
            static constexpr unsigned int timeouts[] = {Forever, 1, 0, 3};
            const int result = msgQSend(fixed, &number, sizeof number, timeouts[turn % 4], 0);
            fixedTraffic.wrong += turn % 4 == 0 ? result != 0 : !isOneOf(result, {0, 1});
            fixedTraffic.sent += result == 0;
        }
        const uint64_t last = ~uint64_t{0};
        msgQSend(fixed, &last, sizeof last, Forever, 0);
    });
    start([&] {
        for (unsigned turn = 0;; ++turn) {
            uint64_t number = 0;
            const unsigned int result = msgQReceive(fixed, &number, sizeof number, turn % 2 == 0 ? 1 : Forever);
            if (result == 0xFFFFFFFF) {
                fixedTraffic.wrong += turn % 2 != 0;
                continue;
            }
            if (number == ~uint64_t{0})
                return;
            fixedTraffic.wrong += number != fixedTraffic.received;
            ++fixedTraffic.received;
        }
    });

    // The variable-length queue, with held-back wake-ups: a signal ends a wait with -1, and the message is not there.
    SMsgQueueX *queue = msgQxCreate(8, sizeof(uint64_t), 0, 4, 1, nullptr);
    Traffic queueTraffic;
    start([&] {
        for (unsigned turn = 0; !stop; ++turn) {
            const uint64_t number = queueTraffic.sent;
            static constexpr int timeouts[] = {WAIT_FOREVER, 1, 0, 3};
            const int result =
                msgQxSend(queue, reinterpret_cast<const char *>(&number), sizeof number, timeouts[turn % 4], 0);
            queueTraffic.sent += result == 0;
            queueTraffic.interrupted += result == -1 && turn % 4 == 0;
            queueTraffic.wrong += !isOneOf(result, {0, -1});
        }
        const uint64_t last = ~uint64_t{0};
        while (msgQxSend(queue, reinterpret_cast<const char *>(&last), sizeof last, WAIT_FOREVER, 2) != 0) {
        }
    });
    start([&] {
        for (unsigned turn = 0;; ++turn) {
            uint64_t number = 0;
            static constexpr int timeouts[] = {WAIT_FOREVER, 1, 0, 3};
            const int result = msgQxRecv(queue, reinterpret_cast<char *>(&number), sizeof number, timeouts[turn % 4]);
            if (result == -1) {
                queueTraffic.interrupted += turn % 4 == 0;
                continue;
            }
            if (number == ~uint64_t{0})
                return;
            queueTraffic.wrong += result != sizeof number || number != queueTraffic.received;
            ++queueTraffic.received;
        }
    });

    // The multi-event queue: the last value of each event, because events are merged. The last event tells the end.
    constexpr unsigned short endOfEvents = 16;
    SMultiEventQ *events = meqCreateX(4, endOfEvents + 1, 0, 4, 1, nullptr);
    Traffic eventTraffic;
    start([&] {
        for (unsigned int value = 1; !stop; ++value) {
            eventTraffic.wrong += meqSend(events, static_cast<unsigned short>(value % 16), value) != 0;
            eventTraffic.sent = value;
        }
        eventTraffic.wrong += meqSendY(events, endOfEvents, 0, 2) != 0;
    });
    std::atomic<unsigned int> lastValues[16] = {};
    start([&] {
        for (unsigned turn = 0;; ++turn) {
            unsigned short event = 0;
            unsigned int value = 0;
            static constexpr int timeouts[] = {WAIT_FOREVER, 1, 0, 2};
            const int result = meqRecvX(events, &event, &value, timeouts[turn % 4]);
            if (result == -1) {
                eventTraffic.interrupted += turn % 4 == 0;
                continue;
            }
            if (event == endOfEvents)
                return;
            eventTraffic.wrong += !isOneOf(result, {0, -2}) || value <= lastValues[event] || value % 16 != event;
            lastValues[event] = value;
            ++eventTraffic.received;
        }
    });

    // The pool: threads hold at most one block each of fewer blocks than threads.
    vxFixedSizeMemPool pool(16, 2);
    Traffic blocks;
    for (int i = 0; i < 3; ++i)
        start([&] {
            for (unsigned turn = 0; !stop; ++turn) {
                static constexpr int timeouts[] = {WAIT_FOREVER, 1, 0, 3};
                void *const block = pool.vxAlloc(timeouts[turn % 4]);
                if (block == nullptr) {
                    blocks.interrupted += turn % 4 == 0;
                    continue;
                }
                ++blocks.sent;
                blocks.wrong += pool.vxFree(block) != 0;
                ++blocks.received;
            }
        });

    // A delay that a signal ends is over.
    start([&] {
        while (!stop)
            gives.wrong += taskDelay(1) != 0;
    });

    const std::string printed = printedBy([&] {
        storm(std::chrono::seconds(Seconds));
        stop = true;
        semGive(sem);
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_TRUE(onlyTellsOfInterruptedWaits(printed)) << printed;

    for (const Traffic *traffic : {&gives, &fixedTraffic, &queueTraffic, &eventTraffic, &blocks})
        EXPECT_EQ(0U, traffic->wrong);
    EXPECT_EQ(gives.sent + 1, gives.received + static_cast<uint64_t>(givesOf(sem)));
    EXPECT_EQ(entered, guarded);
    EXPECT_EQ(fixedTraffic.sent, fixedTraffic.received);
    EXPECT_EQ(queueTraffic.sent, queueTraffic.received);
    for (unsigned int value = static_cast<unsigned int>(eventTraffic.sent), i = 0; i < 16 && i < value; ++i)
        EXPECT_EQ(value - i, lastValues[(value - i) % 16]);
    EXPECT_STREQ(nullptr, brokenInvariant(pool));
    EXPECT_EQ(2U, pool.getNodeCount());
    EXPECT_GT(handled, rounds); // more than one task each time
    printf("%s SA_RESTART: %ju signals handled; %ju takes, %ju fixed messages, %ju variable messages, %ju events, "
           "%ju blocks; %ju waits ended by a signal\n",
           (GetParam() & SA_RESTART) != 0 ? "with" : "without", uintmax_t{handled}, uintmax_t{gives.received},
           uintmax_t{fixedTraffic.received}, uintmax_t{queueTraffic.received}, uintmax_t{eventTraffic.received},
           uintmax_t{blocks.received},
           uintmax_t{gives.interrupted + queueTraffic.interrupted + eventTraffic.interrupted + blocks.interrupted});
    allRounds += rounds;
    allSignals += handled;
    for (const Traffic *traffic : {&fixedTraffic, &queueTraffic}) {
        allMessages += traffic->received;
        allLost += traffic->sent - traffic->received;
    }
    semDelete(sem);
    semDelete(mutex);
    msgQxDelete(queue);
    meqDelete(events);
}

INSTANTIATE_TEST_SUITE_P(Flags, SignalStorm, testing::Values(0, SA_RESTART));
