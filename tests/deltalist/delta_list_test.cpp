#include "deltalist.h"

#include "harness/printed_by.h"
#include "models/delta_list_model.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
class Timer : public CDeltaListEntry
{
public:
    void aged() override
    {
        ++timesAged;
        if (inAged)
            inAged(*this);
    }
    std::function<void(Timer &)> inAged;
    int timesAged = 0;
};

class WatchedList : private ClientSemaphore, public CDeltaList
{
public:
    explicit WatchedList(unsigned int newTailTime = 10, unsigned int newTicSize = 1, bool isAstable = false)
    {
        initSem(sem);
        init(newTailTime, newTicSize, isAstable);
    }
    unsigned int getDeltaT() override
    {
        return elapsed;
    }
    void awaken() override
    {
        ++awakened;
        headAtAwaken = head;
    }
    unsigned int elapsed = 0;
    int awakened = 0;
    CDeltaListEntry *headAtAwaken = nullptr;
};

std::vector<CDeltaListEntry *> entriesOf(const CDeltaList &list)
{
    std::vector<CDeltaListEntry *> entries;
    for (CDeltaListEntry *entry = list.head; entry != nullptr; entry = entry->next)
        entries.push_back(entry);
    return entries;
}

std::vector<unsigned int> deltasOf(const CDeltaList &list)
{
    std::vector<unsigned int> deltas;
    for (const CDeltaListEntry *entry = list.head; entry != nullptr; entry = entry->next)
        deltas.push_back(entry->time);
    return deltas;
}

bool isFree(const CDeltaListEntry &entry)
{
    return entry.next == nullptr && entry.prev == nullptr && entry.time == 0;
}

// Another thread's view of a semaphore: whether it can be taken.
bool canBeTakenElsewhere(SEM_ID sem)
{
    bool taken = false;
    std::thread([&] {
        taken = semTake(sem, 0) == 0;
        if (taken)
            semGive(sem);
    }).join();
    return taken;
}

// Three timers, added with times 5, 5 and 3.
class ThreeOnAList : public testing::Test
{
protected:
    ThreeOnAList()
    {
        list.add(&first5, 5);
        list.add(&second5, 5);
        list.add(&the3, 3);
    }
    WatchedList list;
    Timer first5, second5, the3;
};
} // namespace

TEST(DeltaListConstruction, MakesAnEmptyListWithoutASemaphore)
{
    const CDeltaList *list = new CDeltaList("ports");
    EXPECT_EQ(nullptr, list->head);
    EXPECT_EQ(nullptr, list->tail);
    EXPECT_EQ(nullptr, list->killHead);
    EXPECT_EQ(nullptr, list->killTail);
    EXPECT_EQ(0U, list->totalTime + list->tailTime + list->ticSize + list->numEntries + list->upTime);
    EXPECT_EQ(nullptr, list->dbID);
    EXPECT_FALSE(list->externalSem);
    EXPECT_FALSE(list->astable);
    EXPECT_STREQ("ports", list->name);
    // The missing semaphore is noticed at the end.
    EXPECT_EQ("semTake: error taking sem\n", printedBy([&] { delete list; }));
}

TEST(DeltaListConstruction, CopiesNeitherListsNorEntries)
{
    EXPECT_FALSE(std::is_copy_constructible_v<CDeltaList>);
    EXPECT_FALSE(std::is_copy_assignable_v<CDeltaList>);
    EXPECT_FALSE(std::is_copy_constructible_v<CDeltaListEntry>);
    EXPECT_FALSE(std::is_copy_assignable_v<CDeltaListEntry>);
    EXPECT_FALSE(std::is_copy_constructible_v<CDeltaListSmartEntry>);
}

TEST(DeltaListSemaphore, NullMakesTheListCreateARecursiveMutexOfItsOwn)
{
    CDeltaList list;
    EXPECT_NE(0, list.initSem(nullptr));
    ASSERT_NE(nullptr, list.dbID);
    EXPECT_EQ(0, list.dbID->kind);
    EXPECT_FALSE(list.externalSem);
    EXPECT_EQ(0, semTake(list.dbID, 0));
    EXPECT_EQ(0, semTake(list.dbID, 0));
    EXPECT_EQ(0, semGive(list.dbID));
    EXPECT_EQ(0, semGive(list.dbID));
}

TEST(DeltaListSemaphore, AClientsOneIsUsedAndMarkedAsExternal)
{
    SEM_ID sem = semMCreate(0);
    {
        CDeltaList list;
        EXPECT_EQ(1, list.initSem(sem));
        EXPECT_EQ(sem, list.dbID);
        EXPECT_TRUE(list.externalSem);
    }
    EXPECT_EQ(0, semGive(sem)); // left taken by the destructor
    EXPECT_EQ(0, semDelete(sem));
}

