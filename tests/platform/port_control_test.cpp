// Adding, removing and changing ports and trunks, and what the listener hears of it.
#include "standin_fixture.h"

#include "harness/time_of.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t port21 = kelStandinPortInstance(2, 1);
const portInstance_t trunk1 = kelStandinTrunkInstance(1);
const portInstance_t trunk2 = kelStandinTrunkInstance(2);

using PortControl = EmptyStandin;
using Trunks = EmptyStandin;
using Links = EmptyStandin;
} // namespace

TEST_F(PortControl, AddedPortHasItsNumbersAndNothingElse)
{
    ASSERT_EQ(0, kelStandinAddPort(2, 7, "swp7", 0, "to the core"));
    const kelStandinPort port = portOf(kelStandinPortInstance(2, 7));
    EXPECT_EQ(0x00020007u, port.portInstance);
    EXPECT_EQ(2007u, port.ifIndex);
    EXPECT_EQ(2, port.slot);
    EXPECT_EQ(7, port.port);
    EXPECT_STREQ("swp7", port.name);
    EXPECT_STREQ("to the core", port.description);
    EXPECT_EQ(0u, port.trunk);
    EXPECT_EQ(0u, port.master);
    EXPECT_EQ(0, port.linkUp);
    EXPECT_EQ(0u, port.mtu);
    EXPECT_EQ(0u, port.linkChanges);
    EXPECT_GT(port.lastChange, 0);
    EXPECT_THAT(port.mac, testing::Each(0));
}

TEST_F(PortControl, GivenIfIndexIsKept)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "a", 77, nullptr));
    EXPECT_EQ(77u, portOf(port11).ifIndex);
}

TEST_F(PortControl, NullTextsAreEmptyAndLongOnesAreCut)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, nullptr, 0, nullptr));
    EXPECT_STREQ("", portOf(port11).name);
    EXPECT_STREQ("", portOf(port11).description);
    const std::string tooLong(1000, 'x');
    ASSERT_EQ(0, kelStandinAddPort(1, 2, tooLong.c_str(), 0, tooLong.c_str()));
    EXPECT_EQ(std::string(KEL_STANDIN_NAME_SIZE - 1, 'x'), portOf(port12).name);
    EXPECT_EQ(std::string(KEL_STANDIN_DESCRIPTION_SIZE - 1, 'x'), portOf(port12).description);
}

TEST_F(PortControl, NumbersOutOfRangeAreRefused)
{
    EXPECT_EQ(EINVAL, kelStandinAddPort(0, 1, "", 0, ""));
    EXPECT_EQ(EINVAL, kelStandinAddPort(KEL_STANDIN_MAX_SLOT + 1, 1, "", 0, ""));
    EXPECT_EQ(EINVAL, kelStandinAddPort(1, 0, "", 0, ""));
    EXPECT_EQ(EINVAL, kelStandinAddPort(1, KEL_STANDIN_MAX_PORT + 1, "", 0, ""));
    EXPECT_EQ(EINVAL, kelStandinAddTrunk(0, "", 0, ""));
    EXPECT_EQ(EINVAL, kelStandinAddTrunk(KEL_STANDIN_MAX_PORT + 1, "", 0, ""));
    EXPECT_THAT(allPorts(), IsEmpty());
    EXPECT_EQ(0, kelStandinAddPort(KEL_STANDIN_MAX_SLOT, KEL_STANDIN_MAX_PORT, "", 0, ""));
    EXPECT_EQ(0, kelStandinAddTrunk(KEL_STANDIN_MAX_PORT, "", 0, ""));
}

TEST_F(PortControl, SamePortOrIfIndexTwiceIsRefusedAndTheFirstStays)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "first", 0, ""));
    EXPECT_EQ(EEXIST, kelStandinAddPort(1, 1, "second", 5, ""));
    EXPECT_EQ(EEXIST, kelStandinAddPort(1, 2, "second", 1001, ""));
    EXPECT_EQ(EEXIST, kelStandinAddTrunk(1, "second", 1001, ""));
    EXPECT_THAT(allNames(), ElementsAre("first"));
}

