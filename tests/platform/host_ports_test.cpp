// From a host's links to ports: numbers, trunks, VLANs, addresses.
#include "failing_removal.h"
#include "standin_fixture.h"

#include "host_ports.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <memory>

using kel::AddressIs;
using kel::BridgeVlansAre;
using kel::HostEvent;
using kel::LinkIs;
using kel::LinkIsGone;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t port13 = kelStandinPortInstance(1, 3);
const portInstance_t trunk1 = kelStandinTrunkInstance(1);

LinkIs link(int index, const std::string &name)
{
    LinkIs link;
    link.index = index;
    link.name = name;
    return link;
}

LinkIs bond(int index, const std::string &name, int activeSlave = 0)
{
    LinkIs it = link(index, name);
    it.bond = true;
    it.activeSlave = activeSlave;
    return it;
}

LinkIs slave(int index, const std::string &name, int master)
{
    LinkIs it = link(index, name);
    it.master = master;
    return it;
}

class HostPorts : public EmptyStandin
{
protected:
    // The feeder's step for one message.
    void tell(const HostEvent &event)
    {
        picture.take(event);
        ports.follow(picture, linkOf(event));
    }

    kel::HostPicture picture;
    kel::HostPorts ports;
};
} // namespace

TEST_F(HostPorts, LinksAreNumberedInTheOrderTheyAppear)
{
    tell(link(20, "b"));
    tell(link(10, "a"));
    EXPECT_THAT(allNames(), ElementsAre("b", "a"));
    EXPECT_EQ(port11, ports.instanceOf(20));
    EXPECT_EQ(port12, ports.instanceOf(10));
    EXPECT_EQ(0u, ports.instanceOf(30));
    EXPECT_EQ(1002u, portOf(port12).ifIndex);
}

TEST_F(HostPorts, LowestFreeNumberIsUsedAgain)
{
    for (int index : {10, 11, 12})
        tell(link(index, "old"));
    tell(LinkIsGone{11});
    tell(LinkIsGone{10});
    tell(link(13, "new"));
    EXPECT_EQ(port11, ports.instanceOf(13));
    tell(link(14, "newer"));
    EXPECT_EQ(port12, ports.instanceOf(14));
}

TEST_F(HostPorts, LoopbackIsNoPort)
{
    LinkIs loopback = link(1, "lo");
    loopback.loopback = true;
    tell(loopback);
    EXPECT_THAT(allPorts(), IsEmpty());
    tell(LinkIsGone{1});
}

TEST_F(HostPorts, RenameAddressOrMtuIsNoAdd)
{
    Heard heard;
    tell(link(10, "eth0"));
    LinkIs renamed = link(10, "swp1");
    renamed.mtu = 9000;
    renamed.mac = {2, 0, 0, 0, 0, 1};
    renamed.alias = "to the core";
    tell(renamed);
    EXPECT_THAT(heard.take(), ElementsAre("+1/1"));
    const kelStandinPort port = portOf(port11);
    EXPECT_STREQ("swp1", port.name);
    EXPECT_STREQ("to the core", port.description);
    EXPECT_EQ(9000u, port.mtu);
    EXPECT_EQ(2, port.mac[0]);
}

TEST_F(HostPorts, LinkStateIsFollowed)
{
    Heard heard;
    LinkIs it = link(10, "swp1");
    it.up = true;
    tell(it);
    tell(it);
    it.up = false;
    tell(it);
    tell(LinkIsGone{10});
    EXPECT_THAT(heard.take(), ElementsAre("+1/1", "1/1 up", "1/1 down", "-1/1"));
}

TEST_F(HostPorts, RemovalOfAnUnknownLinkIsNothing)
{
    tell(LinkIsGone{99});
    tell(AddressIs{.index = 99});
    tell(BridgeVlansAre{.index = 99, .vlans = {{1, true}}});
    EXPECT_THAT(allPorts(), IsEmpty());
    EXPECT_TRUE(picture.links.empty());
}

TEST_F(HostPorts, BondIsATrunkAndItsSlavesAreMembers)
{
    tell(bond(30, "bond0"));
    tell(slave(10, "swp1", 30));
    tell(slave(11, "swp2", 30));
    EXPECT_THAT(allNames(), ElementsAre("swp1", "swp2", "bond0"));
    EXPECT_EQ(trunk1, ports.instanceOf(30));
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_EQ(port11, portOf(trunk1).master) << "without an active slave the first one is the master";
}