TEST(DeltaList, DestructorLeavesAnExternalSemaphoreTaken)
{
    SEM_ID sem = semMCreate(0);
    {
        CDeltaList list;
        list.initSem(sem);
        list.init(10, 1, false);
        EXPECT_TRUE(canBeTakenElsewhere(sem));
    }
    EXPECT_FALSE(canBeTakenElsewhere(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_TRUE(canBeTakenElsewhere(sem)); // it was taken once
    EXPECT_EQ(0, semDelete(sem));
}

// The holder has to be woken first, so a destructor that did not wait would be done long before.
TEST(DeltaList, DestructorWaitsForTheLock)
{
    auto list = std::make_unique<CDeltaList>();
    list->initSem(nullptr);
    list->init(10, 1, false);
    SEM_ID lock = list->dbID, ready = semBCreate(0, SEM_EMPTY), goOn = semBCreate(0, SEM_EMPTY);
    bool released = false;
    std::thread holder([&] {
        semTake(lock, 0xFFFFFFFF);
        semGive(ready);
        semTake(goOn, 0xFFFFFFFF);
        released = true;
        semGive(lock);
    });
    semTake(ready, 0xFFFFFFFF);
    semGive(goOn);
    list.reset();
    EXPECT_TRUE(released);
    holder.join();
    semDelete(ready);
    semDelete(goOn);
}

TEST(DeltaList, DestructorClearsTheListAndLeavesItsEntriesAlone)
{
    alignas(CDeltaList) unsigned char memory[sizeof(CDeltaList)];
    SEM_ID sem = semMCreate(0);
    Timer first, second;
    auto *list = new (memory) CDeltaList;
    list->initSem(sem);
    list->init(10, 3, true);
    list->add(&first, 4);
    list->add(&second, 6);
    const auto *from = reinterpret_cast<const unsigned char *>(&list->head);
    const auto *to = reinterpret_cast<const unsigned char *>(&list->dbID);
    list->~CDeltaList();

    EXPECT_TRUE(std::all_of(from, to, [](unsigned char byte) { return byte == 0; }));
    EXPECT_EQ(&second, first.next);
    EXPECT_EQ(&first, second.prev);
    EXPECT_EQ(4U, first.time);
    EXPECT_EQ(2U, second.time);
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semDelete(sem));
}

TEST(DeltaList, InitStoresTheSettingsAndEmptiesTheList)
{
    WatchedList list(10, 1, false);
    Timer timer;
    list.add(&timer, 5);
    list.tic(2);
    list.init(20, 3, true);
    EXPECT_EQ(20U, list.tailTime);
    EXPECT_EQ(3U, list.ticSize);
    EXPECT_TRUE(list.astable);
    EXPECT_EQ(nullptr, list.head);
    EXPECT_EQ(nullptr, list.tail);
    EXPECT_EQ(0U, list.totalTime);
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_EQ(0U, list.upTime);
    EXPECT_TRUE(canBeTakenElsewhere(list.dbID));
}

TEST(DeltaList, InitWithoutArgumentsKeepsTheSettingsAndForgetsTheEntries)
{
    WatchedList list(20, 3, true);
    Timer timer;
    list.add(&timer, 5);
    list.tic(2);
    list.init();
    EXPECT_EQ(20U, list.tailTime);
    EXPECT_EQ(3U, list.ticSize);
    EXPECT_TRUE(list.astable);
    EXPECT_THAT(entriesOf(list), IsEmpty());
    EXPECT_EQ(nullptr, list.tail);
    EXPECT_EQ(0U, list.totalTime + list.numEntries + list.upTime);
    EXPECT_EQ(3U, timer.time); // forgotten, not zeroed
}

TEST(DeltaList, InitForgetsTheKillListToo)
{
    WatchedList list;
    Timer timer;
    list.add(&timer, 5);
    list.pop();
    ASSERT_EQ(&timer, list.killHead);
    list.init();
    EXPECT_EQ(nullptr, list.killHead);
    EXPECT_EQ(nullptr, list.killTail);
    list.tic(100);
    EXPECT_EQ(0, timer.timesAged);
}

TEST_F(ThreeOnAList, Times5And5And3GiveTheOrder3ThenBoth5InTheOrderAdded)
{
    EXPECT_THAT(entriesOf(list), ElementsAre(&the3, &first5, &second5));
    EXPECT_THAT(deltasOf(list), ElementsAre(3U, 2U, 0U));
    EXPECT_EQ(5U, list.totalTime);
    EXPECT_EQ(3U, list.numEntries);
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST_F(ThreeOnAList, Tic3AgesTheFirstThenTic2BothOthersInTheOrderAdded)
{
    std::vector<Timer *> aged;
    for (Timer *timer : {&first5, &second5, &the3})
        timer->inAged = [&](Timer &self) { aged.push_back(&self); };
    EXPECT_EQ(2U, list.tic(3));
    EXPECT_THAT(aged, ElementsAre(&the3));
    EXPECT_EQ(0U, list.tic(2));
    EXPECT_THAT(aged, ElementsAre(&the3, &first5, &second5));
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_EQ(0U, list.totalTime);
    EXPECT_EQ(nullptr, list.tail);
}

TEST(DeltaListAdd, EmptyListTakesTheEntryAsHeadAndTail)
{
    WatchedList list;
    Timer timer;
    EXPECT_EQ(7U, list.add(&timer, 7));
    EXPECT_EQ(&timer, list.head);
    EXPECT_EQ(&timer, list.tail);
    EXPECT_EQ(7U, timer.time);
    EXPECT_EQ(7U, list.totalTime);
    EXPECT_EQ(1U, list.numEntries);
}

TEST(DeltaListAdd, InFrontOfAllTheOldHeadKeepsItsExpiry)
{
    WatchedList list;
    Timer later, sooner;
    list.add(&later, 7);
    EXPECT_EQ(3U, list.add(&sooner, 3));
    EXPECT_THAT(entriesOf(list), ElementsAre(&sooner, &later));
    EXPECT_THAT(deltasOf(list), ElementsAre(3U, 4U));
    EXPECT_EQ(7U, list.totalTime);
}

TEST(DeltaListAdd, BetweenTwoTheSuccessorKeepsItsExpiry)
{
    WatchedList list;
    Timer a, b, c;
    list.add(&a, 2);
    list.add(&c, 9);
    EXPECT_EQ(2U, list.add(&b, 6));
    EXPECT_THAT(entriesOf(list), ElementsAre(&a, &b, &c));
    EXPECT_THAT(deltasOf(list), ElementsAre(2U, 4U, 3U));
    EXPECT_EQ(9U, list.totalTime);
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST(DeltaListAdd, BehindAllTheTotalGrows)
{
    WatchedList list;
    Timer a, b;
    list.add(&a, 2);
    EXPECT_EQ(2U, list.add(&b, 6));
    EXPECT_EQ(&b, list.tail);
    EXPECT_EQ(4U, b.time);
    EXPECT_EQ(6U, list.totalTime);
}

TEST(DeltaListAdd, TieGoesBehindEveryFollowerThatIsDueTogether)
{
    WatchedList list;
    Timer a, b, c, later, tie;
    list.add(&a, 4);
    list.add(&b, 4);
    list.add(&c, 4);
    list.add(&later, 8);
    list.add(&tie, 4);
    EXPECT_THAT(entriesOf(list), ElementsAre(&a, &b, &c, &tie, &later));
    EXPECT_THAT(deltasOf(list), ElementsAre(4U, 0U, 0U, 0U, 4U));
}

// The search itself never stops in front of a follower with a delta of 0; an owner that moved the tail back by hand
// does.
TEST(DeltaListAdd, FollowersThatAreDueTogetherAreSteppedOverBehindATailThatWasMovedBack)
{
    WatchedList list;
    Timer a, b, c, added;
    list.add(&a, 4);
    list.add(&b, 4);
    list.add(&c, 4);
    list.tail = &a;
    list.add(&added, 4);
    EXPECT_THAT(entriesOf(list), ElementsAre(&a, &b, &c, &added));
    EXPECT_EQ(&c, added.prev);
    list.tail = &added;
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST(DeltaListAdd, TieWithTheTailMakesTheEntryTheTail)
{
    WatchedList list;
    Timer a, b;
    list.add(&a, 4);
    list.add(&b, 4);
    EXPECT_EQ(&b, list.tail);
    EXPECT_EQ(0U, b.time);
    EXPECT_EQ(4U, list.totalTime);
}

TEST(DeltaListAdd, Time0IsTheTailTime)
{
    WatchedList list(10);
    Timer e, f;
    EXPECT_EQ(10U, list.add(&e, 0));
    EXPECT_EQ(10U, e.time);
    EXPECT_EQ(10U, list.totalTime);
    EXPECT_EQ(10U, list.add(&f, 0));
    EXPECT_EQ(0U, f.time);
    EXPECT_EQ(10U, list.totalTime);
    EXPECT_EQ(&f, list.tail);
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST(DeltaListAdd, Time0SearchesWhenSomethingExpiresAfterTheTailTime)
{
    WatchedList list(10);
    Timer late, atTailTime;
    list.add(&late, 15);
    EXPECT_EQ(10U, list.add(&atTailTime, 0));
    EXPECT_THAT(entriesOf(list), ElementsAre(&atTailTime, &late));
    EXPECT_THAT(deltasOf(list), ElementsAre(10U, 5U));
    EXPECT_EQ(15U, list.totalTime);
}

TEST(DeltaListAdd, Time0SearchesWhenTheLastTicIsPartlyOver)
{
    WatchedList list(10);
    Timer first, second;
    list.add(&first, 0);
    list.elapsed = 2;
    EXPECT_EQ(10U, list.add(&second, 0));
    EXPECT_THAT(deltasOf(list), ElementsAre(10U, 2U)); // at 12: the next tic counts 2 too many
    EXPECT_EQ(12U, list.totalTime);
}

TEST(DeltaListAdd, Time0WithoutATailTimeStillCountsTheElapsedTime)
{
    WatchedList list(0);
    Timer first, second;
    list.add(&first, 9);
    list.elapsed = 4;
    EXPECT_EQ(4U, list.add(&second, 0));
    EXPECT_THAT(entriesOf(list), ElementsAre(&second, &first));
    EXPECT_THAT(deltasOf(list), ElementsAre(4U, 5U));
}

TEST(DeltaList, TimeZeroAddWithoutATailTimeWrapsTheDeltaAndDropsTheTotal)
{
    WatchedList list(0);
    Timer first, second;
    list.add(&first, 5);
    EXPECT_EQ(5U, list.add(&second, 0));
    EXPECT_THAT(entriesOf(list), ElementsAre(&first, &second));
    EXPECT_EQ(0xFFFFFFFBU, second.time); // 0 - 5
    EXPECT_EQ(0U, list.totalTime);
    EXPECT_EQ(2U, list.numEntries);
}

TEST(DeltaListAdd, Time0WithoutATailTimeOnAnEmptyListIsDueAtOnce)
{
    WatchedList list(0);
    Timer timer;
    EXPECT_EQ(0U, list.add(&timer, 0));
    EXPECT_EQ(0U, list.totalTime);
    list.tic(0); // a tic of any length
    EXPECT_EQ(1, timer.timesAged);
}

TEST(DeltaListAdd, ElapsedTimeIsAddedToAnExplicitTime)
{
    WatchedList list;
    Timer timer;
    list.elapsed = 3;
    EXPECT_EQ(8U, list.add(&timer, 5));
    EXPECT_EQ(8U, list.totalTime);
}

TEST(DeltaListAdd, SumWithTheElapsedTimeStopsAtTheLongestTime)
{
    WatchedList list;
    Timer below, at, above;
    list.elapsed = 5;
    list.add(&below, 0xFFFFFFFF - 6);
    EXPECT_EQ(0xFFFFFFFE, list.totalTime);
    list.add(&at, 0xFFFFFFFF - 5);
    list.add(&above, 0xFFFFFFFF);
    EXPECT_THAT(entriesOf(list), ElementsAre(&below, &at, &above));
    EXPECT_THAT(deltasOf(list), ElementsAre(0xFFFFFFFE, 1U, 0U));
    EXPECT_EQ(0xFFFFFFFF, list.totalTime);
}

TEST(DeltaListAdd, LongestTimeOnAnEmptyListMakesTheHead)
{
    WatchedList list;
    Timer timer;
    list.elapsed = 1;
    EXPECT_EQ(0xFFFFFFFF, list.add(&timer, 0xFFFFFFFF));
    EXPECT_EQ(&timer, list.head);
    EXPECT_EQ(&timer, list.tail);
    EXPECT_EQ(0xFFFFFFFF, list.totalTime);
}

TEST(DeltaListAdd, LongestTimeWithoutElapsedTimeIsTakenAsItIs)
{
    WatchedList list;
    Timer timer;
    EXPECT_EQ(0xFFFFFFFF, list.add(&timer, 0xFFFFFFFF));
}

TEST(DeltaListAdd, AwakenIsCalledForANewHeadOnly)
{
    WatchedList list;
    Timer a, b, c;
    list.add(&a, 5);
    EXPECT_EQ(1, list.awakened);
    EXPECT_EQ(&a, list.headAtAwaken);
    list.add(&b, 9);
    EXPECT_EQ(1, list.awakened);
    list.add(&c, 2);
    EXPECT_EQ(2, list.awakened);
    EXPECT_EQ(&c, list.headAtAwaken);
}

TEST(DeltaListAdd, AwakenRunsUnderTheLock)
{
    class List : public WatchedList
    {
    public:
        void awaken() override
        {
            lockIsFree = canBeTakenElsewhere(dbID);
        }
        bool lockIsFree = true;
    };
    List list;
    Timer timer;
    list.add(&timer, 5);
    EXPECT_FALSE(list.lockIsFree);
}

TEST_F(ThreeOnAList, AddOfAnEntryThatIsOnTheListIsRefusedWithAMessageAndChangesNothing)
{
    for (Timer *timer : {&the3, &first5, &second5}) { // head, middle, tail
        unsigned int result = 0;
        EXPECT_EQ("Add error(entry):0\n", printedBy([&] { result = list.add(timer, 1); }));
        EXPECT_EQ(3U, result);
    }
    EXPECT_THAT(entriesOf(list), ElementsAre(&the3, &first5, &second5));
    EXPECT_THAT(deltasOf(list), ElementsAre(3U, 2U, 0U));
    EXPECT_EQ(3U, list.numEntries);
}

TEST(DeltaListAdd, OnlyEntryOfAListIsRecognisedThoughItHasNoLinks)
{
    WatchedList list;
    Timer timer;
    list.add(&timer, 5);
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { EXPECT_EQ(5U, list.add(&timer, 1)); }));
    EXPECT_EQ(5U, timer.time);
    EXPECT_EQ(1U, list.numEntries);
}

TEST(DeltaListAdd, NullIsRefusedWithAMessage)
{
    WatchedList list;
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { EXPECT_EQ(0U, list.add(nullptr, 1)); }));
    EXPECT_EQ(0U, list.numEntries);
}

TEST(DeltaListAdd, EntryWithLinksOfAnotherListIsRefused)
{
    WatchedList list, other;
    Timer a, b;
    other.add(&a, 1);
    other.add(&b, 2);
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { list.add(&a, 1); }));
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { list.add(&b, 1); }));
}

