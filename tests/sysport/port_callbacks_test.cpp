#include "harness/fail_allocation.h"
#include "harness/printed_by.h"
#include "models/port_table_model.h"
#include "sysport/port_map.h"

#include <memory>
#include <new>

namespace
{
class PortMapStart : public PortMap
{
protected:
    // As before the first start: no table, no semaphore.
    PortMapStart()
    {
        endTable();
        semDelete(kelSysPortUtil::mSem);
        kelSysPortUtil::mSem = nullptr;
        fake.reset();
        spy.reset();
    }
};

class PortCallbacks : public PortMap
{
protected:
    static constexpr uint32_t Instance = 0x20003;
    using Texts = std::vector<std::string>;

    PortCallbacks()
    {
        fake.addSlotPort(2, 3);
    }
    static Texts tracesOf(int (*callback)(uint32_t), int wanted, uint32_t instance = Instance)
    {
        fake.forget();
        EXPECT_EQ(wanted, callback(instance));
        for (const auto &line : fake.traces)
            EXPECT_EQ(0, line.level);
        return fake.traceTexts();
    }
};

const struct {
    int (*call)(uint32_t);
    std::string name;
} callbacks[] = {{kelSysPortUtilAddPifCB, "kelSysPortUtilAddPifCB"},
                 {kelSysPortUtilDelPifCB, "kelSysPortUtilDelPifCB"}};
} // namespace

TEST_F(PortMapStart, CreatesTheSemaphoreAndTheTable)
{
    EXPECT_EQ("", printedBy(kelSysPortUtilInit));
    ASSERT_NE(nullptr, kelSysPortUtil::localPtr);
    ASSERT_NE(nullptr, kelSysPortUtil::mSem);
    EXPECT_EQ(0, kelSysPortUtil::mSem->kind);
    EXPECT_EQ((std::vector<int>{9}), spy.createdWith);
    EXPECT_EQ(nullptr, brokenInvariant(table()));
    EXPECT_TRUE(mapIsUnlocked());
}

TEST_F(PortMapStart, OpensOneTraceBufferOfOneMebibyte)
{
    kelSysPortUtilInit();
    ASSERT_EQ(1U, fake.traceBuffers.size());
    EXPECT_EQ("kelSystemPortUtils", fake.traceBuffers[0].name);
    EXPECT_EQ(1048576U, fake.traceBuffers[0].size);
    EXPECT_EQ(0, fake.traceBuffers[0].flags);
}

TEST_F(PortMapStart, SecondStartChangesNothing)
{
    kelSysPortUtilInit();
    const kelSysPortUtil *first = kelSysPortUtil::localPtr;
    SEM_ID sem = kelSysPortUtil::mSem;
    table().addPortInst(0x10001);
    kelSysPortUtilInit();
    kelSysPortUtilInitWrapper();
    EXPECT_EQ(first, kelSysPortUtil::localPtr);
    EXPECT_EQ(sem, kelSysPortUtil::mSem);
    EXPECT_EQ(1U, spy.createdWith.size());
    EXPECT_EQ(1U, fake.traceBuffers.size());
    EXPECT_EQ(1U, table().portInst2SystemPort(0x10001));
}

TEST_F(PortMapStart, WrapperStartsTheMapToo)
{
    kelSysPortUtilInitWrapper();
    EXPECT_NE(nullptr, kelSysPortUtil::localPtr);
    EXPECT_NE(nullptr, kelSysPortUtil::mSem);
}

TEST_F(PortMapStart, WithoutASemaphoreThereIsAMessageAndNoTable)
{
    spy.createFails = true;
    EXPECT_EQ("v2lin must be initialized before kelSysPortUtilInit\n", printedBy(kelSysPortUtilInit));
    EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
    EXPECT_EQ(nullptr, kelSysPortUtil::mSem);
    EXPECT_TRUE(fake.traceBuffers.empty());

    spy.createFails = false;
    EXPECT_EQ("", printedBy(kelSysPortUtilInit));
    EXPECT_NE(nullptr, kelSysPortUtil::localPtr);
}

