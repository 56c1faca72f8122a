// udp_endpoint.h: a local address and port, as the command line gives them.
#pragma once

#include "ipaddr.h"

#include <cstdint>
#include <optional>
#include <string>

struct UdpEndpoint {
    std::string text; // as it was given
    CIpAddress address;
    uint16_t port = 0; // never 0 once parsed
};

// Takes "192.0.2.1:9161", "[2001:db8::1]:9161" and "[fe80::1%eth0]:9161"; addresses are numeric.
std::optional<UdpEndpoint> parseUdpEndpoint(const std::string &text);