TEST(DeltaListAdd, RefusalOnAListWithoutASemaphorePrintsNothingElse)
{
    auto list = std::make_unique<CDeltaList>();
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { list->add(nullptr, 1); }));
    printedBy([&] { list.reset(); });
}

// Clients may override what add and del do; the list goes through that.
TEST(DeltaListAdd, GoesThroughTheEntrysOwnAddAndDel)
{
    class Stubborn : public CDeltaListEntry
    {
    public:
        unsigned int add(CDeltaList *to, unsigned int newTime) override
        {
            list = to;
            asked = newTime;
            return 111;
        }
        unsigned int del(CDeltaList *from) override
        {
            list = from;
            return 222;
        }
        CDeltaList *list = nullptr;
        unsigned int asked = 0;
    };
    WatchedList list;
    Stubborn entry;
    EXPECT_EQ(111U, list.add(&entry, 7));
    EXPECT_EQ(&list, entry.list);
    EXPECT_EQ(7U, entry.asked);
    entry.list = nullptr;
    EXPECT_EQ(222U, list.del(&entry));
    EXPECT_EQ(&list, entry.list);
    EXPECT_EQ(111U, list.touch(&entry, 9));
    EXPECT_EQ(9U, entry.asked);
    EXPECT_THAT(entriesOf(list), IsEmpty());
}