TEST_F(PortMapStart, TableIsMadeAgainAfterItsEndOnTheSameSemaphore)
{
    kelSysPortUtilInit();
    SEM_ID sem = kelSysPortUtil::mSem;
    table().addPortInst(0x10001);
    endTable();
    kelSysPortUtilInit();
    EXPECT_EQ(sem, kelSysPortUtil::mSem);
    EXPECT_EQ(1U, spy.createdWith.size());
    EXPECT_EQ(0U, table().portInst2SystemPort(0x10001));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

// A dump that has the lock looks at the table twice and must not see it appear in between.
TEST_F(PortMapStart, TableAppearsUnderTheMapsLock)
{
    kelSysPortUtilInit();
    endTable();
    spy.reset();
    const kelSysPortUtil *beforeTheLock = nullptr;
    spy.beforeTake = [&] { beforeTheLock = kelSysPortUtil::localPtr; };
    kelSysPortUtilInit();
    spy.beforeTake = nullptr;
    EXPECT_EQ(1, spy.takes);
    EXPECT_EQ(1, spy.gives);
    EXPECT_EQ(nullptr, beforeTheLock);
    EXPECT_NE(nullptr, kelSysPortUtil::localPtr);
}

// The allocator's exception passes; nothing is half made, and the next start gets through.
TEST_F(PortMapStart, ShortMemoryLeavesNoTableAndTheNextStartSucceeds)
{
    kelSysPortUtilInit();
    endTable();
    std::unique_ptr<FailAllocation> failing;
    fake.onCall = [&] { failing.reset(); }; // by then the library has allocated all it needs
    int failures = 0;
    for (int nth = 1; kelSysPortUtil::localPtr == nullptr; ++nth) {
        failing = std::make_unique<FailAllocation>(nth);
        try {
            kelSysPortUtilInit();
        } catch (const std::bad_alloc &) {
            ++failures;
            EXPECT_TRUE(failing->happened());
            EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
            EXPECT_TRUE(mapIsUnlocked());
        }
        failing.reset();
        ASSERT_LT(nth, 10);
    }
    EXPECT_EQ(3, failures); // the table, its mask, the mask's words
    EXPECT_EQ(1U, spy.createdWith.size());
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortMapStart, NoCallToThePlatformHoldsTheLock)
{
    bool unlocked = true;
    fake.onCall = [&] { unlocked = unlocked && mapIsUnlocked(); };
    kelSysPortUtilInit();
    EXPECT_TRUE(unlocked);
}

// Without a trace buffer the handle that the lines go to is null: the platform drops them.
TEST_F(PortMapStart, CallbacksBeforeTheStartFailAndSaySo)
{
    fake.addSlotPort(2, 3);
    EXPECT_EQ(0, kelSysPortUtilAddPifCB(0x20003));
    EXPECT_EQ(0, kelSysPortUtilDelPifCB(0x20003));
    EXPECT_EQ((std::vector<std::string>{"kelSysPortUtilAddPifCB(20003):AddPortInst() failed",
                                        "kelSysPortUtilDelPifCB(20003);Removing systemPort=0",
                                        "kelSysPortUtilDelPifCB(20003):DelPortInst() failed"}),
              fake.traceTexts());
}

TEST_F(PortCallbacks, InterfaceThePlatformDoesNotKnowIsRefused)
{
    fake.answers["vlanLibGetLifByPortInstance"] = {0, true};
    for (const auto &callback : callbacks)
        EXPECT_EQ((Texts{callback.name + "(20003):vlanLibGetLifByPortInstance failed"}), tracesOf(callback.call, 0));
    EXPECT_EQ(0U, table().portInst2SystemPort(Instance));
}

TEST_F(PortCallbacks, InterfaceWithoutARecordIsRefused)
{
    fake.answers["vlanLibGetLifByPortInstance"] = {1, false};
    for (const auto &callback : callbacks)
        EXPECT_EQ((Texts{callback.name + "(20003):pif==NULL"}), tracesOf(callback.call, 0));
}

TEST_F(PortCallbacks, InterfaceOfAnotherTypeIsRefused)
{
    for (const uint32_t type : {2U, 3U, 0xFFU}) {
        const uint32_t instance = type << 24 | 5;
        fake.pifs[instance] = {instance, 5, 0, 0, 1, 5};
        char hex[16];
        snprintf(hex, sizeof hex, "%x", instance);
        for (const auto &callback : callbacks)
            EXPECT_EQ((Texts{callback.name + "(" + hex + "):pif not SLOTPORT || TRUNK"}),
                      tracesOf(callback.call, 0, instance));
        EXPECT_EQ(0U, table().portInst2SystemPort(instance));
    }
}

// The record says the type; the argument is what is bound and freed.
TEST_F(PortCallbacks, TypeComesFromTheRecordAndTheBindingFromTheArgument)
{
    fake.pifs[0x02000005] = {Instance, 5, 0, 0, 1, 5};
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(0x02000005));
    EXPECT_EQ(1U, table().portInst2SystemPort(0x02000005));
    EXPECT_EQ(0U, table().portInst2SystemPort(Instance));
    EXPECT_EQ(1, kelSysPortUtilDelPifCB(0x02000005));
    EXPECT_EQ(0U, table().portInst2SystemPort(0x02000005));

    fake.pifs[Instance].portInstance = 0x02000005;
    EXPECT_EQ(0, kelSysPortUtilAddPifCB(Instance));
}

