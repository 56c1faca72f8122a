#include "harness/printed_by.h"
#include "models/port_table_model.h"
#include "sysport/port_map.h"

namespace
{
constexpr uint32_t Failed = 0xFFFFFFFF;
constexpr uint32_t ForbiddenKey = 0x00007FFF; // an instance whose hash key is 32767

class PortTable : public PortMap
{
};
} // namespace

TEST_F(PortTable, StartsEmpty)
{
    EXPECT_EQ(nullptr, brokenInvariant(table()));
    EXPECT_EQ(0U, table().usedSystemPort->numBitsSet());
    for (uint32_t key = 0; key < kelSysPortUtil::numHashKeys; ++key)
        ASSERT_EQ(nullptr, bucketOf(key));
    for (uint32_t s = 0; s < kelSysPortUtil::maxSystemPorts; ++s)
        ASSERT_EQ(0U, recordOf(s).portInst + recordOf(s).systemPort);
}

TEST_F(PortTable, FirstPortGets1AndTheNumberIsGivenAgainAfterADelete)
{
    EXPECT_EQ(1U, table().addPortInst(0x10001));
    EXPECT_EQ(1U, table().delPortInst(0x10001));
    EXPECT_EQ(1U, table().addPortInst(0x20002));
}

TEST_F(PortTable, LowestFreeNumberIsHandedOutFirst)
{
    for (uint32_t port = 1; port <= 5; ++port)
        EXPECT_EQ(port, table().addPortInst(0x10000 + port));
    EXPECT_EQ(4U, table().delPortInst(0x10004));
    EXPECT_EQ(2U, table().delPortInst(0x10002));
    EXPECT_EQ(2U, table().addPortInst(0x20001));
    EXPECT_EQ(4U, table().addPortInst(0x20002));
    EXPECT_EQ(6U, table().addPortInst(0x20003));
}

TEST_F(PortTable, AddFillsTheRecordTheBucketAndTheBit)
{
    ASSERT_EQ(1U, table().addPortInst(0x00010100));
    EXPECT_EQ(0x00010100U, recordOf(1).portInst);
    EXPECT_EQ(1U, recordOf(1).systemPort);
    EXPECT_EQ(nullptr, recordOf(1).next);
    EXPECT_EQ(&recordOf(1), bucketOf(1));
    EXPECT_TRUE(table().usedSystemPort->chkBit(1));
    EXPECT_EQ(0x00010100U, table().systemPort2PortInst(1));
    EXPECT_EQ(1U, table().portInst2SystemPort(0x00010100));
}

TEST_F(PortTable, DeleteClearsTheRecordTheBucketAndTheBit)
{
    table().addPortInst(0x00010100);
    EXPECT_EQ(1U, table().delPortInst(0x00010100));
    EXPECT_EQ(0U, recordOf(1).portInst);
    EXPECT_EQ(0U, recordOf(1).systemPort);
    EXPECT_EQ(nullptr, recordOf(1).next);
    EXPECT_EQ(nullptr, bucketOf(1));
    EXPECT_FALSE(table().usedSystemPort->chkBit(1));
    EXPECT_EQ(0U, table().systemPort2PortInst(1));
    EXPECT_EQ(0U, table().portInst2SystemPort(0x00010100));
}

// One line an add, whatever comes of it, with the key of the two xor steps.
TEST_F(PortTable, EveryAddIsTracedBeforeAnyTest)
{
    printedBy([] {
        table().addPortInst(0x00010001);
        table().addPortInst(0x00010001);
        table().addPortInst(ForbiddenKey);
        table().addPortInst(0xABCD1234);
    });
    const std::vector<std::string> wanted{"addPortInst(10001):hashKey=256", "addPortInst(10001):hashKey=256",
                                          "addPortInst(7fff):hashKey=32767", "addPortInst(abcd1234):hashKey=29945"};
    EXPECT_EQ(wanted, fake.traceTexts());
    for (const auto &line : fake.traces) {
        EXPECT_EQ(fake.traceHandle(), line.buffer);
        EXPECT_EQ(0, line.level);
    }
}

TEST_F(PortTable, AddTracesWithoutTheLock)
{
    bool unlocked = true;
    fake.onCall = [&] { unlocked = unlocked && mapIsUnlocked(); };
    table().addPortInst(0x10001);
    EXPECT_EQ(1U, fake.traces.size());
    EXPECT_TRUE(unlocked);
}