TEST_F(ThreeOnAList, DeleteOfTheHeadLetsTheNextKeepItsExpiry)
{
    EXPECT_EQ(5U, list.del(&the3));
    EXPECT_THAT(entriesOf(list), ElementsAre(&first5, &second5));
    EXPECT_THAT(deltasOf(list), ElementsAre(5U, 0U));
    EXPECT_EQ(5U, list.totalTime);
    EXPECT_TRUE(isFree(the3));
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST_F(ThreeOnAList, DeleteInTheMiddleGivesItsDeltaToTheNext)
{
    EXPECT_EQ(3U, list.del(&first5));
    EXPECT_THAT(entriesOf(list), ElementsAre(&the3, &second5));
    EXPECT_THAT(deltasOf(list), ElementsAre(3U, 2U));
    EXPECT_EQ(5U, list.totalTime);
    EXPECT_TRUE(isFree(first5));
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST_F(ThreeOnAList, DeleteOfTheTailShrinksTheTotal)
{
    list.del(&second5);
    EXPECT_EQ(5U, list.totalTime);
    EXPECT_EQ(3U, list.del(&first5));
    EXPECT_EQ(3U, list.totalTime);
    EXPECT_EQ(&the3, list.tail);
    EXPECT_EQ(0U, list.del(&the3));
    EXPECT_EQ(0U, list.totalTime);
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_EQ(nullptr, list.head);
    EXPECT_EQ(nullptr, list.tail);
}

TEST_F(ThreeOnAList, DeleteOfNullReturnsTheHeadTime)
{
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(3U, list.del(nullptr)); }));
    EXPECT_EQ(3U, list.numEntries);
}

