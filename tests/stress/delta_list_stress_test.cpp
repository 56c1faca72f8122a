// Long lists and many threads.
#include "models/delta_list_model.h"

#include "harness/instrumented.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace
{
class Random
{
public:
    explicit Random(unsigned seed) : random_(seed) {}
    unsigned below(unsigned limit)
    {
        return static_cast<unsigned>(random_() % limit);
    }

private:
    std::mt19937 random_;
};

// Runs `body(thread number)` on so many threads, which start together.
template <class Body>
void onThreads(unsigned count, Body body)
{
    std::atomic<unsigned> ready = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < count)
                std::this_thread::yield();
            body(i);
        });
    for (std::thread &thread : threads)
        thread.join();
}

class Lock
{
public:
    explicit Lock(SEM_ID sem) : sem_(sem)
    {
        semTake(sem_, 0xFFFFFFFF);
    }
    ~Lock()
    {
        semGive(sem_);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

private:
    SEM_ID sem_;
};
} // namespace

// A million calls on 100,000 timers. Most are what an aging table does, a refresh at the tail time; some go anywhere.
TEST(DeltaListStress, AMillionCallsOn100000TimersAgreeWithASortedModel)
{
    constexpr unsigned Timers = scaled(100000), TailTime = scaled(60000);
    const int calls = scaled(1000000);
    Random random(20261121);
    DeltaListAndModel both(Timers, TailTime, 1, false);
    const auto anyTime = [&]() -> unsigned {
        const unsigned kind = random.below(10000);
        if (kind < 5)
            return 1 + random.below(TailTime); // a long walk, at a cache miss a step
        if (kind < 1000)
            return TailTime + 5 - random.below(50);
        return 0;
    };
    uint64_t aged = 0;
    both.inAged = [&](size_t id) {
        if (++aged % 2 == 0)
            both.add(id, 0);
    };

    for (unsigned id = 0; id < Timers; ++id) {
        both.add(id, 0);
        if (id % 4 == 0)
            both.tic(1);
    }
    ASSERT_EQ(Timers, both.list.numEntries);
    for (int call = 0; call < calls; ++call) {
        const unsigned id = random.below(Timers);
        const unsigned kind = random.below(100);
        if (kind < 10)
            both.tic(random.below(6)); // 0: the tic size
        else if (!both.onList(id))
            both.add(id, anyTime());
        else if (kind < 20)
            both.del(id);
        else
            both.touch(id, anyTime());
        if (call % 10000 == 0 && both.onList(id)) {
            ASSERT_EQ(both.model.left(id), both.list.getEntryAgeOut(both.timers[id].get()));
        }
        if (call % 20000 == 0) {
            ASSERT_STREQ(nullptr, both.differs()) << "call " << call;
        }
    }
    EXPECT_STREQ(nullptr, both.differs());
    EXPECT_GT(aged, static_cast<uint64_t>(calls) / 200);
    EXPECT_GT(both.list.numEntries, Timers / 2);
}

// Each thread has its own timers; what add() checks before locking changes all the while under the hands of the others.
TEST(DeltaListStress, ThreadsShareAListEachWithItsOwnTimers)
{
    class Timer : public CDeltaListEntry
    {
    public:
        unsigned int add(CDeltaList *list, unsigned int newTime) override
        {
            ++added;
            return CDeltaListEntry::add(list, newTime);
        }
        void aged() override
        {
            ++timesAged;
        }
        std::atomic<int> added = 0, timesAged = 0;
        int deleted = 0;
    };
    constexpr unsigned Workers = 4, PerWorker = 8;
    const int calls = scaled(100000);
    CDeltaList list;
    list.initSem(nullptr);
    list.init(40, 1, false);
    std::array<std::array<Timer, PerWorker>, Workers> timers;
    std::atomic<unsigned> working = Workers;
    std::atomic<int> asked = 0;
    const auto isOnList = [&](const Timer &timer) { return timer.prev != nullptr || list.head == &timer; };

    const std::string printed = printedBy([&] {
        onThreads(Workers + 2, [&](unsigned thread) {
            Random random(thread);
            if (thread >= Workers) { // time passes, and somebody looks
                while (working > 0) {
                    if (thread == Workers)
                        list.tic(1);
                    else
                        list.getNext(nullptr);
                }
                return;
            }
            for (int call = 0; call < calls; ++call) {
                Timer &timer = timers[thread][random.below(PerWorker)];
                if (random.below(3) != 0) {
                    ++asked;
                    list.add(&timer, random.below(60)); // refused while it is on the list
                } else {
                    const Lock lock(list.dbID);
                    if (isOnList(timer)) {
                        list.del(&timer);
                        ++timer.deleted;
                    }
                }
            }
            --working;
        });
    });

    EXPECT_STREQ(nullptr, brokenInvariant(list));
    int added = 0, gone = 0;
    for (auto &ofWorker : timers) {
        for (Timer &timer : ofWorker) {
            added += timer.added;
            gone += timer.timesAged + timer.deleted;
            EXPECT_EQ(timer.added, timer.timesAged + timer.deleted + (isOnList(timer) ? 1 : 0));
        }
    }
    EXPECT_EQ(added - gone, static_cast<int>(list.numEntries));
    EXPECT_EQ(asked - added, std::count(printed.begin(), printed.end(), '\n'));
    EXPECT_EQ(std::string::npos, printed.find("Del error"));
    list.init();
}

