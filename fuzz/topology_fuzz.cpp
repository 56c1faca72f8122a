// topology_fuzz.cpp: topology files; each is refused with one line that names the file, or is consistent and becomes a
// chassis whose events are played.
#include "fuzz_input.h"

#include <chassis.h>

#include <cstring>
#include <set>

namespace
{
constexpr size_t mostPorts = 300; // of a chassis that is built; more would only cost time

bool exists(const kel::Topology &topology, portInstance_t instance)
{
    return topology.ports.contains(instance) || topology.trunks.contains(instance);
}

// Names and ifIndexes that were given once, members of one trunk.
struct Seen {
    std::set<std::string> names;
    std::set<uint32_t> ifIndexes;
    std::set<portInstance_t> members;

    void claim(const std::string &name, uint32_t ifIndex)
    {
        require(name.empty() || names.insert(name).second, "names differ");
        require(name.size() < KEL_STANDIN_NAME_SIZE, "names fit");
        require(ifIndex != 0 && ifIndexes.insert(ifIndex).second, "interface indexes differ");
    }
};

void checkTrunk(const kel::Topology &topology, const kel::TopologyTrunk &trunk, Seen &seen)
{
    seen.claim(trunk.name, trunk.ifIndex);
    for (const portInstance_t member : trunk.members)
        require(topology.ports.contains(member) && seen.members.insert(member).second, "a member is of one trunk");
    require(trunk.members.empty() ? trunk.master == 0
                                  : std::count(trunk.members.begin(), trunk.members.end(), trunk.master) == 1,
            "the master is a member");
}

void checkConsistency(const kel::Topology &topology)
{
    Seen seen;
    for (const auto &[instance, port] : topology.ports) {
        require(instance == kelStandinPortInstance(port.slot, port.port), "a port has its instance");
        require(port.addresses.size() <= KEL_STANDIN_MAX_ADDRESSES, "the addresses fit");
        seen.claim(port.name, port.ifIndex);
    }
    for (const auto &[instance, trunk] : topology.trunks) {
        require(instance == kelStandinTrunkInstance(trunk.number), "a trunk has its instance");
        checkTrunk(topology, trunk, seen);
    }
    for (const kel::TopologyVlan &vlan : topology.vlans) {
        std::set<portInstance_t> members;
        for (const auto &list : {vlan.tagged, vlan.untagged})
            for (const portInstance_t port : list)
                require(exists(topology, port) && members.insert(port).second, "a port is in a VLAN once");
    }
    for (const kel::TopologyEvent &event : topology.events)
        require(exists(topology, event.port) && event.times > 0, "an event has a port");
}

void checkInventory(const kel::Topology &topology)
{
    size_t there = topology.trunks.size();
    for (const auto &[instance, port] : topology.ports) {
        kelStandinPort found{};
        require((kelStandinGetPort(instance, &found) == 0) == port.present, "what is present is in the inventory");
        if (!port.present)
            continue;
        ++there;
        require(port.name == found.name && (kelStandinGetLink(instance) == 1) == port.linkUp,
                "a port is as it is described");
        require(kelStandinGetAddresses(instance, nullptr, 0) <= port.addresses.size(), "a port has its addresses");
    }
    require(kelStandinSnapshot(nullptr, 0) == there, "nothing else is in the inventory");
}

void build(const kel::Topology &topology)
{
    kelStandinReset();
    kel::Chassis chassis(topology);
    chassis.build();
    checkInventory(topology);
    for (const kel::TopologyEvent &event : topology.events)
        chassis.play(event);
    kelStandinReset();
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(data, data + size);
    kel::Topology topology;
    try {
        topology = kel::parseTopology(text, "fuzzed");
    } catch (const kel::TopologyError &error) {
        const std::string reason = error.what();
        require(reason.starts_with("fuzzed: "), "the error names the file");
        require(std::none_of(reason.begin(), reason.end(), [](unsigned char c) { return c < ' '; }),
                "the error is one line without control characters");
        return 0;
    }
    checkConsistency(topology);
    if (topology.ports.size() + topology.trunks.size() <= mostPorts)
        build(topology);
    return 0;
}
