// Adding and removing slot ports and trunks.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <cerrno>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);

using PortControl = EmptyStandin;
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

TEST_F(PortControl, ListenerHearsOfAppearingAndDisappearingButNotOfDetails)
{
    Heard heard;
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinAddTrunk(1, "", 0, "");
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinRename(port11, "x");
    kelStandinSetMtu(port11, 9000);
    kelStandinJoinTrunk(kelStandinTrunkInstance(1), port11);
    kelStandinRemovePort(port11);
    kelStandinRemovePort(port11);
    EXPECT_THAT(heard.take(), ElementsAre("+1/1", "+256/1", "-1/1"));
}

TEST_F(PortControl, ResetTellsNobody)
{
    Heard heard;
    kelStandinAddPort(1, 1, "", 0, "");
    kelStandinReset();
    kelStandinAddPort(1, 2, "", 0, "");
    EXPECT_THAT(heard.take(), ElementsAre("+1/1"));
}
