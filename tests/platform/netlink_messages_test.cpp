// Route netlink messages from bytes: bonds, bridges and addresses, and bytes that lie.
#include "netlink_bytes.h"

#include "netlink_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using kel::AddressIs;
using kel::BridgeVlansAre;
using kel::LinkIs;
using kel::LinkIsGone;
using kel::NetlinkBatch;

namespace
{
NetlinkBatch parse(const std::vector<std::byte> &bytes)
{
    // A block of exactly this size, so that a sanitizer sees a read beyond it.
    const std::unique_ptr<std::byte[]> block(new std::byte[bytes.size()]);
    std::ranges::copy(bytes, block.get());
    return kel::parseNetlink({block.get(), bytes.size()}, NetlinkBytes::sequence);
}

template <class Event>
Event only(const NetlinkBatch &batch)
{
    EXPECT_EQ(1u, batch.events.size());
    EXPECT_EQ(0u, batch.malformed);
    if (batch.events.size() != 1 || !std::holds_alternative<Event>(batch.events[0])) {
        ADD_FAILURE() << "not the one event that was expected";
        return {};
    }
    return std::get<Event>(batch.events[0]);
}

// The messages that a host sends: a full link, a bond, a slave, a bridge port, two addresses, two removals.
std::vector<std::byte> everything()
{
    NetlinkBytes bytes;
    bytes.link(2, [&] {
        bytes.text(IFLA_IFNAME, "swp1");
        bytes.number(IFLA_MTU, 9000);
        bytes.raw(IFLA_ADDRESS, "\x02\x00\x00\x00\x00\x01", 6);
        bytes.text(IFLA_IFALIAS, "to the core");
        bytes.number(IFLA_MASTER, 5);
        bytes.nest(IFLA_LINKINFO, [&] {
            bytes.text(IFLA_INFO_KIND, "veth");
            bytes.text(IFLA_INFO_SLAVE_KIND, "bond");
        });
    });
    bytes.link(5, [&] {
        bytes.text(IFLA_IFNAME, "bond0");
        bytes.nest(IFLA_LINKINFO, [&] {
            bytes.text(IFLA_INFO_KIND, "bond");
            bytes.nest(IFLA_INFO_DATA, [&] { bytes.number(IFLA_BOND_ACTIVE_SLAVE, 2); });
        });
    });
    bytes.link(
        2,
        [&] {
            bytes.nest(IFLA_AF_SPEC, [&] {
                bytes.vlan(1, BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED);
                bytes.vlan(10, BRIDGE_VLAN_INFO_RANGE_BEGIN);
                bytes.vlan(12, BRIDGE_VLAN_INFO_RANGE_END);
            });
        },
        IFF_UP, RTM_NEWLINK, AF_BRIDGE);
    bytes.address(2, AF_INET, 24, [&] {
        bytes.raw(IFA_ADDRESS, "\xC0\x00\x02\x02", 4);
        bytes.raw(IFA_LOCAL, "\xC0\x00\x02\x01", 4);
    });
    bytes.address(2, AF_INET6, 64, [&] { bytes.raw(IFA_ADDRESS, "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\1", 16); });
    bytes.link(
        2, [] {}, 0, RTM_DELLINK, AF_BRIDGE);
    bytes.link(
        2, [] {}, 0, RTM_DELLINK);
    return bytes.bytes();
}
} // namespace

TEST(NetlinkMessages, LinkSaysAllThatIsKeptAboutAPort)
{
    NetlinkBytes bytes;
    bytes.link(7, [&] {
        bytes.text(IFLA_IFNAME, "swp1");
        bytes.number(IFLA_MTU, 9000);
        bytes.raw(IFLA_ADDRESS, "\x02\x00\x00\x00\x00\x01", 6);
        bytes.text(IFLA_IFALIAS, "to the core");
        bytes.number(IFLA_MASTER, 5);
    });
    const auto link = only<LinkIs>(parse(bytes.bytes()));
    EXPECT_EQ(7, link.index);
    EXPECT_EQ("swp1", link.name);
    EXPECT_EQ("to the core", link.alias);
    EXPECT_EQ(9000u, link.mtu);
    EXPECT_EQ(5, link.master);
    EXPECT_EQ(2, link.mac[0]);
    EXPECT_EQ(1, link.mac[5]);
    EXPECT_TRUE(link.up);
    EXPECT_FALSE(link.loopback);
    EXPECT_FALSE(link.bond);
}

