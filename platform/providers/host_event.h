// host_event.h: what a Linux host says about its interfaces, as values; and the picture that they add up to.
#pragma once

#include <kel_standin.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace kel
{

// A link is there, or has changed.
struct LinkIs {
    int index = 0;
    bool loopback = false;
    bool up = false; // the kernel calls it running: administratively up, with carrier
    bool bond = false;
    int master = 0;      // index of the bond or bridge that it belongs to; 0 none
    int activeSlave = 0; // bonds: index of the slave in use; 0 none
    std::uint32_t mtu = 0;
    std::array<std::uint8_t, 6> mac{}; // all zero when there is none of six bytes
    std::string name;
    std::string alias;
};

struct LinkIsGone {
    int index = 0;
};

struct BridgeVlan {
    std::uint16_t vlan = 0;
    bool untagged = false;
    bool operator==(const BridgeVlan &) const = default;
};

// All VLANs of a bridge port; none when it left its bridge.
struct BridgeVlansAre {
    int index = 0;
    std::vector<BridgeVlan> vlans;
};

struct AddressIs {
    int index = 0;
    bool gone = false;
    kelStandinAddress address{};
};

using HostEvent = std::variant<LinkIs, LinkIsGone, BridgeVlansAre, AddressIs>;

// The link that an event is about.
int linkOf(const HostEvent &event);

// What is known about one link.
struct HostLink {
    LinkIs link;
    std::vector<BridgeVlan> vlans;
    std::vector<kelStandinAddress> addresses;
};

// All links of the host. VLANs and addresses of a link that is not there are passed over.
class HostPicture
{
public:
    void take(const HostEvent &event);

    std::map<int, HostLink> links; // by link index

private:
    void apply(const LinkIs &link);
    void apply(const LinkIsGone &link);
    void apply(const BridgeVlansAre &vlans);
    void apply(const AddressIs &address);
};

} // namespace kel