TEST_F(PortControl, RemovedPortIsGoneAndItsNumbersAreFree)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "old", 0, "d"));
    ASSERT_EQ(0, kelStandinSetLink(port11, 1));
    ASSERT_EQ(0, kelStandinRemovePort(port11));
    EXPECT_EQ(ENOENT, kelStandinRemovePort(port11));
    kelStandinPort port;
    EXPECT_EQ(ENOENT, kelStandinGetPort(port11, &port));
    EXPECT_EQ(-1, kelStandinGetLink(port11));
    ASSERT_EQ(0, kelStandinAddPort(1, 2, "", 1001, ""));
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "new", 9, ""));
    EXPECT_STREQ("new", portOf(port11).name);
    EXPECT_STREQ("", portOf(port11).description);
    EXPECT_EQ(0, portOf(port11).linkUp) << "a port comes back with its link down";
    EXPECT_EQ(0u, portOf(port11).linkChanges);
}

TEST_F(PortControl, ChangesOfAPortThatIsNotThereAreRefused)
{
    const uint8_t mac[6] = {2};
    EXPECT_EQ(ENOENT, kelStandinSetLink(port11, 1));
    EXPECT_EQ(ENOENT, kelStandinRename(port11, "x"));
    EXPECT_EQ(ENOENT, kelStandinSetDescription(port11, "x"));
    EXPECT_EQ(ENOENT, kelStandinSetMac(port11, mac));
    EXPECT_EQ(ENOENT, kelStandinSetMtu(port11, 1500));
    EXPECT_EQ(EINVAL, kelStandinGetPort(port11, nullptr));
    EXPECT_EQ(0u, kelStandinFindPort("x"));
}

TEST_F(PortControl, DetailsAreKeptUntilTheyChange)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "a", 0, "b"));
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    EXPECT_EQ(0, kelStandinSetMac(port11, mac));
    EXPECT_EQ(0, kelStandinSetMtu(port11, 9000));
    EXPECT_EQ(0, kelStandinRename(port11, "renamed"));
    EXPECT_EQ(0, kelStandinSetDescription(port11, "described"));
    const kelStandinPort port = portOf(port11);
    EXPECT_EQ(0, std::memcmp(mac, port.mac, sizeof mac));
    EXPECT_EQ(9000u, port.mtu);
    EXPECT_STREQ("renamed", port.name);
    EXPECT_STREQ("described", port.description);
    EXPECT_EQ(0, kelStandinSetMac(port11, nullptr));
    EXPECT_EQ(0, kelStandinRename(port11, nullptr));
    EXPECT_THAT(portOf(port11).mac, testing::Each(0));
    EXPECT_STREQ("", portOf(port11).name);
}

TEST_F(PortControl, PortIsFoundByNameTheLowestFirstAndNeverByNoName)
{
    kelStandinAddPort(1, 2, "twin", 0, "");
    kelStandinAddPort(1, 1, "twin", 0, "");
    kelStandinAddPort(2, 1, "", 0, "");
    EXPECT_EQ(port11, kelStandinFindPort("twin"));
    EXPECT_EQ(0u, kelStandinFindPort(""));
    EXPECT_EQ(0u, kelStandinFindPort(nullptr));
    EXPECT_EQ(0u, kelStandinFindPort("other"));
}

TEST_F(PortControl, SnapshotIsInPortInstanceOrderAndSaysHowManyThereAre)
{
    kelStandinAddTrunk(1, "trunk", 0, "");
    kelStandinAddPort(2, 1, "c", 0, "");
    kelStandinAddPort(1, 2, "b", 0, "");
    kelStandinAddPort(1, 1, "a", 0, "");
    EXPECT_THAT(allNames(), ElementsAre("a", "b", "c", "trunk"));
    kelStandinPort two[3];
    std::memset(two, 0x55, sizeof two);
    EXPECT_EQ(4u, kelStandinSnapshot(two, 2));
    EXPECT_STREQ("b", two[1].name);
    EXPECT_EQ(0x55555555u, two[2].portInstance) << "written beyond the room";
}