TEST(NetlinkMessages, LinkIsUpWhenAdministrativelyUpAndRunning)
{
    const auto up = [](unsigned flags) {
        NetlinkBytes bytes;
        bytes.link(
            7, [&] { bytes.text(IFLA_IFNAME, "x"); }, flags);
        return only<LinkIs>(parse(bytes.bytes())).up;
    };
    EXPECT_TRUE(up(IFF_UP | IFF_RUNNING));
    EXPECT_FALSE(up(IFF_UP));
    EXPECT_FALSE(up(IFF_RUNNING));
    EXPECT_FALSE(up(0));
}

TEST(NetlinkMessages, LoopbackIsMarked)
{
    NetlinkBytes bytes;
    bytes.link(
        1, [&] { bytes.text(IFLA_IFNAME, "lo"); }, IFF_UP | IFF_RUNNING | IFF_LOOPBACK);
    EXPECT_TRUE(only<LinkIs>(parse(bytes.bytes())).loopback);
}

TEST(NetlinkMessages, BondNamesItsActiveSlave)
{
    NetlinkBytes bytes;
    bytes.link(5, [&] {
        bytes.text(IFLA_IFNAME, "bond0");
        bytes.nest(IFLA_LINKINFO, [&] {
            bytes.text(IFLA_INFO_KIND, "bond");
            bytes.nest(IFLA_INFO_DATA, [&] { bytes.number(IFLA_BOND_ACTIVE_SLAVE, 3); });
        });
    });
    const auto bond = only<LinkIs>(parse(bytes.bytes()));
    EXPECT_TRUE(bond.bond);
    EXPECT_EQ(3, bond.activeSlave);
}

TEST(NetlinkMessages, BondWithoutAnActiveSlaveAndOtherKindsAreToldApart)
{
    NetlinkBytes bytes;
    bytes.link(5, [&] {
        bytes.text(IFLA_IFNAME, "bond0");
        bytes.nest(IFLA_LINKINFO, [&] { bytes.text(IFLA_INFO_KIND, "bond"); });
    });
    EXPECT_TRUE(only<LinkIs>(parse(bytes.bytes())).bond);
    EXPECT_EQ(0, only<LinkIs>(parse(bytes.bytes())).activeSlave);

    NetlinkBytes other;
    other.link(6, [&] {
        other.text(IFLA_IFNAME, "team0");
        other.nest(IFLA_LINKINFO, [&] {
            other.text(IFLA_INFO_KIND, "team");
            other.nest(IFLA_INFO_DATA, [&] { other.number(IFLA_BOND_ACTIVE_SLAVE, 3); });
        });
    });
    EXPECT_FALSE(only<LinkIs>(parse(other.bytes())).bond);
    EXPECT_EQ(0, only<LinkIs>(parse(other.bytes())).activeSlave);
}

TEST(NetlinkMessages, StationAddressOfAnotherLengthIsNone)
{
    NetlinkBytes bytes;
    bytes.link(5, [&] {
        bytes.text(IFLA_IFNAME, "tun0");
        bytes.raw(IFLA_ADDRESS, "\xC0\x00\x02\x01", 4);
    });
    EXPECT_THAT(only<LinkIs>(parse(bytes.bytes())).mac, testing::Each(0));
}

TEST(NetlinkMessages, RemovedLinkIsGone)
{
    NetlinkBytes bytes;
    bytes.link(
        9, [&] { bytes.text(IFLA_IFNAME, "swp1"); }, 0, RTM_DELLINK);
    EXPECT_EQ(9, only<LinkIsGone>(parse(bytes.bytes())).index);
}

// A port that leaves its bridge is told of as a deleted link of the bridge family: the interface itself stays.
TEST(NetlinkMessages, LeavingABridgeEndsTheVlansAndNotTheLink)
{
    NetlinkBytes bytes;
    bytes.link(
        9, [&] { bytes.text(IFLA_IFNAME, "swp1"); }, 0, RTM_DELLINK, AF_BRIDGE);
    const auto vlans = only<BridgeVlansAre>(parse(bytes.bytes()));
    EXPECT_EQ(9, vlans.index);
    EXPECT_TRUE(vlans.vlans.empty());
}