TEST_F(PortCallbacks, AnyResultButZeroCountsAsKnown)
{
    fake.answers["vlanLibGetLifByPortInstance"] = {2, true};
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(Instance));
    EXPECT_EQ(1, kelSysPortUtilDelPifCB(Instance));
}

TEST_F(PortCallbacks, NewSlotPortIsBoundAndTracedWithAllItsNumbers)
{
    table().addPortInst(0x10001);
    EXPECT_EQ((Texts{"addPortInst(20003):hashKey=513",
                     "kelSysPortUtilAddPifCB(20003);Added ifIndex=2003;bridgePort=131;systemPort=2;ifName=2/3"}),
              tracesOf(kelSysPortUtilAddPifCB, 1));
    EXPECT_EQ(2U, table().portInst2SystemPort(Instance));
    for (const auto &line : fake.traces)
        EXPECT_EQ(fake.traceHandle(), line.buffer);
}

TEST_F(PortCallbacks, NewTrunkIsBoundAndHasNoBridgePort)
{
    fake.addTrunk(5, Instance);
    EXPECT_EQ((Texts{"addPortInst(1000005):hashKey=261",
                     "kelSysPortUtilAddPifCB(1000005);Added ifIndex=500005;bridgePort=0;systemPort=1;ifName=trk5"}),
              tracesOf(kelSysPortUtilAddPifCB, 1, 0x01000005));
}

TEST_F(PortCallbacks, NameIsAskedByIfIndexIntoA33ByteBuffer)
{
    fake.logging = true;
    fake.names[Instance] = std::string(40, 'n');
    EXPECT_EQ("kelSysPortUtilAddPifCB(20003);Added ifIndex=2003;bridgePort=131;systemPort=1;ifName=" +
                  std::string(32, 'n'),
              tracesOf(kelSysPortUtilAddPifCB, 1).back());
    ASSERT_LE(2U, fake.calls.size());
    EXPECT_EQ("vlanLibGetLifFromIfIndex(2003)", fake.calls[fake.calls.size() - 2]);
    EXPECT_EQ("vlanGetNameForPif(20003,33)", fake.calls.back());
}

TEST_F(PortCallbacks, InterfaceWithoutANameOrAnIfIndexIsBoundAllTheSame)
{
    const std::string added = "kelSysPortUtilAddPifCB(20003);Added ifIndex=2003;bridgePort=131;systemPort=1;ifName=";
    fake.nullNames = true;
    EXPECT_EQ(added, tracesOf(kelSysPortUtilAddPifCB, 1).back());
    kelSysPortUtilDelPifCB(Instance);
    fake.nullNames = false;
    fake.names.clear();
    EXPECT_EQ(added, tracesOf(kelSysPortUtilAddPifCB, 1).back());
    kelSysPortUtilDelPifCB(Instance);
    fake.pifs[Instance].ifIndex = 0;
    EXPECT_EQ("kelSysPortUtilAddPifCB(20003);Added ifIndex=0;bridgePort=131;systemPort=1;ifName=",
              tracesOf(kelSysPortUtilAddPifCB, 1).back());
}

