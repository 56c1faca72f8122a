// chassis.cpp: builds a simulated chassis and changes it.
//
// Invariants: a port that appears joins the trunk and VLANs that are described for it; a trunk's link is up exactly
//             while that of a member is, and its described master stands for it while that one is present.
#include "chassis.h"

#include <algorithm>
#include <cstring>

namespace kel
{
namespace
{
bool isThere(portInstance_t instance)
{
    return kelStandinGetLink(instance) >= 0;
}

bool contains(const std::vector<portInstance_t> &ports, portInstance_t port)
{
    return std::ranges::find(ports, port) != ports.end();
}

void check(int result, const std::string &what, const std::string &name)
{
    if (result != 0)
        throw ProviderError("topology: cannot " + what + " " + name + ": " + std::strerror(result));
}
} // namespace

void Chassis::build()
{
    for (const auto &[instance, port] : topology_.ports)
        if (port.present)
            addPort(instance, port);
    for (const auto &[instance, trunk] : topology_.trunks)
        addTrunk(instance, trunk);
}

void Chassis::play(const TopologyEvent &event)
{
    using Action = TopologyEvent::Action;
    switch (event.action) {
    case Action::add:
        add(event.port);
        break;
    case Action::remove:
        remove(event.port);
        break;
    case Action::up:
        setLink(event.port, true);
        break;
    case Action::down:
        setLink(event.port, false);
        break;
    case Action::flap:
        setLink(event.port, false);
        setLink(event.port, true);
        break;
    case Action::cycle:
        remove(event.port);
        add(event.port);
        break;
    }
}

void Chassis::add(portInstance_t instance)
{
    if (isThere(instance))
        return;
    if (const auto port = topology_.ports.find(instance); port != topology_.ports.end())
        addPort(instance, port->second);
    else
        addTrunk(instance, topology_.trunks.at(instance));
}

void Chassis::addPort(portInstance_t instance, const TopologyPort &port)
{
    check(kelStandinAddPort(port.slot, port.port, port.name.c_str(), port.ifIndex, port.description.c_str()), "add",
          port.name);
    kelStandinSetMac(instance, port.mac.data());
    kelStandinSetMtu(instance, port.mtu);
    for (const kelStandinAddress &address : port.addresses)
        kelStandinAddAddress(instance, &address);
    joinVlans(instance);
    kelStandinSetLink(instance, port.linkUp);
    if (const TopologyTrunk *trunk = trunkOf(instance))
        followMembers(*trunk);
}

void Chassis::addTrunk(portInstance_t instance, const TopologyTrunk &trunk)
{
    check(kelStandinAddTrunk(trunk.number, trunk.name.c_str(), trunk.ifIndex, trunk.description.c_str()), "add",
          trunk.name);
    joinVlans(instance);
    followMembers(trunk);
}

void Chassis::joinVlans(portInstance_t instance)
{
    for (const TopologyVlan &vlan : topology_.vlans) {
        if (contains(vlan.tagged, instance))
            kelStandinSetVlan(instance, vlan.vlan, KEL_STANDIN_VLAN_TAGGED);
        else if (contains(vlan.untagged, instance))
            kelStandinSetVlan(instance, vlan.vlan, KEL_STANDIN_VLAN_UNTAGGED);
    }
}

void Chassis::remove(portInstance_t instance)
{
    kelStandinPort port{};
    if (kelStandinGetPort(instance, &port) == 0)
        check(kelStandinRemovePort(instance), "remove", port.name);
    if (const TopologyTrunk *trunk = trunkOf(instance))
        followMembers(*trunk);
}

void Chassis::setLink(portInstance_t instance, bool up)
{
    kelStandinSetLink(instance, up);
    if (const TopologyTrunk *trunk = trunkOf(instance))
        followMembers(*trunk);
}

const TopologyTrunk *Chassis::trunkOf(portInstance_t member) const
{
    for (const auto &[instance, trunk] : topology_.trunks)
        if (contains(trunk.members, member))
            return &trunk;
    return nullptr;
}

void Chassis::followMembers(const TopologyTrunk &trunk)
{
    const portInstance_t instance = kelStandinTrunkInstance(trunk.number);
    bool up = false;
    for (const portInstance_t member : trunk.members) {
        kelStandinJoinTrunk(instance, member); // nothing happens while either of them is gone
        up = up || kelStandinGetLink(member) == 1;
    }
    kelStandinSetMaster(instance, trunk.master);
    kelStandinSetLink(instance, up);
}

} // namespace kel