TEST(DeltaList, DeleteOfAnEntryThatIsNotOnTheListStillZeroesItAndCountsDown)
{
    WatchedList list;
    Timer on, off;
    list.add(&on, 5);
    off.time = 77;
    EXPECT_EQ("Del error(head) - entry not on list:0\nDel error(tail) - entry not on list:0\n",
              printedBy([&] { EXPECT_EQ(5U, list.del(&off)); }));
    EXPECT_TRUE(isFree(off));
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_THAT(entriesOf(list), ElementsAre(&on));
    EXPECT_EQ(5U, list.totalTime);
}

TEST(DeltaListDel, EachEndIsReportedForItself)
{
    WatchedList list, other;
    Timer head, tail;
    other.add(&head, 5);
    other.add(&tail, 7);
    EXPECT_EQ("Del error(head) - entry not on list:0\n", printedBy([&] { list.del(&head); }));
    EXPECT_EQ(7U, tail.time); // the neighbour on the other list took over the delta
    EXPECT_EQ(nullptr, tail.prev);
    EXPECT_EQ(0xFFFFFFFFU, list.numEntries);

    Timer again;
    WatchedList third;
    third.add(&head, 5);
    third.add(&again, 7);
    EXPECT_EQ("Del error(tail) - entry not on list:0\n", printedBy([&] { list.del(&again); }));
    EXPECT_EQ(nullptr, head.next);
}

TEST_F(ThreeOnAList, TouchMovesTheEntryToItsNewTime)
{
    EXPECT_EQ(5U, list.touch(&the3, 8));
    EXPECT_THAT(entriesOf(list), ElementsAre(&first5, &second5, &the3));
    EXPECT_THAT(deltasOf(list), ElementsAre(5U, 0U, 3U));
    EXPECT_EQ(3U, list.numEntries);
    EXPECT_EQ(5U, list.touch(&first5, 0)); // the tail time, 10
    EXPECT_EQ(10U, list.getEntryAgeOut(&first5));
}

TEST(DeltaListTouch, OfAnEntryThatIsNotOnTheListReportsAndAdds)
{
    WatchedList list;
    Timer timer;
    EXPECT_EQ("Del error(head) - entry not on list:0\nDel error(tail) - entry not on list:0\n",
              printedBy([&] { EXPECT_EQ(4U, list.touch(&timer, 4)); }));
    EXPECT_THAT(entriesOf(list), ElementsAre(&timer));
    EXPECT_EQ(0U, list.numEntries); // one down, one up
}

TEST(DeltaListTouch, OfNullReportsTheAdd)
{
    WatchedList list;
    EXPECT_EQ("Add error(entry):0\n", printedBy([&] { EXPECT_EQ(0U, list.touch(nullptr, 4)); }));
}

TEST_F(ThreeOnAList, GetNextWalksFromTheHeadToNull)
{
    EXPECT_EQ(&the3, list.getNext(nullptr));
    EXPECT_EQ(&first5, list.getNext(&the3));
    EXPECT_EQ(&second5, list.getNext(&first5));
    EXPECT_EQ(nullptr, list.getNext(&second5));
    EXPECT_EQ(nullptr, WatchedList().getNext(nullptr));
}

TEST_F(ThreeOnAList, GetEntryAgeOutSumsTheDeltasUpToTheHead)
{
    EXPECT_EQ(3U, list.getEntryAgeOut(&the3));
    EXPECT_EQ(5U, list.getEntryAgeOut(&first5));
    EXPECT_EQ(5U, list.getEntryAgeOut(&second5));
    EXPECT_EQ(0U, list.getEntryAgeOut(nullptr));
    list.tic(1);
    EXPECT_EQ(4U, list.getEntryAgeOut(&second5));
    // Which list the entry is on is not checked.
    EXPECT_EQ(4U, WatchedList().getEntryAgeOut(&second5));
}

TEST_F(ThreeOnAList, PopMovesTheHeadToTheKillListWhateverItsTime)
{
    EXPECT_EQ(2U, list.pop());
    EXPECT_THAT(entriesOf(list), ElementsAre(&first5, &second5));
    EXPECT_EQ(nullptr, first5.prev);
    EXPECT_EQ(2U, list.totalTime);
    EXPECT_EQ(2U, list.numEntries);
    EXPECT_EQ(&the3, list.killHead);
    EXPECT_EQ(&the3, list.killTail);
    EXPECT_TRUE(isFree(the3));
    EXPECT_EQ(0U, list.pop()); // the new head has delta 0
    EXPECT_EQ(&first5, the3.next);
    EXPECT_EQ(&the3, first5.prev);
    EXPECT_EQ(&first5, list.killTail);
    EXPECT_STREQ(nullptr, brokenInvariant(list));
    EXPECT_EQ(0U, list.pop());
    EXPECT_EQ(nullptr, list.head);
    EXPECT_EQ(nullptr, list.tail);
    EXPECT_EQ(0U, list.pop()); // empty
    EXPECT_EQ(0U, list.numEntries);
    EXPECT_EQ(0, the3.timesAged);
    list.tic(1);
    EXPECT_EQ(1, the3.timesAged);
    EXPECT_EQ(1, first5.timesAged);
    EXPECT_EQ(1, second5.timesAged);
    EXPECT_EQ(nullptr, list.killHead);
    EXPECT_EQ(nullptr, list.killTail);
}

