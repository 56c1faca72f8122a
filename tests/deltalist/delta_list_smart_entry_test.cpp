#include "deltalist.h"

#include "harness/printed_by.h"
#include "harness/virtual_slot.h"
#include "models/delta_list_model.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace
{
// Two lists under one semaphore, and entries that go on either.
class SmartEntries : public testing::Test
{
protected:
    SmartEntries()
    {
        for (CDeltaList *list : {&list1, &list2}) {
            list->initSem(sem);
            list->init(10, 1, false);
        }
    }
    bool canBeTakenElsewhere()
    {
        bool taken = false;
        std::thread([&] {
            taken = semTake(sem, 0) == 0;
            if (taken)
                semGive(sem);
        }).join();
        return taken;
    }

    struct Semaphore {
        SEM_ID id = semMCreate(0);
        ~Semaphore() // after the lists, each of which leaves it taken
        {
            semGive(id);
            semGive(id);
            semDelete(id);
        }
        operator SEM_ID() const
        {
            return id;
        }
    } sem;
    CDeltaList list1{"one"}, list2{"two"};
};
} // namespace

TEST(SmartEntryLayout, VirtualFunctionsStandInTheOldOrder)
{
    using Entry = CDeltaListSmartEntryBase;
    EXPECT_EQ(2U, virtualSlotOf(&Entry::add));
    EXPECT_EQ(3U, virtualSlotOf(static_cast<unsigned int (Entry::*)(CDeltaList *)>(&Entry::del)));
    EXPECT_EQ(4U, virtualSlotOf(&Entry::aged));
    EXPECT_EQ(5U, virtualSlotOf(&Entry::zero));
    EXPECT_EQ(6U, virtualSlotOf(&Entry::getList));
    EXPECT_EQ(7U, virtualSlotOf(&Entry::getSem));
    EXPECT_EQ(8U, virtualSlotOf(&Entry::setList));
    EXPECT_TRUE(std::is_abstract_v<Entry>);
}

TEST_F(SmartEntries, AreMadeFreeWithTheirSemaphore)
{
    CDeltaListSmartEntry entry(sem);
    EXPECT_EQ(nullptr, entry.list);
    EXPECT_EQ(nullptr, entry.getList());
    EXPECT_EQ(sem, entry.sem);
    EXPECT_EQ(sem, entry.getSem());
    EXPECT_EQ(nullptr, entry.next);
    EXPECT_EQ(nullptr, entry.prev);
    EXPECT_EQ(0U, entry.time);
}

TEST_F(SmartEntries, SetListStoresTheList)
{
    CDeltaListSmartEntry entry(sem);
    entry.setList(&list2);
    EXPECT_EQ(&list2, entry.list);
    EXPECT_EQ(&list2, entry.getList());
}

TEST_F(SmartEntries, AddRemembersTheListAndReturnsTheHeadTime)
{
    CDeltaListSmartEntry entry(sem), sooner(sem), last(sem);
    EXPECT_EQ(7U, entry.add(&list1, 7));
    EXPECT_EQ(&list1, entry.getList());
    EXPECT_EQ(5U, sooner.add(&list1, 5));
    EXPECT_EQ(5U, list1.add(&last, 0)); // the list's own add comes here
    EXPECT_EQ(&list1, last.getList());
    EXPECT_EQ(3U, list1.numEntries);
    EXPECT_TRUE(canBeTakenElsewhere());
}

TEST_F(SmartEntries, AddToAnotherListMovesTheEntry)
{
    CDeltaListSmartEntry entry(sem);
    entry.add(&list1, 7);
    EXPECT_EQ(5U, entry.add(&list2, 5));
    EXPECT_EQ(&list2, entry.getList());
    EXPECT_EQ(0U, list1.numEntries);
    EXPECT_EQ(nullptr, list1.head);
    EXPECT_EQ(&entry, list2.head);
    EXPECT_STREQ(nullptr, brokenInvariant(list1));
    EXPECT_STREQ(nullptr, brokenInvariant(list2));
}