TEST_F(PortTable, InstanceOfTheForbiddenKeyIsRefusedByAdd)
{
    uint32_t result = 0;
    EXPECT_EQ("hashKey(32767) bad", printedBy([&] { result = table().addPortInst(ForbiddenKey); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::badHashKey);
    EXPECT_EQ(0U, table().usedSystemPort->numBitsSet());
    printedBy([&] { result = table().addPortInst(0x0001FFFF ^ 0x0101); }); // another instance of that key
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(2U, kelSysPortUtil::badHashKey);
}

TEST_F(PortTable, DeleteOfTheForbiddenKeyOnlyRaisesTheCounter)
{
    uint32_t result = 0;
    EXPECT_EQ("", printedBy([&] { result = table().delPortInst(ForbiddenKey); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::badHashKey);
    EXPECT_TRUE(fake.traces.empty());
}

TEST_F(PortTable, LookUpsOfTheForbiddenKeyGive0)
{
    EXPECT_EQ(0U, table().portInst2SystemPort(ForbiddenKey));
    EXPECT_EQ(0U, table().getPortInstance_t(ForbiddenKey));
    EXPECT_EQ(0U, kelSysPortUtil::badHashKey);
}

TEST_F(PortTable, ForbiddenKeyIsRefusedWithoutTheLock)
{
    whileAnotherThreadHoldsTheLock([] {
        printedBy([] { EXPECT_EQ(Failed, table().addPortInst(ForbiddenKey)); });
        EXPECT_EQ(Failed, table().delPortInst(ForbiddenKey));
        EXPECT_EQ(0U, table().portInst2SystemPort(ForbiddenKey));
    });
    EXPECT_EQ(2U, kelSysPortUtil::badHashKey);
}

TEST_F(PortTable, BoundInstanceIsRefusedWithoutAWordOrACount)
{
    table().addPortInst(0x10001);
    uint32_t result = 0;
    EXPECT_EQ("", printedBy([&] { result = table().addPortInst(0x10001); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, table().usedSystemPort->numBitsSet());
    EXPECT_EQ(0U, kelSysPortUtil::badHashKey + kelSysPortUtil::idxOutOfBounds + kelSysPortUtil::entryAlreadyInUse);
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

// A record without a system port is not a binding, whatever instance it holds.
TEST_F(PortTable, ChainedRecordWithoutASystemPortIsNotBound)
{
    table().addPortInst(0x00000001);
    recordOf(1).systemPort = 0;
    EXPECT_EQ(0U, table().portInst2SystemPort(0x00000001));
    EXPECT_EQ(2U, table().addPortInst(0x00000001));
    EXPECT_EQ(2U, table().portInst2SystemPort(0x00000001));
}

TEST_F(PortTable, InstancesOfOneKeyShareABucketTheNewestFirst)
{
    EXPECT_EQ(1U, table().addPortInst(0x00010100));
    EXPECT_EQ(2U, table().addPortInst(0x00000001));
    EXPECT_EQ(&recordOf(2), bucketOf(1));
    EXPECT_EQ(&recordOf(1), recordOf(2).next);
    EXPECT_EQ(nullptr, recordOf(1).next);
    EXPECT_EQ(1U, table().portInst2SystemPort(0x00010100));
    EXPECT_EQ(2U, table().portInst2SystemPort(0x00000001));
}

TEST_F(PortTable, DeleteOfTheHeadLeavesTheOtherReachable)
{
    table().addPortInst(0x00010100);
    table().addPortInst(0x00000001);
    EXPECT_EQ(2U, table().delPortInst(0x00000001));
    EXPECT_EQ(1U, table().portInst2SystemPort(0x00010100));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortTable, DeleteOfTheTailLeavesTheOtherReachable)
{
    table().addPortInst(0x00010100);
    table().addPortInst(0x00000001);
    EXPECT_EQ(1U, table().delPortInst(0x00010100));
    EXPECT_EQ(2U, table().portInst2SystemPort(0x00000001));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortTable, DeleteInTheMiddleOfAChainLeavesItsNeighboursReachable)
{
    table().addPortInst(0x00010100);
    table().addPortInst(0x00008001); // bit 15 is in no key
    table().addPortInst(0x00000001);
    EXPECT_EQ(2U, table().delPortInst(0x00008001));
    EXPECT_EQ(1U, table().portInst2SystemPort(0x00010100));
    EXPECT_EQ(3U, table().portInst2SystemPort(0x00000001));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortTable, DeleteOfAnUnboundInstanceInAnEmptyBucketFails)
{
    EXPECT_EQ(Failed, table().delPortInst(0x10001));
    EXPECT_EQ(0U, kelSysPortUtil::badHashKey + kelSysPortUtil::idxOutOfBounds);
}

TEST_F(PortTable, DeleteOfAnUnboundInstanceInABucketWithOthersReturns0AndChangesNothing)
{
    table().addPortInst(0x00010100);
    EXPECT_EQ(0U, table().delPortInst(0x00000001));
    EXPECT_EQ(1U, table().portInst2SystemPort(0x00010100));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

// The same call as above: it clears what is always empty, so damage there goes away.
TEST_F(PortTable, DeleteOfAnUnboundInstanceInABucketWithOthersClearsRecord0AndBit0)
{
    table().addPortInst(0x00010100);
    recordOf(0) = {7, 7, &recordOf(1)};
    table().usedSystemPort->setBit(0);
    EXPECT_EQ(0U, table().delPortInst(0x00000001));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

// Chain 5 -> 4 -> 3 -> 2 -> 1 made to hold one instance in 4, 3 and 1: 4 goes; 3 follows it and is passed over; 1 is
// compared again and goes, and its number is the one that counts.
TEST_F(PortTable, DeleteOnADamagedChainUnlinksAllButTheRecordRightAfterAnUnlinkedOne)
{
    constexpr uint32_t sameKey[] = {0x00000001, 0x00008001, 0x00010100, 0x00018100, 0x00020203};
    for (const uint32_t portInst : sameKey)
        ASSERT_EQ(1U, PortTableAndModel::keyOf(portInst)) << std::hex << portInst;
    for (const uint32_t portInst : sameKey)
        table().addPortInst(portInst);
    recordOf(4).portInst = recordOf(3).portInst = recordOf(1).portInst = 0x00030302;
    ASSERT_EQ(1U, PortTableAndModel::keyOf(0x00030302));

    EXPECT_EQ(1U, table().delPortInst(0x00030302));
    EXPECT_EQ(&recordOf(5), bucketOf(1));
    EXPECT_EQ(&recordOf(3), recordOf(5).next);
    EXPECT_EQ(&recordOf(2), recordOf(3).next);
    EXPECT_EQ(nullptr, recordOf(2).next);
    EXPECT_FALSE(table().usedSystemPort->chkBit(1));
    EXPECT_TRUE(table().usedSystemPort->chkBit(4)); // unlinked, but not the last one
    EXPECT_EQ(4U, recordOf(4).systemPort);
}

// The walk ends when the unlinked record was the last of the chain.
TEST_F(PortTable, DeleteOfTwoNeighboursAtTheEndOfADamagedChainEnds)
{
    table().addPortInst(0x00000001);
    table().addPortInst(0x00008001);
    table().addPortInst(0x00010100);
    recordOf(1).portInst = recordOf(2).portInst;
    EXPECT_EQ(2U, table().delPortInst(0x00008001));
    EXPECT_EQ(&recordOf(1), recordOf(3).next);
    EXPECT_EQ(1U, table().delPortInst(0x00008001));
    EXPECT_EQ(nullptr, recordOf(3).next);
}

TEST_F(PortTable, DeleteStopsAtAHeadThatMatchesAlsoWithoutASystemPort)
{
    table().addPortInst(0x00010100);
    table().addPortInst(0x00000001);
    recordOf(2).systemPort = 0;
    EXPECT_EQ(0U, table().delPortInst(0x00000001));
    EXPECT_EQ(&recordOf(1), bucketOf(1));
}

TEST_F(PortTable, DeleteThatMeetsASystemPortAboveTheTableFailsAndIsCounted)
{
    table().addPortInst(0x10001);
    recordOf(1).systemPort = 32768;
    uint32_t result = 0;
    EXPECT_EQ("", printedBy([&] { result = table().delPortInst(0x10001); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::idxOutOfBounds);
    EXPECT_TRUE(table().usedSystemPort->chkBit(1));
    EXPECT_EQ(nullptr, bucketOf(256));
}

TEST_F(PortTable, LookUpsAboveTheTableGive0)
{
    EXPECT_EQ(0U, table().systemPort2PortInst(32768));
    EXPECT_EQ(0U, table().systemPort2PortInst(0xFFFFFFFF));
    EXPECT_EQ(0U, table().systemPort2PortInst(32767));
    EXPECT_EQ(0U, table().systemPort2PortInst(0));
}

TEST_F(PortTable, LookUpAboveTheTableTakesNoLock)
{
    whileAnotherThreadHoldsTheLock([] { EXPECT_EQ(0U, table().systemPort2PortInst(32768)); });
}

// 0 is no port for any look-up, but the table itself takes it like any other instance.
TEST_F(PortTable, PortInstance0IsBoundLikeAnyOther)
{
    EXPECT_EQ(1U, table().addPortInst(0));
    EXPECT_EQ(1U, table().portInst2SystemPort(0));
    EXPECT_EQ(Failed, table().addPortInst(0));
    EXPECT_EQ(1U, table().delPortInst(0));
}

TEST_F(PortTable, ChosenRecordThatHoldsAnInstanceIsNotOverwritten)
{
    recordOf(1).portInst = 0xABC;
    uint32_t result = 0;
    EXPECT_EQ("systemPort(1) in use(0,abc)", printedBy([&] { result = table().addPortInst(0x10001); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::entryAlreadyInUse);
    EXPECT_EQ(0xABCU, recordOf(1).portInst);
    EXPECT_FALSE(table().usedSystemPort->chkBit(1));
    EXPECT_EQ(nullptr, bucketOf(256));
}

TEST_F(PortTable, ChosenRecordThatHoldsASystemPortIsNotOverwritten)
{
    recordOf(1).systemPort = 9;
    uint32_t result = 0;
    EXPECT_EQ("systemPort(1) in use(9,0)", printedBy([&] { result = table().addPortInst(0x10001); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::entryAlreadyInUse);
}

TEST_F(PortTable, FullTableRefusesOneMoreAndTakesItAfterADelete)
{
    PortTableAndModel both(table());
    std::mt19937 random(1);
    while (both.size() < 32767)
        ASSERT_TRUE(both.add(PortTableAndModel::instanceOf(static_cast<uint32_t>(both.size() % 32767), random)));
    EXPECT_EQ(nullptr, both.difference());
    EXPECT_EQ(32767U, table().usedSystemPort->numBitsSet());

    constexpr uint32_t oneMore = 0xFFFF0003;
    ASSERT_EQ(0U, table().portInst2SystemPort(oneMore));
    uint32_t result = 0;
    EXPECT_EQ("Index(4294967295) out of bounds", printedBy([&] { result = table().addPortInst(oneMore); }));
    EXPECT_EQ(Failed, result);
    EXPECT_EQ(1U, kelSysPortUtil::idxOutOfBounds);

    const uint32_t last = table().systemPort2PortInst(32767);
    EXPECT_EQ(32767U, table().delPortInst(last));
    EXPECT_EQ(32767U, table().addPortInst(oneMore));
}

TEST_F(PortTable, EachCallTakesAndGivesTheLockOnce)
{
    EXPECT_EQ(1, locksTakenBy([] { table().addPortInst(0x10001); }));
    EXPECT_EQ(1, locksTakenBy([] { table().addPortInst(0x10001); })); // refused: bound
    EXPECT_EQ(1, locksTakenBy([] { table().systemPort2PortInst(1); }));
    EXPECT_EQ(1, locksTakenBy([] { table().portInst2SystemPort(0x10001); }));
    EXPECT_EQ(1, locksTakenBy([] { table().delPortInst(0x20001); })); // refused: empty bucket
    EXPECT_EQ(1, locksTakenBy([] { table().delPortInst(0x10001); }));
    EXPECT_EQ(0, locksTakenBy([] { table().getSystemPort(1); }));
    EXPECT_EQ(0, locksTakenBy([] { table().getNextSystemPort(1); }));
}

TEST_F(PortTable, WorksWithoutALockWhenThereIsNone)
{
    SEM_ID sem = kelSysPortUtil::mSem;
    kelSysPortUtil::mSem = nullptr;
    EXPECT_EQ(0, locksTakenBy([] {
                  EXPECT_EQ(1U, table().addPortInst(0x10001));
                  EXPECT_EQ(0x10001U, table().systemPort2PortInst(1));
                  EXPECT_EQ(1U, table().portInst2SystemPort(0x10001));
                  EXPECT_EQ(1U, table().delPortInst(0x10001));
                  endTable();
                  EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
              }));
    kelSysPortUtil::mSem = sem;
}

TEST_F(PortTable, EndOfTheTableLeavesTheSemaphore)
{
    SEM_ID sem = kelSysPortUtil::mSem;
    EXPECT_EQ(1, locksTakenBy([] { endTable(); }));
    EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
    EXPECT_EQ(sem, kelSysPortUtil::mSem);
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semGive(sem));
}

TEST_F(PortTable, EndOfAnyTableClearsThePointer)
{
    kelSysPortUtil *first = kelSysPortUtil::localPtr;
    delete new kelSysPortUtil;
    EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
    kelSysPortUtil::localPtr = first;
}

TEST(PortTableModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 100; ++seed) {
        fake.reset();
        kelSysPortUtilInit();
        PortTableAndModel both(*kelSysPortUtil::localPtr);
        const char *difference = nullptr;
        printedBy([&] { difference = runRandomPortProgram(both, seed, 500); });
        EXPECT_EQ(nullptr, difference) << "seed " << seed;
        delete kelSysPortUtil::localPtr;
        if (difference != nullptr)
            break;
    }
}

namespace
{
// A table of twenty ports in two buckets and its model, which agree.
class PortTableModelTwin : public PortMap
{
protected:
    PortTableModelTwin() : both(table())
    {
        std::mt19937 random(1);
        while (both.size() < 20)
            both.add(PortTableAndModel::instanceOf(1 + random() % 2, random));
        EXPECT_EQ(nullptr, both.difference());
    }
    PortTableAndModel both;
};
} // namespace

TEST_F(PortTableModelTwin, NoticesAPortAddedBehindItsBack)
{
    table().addPortInst(0x12345);
    EXPECT_STREQ("the same instances on the same system ports", both.difference());
}

TEST_F(PortTableModelTwin, NoticesABitChangedBehindItsBack)
{
    table().usedSystemPort->clrBit(7);
    EXPECT_STREQ("bit s is set exactly when record s is bound", both.difference());
}

TEST_F(PortTableModelTwin, NoticesAnInstanceChangedBehindItsBack)
{
    recordOf(7).portInst ^= 0x8000;
    EXPECT_STREQ("the same instances on the same system ports", both.difference());
}

TEST_F(PortTableModelTwin, NoticesARecordInTheWrongBucket)
{
    std::swap(bucketOf(1), bucketOf(3));
    EXPECT_STREQ("a record is in the bucket of its instance", both.difference());
}

TEST_F(PortTableModelTwin, NoticesALostRecord)
{
    bucketOf(1) = bucketOf(1)->next;
    EXPECT_STREQ("every bound record is on a chain", both.difference());
}

TEST_F(PortTableModelTwin, NoticesARecordOnAChainTwice)
{
    kelSysPortUtil::portRecord *last = bucketOf(1);
    while (last->next != nullptr)
        last = last->next;
    last->next = bucketOf(1);
    EXPECT_STREQ("a record is on one chain, once", both.difference());
    last->next = nullptr;
}

TEST_F(PortTableModelTwin, NoticesAChainInAnotherOrder)
{
    kelSysPortUtil::portRecord *head = bucketOf(1);
    kelSysPortUtil::portRecord *second = head->next;
    head->next = second->next;
    second->next = head;
    bucketOf(1) = second;
    EXPECT_STREQ("chains hold the newest first", both.difference());
}

TEST_F(PortTableModelTwin, NoticesARecord0ThatIsNotEmpty)
{
    recordOf(0).next = &recordOf(1);
    EXPECT_STREQ("record 0 and bit 0 are empty", both.difference());
}

TEST_F(PortTableModelTwin, NoticesARecordThatHoldsAnotherIndex)
{
    recordOf(7).systemPort = 8;
    EXPECT_STREQ("a bound record holds its own index", both.difference());
}

TEST_F(PortTableModelTwin, NoticesAFreeRecordThatIsNotZero)
{
    recordOf(30).portInst = 1;
    EXPECT_STREQ("a free record is all zero", both.difference());
}
