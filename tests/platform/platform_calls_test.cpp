// The switch services that look up interfaces.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <string>

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t port31 = kelStandinPortInstance(3, 1);
const portInstance_t trunk1 = kelStandinTrunkInstance(1);
const portInstance_t trunk2 = kelStandinTrunkInstance(2);

// Two ports of slot 1 in trunk 1, whose master is 1/2; a port of slot 3; trunk 2 is empty.
class PlatformCalls : public EmptyStandin
{
protected:
    PlatformCalls()
    {
        kelStandinAddTrunk(2, "po2", 0, "");
        kelStandinAddTrunk(1, "po1", 0, "");
        kelStandinAddPort(3, 1, "swp3", 0, "");
        kelStandinAddPort(1, 2, "swp2", 0, "");
        kelStandinAddPort(1, 1, "swp1", 0, "");
        kelStandinJoinTrunk(trunk1, port12);
        kelStandinJoinTrunk(trunk1, port11);
    }

    pif_ marker{};
    pif_ *record = &marker;
};
} // namespace

TEST_F(PlatformCalls, LifByPortInstanceFindsPortsAndTrunks)
{
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(port11, record->portInstance);
    EXPECT_EQ(1001u, record->ifIndex);
    EXPECT_EQ(trunk1, record->trunkPortInstance);
    EXPECT_EQ(1, record->slot);
    EXPECT_EQ(1, record->port);
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(trunk1, &record));
    EXPECT_EQ(port12, record->masterPortInstance);
    EXPECT_EQ(0, vlanLibGetLifByPortInstance(0, &record));
    EXPECT_EQ(nullptr, record);
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, nullptr)) << "whoever asks may not want the record";
}

TEST_F(PlatformCalls, LifFromIfIndexFindsPortsAndTrunks)
{
    EXPECT_EQ(port31, vlanLibGetLifFromIfIndex(3001)->portInstance);
    EXPECT_EQ(trunk2, vlanLibGetLifFromIfIndex(255002)->portInstance);
    EXPECT_EQ(nullptr, vlanLibGetLifFromIfIndex(0));
    EXPECT_EQ(nullptr, vlanLibGetLifFromIfIndex(1003));
    EXPECT_EQ(nullptr, vlanLibGetLifFromIfIndex(0xFFFFFFFF));
}

TEST_F(PlatformCalls, LifBySlotPortReturnsExactlyOneWhenFound)
{
    EXPECT_EQ(1, vlanLibGetLifBySlotPort(3, 1, &record));
    EXPECT_EQ(port31, record->portInstance);
    EXPECT_EQ(1, vlanLibGetLifBySlotPort(KEL_STANDIN_TRUNK_SLOT, 2, &record));
    EXPECT_EQ(trunk2, record->portInstance);
    EXPECT_EQ(0, vlanLibGetLifBySlotPort(1, 0, &record));
    EXPECT_EQ(nullptr, record);
    EXPECT_EQ(0, vlanLibGetLifBySlotPort(0x10001, 1, &record)) << "a slot is not cut to 16 bits";
    EXPECT_EQ(0, vlanLibGetLifBySlotPort(1, 0x10001, &record));
}

TEST_F(PlatformCalls, PifIsFoundByPortInstanceAndByDmPortMask)
{
    EXPECT_EQ(1, vlanLibGetPifByPortInstance(port31, &record));
    EXPECT_EQ(port31, record->portInstance);
    EXPECT_EQ(1, vlanLibGetPifByPortInstance(trunk1, &record));
    EXPECT_EQ(trunk1, record->portInstance);
    EXPECT_EQ(1, vlanLibGetPifByPortInstance(KEL_STANDIN_TRUNK_SLOT << 16 | 1, &record));
    EXPECT_EQ(trunk1, record->portInstance) << "a trunk's mask is not its port instance";
    EXPECT_EQ(0, vlanLibGetPifByPortInstance(0x00010009, &record));
    EXPECT_EQ(nullptr, record);
}