TEST_F(ThreeOnAList, PopReportsAListWhoseLinksDoNotAgree)
{
    first5.next = nullptr; // cuts off the tail
    list.pop();
    EXPECT_EQ("pop Error:2\n", printedBy([&] { EXPECT_EQ(0U, list.pop()); }));
    EXPECT_EQ(nullptr, list.head);
    EXPECT_EQ(&second5, list.tail);
    EXPECT_EQ(&first5, list.killTail);
}

TEST(DeltaListTic, ExactlyTheTimeLeftExpiresTheEntryAndLessDoesNot)
{
    WatchedList list;
    Timer timer;
    list.add(&timer, 5);
    EXPECT_EQ(1U, list.tic(4));
    EXPECT_EQ(0, timer.timesAged);
    EXPECT_EQ(1U, list.totalTime);
    EXPECT_EQ(0U, list.tic(1));
    EXPECT_EQ(1, timer.timesAged);
}

TEST(DeltaListTic, OfZeroAdvancesByTheTicSize)
{
    WatchedList list(10, 4);
    Timer timer;
    list.add(&timer, 9);
    EXPECT_EQ(5U, list.tic(0));
    EXPECT_EQ(4U, list.upTime);
    EXPECT_EQ(1U, list.tic(0));
    EXPECT_EQ(8U, list.upTime);
    EXPECT_EQ(0U, list.tic(0));
    EXPECT_EQ(1, timer.timesAged);
    EXPECT_EQ(12U, list.upTime);
}

TEST(DeltaListTic, SpansSeveralExpiriesAndShortensTheRest)
{
    WatchedList list;
    Timer a, b, c;
    list.add(&a, 2);
    list.add(&b, 5);
    list.add(&c, 9);
    EXPECT_EQ(2U, list.tic(7));
    EXPECT_EQ(1, a.timesAged + b.timesAged - 1);
    EXPECT_EQ(0, c.timesAged);
    EXPECT_THAT(entriesOf(list), ElementsAre(&c));
    EXPECT_EQ(2U, list.totalTime);
    EXPECT_EQ(nullptr, c.prev);
}

TEST(DeltaListTic, OnAnEmptyListOnlyCountsTheTime)
{
    WatchedList list;
    EXPECT_EQ(0U, list.tic(7));
    EXPECT_EQ(7U, list.upTime);
    list.tic(0xFFFFFFFF);
    EXPECT_EQ(6U, list.upTime); // wraps
}

TEST(DeltaListTic, EntriesAreZeroedBeforeTheyAge)
{
    class Zeroing : public CDeltaListEntry
    {
    public:
        void zero() override
        {
            CDeltaListEntry::zero();
            zeroed = true;
        }
        void aged() override
        {
            zeroedFirst = zeroed;
        }
        bool zeroed = false, zeroedFirst = false;
    };
    WatchedList list;
    Zeroing timer;
    list.add(&timer, 1);
    list.tic(1);
    EXPECT_TRUE(timer.zeroedFirst);
}

TEST(DeltaListTic, EverythingDueHasLeftTheListBeforeTheFirstIsAged)
{
    WatchedList list;
    Timer first, second, later;
    list.add(&first, 1);
    list.add(&second, 2);
    list.add(&later, 9);
    unsigned int left = 0;
    CDeltaListEntry *waiting = nullptr;
    first.inAged = [&](Timer &) {
        left = list.numEntries;
        waiting = list.killHead;
    };
    list.tic(2);
    EXPECT_EQ(1U, left);
    EXPECT_EQ(&second, waiting);
}

TEST(DeltaListTic, AgedRunsUnderTheLock)
{
    WatchedList list;
    Timer timer;
    bool lockIsFree = true;
    timer.inAged = [&](Timer &) { lockIsFree = canBeTakenElsewhere(list.dbID); };
    list.add(&timer, 1);
    list.tic(1);
    EXPECT_FALSE(lockIsFree);
    EXPECT_TRUE(canBeTakenElsewhere(list.dbID));
}

TEST(DeltaListAged, MayAddTheEntryItselfAgain)
{
    WatchedList list;
    Timer timer;
    timer.inAged = [&](Timer &self) { list.add(&self, 4); };
    list.add(&timer, 1);
    EXPECT_EQ(4U, list.tic(3)); // the time that the tic went too far is not counted
    EXPECT_THAT(entriesOf(list), ElementsAre(&timer));
    list.tic(4);
    EXPECT_EQ(2, timer.timesAged);
}

