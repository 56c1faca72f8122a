// topology_provider.h: fills the stand-in's inventory with a simulated chassis and plays its events.
#pragma once

#include "topology.h"

#include <chrono>
#include <memory>

namespace kel
{

// One provider at a time fills the inventory. start() and stop() come from one thread. Every change, and so every call
// of the stand-in's listener, is made on the provider's own thread, the platform's.
class TopologyProvider
{
public:
    explicit TopologyProvider(Topology topology);
    ~TopologyProvider(); // stops
    TopologyProvider(const TopologyProvider &) = delete;
    TopologyProvider &operator=(const TopologyProvider &) = delete;

    // Returns when the whole chassis is in the inventory and its clock of events runs; throws ProviderError when the
    // inventory does not take it.
    void start();

    // Returns when the platform's thread has ended, in the middle of the events if need be; the inventory stays as it
    // is. Not to be called by the listener.
    void stop() noexcept;

    // Waits until all events have been played; false when `limit` was over before.
    bool waitForEnd(std::chrono::milliseconds limit);

private:
    class Player;
    Topology topology_;
    std::unique_ptr<Player> player_; // while started
};

} // namespace kel
