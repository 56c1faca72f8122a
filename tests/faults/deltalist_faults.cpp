// deltalist_faults.cpp: the delta list and its entries under faults. Only a list's own lock can fail to be made.
#include "fault_table.h"

#include "deltalist.h"

#include <gtest/gtest.h>

using namespace faults;

namespace
{
struct Initialised {
    Initialised()
    {
        EXPECT_EQ(1, list.initSem(nullptr));
        list.init(100, 1, false);
    }
    CDeltaList list{"list"};
};

void makesTheLock(Injection &injection)
{
    CDeltaList list;
    const int result = injection.during([&] { return list.initSem(nullptr); });
    EXPECT_EQ(injection.failed() ? 0 : 1, result);
    EXPECT_EQ(injection.failed(), list.dbID == nullptr);
    // Without a lock the list works on, for one thread.
    CDeltaListEntry entry;
    list.init(100, 1, false);
    EXPECT_EQ(5U, list.add(&entry, 5));
    EXPECT_EQ(0U, list.del(&entry));
    EXPECT_TRUE(list.dbID == nullptr || isFree(list.dbID));
}

void usesTheList(Injection &injection)
{
    Initialised own;
    CDeltaList &list = own.list;
    CDeltaListEntry first;
    CDeltaListEntry second;
    injection.during([&]() KEL_UNCHECKED_LOCKING {
        list.init();
        list.init(100, 1, false);
        EXPECT_EQ(5U, list.add(&first, 5));
        EXPECT_EQ(5U, list.add(&second, 7));
        EXPECT_EQ(&second, list.getNext(&first));
        EXPECT_EQ(7U, list.getEntryAgeOut(&second));
        EXPECT_EQ(7U, list.touch(&first, 9));
        EXPECT_EQ(9U, list.del(&second));
        EXPECT_EQ(9U, list.internalDel(&first) + 9);
        EXPECT_EQ(3U, list.internalAdd(&first, 3));
        EXPECT_EQ(0U, list.pop());
        EXPECT_EQ(0U, list.tic(1));
        EXPECT_EQ(0U, list.setTailTime(50, true));
        EXPECT_EQ(0U, list.getDeltaT());
        list.awaken();
        list.printCDeltaList();
    });
    EXPECT_TRUE(isFree(list.dbID));
}

void usesEntries(Injection &injection)
{
    Initialised own;
    auto *entry = new CDeltaListEntry;
    injection.during([&] {
        EXPECT_EQ(5U, entry->add(&own.list, 5));
        entry->printCDeltaListEntry();
        EXPECT_EQ(0U, entry->del(&own.list));
        entry->aged();
        entry->zero();
        delete entry;
    });
    EXPECT_TRUE(isFree(own.list.dbID));
}

void usesSmartEntries(Injection &injection)
{
    Initialised own;
    CDeltaListSmartEntry entry(own.list.dbID);
    injection.during([&] {
        EXPECT_EQ(own.list.dbID, entry.getSem());
        EXPECT_EQ(5U, entry.add(&own.list, 5));
        EXPECT_EQ(&own.list, entry.getList());
        EXPECT_EQ(5U, entry.getEntryAgeOut());
        entry.printCDeltaListSmartEntryBase();
        EXPECT_EQ(0U, entry.del(&own.list));
        EXPECT_EQ(0U, entry.del());
        entry.setList(nullptr);
        entry.zero();
    });
    EXPECT_TRUE(isFree(own.list.dbID));
}

void destroysAList(Injection &injection)
{
    auto *own = new Initialised;
    injection.during([&] { delete own; });
}

const Row rows[] = {
    {"CDeltaList::initSem(mutex_sem*)", makesTheLock},
    {"CDeltaList::init()\n"
     "CDeltaList::init(unsigned int, unsigned int, bool)\n"
     "CDeltaList::add(CDeltaListEntry*, unsigned int)\n"
     "CDeltaList::getNext(CDeltaListEntry*)\n"
     "CDeltaList::getEntryAgeOut(CDeltaListEntry*)\n"
     "CDeltaList::touch(CDeltaListEntry*, unsigned int)\n"
     "CDeltaList::del(CDeltaListEntry*)\n"
     "CDeltaList::internalDel(CDeltaListEntry*)\n"
     "CDeltaList::internalAdd(CDeltaListEntry*, unsigned int)\n"
     "CDeltaList::pop()\n"
     "CDeltaList::tic(unsigned int)\n"
     "CDeltaList::setTailTime(unsigned int, bool)\n"
     "CDeltaList::getDeltaT()\n"
     "CDeltaList::awaken()\n"
     "CDeltaList::printCDeltaList() const",
     usesTheList, Row::ReachesNothing},
    {"CDeltaListEntry::add(CDeltaList*, unsigned int)\n"
     "CDeltaListEntry::del(CDeltaList*)\n"
     "CDeltaListEntry::aged()\n"
     "CDeltaListEntry::zero()\n"
     "CDeltaListEntry::printCDeltaListEntry()\n"
     "CDeltaListEntry::~CDeltaListEntry()",
     usesEntries, Row::ReachesNothing},
    {"CDeltaListSmartEntryBase::add(CDeltaList*, unsigned int)\n"
     "CDeltaListSmartEntryBase::del()\n"
     "CDeltaListSmartEntryBase::del(CDeltaList*)\n"
     "CDeltaListSmartEntryBase::getEntryAgeOut()\n"
     "CDeltaListSmartEntryBase::printCDeltaListSmartEntryBase()\n"
     "CDeltaListSmartEntryBase::zero()\n"
     "CDeltaListSmartEntry::getList()\n"
     "CDeltaListSmartEntry::getSem()\n"
     "CDeltaListSmartEntry::setList(CDeltaList*)",
     usesSmartEntries, Row::ReachesNothing},
    {"CDeltaList::~CDeltaList()", destroysAList, Row::ReachesNothing},
};
} // namespace

TEST(DeltaListFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