TEST(DeltaListAged, MayAddDeleteAndMoveOthers)
{
    WatchedList list;
    Timer aging, added, deleted, moved;
    list.add(&aging, 1);
    list.add(&deleted, 5);
    list.add(&moved, 6);
    aging.inAged = [&](Timer &) {
        list.add(&added, 2);
        list.del(&deleted);
        list.touch(&moved, 1);
    };
    EXPECT_EQ(1U, list.tic(1));
    EXPECT_THAT(entriesOf(list), ElementsAre(&moved, &added));
    EXPECT_THAT(deltasOf(list), ElementsAre(1U, 1U));
    EXPECT_TRUE(isFree(deleted));
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST(DeltaListAged, MayDestroyTheEntry)
{
    WatchedList list;
    auto timer = std::make_unique<Timer>();
    auto next = std::make_unique<Timer>();
    timer->inAged = [&](Timer &) { timer.reset(); };
    next->inAged = [&](Timer &) { next.reset(); };
    list.add(timer.get(), 1);
    list.add(next.get(), 1);
    list.tic(1);
    EXPECT_EQ(nullptr, timer);
    EXPECT_EQ(nullptr, next);
}

TEST(DeltaListAged, MayTicTheListAgain)
{
    WatchedList list;
    Timer first, second, third;
    std::vector<Timer *> order;
    first.inAged = [&](Timer &self) {
        order.push_back(&self);
        list.tic(5);
    };
    second.inAged = third.inAged = [&](Timer &self) { order.push_back(&self); };
    list.add(&first, 1);
    list.add(&second, 1);
    list.add(&third, 4);
    list.tic(1);
    EXPECT_THAT(order, ElementsAre(&first, &second, &third));
    EXPECT_EQ(6U, list.upTime);
}

TEST(DeltaListAged, WhatItPutsOntoTheKillListIsAgedInTheSameTic)
{
    WatchedList list;
    Timer first, popped;
    first.inAged = [&](Timer &) { list.pop(); };
    list.add(&first, 1);
    list.add(&popped, 9);
    list.tic(1);
    EXPECT_EQ(1, popped.timesAged);
    EXPECT_EQ(nullptr, list.killHead);
}

TEST(DeltaListAged, MayEmptyTheListWithInit)
{
    WatchedList list;
    Timer first, waiting;
    first.inAged = [&](Timer &) { list.init(); };
    list.add(&first, 1);
    list.add(&waiting, 1);
    list.tic(1);
    EXPECT_EQ(0, waiting.timesAged); // forgotten
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

// Clients are told not to; the owner of the entry may release it right afterwards, so nothing may lead to it any more.
TEST(DeltaListAged, MayEvenDeleteOneThatWaitsForItsOwnAgedCall)
{
    for (int victim = 0; victim < 3; ++victim) {
        WatchedList list;
        Timer first, last;
        std::vector<std::unique_ptr<Timer>> waiting;
        list.add(&first, 1);
        for (int i = 0; i < 3; ++i) {
            waiting.push_back(std::make_unique<Timer>());
            list.add(waiting.back().get(), 1);
        }
        first.inAged = [&](Timer &) {
            list.del(waiting[static_cast<size_t>(victim)].get());
            waiting[static_cast<size_t>(victim)].reset();
            list.add(&last, 1);
        };
        const std::string printed = printedBy([&] { list.tic(1); });
        EXPECT_EQ(victim == 0   ? "Del error(head) - entry not on list:0\n"
                  : victim == 1 ? ""
                                : "Del error(tail) - entry not on list:0\n",
                  printed);
        for (const auto &timer : waiting)
            EXPECT_EQ(1, timer == nullptr ? 1 : timer->timesAged);
        EXPECT_EQ(nullptr, list.killHead);
        EXPECT_EQ(nullptr, list.killTail);
        EXPECT_THAT(entriesOf(list), ElementsAre(&last));
        EXPECT_EQ(0U, list.numEntries); // counted down once too often, as for any entry that is not on the list
    }
}

TEST(DeltaListAged, MayEvenAddOneThatWaitsAloneForItsOwnAgedCall)
{
    WatchedList list;
    Timer first, waiting, later;
    list.add(&first, 1);
    list.add(&waiting, 1);
    list.add(&later, 8);
    first.inAged = [&](Timer &) { list.add(&waiting, 3); };
    list.tic(1);
    EXPECT_EQ(0, waiting.timesAged);
    EXPECT_THAT(entriesOf(list), ElementsAre(&waiting, &later));
    EXPECT_STREQ(nullptr, brokenInvariant(list));
}

TEST(DeltaListAstable, EntryFiresEveryTailTime)
{
    WatchedList list(10, 1, true);
    Timer timer;
    list.add(&timer, 0);
    for (int i = 1; i <= 50; ++i) {
        list.tic(1);
        EXPECT_EQ(i / 10, timer.timesAged);
    }
    EXPECT_EQ(1U, list.numEntries);
}

TEST(DeltaListAstable, FirstTimeMayDifferAndTheOrderIsKept)
{
    WatchedList list(10, 1, true);
    Timer a, b;
    list.add(&a, 3);
    list.add(&b, 3);
    EXPECT_EQ(10U, list.tic(3));
    EXPECT_THAT(entriesOf(list), ElementsAre(&a, &b));
    EXPECT_THAT(deltasOf(list), ElementsAre(10U, 0U));
    EXPECT_EQ(2U, list.numEntries);
}

TEST(DeltaListAstable, EntryIsAddedAgainThroughItsOwnAdd)
{
    class Counting : public CDeltaListEntry
    {
    public:
        unsigned int add(CDeltaList *list, unsigned int newTime) override
        {
            times.push_back(newTime);
            return CDeltaListEntry::add(list, newTime);
        }
        std::vector<unsigned int> times;
    };
    WatchedList list(10, 1, true);
    Counting timer;
    list.add(&timer, 3);
    list.tic(3);
    EXPECT_THAT(timer.times, ElementsAre(3U, 0U));
}

TEST(DeltaListAstable, OtherEntriesMayBeDeletedByAged)
{
    WatchedList list(10, 1, true);
    Timer timer, other;
    timer.inAged = [&](Timer &self) {
        if (self.timesAged == 1)
            list.del(&other);
    };
    list.add(&timer, 2);
    list.add(&other, 5);
    list.tic(2);
    EXPECT_THAT(entriesOf(list), ElementsAre(&timer));
    EXPECT_EQ(10U, list.totalTime);
}

TEST(DeltaList, SetTailTimeWithoutAnAdjustmentReturnsTheTotalTime)
{
    WatchedList list(10);
    Timer a, b;
    list.add(&a, 3);
    list.add(&b, 8);
    EXPECT_EQ(8U, list.setTailTime(4, false));
    EXPECT_EQ(4U, list.tailTime);
    EXPECT_EQ(8U, list.totalTime);
    EXPECT_EQ(8U, list.setTailTime(8, true)); // nothing expires later than that
    EXPECT_EQ(8U, list.tailTime);
    EXPECT_EQ(8U, list.setTailTime(20, true));
    EXPECT_EQ(20U, list.tailTime);
    EXPECT_EQ(2U, list.numEntries);
    EXPECT_TRUE(canBeTakenElsewhere(list.dbID));
}

TEST(DeltaListSetTailTime, WithAnAdjustmentExpiresWhatIsOlderAndLeavesTheTailAtTheNewTime)
{
    WatchedList list(10);
    Timer at5, at6, at7, at10;
    list.add(&at5, 5);
    list.add(&at6, 6);
    list.add(&at7, 7);
    list.add(&at10, 10);
    EXPECT_EQ(1U, list.setTailTime(4, true)); // the head time
    EXPECT_EQ(1, at5.timesAged);
    EXPECT_EQ(1, at6.timesAged);
    EXPECT_EQ(0, at7.timesAged);
    EXPECT_EQ(0, at10.timesAged);
    EXPECT_EQ(4U, list.tailTime);
    EXPECT_EQ(4U, list.totalTime);
    EXPECT_EQ(4U, list.getEntryAgeOut(&at10));
    EXPECT_EQ(0U, list.upTime); // no time has passed
    EXPECT_TRUE(canBeTakenElsewhere(list.dbID));
}

TEST(DeltaListSetTailTime, OnAnAstableListAddsTheExpiredAgainAtTheNewTailTime)
{
    WatchedList list(10, 1, true);
    Timer at6, at10;
    list.add(&at6, 6);
    list.add(&at10, 10);
    EXPECT_EQ(4U, list.setTailTime(4, true));
    EXPECT_EQ(1, at6.timesAged);
    EXPECT_THAT(entriesOf(list), ElementsAre(&at10, &at6));
    EXPECT_THAT(deltasOf(list), ElementsAre(4U, 0U));
}

TEST(DeltaListSetTailTime, Of0ExpiresEverything)
{
    WatchedList list(10);
    Timer a, b;
    list.add(&a, 3);
    list.add(&b, 8);
    EXPECT_EQ(0U, list.setTailTime(0, true));
    EXPECT_EQ(1, a.timesAged);
    EXPECT_EQ(1, b.timesAged);
    EXPECT_EQ(0U, list.numEntries);
}

TEST(DeltaListSetTailTime, OnAnEmptyListReturns0)
{
    WatchedList list(10);
    EXPECT_EQ(0U, list.setTailTime(4, true));
    EXPECT_EQ(4U, list.tailTime);
}

TEST(DeltaListPrint, ShowsEveryFieldALineEach)
{
    SEM_ID sem = semMCreate(0);
    {
        CDeltaList list("port hold-down");
        list.initSem(sem);
        list.init(10, 2, true);
        Timer a, b, c;
        list.add(&a, 3);
        list.add(&b, 0);
        list.add(&c, 3000000000U);
        list.pop();
        list.upTime = 4000000000U;
        EXPECT_EQ(formatted("name           : port hold-down\n"
                            "head pointer   : %p\n"
                            "tail pointer   : %p\n"
                            "killHead ptr   : %p\n"
                            "killTail ptr   : %p\n"
                            "totalTime      : 2999999997\n"
                            "tailTime       : 10\n"
                            "ticSize        : 2\n"
                            "numEntries     : 2\n"
                            "dbID (SEM_ID)  : %p\n"
                            "externalSem    : Y\n"
                            "upTime         : 4000000000\n"
                            "astable        : Y\n",
                            static_cast<void *>(&b), static_cast<void *>(&c), static_cast<void *>(&a),
                            static_cast<void *>(&a), static_cast<void *>(sem)),
                  printedBy([&] { list.printCDeltaList(); }));
    }
    semGive(sem);
    semDelete(sem);
}

TEST(DeltaListPrint, ShowsNullPointersAndBothFlagsOff)
{
    CDeltaList list;
    list.initSem(nullptr);
    list.init(10, 1, false);
    EXPECT_EQ(formatted("name           : \n"
                        "head pointer   : (nil)\n"
                        "tail pointer   : (nil)\n"
                        "killHead ptr   : (nil)\n"
                        "killTail ptr   : (nil)\n"
                        "totalTime      : 0\n"
                        "tailTime       : 10\n"
                        "ticSize        : 1\n"
                        "numEntries     : 0\n"
                        "dbID (SEM_ID)  : %p\n"
                        "externalSem    : N\n"
                        "upTime         : 0\n"
                        "astable        : N\n",
                        static_cast<void *>(list.dbID)),
              printedBy([&] { list.printCDeltaList(); }));
}

// A print from a debugger must work while a stuck thread holds the lock.
TEST(DeltaListPrint, DoesNotLock)
{
    WatchedList list;
    SEM_ID ready = semBCreate(0, SEM_EMPTY), goOn = semBCreate(0, SEM_EMPTY);
    std::thread holder([&] {
        semTake(list.dbID, 0xFFFFFFFF);
        semGive(ready);
        semTake(goOn, 0xFFFFFFFF);
        semGive(list.dbID);
    });
    semTake(ready, 0xFFFFFFFF);
    EXPECT_NE("", printedBy([&] { list.printCDeltaList(); }));
    semGive(goOn);
    holder.join();
    semDelete(ready);
    semDelete(goOn);
}
