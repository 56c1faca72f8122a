// netlink_socket.h: a route netlink socket that is subscribed to links and addresses.
#pragma once

#include "netlink_messages.h"

#include <cstdint>
#include <memory>

struct nl_sock;

namespace kel
{

// What the kernel can be asked to tell completely.
enum class Dump { links, bridgeVlans, addresses };

// Not thread-safe. All functions throw ProviderError when the kernel refuses.
class NetlinkSocket
{
public:
    // From here on every change arrives. `receiveBuffer` is how many bytes the kernel may keep before it drops
    // messages.
    explicit NetlinkSocket(int receiveBuffer);

    int descriptor() const; // readable when receive() has something

    // Asks for a dump; only when the one before is done.
    void ask(Dump dump);

    // Takes one datagram without waiting: an empty batch when there is none, an overrun when messages were lost.
    NetlinkBatch receive();

private:
    struct Deleter {
        void operator()(nl_sock *socket) const;
    };

    std::unique_ptr<nl_sock, Deleter> socket_;
    std::uint32_t sequence_ = 0; // of the dump that was asked for last
};

} // namespace kel