TEST_F(SmartEntries, AddToTheSameListMovesTheEntryWhereAPlainOneIsRefused)
{
    CDeltaListSmartEntry entry(sem), other(sem);
    entry.add(&list1, 3);
    other.add(&list1, 5);
    EXPECT_EQ(5U, entry.add(&list1, 8));
    EXPECT_EQ(&entry, list1.tail);
    EXPECT_EQ(8U, entry.getEntryAgeOut());
    EXPECT_EQ(2U, list1.numEntries);
    EXPECT_EQ(&list1, entry.getList());
    // The list's own add looks at the links first, as it does for any entry.
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { list1.add(&entry, 1); }));
    EXPECT_EQ(5U, list1.touch(&entry, 6));
    EXPECT_EQ(6U, entry.getEntryAgeOut());
}

TEST_F(SmartEntries, AddToNoListIsRefusedAndTheEntryStaysWhereItIs)
{
    CDeltaListSmartEntry entry(sem);
    entry.add(&list1, 3);
    EXPECT_EQ("CDeltaListSmartEntry::add,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.add(nullptr, 3)); }));
    EXPECT_EQ(&list1, entry.getList());
}

TEST_F(SmartEntries, DelTakesTheEntryOffWhateverListItIsOn)
{
    CDeltaListSmartEntry entry(sem), later(sem);
    entry.add(&list2, 3);
    later.add(&list2, 5);
    EXPECT_EQ(5U, entry.del());
    EXPECT_EQ(nullptr, entry.getList());
    EXPECT_EQ(1U, list2.numEntries);
    EXPECT_EQ(0U, entry.del()); // on no list: nothing happens
    EXPECT_EQ(1U, list2.numEntries);
    EXPECT_TRUE(canBeTakenElsewhere());
}

TEST_F(SmartEntries, DelFromTheRightListIsADel)
{
    CDeltaListSmartEntry entry(sem), later(sem);
    entry.add(&list1, 3);
    later.add(&list1, 5);
    EXPECT_EQ(5U, entry.del(&list1));
    EXPECT_EQ(nullptr, entry.getList());
    EXPECT_EQ(0U, list1.del(&later)); // the list's own del comes here
    EXPECT_EQ(nullptr, later.getList());
}

TEST_F(SmartEntries, DelFromAnotherListIsRefusedAndTheEntryStays)
{
    CDeltaListSmartEntry entry(sem);
    entry.add(&list2, 3);
    EXPECT_EQ("CDeltaListSmartEntry::del,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.del(&list1)); }));
    EXPECT_EQ(&list2, entry.getList());
    EXPECT_EQ(1U, list2.numEntries);
    EXPECT_EQ("CDeltaListSmartEntry::del,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.del(nullptr)); }));
    EXPECT_EQ(&list2, entry.getList());
}

TEST_F(SmartEntries, DelOfAFreeEntryFromNoListIsSilent)
{
    CDeltaListSmartEntry entry(sem);
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, entry.del(nullptr)); }));
    EXPECT_EQ("CDeltaListSmartEntry::del,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.del(&list1)); }));
}