// Timers that destroy themselves: the moment add() has let go of the lock, the timer may be gone.
TEST(DeltaListStress, TimersThatDestroyThemselvesAreNotTouchedAgain)
{
    class Once : public CDeltaListEntry
    {
    public:
        explicit Once(std::atomic<int> &left) : left_(left)
        {
            ++left_;
        }
        ~Once() override
        {
            --left_;
        }
        void aged() override
        {
            delete this;
        }

    private:
        std::atomic<int> &left_;
    };
    constexpr unsigned Workers = 3;
    const int each = scaled(100000);
    CDeltaList list;
    list.initSem(nullptr);
    list.init(3, 1, false);
    std::atomic<int> left = 0;
    std::atomic<unsigned> working = Workers;
    onThreads(Workers + 1, [&](unsigned thread) {
        Random random(thread);
        if (thread == Workers) {
            while (working > 0 || left > 0)
                list.tic(1);
            return;
        }
        for (int i = 0; i < each; ++i)
            list.add(new Once(left), random.below(5));
        --working;
    });
    EXPECT_EQ(0, left);
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

// A refused add returns the head time while the head itself may be aging away and be released.
TEST(DeltaListStress, RefusedCallsReadTheHeadTimeOfALivingHead)
{
    const int each = scaled(50000);
    CDeltaList list;
    list.initSem(nullptr);
    list.init(3, 1, false);
    class Once : public CDeltaListEntry
    {
    public:
        void aged() override
        {
            delete this;
        }
    };
    std::atomic<bool> done = false;
    const std::string printed = printedBy([&] {
        onThreads(2, [&](unsigned thread) {
            if (thread == 0) {
                for (int i = 0; i < each; ++i) {
                    list.add(new Once, 2);
                    list.tic(2);
                }
                done = true;
                return;
            }
            while (!done) {
                EXPECT_LE(list.add(nullptr, 1), 2U);
                EXPECT_LE(list.del(nullptr), 2U);
            }
        });
    });
    EXPECT_EQ(0U, list.numEntries);
}

// Any thread may move any self-tracking entry; only the semaphore that all the lists share is between them.
TEST(DeltaListStress, ThreadsMoveSharedEntriesBetweenLists)
{
    constexpr unsigned Workers = 4, Entries = 16, Lists = 3;
    const int calls = scaled(100000);
    SEM_ID sem = semMCreate(0);
    {
        std::array<CDeltaList, Lists> lists;
        for (CDeltaList &list : lists) {
            list.initSem(sem);
            list.init(20, 1, &list == &lists[2]);
        }
        std::vector<std::unique_ptr<CDeltaListSmartEntry>> entries;
        for (unsigned i = 0; i < Entries; ++i)
            entries.push_back(std::make_unique<CDeltaListSmartEntry>(sem));

        printedBy([&] { // "no list", when another thread was faster
            onThreads(Workers, [&](unsigned thread) {
                Random random(thread);
                for (int call = 0; call < calls; ++call) {
                    CDeltaListSmartEntry &entry = *entries[random.below(Entries)];
                    CDeltaList &list = lists[random.below(Lists)];
                    switch (random.below(16)) {
                    case 0:
                        entry.del(&list);
                        break;
                    case 1:
                    case 2:
                        entry.del();
                        break;
                    case 3:
                    case 4:
                        list.tic(1 + random.below(3));
                        break;
                    case 5:
                        entry.getEntryAgeOut();
                        break;
                    default:
                        entry.add(&list, random.below(40));
                    }
                }
            });
        });

        unsigned onLists = 0;
        for (CDeltaList &list : lists) {
            EXPECT_STREQ(nullptr, brokenInvariant(list));
            onLists += list.numEntries;
            for (const CDeltaListEntry *entry = list.head; entry != nullptr; entry = entry->next)
                EXPECT_EQ(&list, static_cast<const CDeltaListSmartEntry *>(entry)->list);
        }
        EXPECT_EQ(onLists, std::count_if(entries.begin(), entries.end(),
                                         [](const auto &entry) { return entry->getList() != nullptr; }));
    }
    for (unsigned i = 0; i < Lists; ++i)
        semGive(sem); // each list left it taken
    semDelete(sem);
}
