// Who is in which trunk, who stands for it, and the records that say so.
#include "standin_fixture.h"

#include "harness/fail_allocation.h"

#include <gmock/gmock.h>

#include <cerrno>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t trunk1 = kelStandinTrunkInstance(1);
const portInstance_t trunk2 = kelStandinTrunkInstance(2);

using Trunk = EmptyStandin;

// An ifIndex that no record had before, so that records with it are allocated and not found again.
uint32_t freshIfIndex()
{
    static uint32_t last = 500000;
    return ++last;
}
} // namespace

TEST_F(Trunk, TrunkHasNumbersOfItsOwn)
{
    ASSERT_EQ(0, kelStandinAddTrunk(3, "po3", 0, "three"));
    const kelStandinPort trunk = portOf(kelStandinTrunkInstance(3));
    EXPECT_EQ(0x01000003u, trunk.portInstance);
    EXPECT_EQ(255003u, trunk.ifIndex);
    EXPECT_EQ(255, trunk.slot);
    EXPECT_EQ(3, trunk.port);
    EXPECT_EQ(0u, trunk.master);
}

TEST_F(Trunk, FirstMemberIsTheMasterUntilAnotherIsMade)
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

TEST_F(Trunk, WhenTheMasterLeavesTheLowestMemberFollows)
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

TEST_F(Trunk, JoiningAnotherTrunkLeavesTheFirst)
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

TEST_F(Trunk, MembersOfARemovedTrunkAreSinglePorts)
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

// Records that came with their trunk have none to go back to: each member's next one is allocated by the removal.
TEST_F(Trunk, RemovalThatRunsOutOfMemoryReleasesNoMember)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    for (const uint16_t port : {uint16_t{1}, uint16_t{2}}) {
        const pif_ member{.portInstance = kelStandinPortInstance(1, port),
                          .ifIndex = freshIfIndex(),
                          .trunkPortInstance = trunk1,
                          .masterPortInstance = 0,
                          .slot = 1,
                          .port = port};
        ASSERT_EQ(0, kelStandinAddRecord(&member, ""));
    }
    Heard heard;
    {
        FailAllocation failing(2);
        const int result = kelStandinRemovePort(trunk1);
        ASSERT_TRUE(failing.happened());
        EXPECT_EQ(ENOMEM, result);
    }
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_THAT(heard.take(), IsEmpty());
    EXPECT_EQ(0, kelStandinRemovePort(trunk1));
    EXPECT_THAT(membersOf(trunk1), IsEmpty());
    EXPECT_THAT(heard.take(), ElementsAre("-256/1"));
}

TEST_F(Trunk, RemovalOfTheMasterThatRunsOutOfMemoryChangesNothing)
{
    kelStandinAddTrunk(1, "po1", freshIfIndex(), "");
    for (const unsigned port : {1u, 2u}) {
        kelStandinAddPort(1, port, "", 0, "");
        kelStandinJoinTrunk(trunk1, kelStandinPortInstance(1, port));
    }
    {
        FailAllocation failing(1);
        const int result = kelStandinRemovePort(port11);
        ASSERT_TRUE(failing.happened());
        EXPECT_EQ(ENOMEM, result);
    }
    EXPECT_EQ(port11, portOf(trunk1).master);
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_EQ(0, kelStandinRemovePort(port11));
    EXPECT_EQ(port12, portOf(trunk1).master);
}

// The listener hears of a member when it stands for nothing any more, but can still be looked up.
TEST_F(Trunk, MemberHasLeftItsTrunkWhenTheListenerHearsThatItDisappears)
{
    kelStandinAddTrunk(1, "po1", 0, "");
    for (const unsigned port : {1u, 2u}) {
        kelStandinAddPort(1, port, "", 0, "");
        kelStandinJoinTrunk(trunk1, kelStandinPortInstance(1, port));
    }
    struct Seen {
        portInstance_t trunk;
        portInstance_t master;
    } seen{1, 1};
    const kelStandinListener listener{nullptr,
                                      [](void *user, portInstance_t instance) {
                                          *static_cast<Seen *>(user) = {portOf(instance).trunk, portOf(trunk1).master};
                                      },
                                      nullptr, &seen};
    kelStandinSetListener(&listener);
    EXPECT_EQ(0, kelStandinRemovePort(port11));
    kelStandinSetListener(nullptr);
    EXPECT_EQ(0u, seen.trunk);
    EXPECT_EQ(port12, seen.master);
}

TEST_F(Trunk, WrongPartnersAreRefused)
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
TEST_F(Trunk, RecordThatWasHandedOutNeverChanges)
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