// The comparison comes first, so a wrong list is refused while another thread holds the lock.
TEST_F(SmartEntries, DelComparesTheListBeforeLocking)
{
    CDeltaListSmartEntry entry(sem);
    entry.add(&list2, 3);
    semTake(sem, 0xFFFFFFFF);
    std::thread([&] {
        EXPECT_EQ("CDeltaListSmartEntry::del,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.del(&list1)); }));
    }).join();
    semGive(sem);
}

TEST_F(SmartEntries, ZeroClearsTheLinksTheTimeAndTheList)
{
    CDeltaListSmartEntry entry(sem);
    entry.next = entry.prev = &entry;
    entry.time = 5;
    entry.list = &list1;
    entry.zero();
    EXPECT_EQ(nullptr, entry.next);
    EXPECT_EQ(nullptr, entry.prev);
    EXPECT_EQ(0U, entry.time);
    EXPECT_EQ(nullptr, entry.list);
}

TEST_F(SmartEntries, GetEntryAgeOutIsTheTimeLeftOr0OnNoList)
{
    CDeltaListSmartEntry first(sem), second(sem);
    EXPECT_EQ(0U, first.getEntryAgeOut());
    first.add(&list1, 3);
    second.add(&list1, 8);
    EXPECT_EQ(8U, second.getEntryAgeOut());
    list1.tic(2);
    EXPECT_EQ(6U, second.getEntryAgeOut());
    EXPECT_TRUE(canBeTakenElsewhere());
}

TEST_F(SmartEntries, AreFreeWhenTheyAgeAndMayGoOnAnotherList)
{
    class Hopping : public CDeltaListSmartEntry
    {
    public:
        Hopping(SEM_ID listSem, CDeltaList &to) : CDeltaListSmartEntry(listSem), listWhenAged(&to), to_(to) {}
        void aged() override
        {
            listWhenAged = getList();
            add(&to_, 4);
        }
        CDeltaList *listWhenAged;

    private:
        CDeltaList &to_;
    } entry(sem, list2);
    entry.add(&list1, 2);
    EXPECT_EQ(0U, list1.tic(2));
    EXPECT_EQ(nullptr, entry.listWhenAged);
    EXPECT_EQ(&list2, entry.getList());
    EXPECT_EQ(4U, entry.getEntryAgeOut());
}

TEST_F(SmartEntries, OnAnAstableListAreRememberedAgain)
{
    list1.init(10, 1, true);
    CDeltaListSmartEntry entry(sem);
    entry.add(&list1, 2);
    EXPECT_EQ(10U, list1.tic(2));
    EXPECT_EQ(&list1, entry.getList());
    EXPECT_EQ(&entry, list1.head);
}

// An astable list adds the entry after its aged(), and for a self-tracking entry that is a move.
TEST_F(SmartEntries, OnAnAstableListMayAddThemselvesInAged)
{
    class Eager : public CDeltaListSmartEntry
    {
    public:
        Eager(SEM_ID listSem, CDeltaList &to) : CDeltaListSmartEntry(listSem), to_(to) {}
        void aged() override
        {
            add(&to_, 3);
        }

    private:
        CDeltaList &to_;
    } entry(sem, list2);
    list1.init(10, 1, true);
    entry.add(&list1, 2);
    EXPECT_EQ(10U, list1.tic(2));
    EXPECT_EQ(&list1, entry.getList());
    EXPECT_EQ(1U, list1.numEntries);
    EXPECT_EQ(0U, list2.numEntries);
    EXPECT_STREQ(nullptr, brokenInvariant(list1));
    EXPECT_STREQ(nullptr, brokenInvariant(list2));
}

// Clients are told not to; one that is moved all the same is not aged, and the others that wait are.
TEST_F(SmartEntries, MovedWhileItWaitsForItsAgedCallItLeavesTheKillList)
{
    class Mover : public CDeltaListSmartEntry
    {
    public:
        Mover(SEM_ID listSem, CDeltaList &to, CDeltaListSmartEntry &other)
            : CDeltaListSmartEntry(listSem), to_(to), other_(other)
        {
        }
        void aged() override
        {
            other_.add(&to_, 5);
        }

    private:
        CDeltaList &to_;
        CDeltaListSmartEntry &other_;
    };
    class Counting : public CDeltaListSmartEntry
    {
    public:
        using CDeltaListSmartEntry::CDeltaListSmartEntry;
        void aged() override
        {
            ++timesAged;
        }
        int timesAged = 0;
    } moved(sem), waiting(sem);
    Mover mover(sem, list1, moved);
    mover.add(&list1, 1);
    moved.add(&list1, 1);
    waiting.add(&list1, 1);
    EXPECT_EQ("Del error(head) - entry not on list:0\n", printedBy([&] { EXPECT_EQ(5U, list1.tic(1)); }));
    EXPECT_EQ(0, moved.timesAged);
    EXPECT_EQ(1, waiting.timesAged);
    EXPECT_EQ(&list1, moved.getList());
    EXPECT_EQ(&moved, list1.head);
    EXPECT_EQ(&moved, list1.tail);
}

TEST_F(SmartEntries, PrintTheEntryItsListAndItsSemaphore)
{
    CDeltaListSmartEntry entry(sem), later(sem);
    EXPECT_EQ(formatted("next pointer   : (nil)\n"
                        "prev pointer   : (nil)\n"
                        "time (delta)   : 0\n"
                        "list pointer   : (nil)\n"
                        "sem (SEM_ID)   : %p\n",
                        static_cast<void *>(sem.id)),
              printedBy([&] { entry.printCDeltaListSmartEntryBase(); }));
    entry.add(&list2, 6);
    later.add(&list2, 9);
    EXPECT_EQ(formatted("next pointer   : %p\n"
                        "prev pointer   : (nil)\n"
                        "time (delta)   : 6\n"
                        "list name      : two\n"
                        "list pointer   : %p\n"
                        "sem (SEM_ID)   : %p\n",
                        static_cast<void *>(&later), static_cast<void *>(&list2), static_cast<void *>(sem.id)),
              printedBy([&] { entry.printCDeltaListSmartEntryBase(); }));
}

// A client may store the list and the semaphore elsewhere; everything goes through the three virtual functions.
TEST_F(SmartEntries, WorkOnWhateverADerivedClassStores)
{
    class Elsewhere : public CDeltaListSmartEntryBase
    {
    public:
        Elsewhere(std::array<CDeltaList *, 4> &places, size_t index, SEM_ID listSem)
            : places_(places), index_(index), sem_(listSem)
        {
        }
        CDeltaList *getList() override
        {
            return places_[index_];
        }
        SEM_ID getSem() override
        {
            return sem_;
        }
        void setList(CDeltaList *list) override
        {
            places_[index_] = list;
        }

    private:
        std::array<CDeltaList *, 4> &places_;
        size_t index_;
        SEM_ID sem_;
    };
    std::array<CDeltaList *, 4> places{};
    Elsewhere entry(places, 2, sem);
    entry.add(&list1, 3);
    EXPECT_EQ(&list1, places[2]);
    entry.add(&list2, 4);
    EXPECT_EQ(&list2, places[2]);
    EXPECT_EQ(4U, entry.getEntryAgeOut());
    list2.tic(4);
    EXPECT_EQ(nullptr, places[2]);
    entry.add(&list1, 3);
    entry.del();
    EXPECT_EQ(nullptr, places[2]);
}

// Random moves of twelve entries between three lists, against one model for each list.
TEST(SmartEntryModel, AgreesAfterAnyProgram)
{
    constexpr size_t Entries = 12, Lists = 3;
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](unsigned limit) {
            return std::uniform_int_distribution<unsigned>(0, limit - 1)(random);
        };
        SEM_ID sem = semMCreate(0);
        {
            std::array<CDeltaList, Lists> lists;
            std::vector<std::unique_ptr<DeltaListModel>> models;
            std::vector<std::unique_ptr<CDeltaListSmartEntry>> entries;
            for (CDeltaList &list : lists) {
                list.initSem(sem);
                list.init(10, 1, false);
                models.push_back(std::make_unique<DeltaListModel>(Entries));
            }
            for (size_t id = 0; id < Entries; ++id)
                entries.push_back(std::make_unique<CDeltaListSmartEntry>(sem));

            for (unsigned step = 0; step < 200; ++step) {
                const size_t id = below(Entries), to = below(Lists);
                size_t from = 0;
                while (from < Lists && !models[from]->has(id))
                    ++from;
                if (below(4) == 0) {
                    const unsigned ticks = 1 + below(5);
                    models[to]->tic(ticks);
                    ASSERT_EQ(models[to]->headTime(), lists[to].tic(ticks)) << "seed " << seed;
                } else if (below(2) == 0) {
                    if (from < Lists)
                        models[from]->del(id);
                    ASSERT_EQ(from < Lists ? models[from]->headTime() : 0, entries[id]->del()) << "seed " << seed;
                } else {
                    const unsigned time = 1 + below(20);
                    if (from < Lists)
                        models[from]->del(id);
                    models[to]->add(id, time);
                    ASSERT_EQ(models[to]->headTime(), entries[id]->add(&lists[to], time)) << "seed " << seed;
                }
                for (size_t i = 0; i < Lists; ++i)
                    ASSERT_STREQ(nullptr, brokenInvariant(lists[i])) << "seed " << seed;
                for (size_t e = 0; e < Entries; ++e) {
                    for (size_t i = 0; i < Lists; ++i)
                        ASSERT_EQ(models[i]->has(e), entries[e]->getList() == &lists[i]) << "seed " << seed;
                    if (CDeltaList *list = entries[e]->getList()) {
                        ASSERT_EQ(models[static_cast<size_t>(list - lists.data())]->left(e),
                                  entries[e]->getEntryAgeOut());
                    }
                }
            }
        }
        for (size_t i = 0; i < Lists; ++i)
            semGive(sem); // each list left it taken
        semDelete(sem);
    }
}
