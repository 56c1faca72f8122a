#include "sysport/port_map.h"

namespace
{
using Calls = std::vector<std::string>;
using Next = uint32_t (kelSysPortUtil::*)(uint32_t);

class PortNext : public PortMap
{
protected:
    // A slot port that the platform knows and the table has bound.
    static pif_ &bind(uint16_t slot, uint16_t port)
    {
        pif_ &pif = fake.addSlotPort(slot, port);
        table().addPortInst(pif.portInstance);
        return pif;
    }
    static std::vector<uint32_t> walk(Next next, uint32_t from = 0)
    {
        std::vector<uint32_t> met;
        for (uint32_t n = (table().*next)(from); n != 0 && met.size() < 100; n = (table().*next)(n))
            met.push_back(n);
        return met;
    }
    static Calls callsOf(Next next, uint32_t from)
    {
        fake.logging = true;
        fake.forget();
        (table().*next)(from);
        return fake.calls;
    }
};
} // namespace

TEST_F(PortNext, AllWalksOfAnEmptyTableEndAtOnce)
{
    EXPECT_EQ(0U, table().getNextSystemPort(0));
    EXPECT_EQ(0U, table().getNextPortInstance_t(0));
    EXPECT_EQ(0U, table().getNextIfIndex(0));
    EXPECT_EQ(0U, table().getNextBridgePort(0));
}

TEST_F(PortNext, SystemPortsComeInAscendingOrder)
{
    for (uint16_t port = 1; port <= 5; ++port)
        bind(1, port);
    table().delPortInst(0x10003);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 4, 5}), walk(&kelSysPortUtil::getNextSystemPort));
    EXPECT_EQ(4U, table().getNextSystemPort(3));
    EXPECT_EQ(0U, table().getNextSystemPort(5));
}

TEST_F(PortNext, SystemPortWalkEndsWithTheTable)
{
    table().usedSystemPort->setBit(32767);
    EXPECT_EQ(32767U, table().getNextSystemPort(32766));
    EXPECT_EQ(0U, table().getNextSystemPort(32767));
    EXPECT_EQ(0U, table().getNextSystemPort(32768));
}

// The number behind 0xFFFFFFFF is 0.
TEST_F(PortNext, SystemPortWalkFromTheHighestNumberStartsOver)
{
    bind(1, 1);
    EXPECT_EQ(1U, table().getNextSystemPort(0xFFFFFFFF));
}

TEST_F(PortNext, PortInstancesComeInThePlatformsOrderUnboundOnesLeftOut)
{
    bind(2, 1);
    bind(1, 7);
    fake.addSlotPort(1, 8); // not bound
    bind(1, 9);
    EXPECT_EQ((std::vector<uint32_t>{0x10007, 0x10009, 0x20001}), walk(&kelSysPortUtil::getNextPortInstance_t));
    EXPECT_EQ(0x10009U, table().getNextPortInstance_t(0x10007));
    EXPECT_EQ(0x20001U, table().getNextPortInstance_t(0x1FFFF));
    EXPECT_EQ(0U, table().getNextPortInstance_t(0x20001));
}

TEST_F(PortNext, PortInstanceWalkStartsAtTheKeyGivenAndGoesOnFromEachRecord)
{
    fake.addSlotPort(1, 7);
    fake.addSlotPort(1, 8);
    bind(3, 1);
    EXPECT_EQ(
        (Calls{"vlanLibGetNextPifByType(5,0)", "vlanLibGetNextPifByType(10007,0)", "vlanLibGetNextPifByType(10008,0)"}),
        callsOf(&kelSysPortUtil::getNextPortInstance_t, 5));
}

// Here the own instance counts; the other two walks ask for the best one.
TEST_F(PortNext, PortInstanceWalkFindsAMemberByItsOwnInstance)
{
    bind(1, 1).trunkPortInstance = 0x01000005;
    EXPECT_EQ(0x10001U, table().getNextPortInstance_t(0));
    EXPECT_EQ(0U, table().getNextIfIndex(0));
    EXPECT_EQ(0U, table().getNextBridgePort(0));
}

TEST_F(PortNext, TrunksAreNotWalked)
{
    table().addPortInst(fake.addTrunk(5, 0).portInstance);
    EXPECT_EQ(0U, table().getNextPortInstance_t(0));
    EXPECT_EQ(0U, table().getNextIfIndex(0));
    EXPECT_EQ(0U, table().getNextBridgePort(0));
}

TEST_F(PortNext, IfIndexesAndBridgePortsOfAllBoundPortsAreWalked)
{
    bind(1, 1);
    bind(1, 128);
    fake.addSlotPort(2, 1); // not bound
    bind(2, 2);
    bind(10, 4);
    EXPECT_EQ((std::vector<uint32_t>{1001, 1128, 2002, 10004}), walk(&kelSysPortUtil::getNextIfIndex));
    EXPECT_EQ((std::vector<uint32_t>{1, 128, 130, 9 * 128 + 4}), walk(&kelSysPortUtil::getNextBridgePort));
}

