// netlink_fuzz.cpp: datagrams of route netlink. Whatever they say, what is read from them is in its range, and the
// inventory that follows their events holds one port or trunk for each link that got a number, and nothing else.
#include "fuzz_input.h"

#include <host_ports.h>
#include <netlink_messages.h>

#include <sys/socket.h>

#include <cstring>

namespace
{
constexpr uint32_t sequence = 77;  // of the dump that is asked for
constexpr size_t mostVlans = 8192; // of a datagram whose ports are built; more would only cost time

struct InRange {
    void operator()(const kel::LinkIs &link) const
    {
        require(link.index > 0, "a link has an index");
        require(link.bond || link.activeSlave == 0, "only a bond has an active slave");
    }
    void operator()(const kel::LinkIsGone &) const {}
    void operator()(const kel::BridgeVlansAre &port) const
    {
        require(port.index > 0, "a bridge port has an index");
        for (const kel::BridgeVlan &vlan : port.vlans)
            require(vlan.vlan >= 1 && vlan.vlan <= KEL_STANDIN_MAX_VLAN, "a VLAN has a number");
    }
    void operator()(const kel::AddressIs &address) const
    {
        const bool four = address.address.family == AF_INET;
        require(four || address.address.family == AF_INET6, "an address is of one of two families");
        require(address.address.prefixLength <= (four ? 32 : 128), "a prefix is no longer than its address");
    }
};

size_t vlansIn(const kel::NetlinkBatch &batch)
{
    size_t vlans = 0;
    for (const kel::HostEvent &event : batch.events)
        if (const auto *port = std::get_if<kel::BridgeVlansAre>(&event))
            vlans += port->vlans.size();
    return vlans;
}

void checkInventory(const kel::HostPicture &picture, const kel::HostPorts &ports)
{
    size_t there = 0;
    for (const auto &[index, link] : picture.links) {
        const portInstance_t instance = ports.instanceOf(index);
        require(instance == 0 || !link.link.loopback, "the loopback is no port");
        kelStandinPort found{};
        require(instance == 0 || kelStandinGetPort(instance, &found) == 0, "a port with a number is in the inventory");
        there += instance != 0 ? 1 : 0;
    }
    require(kelStandinSnapshot(nullptr, 0) == there, "nothing else is in the inventory");
}

// As after a dump, and as after changes one by one: the same ports.
void build(const kel::NetlinkBatch &batch)
{
    kelStandinReset();
    kel::HostPicture picture;
    {
        kel::HostPorts ports;
        for (const kel::HostEvent &event : batch.events) {
            picture.take(event);
            ports.follow(picture, kel::linkOf(event));
        }
        checkInventory(picture, ports);
    }
    const size_t followed = kelStandinSnapshot(nullptr, 0);
    kelStandinReset();
    kel::HostPorts ports;
    ports.followAll(picture);
    checkInventory(picture, ports);
    require(kelStandinSnapshot(nullptr, 0) == followed, "both ways lead to as many ports");
    kelStandinReset();
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<std::byte> datagram(size); // of exactly that size, on a boundary as the parser wants it
    if (size > 0)
        memcpy(datagram.data(), data, size);
    const kel::NetlinkBatch batch = kel::parseNetlink(datagram, sequence);
    for (const kel::HostEvent &event : batch.events)
        std::visit(InRange(), event);
    require(batch.events.size() + batch.malformed <= size / 16 + 1, "a message says one thing at most");
    require(batch.error >= 0 && batch.error < 4096, "an error is one of the kernel's");
    require(!batch.dumpDone || size >= 16, "a dump ends with a message");
    if (vlansIn(batch) <= mostVlans)
        build(batch);
    return 0;
}
