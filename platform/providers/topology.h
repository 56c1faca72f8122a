// topology.h: a simulated chassis, as its file describes it. The format is in docs/topology.md.
#pragma once

#include "provider_error.h"

#include <kel_standin.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kel
{

// Something in a topology file is wrong; what() names the file, the place and the reason.
class TopologyError : public ProviderError
{
public:
    using ProviderError::ProviderError;
};

struct TopologyPort {
    unsigned slot = 0;
    unsigned port = 0;
    std::string name;
    std::string description;
    std::uint32_t ifIndex = 0; // never 0 once read
    bool present = true;       // when the chassis starts
    bool linkUp = false;       // whenever the port appears
    std::uint32_t mtu = 1500;  // bytes
    std::array<std::uint8_t, 6> mac{};
    std::vector<kelStandinAddress> addresses;
};

struct TopologyTrunk {
    unsigned number = 0;
    std::string name;
    std::string description;
    std::uint32_t ifIndex = 0; // never 0 once read
    std::vector<portInstance_t> members;
    portInstance_t master = 0; // one of the members
};

struct TopologyVlan {
    unsigned vlan = 0;
    std::vector<portInstance_t> tagged;
    std::vector<portInstance_t> untagged;
};

struct TopologyEvent {
    enum class Action { add, remove, up, down, flap, cycle };
    std::chrono::milliseconds at{0}; // from the moment when the chassis is complete
    Action action = Action::add;
    portInstance_t port = 0;
    unsigned times = 1;
    std::chrono::milliseconds every{0}; // from one time to the next
};

struct Topology {
    std::string name;
    std::map<portInstance_t, TopologyPort> ports;
    std::map<portInstance_t, TopologyTrunk> trunks;
    std::vector<TopologyVlan> vlans;
    std::vector<TopologyEvent> events; // in the order of the file
};

// Reads a topology file; throws TopologyError. A Topology that it returns is consistent: all ports that are named
// exist, names and ifIndexes differ, no port is in two trunks, and a master is a member of its trunk.
Topology readTopology(const std::string &path);

// The same for a text; `file` is what errors call it.
Topology parseTopology(std::string_view text, const std::string &file);

} // namespace kel