TEST_F(PortNext, NumbersThatAreNotPortsThemselvesStartInBetween)
{
    bind(1, 1);
    bind(2, 2);
    EXPECT_EQ(2002U, table().getNextIfIndex(1500));
    EXPECT_EQ(0U, table().getNextIfIndex(2500));
    EXPECT_EQ(130U, table().getNextBridgePort(100));
    EXPECT_EQ(0U, table().getNextBridgePort(1000));
}

TEST_F(PortNext, IfIndexWalkStartsAtTheSlotAndPortInTheNumber)
{
    const Next next = &kelSysPortUtil::getNextIfIndex;
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(0,0)"}), callsOf(next, 0));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(20003,0)"}), callsOf(next, 2003));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(3e7,0)"}), callsOf(next, 999));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10005,0)"}), callsOf(next, 257005)); // the slot's low 8 bits
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(370127,0)"}), callsOf(next, 0xFFFFFFFF));
}

TEST_F(PortNext, BridgePortWalkStartsAtTheSlotAndPortOfTheNumber)
{
    const Next next = &kelSysPortUtil::getNextBridgePort;
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10000,0)"}), callsOf(next, 0));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10001,0)"}), callsOf(next, 1));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10080,0)"}), callsOf(next, 128));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(20001,0)"}), callsOf(next, 129));
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(5,0)"}), callsOf(next, 255 * 128 + 5)); // slot 256: its low 8 bits
}

// Records passed over: no ifIndex, one that is not greater, one that is not bound. The walk goes on from each of them.
TEST_F(PortNext, IfIndexWalkPassesOverWhatIsNotGreaterAndGoesOnFromTheRecord)
{
    bind(1, 1).ifIndex = 0;
    bind(1, 2).ifIndex = 1000;
    bind(1, 3).ifIndex = 999;
    fake.addSlotPort(1, 4);
    bind(1, 5).ifIndex = 0xFFFFFFF0;
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10000,0)", "vlanLibGetNextPifByType(10001,0)",
                     "vlanLibGetNextPifByType(10002,0)", "vlanLibGetNextPifByType(10003,0)",
                     "vlanLibGetNextPifByType(10004,0)"}),
              callsOf(&kelSysPortUtil::getNextIfIndex, 1000));
    EXPECT_EQ(0xFFFFFFF0, table().getNextIfIndex(1000)); // unsigned: far greater, not negative
}

TEST_F(PortNext, BridgePortWalkPassesOverWhatIsNotGreaterAndGoesOnFromTheRecord)
{
    pif_ &noPlace = bind(1, 2);
    noPlace.slot = 1;
    noPlace.port = 0; // candidate 0
    pif_ &lower = bind(1, 3);
    lower.port = 1;      // candidate 1
    bind(1, 4).port = 2; // candidate 2, which is not greater than 2
    fake.addSlotPort(1, 5);
    bind(2, 9);
    EXPECT_EQ((Calls{"vlanLibGetNextPifByType(10002,0)", "vlanLibGetNextPifByType(10003,0)",
                     "vlanLibGetNextPifByType(10004,0)", "vlanLibGetNextPifByType(10005,0)"}),
              callsOf(&kelSysPortUtil::getNextBridgePort, 2));
    EXPECT_EQ(137U, table().getNextBridgePort(2));
    EXPECT_EQ(1U, table().getNextBridgePort(0));
}

// The platform's order counts, so a lower number further on is met late or never.
TEST_F(PortNext, WalksFollowThePlatformsOrderNotTheNumbers)
{
    bind(1, 1).ifIndex = 700;
    bind(1, 2).ifIndex = 500;
    EXPECT_EQ((std::vector<uint32_t>{700}), walk(&kelSysPortUtil::getNextIfIndex));
}

// Slot 0 wraps to a candidate that is greater than every real bridge port.
TEST_F(PortNext, BridgePortWalkReturnsTheWrappedCandidateOfSlot0)
{
    bind(1, 3).slot = 0;
    EXPECT_EQ(3 + 0xFFFFFF80, table().getNextBridgePort(0));
}

TEST_F(PortNext, TrunkMembersAreMetThroughTheirMasterOnly)
{
    fake.addTrunk(5, 0x10002);
    table().addPortInst(0x01000005);
    fake.addSlotPort(1, 1).trunkPortInstance = 0x01000005;
    fake.addSlotPort(1, 2).trunkPortInstance = 0x01000005;
    bind(1, 3);
    EXPECT_EQ((std::vector<uint32_t>{1002, 1003}), walk(&kelSysPortUtil::getNextIfIndex));
    EXPECT_EQ((std::vector<uint32_t>{2, 3}), walk(&kelSysPortUtil::getNextBridgePort));
}

TEST_F(PortNext, NoWalkCallsThePlatformWithTheLockHeld)
{
    bind(1, 1);
    bind(1, 2);
    bool unlocked = true;
    fake.onCall = [&] { unlocked = unlocked && mapIsUnlocked(); };
    for (const Next next :
         {&kelSysPortUtil::getNextPortInstance_t, &kelSysPortUtil::getNextIfIndex, &kelSysPortUtil::getNextBridgePort})
        EXPECT_EQ(2U, walk(next).size());
    EXPECT_TRUE(unlocked);
}
