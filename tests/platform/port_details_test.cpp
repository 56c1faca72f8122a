// Link states, names and the like of a port that is there.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port21 = kelStandinPortInstance(2, 1);

using PortDetails = EmptyStandin;
} // namespace

TEST_F(PortDetails, DetailsAreKeptUntilTheyChange)
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

TEST_F(PortDetails, ChangesOfAPortThatIsNotThereAreRefused)
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

TEST_F(PortDetails, OnlyAChangeIsToldAndCounted)
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

TEST_F(PortDetails, WithoutAPortNoLinkIsToldOf)
{
    Heard heard;
    kelStandinSetLink(port21, 1);
    EXPECT_THAT(heard.take(), IsEmpty());
}