TEST_F(PortCallbacks, SecondAddOfAPortFails)
{
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(Instance));
    EXPECT_EQ((Texts{"addPortInst(20003):hashKey=513", "kelSysPortUtilAddPifCB(20003):AddPortInst() failed"}),
              tracesOf(kelSysPortUtilAddPifCB, 0));
    EXPECT_EQ(1U, table().portInst2SystemPort(Instance));
}

TEST_F(PortCallbacks, AddOfAForbiddenKeyFails)
{
    fake.pifs[0x7FFF] = {0x7FFF, 1, 0, 0, 0, 0x7FFF};
    printedBy([] {
        EXPECT_EQ("kelSysPortUtilAddPifCB(7fff):AddPortInst() failed",
                  tracesOf(kelSysPortUtilAddPifCB, 0, 0x7FFF).back());
    });
}

TEST_F(PortCallbacks, DeletedPortIsTracedAndFreed)
{
    table().addPortInst(0x10001);
    kelSysPortUtilAddPifCB(Instance);
    EXPECT_EQ((Texts{"kelSysPortUtilDelPifCB(20003);Removing systemPort=2"}), tracesOf(kelSysPortUtilDelPifCB, 1));
    EXPECT_EQ(0U, table().portInst2SystemPort(Instance));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortCallbacks, DeleteOfAPortThatIsNotBoundFails)
{
    EXPECT_EQ((Texts{"kelSysPortUtilDelPifCB(20003);Removing systemPort=0",
                     "kelSysPortUtilDelPifCB(20003):DelPortInst() failed"}),
              tracesOf(kelSysPortUtilDelPifCB, 0));
}

// The table's 0 for "not there, but others are" counts as success.
TEST_F(PortCallbacks, DeleteOfAPortThatIsNotBoundInABucketWithOthersSucceeds)
{
    table().addPortInst(Instance ^ 0x8000);
    EXPECT_EQ((Texts{"kelSysPortUtilDelPifCB(20003);Removing systemPort=0"}), tracesOf(kelSysPortUtilDelPifCB, 1));
    EXPECT_EQ(nullptr, brokenInvariant(table()));
}

TEST_F(PortCallbacks, NoCallToThePlatformHoldsTheLock)
{
    int calls = 0;
    bool unlocked = true;
    fake.onCall = [&] {
        ++calls;
        unlocked = unlocked && mapIsUnlocked();
    };
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(Instance));
    EXPECT_EQ(0, kelSysPortUtilAddPifCB(Instance));
    EXPECT_EQ(1, kelSysPortUtilDelPifCB(Instance));
    EXPECT_EQ(0, kelSysPortUtilDelPifCB(Instance));
    EXPECT_GE(calls, 15);
    EXPECT_TRUE(unlocked);
}

TEST_F(PortCallbacks, WorkWithoutALock)
{
    SEM_ID sem = kelSysPortUtil::mSem;
    kelSysPortUtil::mSem = nullptr;
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(Instance));
    EXPECT_EQ(1, kelSysPortUtilDelPifCB(Instance));
    kelSysPortUtil::mSem = sem;
}

// An interface that disappears between the first look-up and the read-back is still traced, with what is left.
TEST_F(PortCallbacks, InterfaceThatVanishesWhileItIsAddedIsBoundWithoutNumbers)
{
    int looked = 0;
    fake.onCall = [&] {
        if (++looked == 2) // the add's own trace line
            fake.answers["vlanLibGetLifByPortInstance"] = {0, false};
    };
    EXPECT_EQ("kelSysPortUtilAddPifCB(20003);Added ifIndex=0;bridgePort=0;systemPort=1;ifName=",
              tracesOf(kelSysPortUtilAddPifCB, 1).back());
}
