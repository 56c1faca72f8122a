// chassis.h: a simulated chassis in the stand-in's inventory.
#pragma once

#include "topology.h"

namespace kel
{

// Not thread-safe: used on the platform's thread alone. Calls the stand-in's listener.
class Chassis
{
public:
    explicit Chassis(const Topology &topology) : topology_(topology) {} // which outlives it

    // Adds everything that is present at the start; throws ProviderError when the inventory does not take it.
    void build();

    // Plays one event once. What is there already is not added again, what is gone is not removed again. Throws
    // ProviderError when the inventory lacks memory for it; what could not be removed is still there for later events.
    void play(const TopologyEvent &event);

private:
    void add(portInstance_t instance);
    void addPort(portInstance_t instance, const TopologyPort &port);
    void addTrunk(portInstance_t instance, const TopologyTrunk &trunk);
    void joinVlans(portInstance_t instance);
    void remove(portInstance_t instance);
    void setLink(portInstance_t instance, bool up);
    const TopologyTrunk *trunkOf(portInstance_t member) const; // as described; null when it is in none
    void followMembers(const TopologyTrunk &trunk);

    const Topology &topology_;
};

} // namespace kel