TEST_F(PlatformCalls, NextPifWalksOneTypeInPortInstanceOrder)
{
    std::vector<portInstance_t> walk;
    for (const pif_ *pif = vlanLibGetNextPifByType(0, 0); pif != nullptr;
         pif = vlanLibGetNextPifByType(pif->portInstance, 0))
        walk.push_back(pif->portInstance);
    EXPECT_THAT(walk, testing::ElementsAre(port11, port12, port31));
    EXPECT_EQ(trunk1, vlanLibGetNextPifByType(0, 1)->portInstance);
    EXPECT_EQ(trunk2, vlanLibGetNextPifByType(trunk1, 1)->portInstance);
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(trunk2, 1));
}

TEST_F(PlatformCalls, NextPifKeyNeedNotExist)
{
    EXPECT_EQ(port11, vlanLibGetNextPifByType(0x00010000, 0)->portInstance);
    EXPECT_EQ(port31, vlanLibGetNextPifByType(0x00020001, 0)->portInstance);
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0x00FF0000, 0));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0xFFFFFFFF, 0));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0xFFFFFFFF, 255));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0, 2));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0, -1));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0, 256));
}

TEST_F(PlatformCalls, NameIsCutToTheBuffer)
{
    char name[6] = "-----";
    EXPECT_EQ(name, vlanGetNameForPif(recordOf(port11), name, sizeof name));
    EXPECT_STREQ("swp1", name);
    EXPECT_EQ(name, vlanGetNameForPif(recordOf(port11), name, 3));
    EXPECT_STREQ("sw", name);
    EXPECT_EQ(name, vlanGetNameForPif(recordOf(port11), name, 1));
    EXPECT_STREQ("", name);
}

TEST_F(PlatformCalls, NameOfNothingIsEmptyAndNoBufferIsNotTouched)
{
    char name[] = "old";
    EXPECT_EQ(name, vlanGetNameForPif(nullptr, name, sizeof name));
    EXPECT_STREQ("", name);
    const pif_ unknown{.portInstance = 0x00090009,
                       .ifIndex = 0,
                       .trunkPortInstance = 0,
                       .masterPortInstance = 0,
                       .slot = 9,
                       .port = 9};
    name[0] = 'o';
    EXPECT_EQ(name, vlanGetNameForPif(&unknown, name, sizeof name));
    EXPECT_STREQ("", name);
    name[0] = 'o';
    EXPECT_EQ(name, vlanGetNameForPif(recordOf(port11), name, 0));
    EXPECT_STREQ("old", name);
    EXPECT_EQ(nullptr, vlanGetNameForPif(recordOf(port11), nullptr, 20));
}

TEST_F(PlatformCalls, TrunkRecordNamesItsMaster)
{
    EXPECT_EQ(1, getPifByPortInstance(trunk1, &record));
    EXPECT_EQ(port12, record->masterPortInstance);
    EXPECT_EQ(1, getPifByPortInstance(trunk2, &record));
    EXPECT_EQ(0u, record->masterPortInstance);
    EXPECT_EQ(0, getPifByPortInstance(kelStandinTrunkInstance(3), &record));
    EXPECT_EQ(nullptr, record);
}

TEST_F(PlatformCalls, OnlyTheMasterStandsForItsTrunk)
{
    EXPECT_EQ(1, isPortMasterOfTrunk(recordOf(port12)));
    EXPECT_EQ(0, isPortMasterOfTrunk(recordOf(port11)));
    EXPECT_EQ(0, isPortMasterOfTrunk(recordOf(port31)));
    EXPECT_EQ(0, isPortMasterOfTrunk(recordOf(trunk1)));
    EXPECT_EQ(0, isPortMasterOfTrunk(nullptr));
    const pif_ *member = recordOf(port12);
    kelStandinRemovePort(trunk1);
    EXPECT_EQ(0, isPortMasterOfTrunk(member)) << "the trunk of an earlier record is gone";
}

TEST(BitScan, CountsFromTheMostSignificantBit)
{
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(static_cast<int>(bit), bitarray_scanbit(0xFFFFFFFFu >> bit));
        EXPECT_EQ(static_cast<int>(bit), bitarray_scanclrbit(~(0x80000000u >> bit)));
    }
}