TEST_F(HostPorts, ActiveSlaveIsTheMaster)
{
    tell(bond(30, "bond0"));
    tell(slave(10, "swp1", 30));
    tell(slave(11, "swp2", 30));
    tell(bond(30, "bond0", 11));
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_EQ(1, isPortMasterOfTrunk(recordOf(port12)));
    tell(bond(30, "bond0", 10));
    EXPECT_EQ(port11, portOf(trunk1).master);
    tell(bond(30, "bond0", 99));
    EXPECT_EQ(port11, portOf(trunk1).master) << "an active slave that is unknown leaves it to the first";
}

// The kernel may name the slave in use before it says that the slave is in the bond.
TEST_F(HostPorts, ActiveSlaveThatJoinsLaterBecomesTheMasterThen)
{
    tell(slave(10, "swp1", 30));
    tell(link(11, "swp2"));
    tell(bond(30, "bond0", 11));
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11)) << "slaves that were told of before their bond join with it";
    EXPECT_EQ(port11, portOf(trunk1).master);
    tell(slave(11, "swp2", 30));
    EXPECT_EQ(port12, portOf(trunk1).master);
}

TEST_F(HostPorts, SlaveThatIsReleasedLeavesTheTrunk)
{
    tell(bond(30, "bond0"));
    tell(slave(10, "swp1", 30));
    tell(slave(11, "swp2", 30));
    tell(link(10, "swp1"));
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port12));
    EXPECT_EQ(port12, portOf(trunk1).master);
    tell(LinkIsGone{11});
    EXPECT_EQ(0u, portOf(trunk1).master);
}

TEST_F(HostPorts, SlaveChangesItsBond)
{
    tell(bond(30, "bond0"));
    tell(bond(31, "bond1"));
    tell(slave(10, "swp1", 30));
    tell(slave(10, "swp1", 31));
    EXPECT_THAT(membersOf(trunk1), IsEmpty());
    EXPECT_THAT(membersOf(kelStandinTrunkInstance(2)), ElementsAre(port11));
}

TEST_F(HostPorts, RemovedBondLeavesItsSlavesAsPortsAndItsNumberFree)
{
    tell(bond(30, "bond0"));
    tell(slave(10, "swp1", 30));
    tell(LinkIsGone{30});
    EXPECT_THAT(allNames(), ElementsAre("swp1"));
    EXPECT_EQ(0u, portOf(port11).trunk);
    tell(link(10, "swp1"));
    tell(bond(40, "bond9"));
    EXPECT_EQ(trunk1, ports.instanceOf(40));
    EXPECT_EQ(0u, portOf(trunk1).master) << "a new trunk does not inherit members";
}

TEST_F(HostPorts, MasterThatIsABridgeMakesNoTrunk)
{
    tell(link(30, "br0"));
    tell(slave(10, "swp1", 30));
    EXPECT_EQ(0u, portOf(ports.instanceOf(10)).trunk);
    EXPECT_EQ(port11, ports.instanceOf(30)) << "a bridge is an interface like others";
}

TEST_F(HostPorts, VlansAreFollowed)
{
    tell(link(10, "swp1"));
    tell(BridgeVlansAre{.index = 10, .vlans = {{1, true}, {10, false}}});
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port11, 1));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(port11, 10));
    tell(BridgeVlansAre{.index = 10, .vlans = {{10, true}, {11, false}}});
    EXPECT_EQ(KEL_STANDIN_VLAN_NONE, kelStandinGetVlan(port11, 1));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port11, 10));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(port11, 11));
    tell(BridgeVlansAre{.index = 10, .vlans = {}});
    EXPECT_EQ(0u, kelStandinNextVlan(0));
}

TEST_F(HostPorts, AddressesAreFollowed)
{
    const kelStandinAddress first{.bytes = {192, 0, 2, 1}, .family = AF_INET, .prefixLength = 24};
    const kelStandinAddress second{.bytes = {192, 0, 2, 2}, .family = AF_INET, .prefixLength = 24};
    tell(link(10, "swp1"));
    tell(AddressIs{.index = 10, .gone = false, .address = first});
    tell(AddressIs{.index = 10, .gone = false, .address = first});
    tell(AddressIs{.index = 10, .gone = false, .address = second});
    EXPECT_EQ(2u, kelStandinGetAddresses(port11, nullptr, 0));
    tell(AddressIs{.index = 10, .gone = true, .address = first});
    tell(AddressIs{.index = 10, .gone = true, .address = first});
    kelStandinAddress left{};
    EXPECT_EQ(1u, kelStandinGetAddresses(port11, &left, 1));
    EXPECT_EQ(2, left.bytes[3]);
}

