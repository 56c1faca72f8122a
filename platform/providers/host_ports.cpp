// host_ports.cpp: links to ports. See host_ports.h for the policy.
//
// Invariants: ports_ holds exactly the links that have a port in the inventory; a number is marked exactly while a
//             port of ports_ has it.
// Cost:       an event touches its own port; an event of a bond or its members walks the links.
#include "host_ports.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kel
{
namespace
{
constexpr unsigned hostSlot = 1;
constexpr unsigned trunkType = 1;

bool isTrunk(portInstance_t instance)
{
    return instance >> 24 == trunkType;
}

unsigned numberOf(portInstance_t instance)
{
    return instance & 0xFFFF;
}

// The trunk that a port is a member of; 0 none.
portInstance_t trunkOf(portInstance_t instance)
{
    kelStandinPort port;
    return kelStandinGetPort(instance, &port) == 0 ? port.trunk : 0;
}

bool isBond(const HostPicture &picture, int index)
{
    const auto found = picture.links.find(index);
    return found != picture.links.end() && found->second.link.bond;
}
} // namespace

portInstance_t HostPorts::instanceOf(int index) const
{
    const auto found = ports_.find(index);
    return found == ports_.end() ? 0 : found->second.instance;
}

void HostPorts::follow(const HostPicture &picture, int index)
{
    if (removalWaits_) {
        removeGone(picture);
        admitWaiting(picture);
    }
    followOne(picture, index);
}

void HostPorts::followOne(const HostPicture &picture, int index)
{
    const auto found = picture.links.find(index);
    if (found == picture.links.end() || found->second.link.loopback) {
        if (ports_.contains(index) && remove(index))
            admitWaiting(picture);
        return;
    }
    const HostLink &link = found->second;
    if (ports_.contains(index) || add(link.link))
        update(picture, link);
}

void HostPorts::followAll(const HostPicture &picture)
{
    removeGone(picture);
    for (const auto &[index, link] : picture.links)
        followOne(picture, index);
}

void HostPorts::removeGone(const HostPicture &picture)
{
    std::vector<int> gone;
    for (const auto &[index, port] : ports_)
        if (!picture.links.contains(index))
            gone.push_back(index);
    removalWaits_ = false;
    for (const int index : gone)
        remove(index);
}

bool HostPorts::add(const LinkIs &link)
{
    Numbers &numbers = link.bond ? trunkNumbers_ : portNumbers_;
    const auto place = std::find(numbers.begin() + 1, numbers.end(), false);
    if (place == numbers.end())
        return false;
    const auto number = static_cast<unsigned>(place - numbers.begin());
    const int result = link.bond ? kelStandinAddTrunk(number, link.name.c_str(), 0, link.alias.c_str())
                                 : kelStandinAddPort(hostSlot, number, link.name.c_str(), 0, link.alias.c_str());
    if (result != 0)
        return false;
    *place = true;
    ports_[link.index].instance =
        link.bond ? kelStandinTrunkInstance(number) : kelStandinPortInstance(hostSlot, number);
    return true;
}

// False: there is no memory for it.
bool HostPorts::remove(int index)
{
    const portInstance_t instance = ports_.at(index).instance;
    if (kelStandinRemovePort(instance) == ENOMEM) {
        removalWaits_ = true;
        return false;
    }
    (isTrunk(instance) ? trunkNumbers_ : portNumbers_).at(numberOf(instance)) = false;
    ports_.erase(index);
    return true;
}

void HostPorts::admitWaiting(const HostPicture &picture)
{
    for (const auto &[index, link] : picture.links)
        if (!link.link.loopback && !ports_.contains(index))
            followOne(picture, index);
}

void HostPorts::update(const HostPicture &picture, const HostLink &hostLink)
{
    const LinkIs &link = hostLink.link;
    Port &port = ports_.at(link.index);
    kelStandinRename(port.instance, link.name.c_str());
    kelStandinSetDescription(port.instance, link.alias.c_str());
    kelStandinSetMac(port.instance, link.mac.data());
    kelStandinSetMtu(port.instance, link.mtu);
    updateVlans(port, hostLink.vlans);
    updateAddresses(port, hostLink.addresses);
    if (link.bond)
        followMembers(picture, link.index);
    else
        updateTrunk(picture, port, link.master);
    kelStandinSetLink(port.instance, link.up);
}

// ---- VLANs and addresses

void HostPorts::updateVlans(Port &port, const std::vector<BridgeVlan> &vlans)
{
    if (port.vlans == vlans)
        return;
    for (const BridgeVlan &old : port.vlans)
        if (std::ranges::none_of(vlans, [&](const BridgeVlan &it) { return it.vlan == old.vlan; }))
            kelStandinSetVlan(port.instance, old.vlan, KEL_STANDIN_VLAN_NONE);
    for (const BridgeVlan &now : vlans)
        kelStandinSetVlan(port.instance, now.vlan, now.untagged ? KEL_STANDIN_VLAN_UNTAGGED : KEL_STANDIN_VLAN_TAGGED);
    port.vlans = vlans;
}

void HostPorts::updateAddresses(Port &port, const std::vector<kelStandinAddress> &addresses)
{
    const auto isIn = [](const std::vector<kelStandinAddress> &list, const kelStandinAddress &address) {
        return std::ranges::any_of(
            list, [&](const kelStandinAddress &it) { return std::memcmp(&it, &address, sizeof it) == 0; });
    };
    for (const kelStandinAddress &old : port.addresses)
        if (!isIn(addresses, old))
            kelStandinRemoveAddress(port.instance, &old);
    for (const kelStandinAddress &now : addresses)
        kelStandinAddAddress(port.instance, &now); // one that is there already stays; one too many is not shown
    port.addresses = addresses;
}

// ---- Bonds

// Members that the host told of before their bond join when the bond comes.
void HostPorts::followMembers(const HostPicture &picture, int bond)
{
    for (const auto &[index, port] : ports_)
        if (const auto found = picture.links.find(index);
            found != picture.links.end() && found->second.link.master == bond && !isTrunk(port.instance))
            updateTrunk(picture, port, bond);
    electMaster(picture, bond);
}

void HostPorts::updateTrunk(const HostPicture &picture, const Port &port, int master)
{
    const portInstance_t trunk = isBond(picture, master) ? instanceOf(master) : 0;
    if (trunk == 0) {
        kelStandinLeaveTrunk(port.instance);
        return;
    }
    kelStandinJoinTrunk(trunk, port.instance);
    electMaster(picture, master);
}

void HostPorts::electMaster(const HostPicture &picture, int bond)
{
    const portInstance_t trunk = instanceOf(bond);
    const portInstance_t active = instanceOf(picture.links.at(bond).link.activeSlave);
    portInstance_t lowest = 0;
    for (const auto &[index, port] : ports_)
        if (trunkOf(port.instance) == trunk && (lowest == 0 || port.instance < lowest))
            lowest = port.instance;
    if (lowest != 0)
        kelStandinSetMaster(trunk, active != 0 && trunkOf(active) == trunk ? active : lowest);
}

} // namespace kel
