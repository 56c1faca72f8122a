// What happens when the lock cannot be had. semTake() never returns -1 and semMCreate() seldom fails, so this program
// stands in for both: the library calls them through the dynamic linker, which finds these first.
#include "deltalist.h"

#include "harness/printed_by.h"
#include "models/delta_list_model.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cerrno>
#include <vector>

namespace
{
int takeResult = 0;       // when not 0: what semTake() returns, without taking
bool createFails = false; // semMCreate() returns null
int createOptions = 0;    // of the last semMCreate()
std::vector<unsigned int> timeouts;
int gives = 0;

class ListWithoutALock : public testing::Test
{
protected:
    ListWithoutALock()
    {
        list.initSem(nullptr);
        list.init(10, 1, true);
        list.add(&onList, 5);
        timeouts.clear();
        gives = 0;
    }
    ~ListWithoutALock() override
    {
        takeResult = 0;
    }

    CDeltaList list;
    CDeltaListEntry onList, offList;
};

class DeltaListLock : public ListWithoutALock
{
};
} // namespace

extern "C" int semTake(SEM_ID sem, unsigned int timeout)
{
    static const auto real = reinterpret_cast<int (*)(SEM_ID, unsigned int)>(dlsym(RTLD_NEXT, "semTake"));
    timeouts.push_back(timeout);
    return takeResult != 0 ? takeResult : real(sem, timeout);
}

extern "C" int semGive(SEM_ID sem)
{
    static const auto real = reinterpret_cast<int (*)(SEM_ID)>(dlsym(RTLD_NEXT, "semGive"));
    ++gives;
    return takeResult != 0 ? 0 : real(sem);
}

extern "C" SEM_ID semMCreate(int options)
{
    static const auto real = reinterpret_cast<SEM_ID (*)(int)>(dlsym(RTLD_NEXT, "semMCreate"));
    createOptions = options;
    return createFails ? nullptr : real(options);
}

TEST_F(ListWithoutALock, EachOperationWaitsWithoutLimitAndGivesOnce)
{
    const auto locksOnce = [&](auto operation) {
        timeouts.clear();
        gives = 0;
        operation();
        return timeouts == std::vector<unsigned int>{0xFFFFFFFF} && gives == 1;
    };
    EXPECT_TRUE(locksOnce([&] { list.add(&offList, 3); }));
    EXPECT_TRUE(locksOnce([&] { list.del(&offList); }));
    EXPECT_TRUE(locksOnce([&] { list.getNext(nullptr); }));
    EXPECT_TRUE(locksOnce([&] { list.getEntryAgeOut(&onList); }));
    EXPECT_TRUE(locksOnce([&] { list.setTailTime(9, true); }));
    EXPECT_TRUE(locksOnce([&] { list.tic(1); }));
    EXPECT_TRUE(locksOnce([&] { list.init(); }));
    EXPECT_TRUE(locksOnce([&] { list.init(1, 2, false); }));
    timeouts.clear();
    list.pop();
    EXPECT_TRUE(timeouts.empty());
}

TEST_F(ListWithoutALock, InitReportsAndChangesNothing)
{
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { list.init(20, 2, false); }));
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { list.init(); }));
    EXPECT_EQ(&onList, list.head);
    EXPECT_EQ(10U, list.tailTime);
    EXPECT_TRUE(list.astable);
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, AddAndDelOfAnEntryReturn0Silently)
{
    takeResult = -1;
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, list.add(&offList, 3)); }));
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, list.del(&onList)); }));
    EXPECT_EQ(1U, list.numEntries);
    EXPECT_EQ(5U, onList.time);
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, GetNextReportsAndReturnsNull)
{
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { EXPECT_EQ(nullptr, list.getNext(nullptr)); }));
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, GetEntryAgeOutReportsAndReturns0)
{
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { EXPECT_EQ(0U, list.getEntryAgeOut(&onList)); }));
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, TicReportsAndLetsNoTimePass)
{
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { EXPECT_EQ(0U, list.tic(5)); }));
    EXPECT_EQ(5U, onList.time);
    EXPECT_EQ(0U, list.upTime);
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, SetTailTimeReportsAndChangesNothing)
{
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { EXPECT_EQ(0U, list.setTailTime(3, true)); }));
    EXPECT_EQ(10U, list.tailTime);
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, DestructorReportsAndGoesOn)
{
    SEM_ID sem = semMCreate(0);
    auto *other = new CDeltaList;
    other->initSem(sem);
    takeResult = -1;
    EXPECT_EQ("semTake Error:2\n", printedBy([&] { delete other; }));
    EXPECT_EQ(0, gives);
    takeResult = 0;
    semDelete(sem);
}

TEST_F(ListWithoutALock, SelfTrackingEntriesReturn0Silently)
{
    CDeltaListSmartEntry entry(list.dbID);
    entry.add(&list, 3);
    gives = 0;
    takeResult = -1;
    EXPECT_EQ("", printedBy([&] {
                  EXPECT_EQ(0U, entry.add(&list, 7));
                  EXPECT_EQ(0U, entry.del());
                  EXPECT_EQ(0U, entry.del(&list));
                  EXPECT_EQ(0U, entry.getEntryAgeOut());
              }));
    EXPECT_EQ(&list, entry.getList());
    EXPECT_EQ(0, gives);
}

TEST_F(ListWithoutALock, ACreationThatFailsIsReported)
{
    auto *other = new CDeltaList;
    createFails = true;
    EXPECT_EQ("semMCreate Error:1\n", printedBy([&] { EXPECT_EQ(0, other->initSem(nullptr)); }));
    EXPECT_EQ(nullptr, other->dbID);
    EXPECT_FALSE(other->externalSem);
    createFails = false;
    EXPECT_NE(0, other->initSem(nullptr));
    EXPECT_EQ(9, createOptions);
    delete other;
}

TEST_F(DeltaListLock, OnlyMinusOneCountsAsAFailedTake)
{
    for (int result : {EINTR, EINVAL, ETIMEDOUT, EAGAIN}) {
        takeResult = result;
        gives = 0;
        EXPECT_EQ("", printedBy([&] { EXPECT_EQ(5U, list.add(&offList, 9)); }));
        EXPECT_EQ("", printedBy([&] { EXPECT_EQ(5U, list.del(&offList)); }));
        EXPECT_EQ(&onList, list.getNext(nullptr));
        EXPECT_EQ(3, gives);
    }
}
