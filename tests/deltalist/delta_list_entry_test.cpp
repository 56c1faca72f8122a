#include "deltalist.h"

#include "harness/printed_by.h"
#include "harness/virtual_slot.h"
#include "models/delta_list_model.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace
{
class List : public CDeltaList
{
public:
    List()
    {
        initSem(nullptr);
        init(10, 1, false);
    }
};
} // namespace

// Classes that were compiled earlier call through the tables; the destructor takes the first two slots.
TEST(DeltaListEntryLayout, VirtualFunctionsStandInTheOldOrder)
{
    EXPECT_EQ(2U, virtualSlotOf(&CDeltaListEntry::add));
    EXPECT_EQ(3U, virtualSlotOf(&CDeltaListEntry::del));
    EXPECT_EQ(4U, virtualSlotOf(&CDeltaListEntry::aged));
    EXPECT_EQ(5U, virtualSlotOf(&CDeltaListEntry::zero));
    EXPECT_EQ(2U, virtualSlotOf(&CDeltaList::getDeltaT));
    EXPECT_EQ(3U, virtualSlotOf(&CDeltaList::awaken));
    EXPECT_TRUE(std::has_virtual_destructor_v<CDeltaList>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CDeltaListEntry>);
}

TEST(DeltaListEntry, IsMadeFree)
{
    CDeltaListEntry entry;
    EXPECT_EQ(nullptr, entry.next);
    EXPECT_EQ(nullptr, entry.prev);
    EXPECT_EQ(0U, entry.time);
}

TEST(DeltaListEntry, HasAnExportedNameThatIsEmpty)
{
    EXPECT_STREQ("", CDeltaListEntry::name);
}

TEST(DeltaListEntry, AddsItselfToAListAndReturnsTheHeadTime)
{
    List list;
    CDeltaListEntry first, second;
    EXPECT_EQ(7U, first.add(&list, 7));
    EXPECT_EQ(4U, second.add(&list, 4));
    EXPECT_EQ(&second, list.head);
    EXPECT_EQ(&first, list.tail);
    EXPECT_EQ(7U, second.del(&list));
    EXPECT_EQ(0U, first.del(&list));
    EXPECT_EQ(0U, list.numEntries);
    std::thread([&] { // as often given as taken
        EXPECT_EQ(0, semTake(list.dbID, 0));
        EXPECT_EQ(0, semGive(list.dbID));
    })
        .join();
}

TEST(DeltaListEntry, RefusesToBeAddedToNoList)
{
    CDeltaListEntry entry;
    EXPECT_EQ("CDeltaListEntry::add,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.add(nullptr, 7)); }));
}

TEST(DeltaListEntry, RefusesToBeDeletedFromNoList)
{
    CDeltaListEntry entry;
    EXPECT_EQ("CDeltaListEntry::del,no list:0\n", printedBy([&] { EXPECT_EQ(0U, entry.del(nullptr)); }));
}

TEST(DeltaListEntry, AgedDoesNothing)
{
    List list;
    CDeltaListEntry entry;
    list.add(&entry, 3);
    EXPECT_EQ("", printedBy([&] { entry.aged(); }));
    EXPECT_EQ(3U, entry.time);
}

TEST(DeltaListEntry, ZeroClearsTheThreeFields)
{
    CDeltaListEntry entry, other;
    entry.next = &other;
    entry.prev = &other;
    entry.time = 9;
    entry.zero();
    EXPECT_EQ(nullptr, entry.next);
    EXPECT_EQ(nullptr, entry.prev);
    EXPECT_EQ(0U, entry.time);
}

TEST(DeltaListEntry, DestructorLeavesTheListAlone)
{
    List list;
    {
        CDeltaListEntry entry;
        list.add(&entry, 3);
    }
    EXPECT_EQ(1U, list.numEntries);
    EXPECT_NE(nullptr, list.head);
    list.init();
}

TEST(DeltaListEntry, PrintsItsThreeFields)
{
    CDeltaListEntry entry, other;
    EXPECT_EQ("next pointer   : (nil)\n"
              "prev pointer   : (nil)\n"
              "time (delta)   : 0\n",
              printedBy([&] { entry.printCDeltaListEntry(); }));
    entry.next = &other;
    entry.prev = &entry;
    entry.time = 4000000000U;
    EXPECT_EQ(formatted("next pointer   : %p\n"
                        "prev pointer   : %p\n"
                        "time (delta)   : 4000000000\n",
                        static_cast<void *>(&other), static_cast<void *>(&entry)),
              printedBy([&] { entry.printCDeltaListEntry(); }));
}