TEST(NetlinkMessages, BridgePortWithoutAListHasNoVlansLeft)
{
    NetlinkBytes bytes;
    bytes.link(
        9, [&] { bytes.nest(IFLA_PROTINFO, [] {}); }, IFF_UP, RTM_NEWLINK, AF_BRIDGE);
    const auto port = only<BridgeVlansAre>(parse(bytes.bytes()));
    EXPECT_EQ(9, port.index);
    EXPECT_TRUE(port.vlans.empty());
}

TEST(NetlinkMessages, BridgePortListsItsVlansAndRanges)
{
    NetlinkBytes bytes;
    bytes.link(
        9,
        [&] {
            bytes.nest(IFLA_AF_SPEC, [&] {
                bytes.number(IFLA_BRIDGE_FLAGS, 0);
                bytes.vlan(1, BRIDGE_VLAN_INFO_UNTAGGED | BRIDGE_VLAN_INFO_PVID);
                bytes.vlan(10, BRIDGE_VLAN_INFO_RANGE_BEGIN);
                bytes.vlan(12, BRIDGE_VLAN_INFO_RANGE_END);
                bytes.vlan(4094, 0);
            });
        },
        IFF_UP, RTM_NEWLINK, AF_BRIDGE);
    const auto port = only<BridgeVlansAre>(parse(bytes.bytes()));
    const std::vector<kel::BridgeVlan> expected{{1, true}, {10, false}, {11, false}, {12, false}, {4094, false}};
    EXPECT_EQ(expected, port.vlans);
}

TEST(NetlinkMessages, VlansThatCannotBeAreLeftOut)
{
    NetlinkBytes bytes;
    bytes.link(
        9,
        [&] {
            bytes.nest(IFLA_AF_SPEC, [&] {
                bytes.vlan(0, 0);
                bytes.vlan(4095, 0);
                bytes.vlan(65535, BRIDGE_VLAN_INFO_RANGE_END);
                bytes.vlan(50, BRIDGE_VLAN_INFO_RANGE_END);
                bytes.vlan(60, BRIDGE_VLAN_INFO_RANGE_BEGIN);
                bytes.vlan(40, BRIDGE_VLAN_INFO_RANGE_END);
                bytes.raw(IFLA_BRIDGE_VLAN_INFO, "\0", 1);
                bytes.vlan(7, 0);
            });
        },
        IFF_UP, RTM_NEWLINK, AF_BRIDGE);
    const std::vector<kel::BridgeVlan> expected{{7, false}};
    EXPECT_EQ(expected, only<BridgeVlansAre>(parse(bytes.bytes())).vlans);
}

TEST(NetlinkMessages, AddressOfAPointToPointLinkIsItsOwnAndNotThePeers)
{
    NetlinkBytes bytes;
    bytes.address(3, AF_INET, 30, [&] {
        bytes.raw(IFA_ADDRESS, "\xC0\x00\x02\x02", 4);
        bytes.raw(IFA_LOCAL, "\xC0\x00\x02\x01", 4);
    });
    const auto address = only<AddressIs>(parse(bytes.bytes()));
    EXPECT_EQ(3, address.index);
    EXPECT_FALSE(address.gone);
    EXPECT_EQ(AF_INET, address.address.family);
    EXPECT_EQ(30, address.address.prefixLength);
    EXPECT_EQ(1, address.address.bytes[3]);
}

TEST(NetlinkMessages, Ipv6AddressComesAndGoes)
{
    NetlinkBytes bytes;
    bytes.address(
        3, AF_INET6, 64, [&] { bytes.raw(IFA_ADDRESS, "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\1", 16); }, RTM_DELADDR);
    const auto address = only<AddressIs>(parse(bytes.bytes()));
    EXPECT_TRUE(address.gone);
    EXPECT_EQ(AF_INET6, address.address.family);
    EXPECT_EQ(0x20, address.address.bytes[0]);
    EXPECT_EQ(1, address.address.bytes[15]);
}