TEST_F(HostPorts, LinkThatFindsNoNumberWaitsForOne)
{
    for (int index = 1; index <= KEL_STANDIN_MAX_PORT + 2; ++index)
        tell(link(index, "swp" + std::to_string(index)));
    EXPECT_EQ(static_cast<std::size_t>(KEL_STANDIN_MAX_PORT), allPorts().size());
    EXPECT_EQ(0u, ports.instanceOf(129));
    tell(LinkIsGone{5});
    EXPECT_EQ(kelStandinPortInstance(1, 5), ports.instanceOf(129));
    EXPECT_STREQ("swp129", portOf(kelStandinPortInstance(1, 5)).name);
    tell(LinkIsGone{130});
    tell(LinkIsGone{6});
    EXPECT_EQ(static_cast<std::size_t>(KEL_STANDIN_MAX_PORT - 1), allPorts().size());
}

// After a loss everything is read anew: what stayed keeps its number, and nobody hears of it.
TEST_F(HostPorts, NewPictureChangesOnlyWhatDiffers)
{
    tell(link(10, "stays"));
    tell(link(11, "goes"));
    LinkIs changes = link(12, "changes");
    tell(changes);
    tell(bond(30, "bond0"));
    Heard heard;
    kel::HostPicture anew;
    anew.take(link(10, "stays"));
    changes.up = true;
    anew.take(changes);
    anew.take(link(13, "comes"));
    anew.take(bond(30, "bond0"));
    anew.take(slave(10, "stays", 30));
    ports.followAll(anew);
    EXPECT_THAT(heard.take(), ElementsAre("-1/2", "1/3 up", "+1/2"));
    EXPECT_THAT(allNames(), ElementsAre("stays", "comes", "changes", "bond0"));
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11));
    EXPECT_EQ(port13, ports.instanceOf(12));
}

TEST_F(HostPorts, FirstPictureIsInTheOrderOfTheLinkIndexes)
{
    picture.take(link(30, "c"));
    picture.take(link(10, "a"));
    picture.take(link(20, "b"));
    ports.followAll(picture);
    EXPECT_THAT(allNames(), ElementsAre("a", "b", "c"));
}

// The number must not be given to another link while the old port has it.
TEST_F(HostPorts, PortThatCannotBeRemovedKeepsItsNumberAndIsTriedAgain)
{
    tell(link(10, "goes"));
    tell(link(11, "stays"));
    removalsThatFail = 2;
    tell(LinkIsGone{10});
    tell(link(12, "comes"));
    EXPECT_EQ(0, removalsThatFail);
    EXPECT_THAT(allNames(), ElementsAre("goes", "stays", "comes"));
    EXPECT_EQ(port13, ports.instanceOf(12));
    tell(link(11, "stays"));
    EXPECT_THAT(allNames(), ElementsAre("stays", "comes"));
    EXPECT_EQ(0u, ports.instanceOf(10));
    tell(link(14, "next"));
    EXPECT_EQ(port11, ports.instanceOf(14));
}

TEST_F(HostPorts, LinkThatWaitsGetsTheNumberWhenTheRemovalSucceeds)
{
    for (int index = 1; index <= KEL_STANDIN_MAX_PORT + 1; ++index)
        tell(link(index, "swp" + std::to_string(index)));
    removalsThatFail = 1;
    tell(LinkIsGone{5});
    EXPECT_EQ(0u, ports.instanceOf(KEL_STANDIN_MAX_PORT + 1));
    tell(link(1, "swp1"));
    EXPECT_EQ(kelStandinPortInstance(1, 5), ports.instanceOf(KEL_STANDIN_MAX_PORT + 1));
}

TEST_F(HostPorts, NewPictureTriesAgainToo)
{
    tell(link(10, "goes"));
    removalsThatFail = 2;
    tell(LinkIsGone{10});
    ports.followAll(picture);
    EXPECT_THAT(allNames(), ElementsAre("goes"));
    ports.followAll(picture);
    EXPECT_THAT(allNames(), IsEmpty());
}
