// netlink_messages.h: from the bytes of a route netlink socket to host events; no socket is needed.
#pragma once

#include "host_event.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kel
{

// What one datagram said.
struct NetlinkBatch {
    std::vector<HostEvent> events; // in the order of the messages
    bool dumpDone = false;         // the dump that was asked for is complete
    bool dumpInterrupted = false;  // the links changed during the dump, so that it may lack some
    bool overrun = false;          // messages were lost
    int error = 0;                 // the errno value that the request was refused with; 0 none
    std::size_t malformed = 0;     // messages passed over: cut short, or with attributes of a wrong length
};

// Parses one datagram of route netlink messages.
//
// Links of the families "unspecified" (the link itself) and "bridge" (its VLANs) count, and IPv4 and IPv6 addresses;
// other messages are passed over. Nothing outside `datagram` is read, whatever the lengths in it say.
//
// `datagram` begins on a 4-byte boundary. `sequence` is the number of the dump that is asked for; the end of another
// one is passed over.
NetlinkBatch parseNetlink(std::span<const std::byte> datagram, std::uint32_t sequence);

} // namespace kel
