// VLANs and IP addresses of ports.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <sys/socket.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t absent = kelStandinPortInstance(9, 9);

class PortExtras : public EmptyStandin
{
protected:
    PortExtras()
    {
        kelStandinAddPort(1, 2, "b", 0, "");
        kelStandinAddPort(1, 1, "a", 0, "");
    }
};

kelStandinAddress ipv4(std::uint8_t last)
{
    return {.bytes = {192, 0, 2, last}, .family = AF_INET, .prefixLength = 24};
}

std::vector<int> lastBytes(portInstance_t instance)
{
    kelStandinAddress addresses[KEL_STANDIN_MAX_ADDRESSES];
    std::vector<int> last;
    const std::size_t count = kelStandinGetAddresses(instance, addresses, std::size(addresses));
    for (std::size_t at = 0; at < count; ++at)
        last.push_back(addresses[at].bytes[3]);
    return last;
}
} // namespace

TEST_F(PortExtras, MembershipIsKeptPerPortAndVlan)
{
    EXPECT_EQ(0, kelStandinSetVlan(port11, 10, KEL_STANDIN_VLAN_TAGGED));
    EXPECT_EQ(0, kelStandinSetVlan(port12, 10, KEL_STANDIN_VLAN_UNTAGGED));
    EXPECT_EQ(0, kelStandinSetVlan(port12, 4094, KEL_STANDIN_VLAN_TAGGED));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(port11, 10));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port12, 10));
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(port11, 4094));
    EXPECT_THAT(vlanMembers(10), ElementsAre(port11, port12));
    EXPECT_THAT(vlanMembers(4094), ElementsAre(port12));
    EXPECT_THAT(vlanMembers(11), IsEmpty());
    EXPECT_EQ(10u, kelStandinNextVlan(0));
    EXPECT_EQ(4094u, kelStandinNextVlan(10));
    EXPECT_EQ(0u, kelStandinNextVlan(4094));
    EXPECT_EQ(0u, kelStandinNextVlan(0xFFFFFFFF));
}

TEST_F(PortExtras, MembershipEnds)
{
    kelStandinSetVlan(port11, 10, KEL_STANDIN_VLAN_TAGGED);
    kelStandinSetVlan(port11, 11, KEL_STANDIN_VLAN_TAGGED);
    EXPECT_EQ(0, kelStandinSetVlan(port11, 10, KEL_STANDIN_VLAN_NONE));
    EXPECT_THAT(vlanMembers(10), IsEmpty());
    EXPECT_EQ(0, kelStandinClearVlans(port11));
    EXPECT_EQ(0u, kelStandinNextVlan(0));
    EXPECT_EQ(0, kelStandinClearVlans(port12)) << "a port that never was in one";
}

TEST_F(PortExtras, PortThatComesBackIsInNoVlanAndHasNoAddress)
{
    const kelStandinAddress address = ipv4(1);
    kelStandinSetVlan(port11, 10, KEL_STANDIN_VLAN_TAGGED);
    kelStandinAddAddress(port11, &address);
    kelStandinRemovePort(port11);
    EXPECT_THAT(vlanMembers(10), IsEmpty());
    kelStandinAddPort(1, 1, "a", 0, "");
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(port11, 10));
    EXPECT_THAT(lastBytes(port11), IsEmpty());
}

TEST_F(PortExtras, VlansOutOfRangeAreRefused)
{
    EXPECT_EQ(EINVAL, kelStandinSetVlan(port11, 0, KEL_STANDIN_VLAN_TAGGED));
    EXPECT_EQ(EINVAL, kelStandinSetVlan(port11, 4095, KEL_STANDIN_VLAN_TAGGED));
    EXPECT_EQ(EINVAL, kelStandinSetVlan(port11, 1, 3));
    EXPECT_EQ(EINVAL, kelStandinSetVlan(port11, 1, -1));
    EXPECT_EQ(ENOENT, kelStandinSetVlan(absent, 1, KEL_STANDIN_VLAN_TAGGED));
    EXPECT_EQ(ENOENT, kelStandinClearVlans(absent));
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(port11, 4095));
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(absent, 1));
    EXPECT_EQ(0u, kelStandinVlanMembers(4095, nullptr, 0));
}

TEST_F(PortExtras, MembersBeyondTheRoomAreCountedOnly)
{
    kelStandinSetVlan(port11, 5, KEL_STANDIN_VLAN_TAGGED);
    kelStandinSetVlan(port12, 5, KEL_STANDIN_VLAN_TAGGED);
    portInstance_t members[2] = {0, 77};
    EXPECT_EQ(2u, kelStandinVlanMembers(5, members, 1));
    EXPECT_THAT(members, ElementsAre(port11, 77u));
}

TEST_F(PortExtras, AddressesKeepTheirOrderAndAreThereOnce)
{
    for (const std::uint8_t last : std::initializer_list<std::uint8_t>{3, 1, 2, 1}) {
        const kelStandinAddress address = ipv4(last);
        EXPECT_EQ(0, kelStandinAddAddress(port11, &address));
    }
    EXPECT_THAT(lastBytes(port11), ElementsAre(3, 1, 2));
    const kelStandinAddress middle = ipv4(1);
    EXPECT_EQ(0, kelStandinRemoveAddress(port11, &middle));
    EXPECT_EQ(ENOENT, kelStandinRemoveAddress(port11, &middle));
    EXPECT_THAT(lastBytes(port11), ElementsAre(3, 2));
    EXPECT_EQ(0, kelStandinClearAddresses(port11));
    EXPECT_THAT(lastBytes(port11), IsEmpty());
}

TEST_F(PortExtras, OneAddressTooManyIsRefused)
{
    for (unsigned last = 0; last < KEL_STANDIN_MAX_ADDRESSES; ++last) {
        const kelStandinAddress address = ipv4(static_cast<std::uint8_t>(last));
        ASSERT_EQ(0, kelStandinAddAddress(port11, &address));
    }
    const kelStandinAddress tooMany = ipv4(200);
    EXPECT_EQ(ENOSPC, kelStandinAddAddress(port11, &tooMany));
    EXPECT_EQ(static_cast<std::size_t>(KEL_STANDIN_MAX_ADDRESSES), kelStandinGetAddresses(port11, nullptr, 0));
}

TEST_F(PortExtras, WrongAddressesAreRefused)
{
    kelStandinAddress address = ipv4(1);
    EXPECT_EQ(ENOENT, kelStandinAddAddress(absent, &address));
    EXPECT_EQ(ENOENT, kelStandinRemoveAddress(port11, &address));
    EXPECT_EQ(ENOENT, kelStandinClearAddresses(absent));
    EXPECT_EQ(EINVAL, kelStandinAddAddress(port11, nullptr));
    EXPECT_EQ(EINVAL, kelStandinRemoveAddress(port11, nullptr));
    address.prefixLength = 33;
    EXPECT_EQ(EINVAL, kelStandinAddAddress(port11, &address));
    address.family = AF_INET6;
    EXPECT_EQ(0, kelStandinAddAddress(port11, &address));
    address.prefixLength = 129;
    EXPECT_EQ(EINVAL, kelStandinAddAddress(port11, &address));
    address.family = 99;
    EXPECT_EQ(EINVAL, kelStandinAddAddress(port11, &address));
    EXPECT_EQ(0u, kelStandinGetAddresses(absent, nullptr, 0));
}