// Tests of the port map need records that no feeder would make.
TEST_F(PortControl, RecordIsAddedAsItIsAndTheLowestInstanceAnswers)
{
    const pif_ strange{.portInstance = 0x02000007,
                       .ifIndex = 1001,
                       .trunkPortInstance = 3,
                       .masterPortInstance = 4,
                       .slot = 1,
                       .port = 1};
    ASSERT_EQ(0, kelStandinAddRecord(&strange, "strange"));
    EXPECT_EQ(EEXIST, kelStandinAddRecord(&strange, "strange"));
    EXPECT_EQ(0x02000007u, vlanLibGetLifFromIfIndex(1001)->portInstance);
    const pif_ lower{
        .portInstance = 0x7FFF, .ifIndex = 1001, .trunkPortInstance = 0, .masterPortInstance = 0, .slot = 1, .port = 1};
    ASSERT_EQ(0, kelStandinAddRecord(&lower, nullptr));
    EXPECT_EQ(0x7FFFu, vlanLibGetLifFromIfIndex(1001)->portInstance);
    pif_ *record = nullptr;
    EXPECT_EQ(1, vlanLibGetLifBySlotPort(1, 1, &record));
    EXPECT_EQ(0x7FFFu, record->portInstance);
    EXPECT_EQ(3u, recordOf(0x02000007)->trunkPortInstance);
    EXPECT_EQ(4u, recordOf(0x02000007)->masterPortInstance);
    EXPECT_EQ(EINVAL, kelStandinAddRecord(nullptr, ""));
    const pif_ none{};
    EXPECT_EQ(EINVAL, kelStandinAddRecord(&none, ""));
}

// ---- Trunks

TEST_F(Trunks, TrunkHasNumbersOfItsOwn)
{
    ASSERT_EQ(0, kelStandinAddTrunk(3, "po3", 0, "three"));
    const kelStandinPort trunk = portOf(kelStandinTrunkInstance(3));
    EXPECT_EQ(0x01000003u, trunk.portInstance);
    EXPECT_EQ(255003u, trunk.ifIndex);
    EXPECT_EQ(255, trunk.slot);
    EXPECT_EQ(3, trunk.port);
    EXPECT_EQ(0u, trunk.master);
}

TEST_F(Trunks, FirstMemberIsTheMasterUntilAnotherIsMade)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    kelStandinAddPort(1, 1, "a", 0, "");
    kelStandinAddPort(1, 2, "b", 0, "");
    EXPECT_EQ(0, kelStandinJoinTrunk(trunk1, port12));
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_EQ(0, kelStandinJoinTrunk(trunk1, port11));
    EXPECT_EQ(0, kelStandinJoinTrunk(trunk1, port11)) << "joining twice is no change";
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_EQ(0, kelStandinSetMaster(trunk1, port11));
    EXPECT_EQ(port11, portOf(trunk1).master);
}

TEST_F(Trunks, WhenTheMasterLeavesTheLowestMemberFollows)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    for (unsigned port : {1u, 2u, 3u})
        kelStandinAddPort(1, port, "", 0, "");
    for (unsigned port : {3u, 2u, 1u})
        kelStandinJoinTrunk(trunk1, kelStandinPortInstance(1, port));
    EXPECT_EQ(0, kelStandinLeaveTrunk(kelStandinPortInstance(1, 3)));
    EXPECT_EQ(port11, portOf(trunk1).master);
    EXPECT_EQ(0, kelStandinRemovePort(port11)) << "a port that disappears leaves its trunk as well";
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_EQ(0, kelStandinLeaveTrunk(port12));
    EXPECT_EQ(0u, portOf(trunk1).master);
    EXPECT_EQ(0, kelStandinLeaveTrunk(port12)) << "a port that is in no trunk stays so";
}

TEST_F(Trunks, JoiningAnotherTrunkLeavesTheFirst)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    kelStandinAddTrunk(2, "po2", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinJoinTrunk(trunk1, port11);
    EXPECT_EQ(0, kelStandinJoinTrunk(trunk2, port11));
    EXPECT_EQ(0u, portOf(trunk1).master);
    EXPECT_EQ(port11, portOf(trunk2).master);
    EXPECT_EQ(trunk2, portOf(port11).trunk);
}