TEST(NetlinkMessages, OtherMessagesFamiliesAndEventsArePassedOver)
{
    NetlinkBytes bytes;
    bytes.link(
        3, [&] { bytes.text(IFLA_IFNAME, "x"); }, IFF_UP, RTM_NEWLINK, AF_INET6);
    bytes.link(3, [&] { bytes.number(IFLA_MTU, 1500); }); // no name
    bytes.link(3, [&] {
        bytes.text(IFLA_IFNAME, "wlan0");
        bytes.raw(IFLA_WIRELESS, "", 0);
    });
    bytes.link(
        3, [&] { bytes.number(IFLA_MTU, 1500); }, IFF_UP, RTM_NEWLINK, AF_BRIDGE); // no VLANs told
    bytes.address(3, AF_PACKET, 0, [] {});
    bytes.message(RTM_NEWROUTE, rtmsg{});
    bytes.message(NLMSG_NOOP, 0);
    const NetlinkBatch batch = parse(bytes.bytes());
    EXPECT_TRUE(batch.events.empty());
    EXPECT_EQ(0u, batch.malformed);
    EXPECT_FALSE(batch.dumpDone || batch.dumpInterrupted || batch.overrun);
}

TEST(NetlinkMessages, EndsOfDumpsAreThoseAskedFor)
{
    NetlinkBytes bytes;
    bytes.message(NLMSG_DONE, 0);
    EXPECT_TRUE(parse(bytes.bytes()).dumpDone);
    NetlinkBytes other;
    other.message(
        NLMSG_DONE, 0, [] {}, NLM_F_DUMP_INTR, NetlinkBytes::sequence + 1);
    other.message(
        NLMSG_ERROR, -EPERM, [] {}, 0, NetlinkBytes::sequence + 1);
    EXPECT_FALSE(parse(other.bytes()).dumpDone);
    EXPECT_FALSE(parse(other.bytes()).dumpInterrupted);
    EXPECT_EQ(0, parse(other.bytes()).error);
    NetlinkBytes interrupted;
    interrupted.message(
        NLMSG_DONE, 0, [] {}, NLM_F_MULTI | NLM_F_DUMP_INTR);
    EXPECT_TRUE(parse(interrupted.bytes()).dumpInterrupted);
}

TEST(NetlinkMessages, RefusalsAndLossesAreTold)
{
    NetlinkBytes refused;
    refused.message(NLMSG_ERROR, -EPERM);
    EXPECT_EQ(EPERM, parse(refused.bytes()).error);
    NetlinkBytes acknowledged;
    acknowledged.message(NLMSG_ERROR, 0);
    EXPECT_EQ(0, parse(acknowledged.bytes()).error);
    NetlinkBytes absurd;
    absurd.message(NLMSG_ERROR, INT32_MIN);
    EXPECT_EQ(0, parse(absurd.bytes()).error);
    NetlinkBytes failedDump;
    failedDump.message(NLMSG_DONE, -EOPNOTSUPP);
    EXPECT_EQ(EOPNOTSUPP, parse(failedDump.bytes()).error);
    EXPECT_FALSE(parse(failedDump.bytes()).dumpDone);
    NetlinkBytes lost;
    lost.message(NLMSG_OVERRUN, 0);
    EXPECT_TRUE(parse(lost.bytes()).overrun);
}

TEST(NetlinkMessages, SeveralMessagesKeepTheirOrder)
{
    const NetlinkBatch batch = parse(everything());
    EXPECT_EQ(0u, batch.malformed);
    ASSERT_EQ(7u, batch.events.size());
    EXPECT_EQ("swp1", std::get<LinkIs>(batch.events[0]).name);
    EXPECT_EQ("bond0", std::get<LinkIs>(batch.events[1]).name);
    EXPECT_EQ(4u, std::get<BridgeVlansAre>(batch.events[2]).vlans.size());
    EXPECT_EQ(24, std::get<AddressIs>(batch.events[3]).address.prefixLength);
    EXPECT_EQ(64, std::get<AddressIs>(batch.events[4]).address.prefixLength);
    EXPECT_TRUE(std::get<BridgeVlansAre>(batch.events[5]).vlans.empty());
    EXPECT_EQ(2, std::get<LinkIsGone>(batch.events[6]).index);
}

// ---- Bytes that lie

