// netlink_messages.cpp: link, bridge VLAN and address messages of route netlink.
//
// Invariants: attributes are read only through libnl's parser with a policy that states their lengths, so that a
//             message that lies about them is refused as a whole; nothing is read beyond the datagram.
// Cost:       a few stack tables a message; strings are copied.
#include "netlink_messages.h"

#include <linux/if_addr.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include <cstring>
#include <optional>

namespace kel
{
namespace
{
using Attributes = std::span<nlattr *>; // by type; null where the message has none

nla_policy policyOf(std::uint16_t type)
{
    nla_policy policy{};
    policy.type = type;
    return policy;
}

bool parseAttributes(const nlmsghdr &message, int headerSize, Attributes attributes, nla_policy *policy)
{
    return nlmsg_parse(const_cast<nlmsghdr *>(&message), headerSize, attributes.data(),
                       static_cast<int>(attributes.size()) - 1, policy) == 0;
}

bool parseNested(nlattr *nest, Attributes attributes, nla_policy *policy)
{
    return nla_parse_nested(attributes.data(), static_cast<int>(attributes.size()) - 1, nest, policy) == 0;
}

int indexIn(nlattr *attribute)
{
    return attribute == nullptr ? 0 : static_cast<int>(nla_get_u32(attribute));
}

std::string textIn(nlattr *attribute)
{
    return attribute == nullptr ? std::string() : std::string(nla_get_string(attribute));
}

// ---- Links

// Reads the kind of a link and, for a bond, the slave in use. False when the attributes are malformed.
bool readLinkInfo(nlattr *nest, LinkIs &link)
{
    nlattr *info[IFLA_INFO_MAX + 1];
    nla_policy infoPolicy[IFLA_INFO_MAX + 1]{};
    infoPolicy[IFLA_INFO_KIND] = policyOf(NLA_STRING);
    infoPolicy[IFLA_INFO_DATA] = policyOf(NLA_NESTED);
    if (!parseNested(nest, info, infoPolicy))
        return false;
    link.bond = textIn(info[IFLA_INFO_KIND]) == "bond";
    if (!link.bond || info[IFLA_INFO_DATA] == nullptr)
        return true;
    nlattr *bond[IFLA_BOND_MAX + 1];
    nla_policy bondPolicy[IFLA_BOND_MAX + 1]{};
    bondPolicy[IFLA_BOND_ACTIVE_SLAVE] = policyOf(NLA_U32);
    if (!parseNested(info[IFLA_INFO_DATA], bond, bondPolicy))
        return false;
    link.activeSlave = indexIn(bond[IFLA_BOND_ACTIVE_SLAVE]);
    return true;
}

std::optional<HostEvent> readLink(const nlmsghdr &message, const ifinfomsg &header, bool &malformed)
{
    nlattr *attributes[IFLA_MAX + 1];
    nla_policy policy[IFLA_MAX + 1]{};
    policy[IFLA_IFNAME] = policyOf(NLA_STRING);
    policy[IFLA_IFALIAS] = policyOf(NLA_STRING);
    policy[IFLA_MTU] = policyOf(NLA_U32);
    policy[IFLA_MASTER] = policyOf(NLA_U32);
    policy[IFLA_LINKINFO] = policyOf(NLA_NESTED);
    if (!parseAttributes(message, sizeof header, attributes, policy) || header.ifi_index <= 0) {
        malformed = true;
        return std::nullopt;
    }
    if (attributes[IFLA_WIRELESS] != nullptr || attributes[IFLA_IFNAME] == nullptr)
        return std::nullopt; // an event of another kind, which says nothing about masters and the like

    LinkIs link;
    link.index = header.ifi_index;
    link.loopback = (header.ifi_flags & IFF_LOOPBACK) != 0;
    link.up = (header.ifi_flags & IFF_UP) != 0 && (header.ifi_flags & IFF_RUNNING) != 0;
    link.name = textIn(attributes[IFLA_IFNAME]);
    link.alias = textIn(attributes[IFLA_IFALIAS]);
    link.mtu = attributes[IFLA_MTU] == nullptr ? 0 : nla_get_u32(attributes[IFLA_MTU]);
    link.master = indexIn(attributes[IFLA_MASTER]);
    if (nlattr *mac = attributes[IFLA_ADDRESS]; mac != nullptr && nla_len(mac) == static_cast<int>(link.mac.size()))
        std::memcpy(link.mac.data(), nla_data(mac), link.mac.size());
    if (attributes[IFLA_LINKINFO] != nullptr && !readLinkInfo(attributes[IFLA_LINKINFO], link)) {
        malformed = true;
        return std::nullopt;
    }
    return link;
}

// ---- Bridge VLANs

// Adds one VLAN, or the range that `info` ends. A range that is out of order or out of bounds is passed over.
void addVlans(std::vector<BridgeVlan> &vlans, const bridge_vlan_info &info, std::uint16_t &rangeBegin)
{
    if ((info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) != 0) {
        rangeBegin = info.vid;
        return;
    }
    const std::uint16_t first = (info.flags & BRIDGE_VLAN_INFO_RANGE_END) != 0 ? rangeBegin : info.vid;
    rangeBegin = 0;
    if (first < 1 || info.vid > KEL_STANDIN_MAX_VLAN)
        return;
    for (std::uint16_t vlan = first; vlan <= info.vid; ++vlan)
        vlans.push_back({.vlan = vlan, .untagged = (info.flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0});
}

std::optional<HostEvent> readBridgePort(const nlmsghdr &message, const ifinfomsg &header, bool &malformed)
{
    nlattr *attributes[IFLA_MAX + 1];
    nla_policy policy[IFLA_MAX + 1]{};
    policy[IFLA_AF_SPEC] = policyOf(NLA_NESTED);
    if (!parseAttributes(message, sizeof header, attributes, policy) || header.ifi_index <= 0) {
        malformed = true;
        return std::nullopt;
    }
    BridgeVlansAre port;
    port.index = header.ifi_index;
    if (message.nlmsg_type == RTM_DELLINK)
        return port; // it left the bridge; the link itself stays
    if (attributes[IFLA_AF_SPEC] == nullptr) {
        // The kernel leaves the list out when the last VLAN is gone, which only the bridge's own word on a port tells.
        if (attributes[IFLA_PROTINFO] != nullptr)
            return port;
        return std::nullopt;
    }
    std::uint16_t rangeBegin = 0;
    nlattr *attribute = nullptr;
    int remaining = 0;
    nla_for_each_nested(attribute, attributes[IFLA_AF_SPEC], remaining)
    {
        bridge_vlan_info info{};
        if (nla_type(attribute) != IFLA_BRIDGE_VLAN_INFO || nla_len(attribute) < static_cast<int>(sizeof info))
            continue;
        std::memcpy(&info, nla_data(attribute), sizeof info);
        addVlans(port.vlans, info, rangeBegin);
    }
    return port;
}

std::optional<HostEvent> readLinkMessage(const nlmsghdr &message, bool &malformed)
{
    if (!nlmsg_valid_hdr(&message, sizeof(ifinfomsg))) {
        malformed = true;
        return std::nullopt;
    }
    const auto &header = *static_cast<const ifinfomsg *>(nlmsg_data(&message));
    if (header.ifi_family == AF_BRIDGE)
        return readBridgePort(message, header, malformed);
    if (header.ifi_family != AF_UNSPEC)
        return std::nullopt;
    if (message.nlmsg_type == RTM_DELLINK)
        return LinkIsGone{.index = header.ifi_index};
    return readLink(message, header, malformed);
}

// ---- Addresses

std::optional<HostEvent> readAddressMessage(const nlmsghdr &message, bool &malformed)
{
    nlattr *attributes[IFA_MAX + 1];
    if (!nlmsg_valid_hdr(&message, sizeof(ifaddrmsg)) ||
        !parseAttributes(message, sizeof(ifaddrmsg), attributes, nullptr)) {
        malformed = true;
        return std::nullopt;
    }
    const auto &header = *static_cast<const ifaddrmsg *>(nlmsg_data(&message));
    const int bytes = header.ifa_family == AF_INET ? 4 : header.ifa_family == AF_INET6 ? 16 : 0;
    if (bytes == 0)
        return std::nullopt;
    // On a point-to-point link IFA_ADDRESS is the peer's.
    nlattr *own = attributes[IFA_LOCAL] != nullptr ? attributes[IFA_LOCAL] : attributes[IFA_ADDRESS];
    if (own == nullptr || nla_len(own) != bytes || header.ifa_prefixlen > 8 * bytes) {
        malformed = true;
        return std::nullopt;
    }
    AddressIs address;
    address.index = static_cast<int>(header.ifa_index);
    address.gone = message.nlmsg_type == RTM_DELADDR;
    address.address.family = header.ifa_family;
    address.address.prefixLength = header.ifa_prefixlen;
    std::memcpy(address.address.bytes, nla_data(own), static_cast<std::size_t>(bytes));
    return address;
}

// ---- Datagrams

std::optional<HostEvent> readMessage(const nlmsghdr &message, bool &malformed)
{
    switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        return readLinkMessage(message, malformed);
    case RTM_NEWADDR:
    case RTM_DELADDR:
        return readAddressMessage(message, malformed);
    default:
        return std::nullopt;
    }
}

// The error number in the body of an error or of the end of a dump, as a positive errno value; 0 when there is none.
int errorIn(const nlmsghdr &message)
{
    int error = 0;
    if (nlmsg_datalen(&message) >= static_cast<int>(sizeof error))
        std::memcpy(&error, nlmsg_data(&message), sizeof error);
    return error < 0 && error > -4096 ? -error : 0;
}

void readInto(NetlinkBatch &batch, const nlmsghdr &message, std::uint32_t sequence)
{
    const bool asked = message.nlmsg_seq == sequence;
    if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0 && asked)
        batch.dumpInterrupted = true;
    if (message.nlmsg_type == NLMSG_OVERRUN) {
        batch.overrun = true;
    } else if (message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR) {
        if (!asked)
            return;
        batch.error = errorIn(message);
        batch.dumpDone = message.nlmsg_type == NLMSG_DONE && batch.error == 0;
    } else {
        bool malformed = false;
        if (auto event = readMessage(message, malformed))
            batch.events.push_back(std::move(*event));
        batch.malformed += malformed ? 1 : 0;
    }
}
} // namespace

NetlinkBatch parseNetlink(std::span<const std::byte> datagram, std::uint32_t sequence)
{
    NetlinkBatch batch;
    // libnl's walk takes pointers to non-const; it writes nothing.
    auto *message = reinterpret_cast<nlmsghdr *>(const_cast<std::byte *>(datagram.data()));
    int remaining = static_cast<int>(datagram.size());
    while (nlmsg_ok(message, remaining)) {
        readInto(batch, *message, sequence);
        message = nlmsg_next(message, &remaining);
    }
    if (remaining > 0)
        ++batch.malformed; // the last message is cut short
    return batch;
}

} // namespace kel