TEST_F(Trunks, MembersOfARemovedTrunkAreSinglePorts)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinJoinTrunk(trunk1, port11);
    EXPECT_EQ(0, kelStandinRemovePort(trunk1));
    EXPECT_EQ(0u, portOf(port11).trunk);
    kelStandinAddTrunk(1, "po1", 0, "");
    EXPECT_EQ(0u, portOf(trunk1).master);
    EXPECT_THAT(membersOf(trunk1), IsEmpty());
}

TEST_F(Trunks, WrongPartnersAreRefused)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    kelStandinAddTrunk(2, "po2", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    EXPECT_EQ(ENOENT, kelStandinJoinTrunk(kelStandinTrunkInstance(9), port11));
    EXPECT_EQ(ENOENT, kelStandinJoinTrunk(trunk1, port12));
    EXPECT_EQ(EINVAL, kelStandinJoinTrunk(trunk1, trunk2));
    EXPECT_EQ(EINVAL, kelStandinJoinTrunk(port11, port11));
    EXPECT_EQ(ENOENT, kelStandinLeaveTrunk(port12));
    EXPECT_EQ(ENOENT, kelStandinSetMaster(trunk1, port12));
    EXPECT_EQ(EINVAL, kelStandinSetMaster(trunk1, port11));
    EXPECT_EQ(EINVAL, kelStandinSetMaster(port11, port11));
}

// Readers keep records without a lock: what they were given must not change under them.
TEST_F(Trunks, RecordThatWasHandedOutNeverChanges)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    const pif_ *single = recordOf(port11);
    kelStandinJoinTrunk(trunk1, port11);
    const pif_ *member = recordOf(port11);
    EXPECT_EQ(0u, single->trunkPortInstance);
    EXPECT_EQ(trunk1, member->trunkPortInstance);
    kelStandinLeaveTrunk(port11);
    EXPECT_EQ(trunk1, member->trunkPortInstance);
    EXPECT_EQ(single, recordOf(port11)) << "an earlier content is found again";
    kelStandinJoinTrunk(trunk1, port11);
    EXPECT_EQ(member, recordOf(port11));
    kelStandinRemovePort(port11);
    EXPECT_EQ(port11, single->portInstance) << "readable while the process lives";
    kelStandinAddPort(1, 1, "", 0, "");
    EXPECT_EQ(single, recordOf(port11));
}

// ---- Links and the listener

TEST_F(Links, OnlyAChangeIsToldAndCounted)
{
    kelStandinAddPort(1, 1, "", 0, "");
    Heard heard;
    const int64_t appeared = portOf(port11).lastChange;
    EXPECT_EQ(0, kelStandinSetLink(port11, 0));
    EXPECT_EQ(0, kelStandinSetLink(port11, 1));
    EXPECT_EQ(0, kelStandinSetLink(port11, 7)) << "anything but 0 is up";
    EXPECT_EQ(1, kelStandinGetLink(port11));
    EXPECT_EQ(0, kelStandinSetLink(port11, 0));
    EXPECT_THAT(heard.take(), ElementsAre("1/1 up", "1/1 down"));
    EXPECT_EQ(2u, portOf(port11).linkChanges);
    EXPECT_GE(portOf(port11).lastChange, appeared);
}

TEST_F(Links, ListenerHearsOfAppearingAndDisappearingButNotOfDetails)
{
    Heard heard;
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinAddTrunk(1, "", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinRename(port11, "x");
    kelStandinSetMtu(port11, 9000);
    kelStandinJoinTrunk(trunk1, port11);
    kelStandinRemovePort(port11);
    kelStandinRemovePort(port11);
    EXPECT_THAT(heard.take(), ElementsAre("+1/1", "+256/1", "-1/1"));
}

TEST_F(Links, ResetTellsNobody)
{
    Heard heard;
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinReset();
    kelStandinAddPort(1, 2, "", 0, "");
    EXPECT_THAT(heard.take(), ElementsAre("+1/1"));
}

TEST_F(Links, WithoutAPortNoLinkIsToldOf)
{
    Heard heard;
    kelStandinSetLink(port21, 1);
    EXPECT_THAT(heard.take(), IsEmpty());
}
