// host_ports.h: keeps the stand-in's inventory equal to a picture of the host's links.
//
// Policy: a bond is a trunk with the lowest free number; loopback is nothing; every other link is a port of slot 1,
//         with the lowest free number. A link that finds no number free waits for one. A trunk's master is the bond's
//         active slave, else the member with the lowest port number. A port that the inventory cannot remove for lack
//         of memory keeps its number, and is tried again with every event.
#pragma once

#include "host_event.h"

#include <array>
#include <map>
#include <vector>

namespace kel
{

// Not thread-safe: called on the platform's thread alone. Calls the stand-in's listener.
class HostPorts
{
public:
    // Makes one link's port, or its absence, equal to the picture.
    void follow(const HostPicture &picture, int index);

    // Makes all ports equal to the picture: first removes what is gone, then follows each link in the order of the link
    // indexes, which is the order in which they appeared.
    void followAll(const HostPicture &picture);

    // The port instance of a link; 0 when it has none.
    portInstance_t instanceOf(int index) const;

private:
    struct Port {
        portInstance_t instance = 0;
        std::vector<BridgeVlan> vlans;
        std::vector<kelStandinAddress> addresses;
    };
    using Numbers = std::array<bool, KEL_STANDIN_MAX_PORT + 1>; // by port or trunk number: in use; 0 is never

    void followOne(const HostPicture &picture, int index);
    bool add(const LinkIs &link);
    bool remove(int index);
    void removeGone(const HostPicture &picture);
    void admitWaiting(const HostPicture &picture);
    void update(const HostPicture &picture, const HostLink &link);
    void updateVlans(Port &port, const std::vector<BridgeVlan> &vlans);
    void updateAddresses(Port &port, const std::vector<kelStandinAddress> &addresses);
    void updateTrunk(const HostPicture &picture, const Port &port, int master);
    void followMembers(const HostPicture &picture, int bond);
    void electMaster(const HostPicture &picture, int bond);

    std::map<int, Port> ports_; // by link index
    Numbers portNumbers_{};
    Numbers trunkNumbers_{};
    bool removalWaits_ = false; // a port whose link is gone is still there, for lack of memory
};

} // namespace kel