TEST(NetlinkMessages, AttributesOfAWrongLengthSpoilTheirMessageAlone)
{
    const auto spoiled = [](const std::function<void(NetlinkBytes &)> &body) {
        NetlinkBytes bytes;
        bytes.link(2, [&] { body(bytes); });
        bytes.link(3, [&] { bytes.text(IFLA_IFNAME, "good"); });
        const NetlinkBatch batch = parse(bytes.bytes());
        return batch.malformed == 1 && batch.events.size() == 1 && linkOf(batch.events[0]) == 3;
    };
    EXPECT_TRUE(spoiled([](auto &bytes) { bytes.raw(IFLA_IFNAME, "no end", 6); }));
    EXPECT_TRUE(spoiled([](auto &bytes) { bytes.raw(IFLA_IFNAME, "", 0); }));
    EXPECT_TRUE(spoiled([](auto &bytes) {
        bytes.text(IFLA_IFNAME, "x");
        bytes.raw(IFLA_MTU, "\1\2", 2);
    }));
    EXPECT_TRUE(spoiled([](auto &bytes) {
        bytes.text(IFLA_IFNAME, "x");
        bytes.raw(IFLA_MASTER, "\1", 1);
    }));
    EXPECT_TRUE(spoiled([](auto &bytes) {
        bytes.text(IFLA_IFNAME, "x");
        bytes.nest(IFLA_LINKINFO, [&] { bytes.raw(IFLA_INFO_KIND, "bond", 4); });
    }));
    EXPECT_TRUE(spoiled([](auto &bytes) {
        bytes.text(IFLA_IFNAME, "x");
        bytes.nest(IFLA_LINKINFO, [&] {
            bytes.text(IFLA_INFO_KIND, "bond");
            bytes.nest(IFLA_INFO_DATA, [&] { bytes.raw(IFLA_BOND_ACTIVE_SLAVE, "\1", 1); });
        });
    }));
}

TEST(NetlinkMessages, LinksAndAddressesThatCannotBeAreMalformed)
{
    NetlinkBytes bytes;
    bytes.link(0, [&] { bytes.text(IFLA_IFNAME, "x"); });
    bytes.link(-1, [&] { bytes.text(IFLA_IFNAME, "x"); });
    bytes.link(
        0, [] {}, 0, RTM_NEWLINK, AF_BRIDGE);
    bytes.message(RTM_NEWLINK, std::uint32_t{0});
    bytes.message(RTM_NEWADDR, std::uint32_t{0});
    bytes.address(3, AF_INET, 33, [&] { bytes.raw(IFA_LOCAL, "\1\2\3\4", 4); });
    bytes.address(3, AF_INET, 24, [&] { bytes.raw(IFA_LOCAL, "\1\2\3", 3); });
    bytes.address(3, AF_INET6, 64, [&] { bytes.raw(IFA_ADDRESS, "\1\2\3\4", 4); });
    bytes.address(3, AF_INET, 24, [] {});
    const NetlinkBatch batch = parse(bytes.bytes());
    EXPECT_EQ(9u, batch.malformed);
    EXPECT_TRUE(batch.events.empty());
}

TEST(NetlinkMessages, DatagramCutAnywhereIsReadUpToThere)
{
    const auto whole = everything();
    std::size_t most = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const NetlinkBatch batch = parse({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
        ASSERT_LT(batch.events.size(), 8u);
        ASSERT_GE(batch.events.size(), most) << "more bytes gave fewer events";
        most = batch.events.size();
    }
    EXPECT_EQ(6u, most);
}

TEST(NetlinkMessages, AnyByteMayBeWrong)
{
    const auto whole = everything();
    for (std::size_t at = 0; at < whole.size(); ++at)
        for (const unsigned value : {0u, 1u, 4u, 0x7Fu, 0x80u, 0xFFu}) {
            auto bytes = whole;
            bytes[at] = static_cast<std::byte>(value);
            parse(bytes);
        }
}

TEST(NetlinkMessages, NoiseBehindAGoodHeaderIsSurvived)
{
    for (unsigned seed = 0; seed < 2000; ++seed) {
        std::mt19937 random(seed);
        NetlinkBytes bytes;
        const std::uint16_t types[] = {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR, NLMSG_ERROR, NLMSG_DONE};
        std::string noise(random() % 200, '\0');
        std::ranges::generate(noise, [&random] { return static_cast<char>(random() % 40); });
        const unsigned char families[] = {AF_UNSPEC, AF_BRIDGE, AF_INET, AF_INET6};
        bytes.link(
            static_cast<int>(random() % 5),
            [&] { bytes.raw(static_cast<std::uint16_t>(random() % 64), noise.data(), noise.size()); }, IFF_UP,
            types[random() % std::size(types)], families[random() % std::size(families)]);
        bytes.bytes()[16 + random() % 20] = static_cast<std::byte>(random());
        parse(bytes.bytes());
    }
}
