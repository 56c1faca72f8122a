// port_info.h: a port as the console shows it: the port map's numbers, the platform's state.
#pragma once

#include "port_board.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

struct PortInfo {
    uint32_t systemPort = 0;
    uint32_t ifIndex = 0;
    uint32_t bridgePort = 0;
    uint32_t portInstance = 0;
    uint32_t dmPortMask = 0;
    uint32_t masterInstance = 0; // trunks: the member that stands for it; other ports: themselves
    uint16_t slot = 0;
    uint16_t port = 0;
    bool isTrunk = false;
    bool linkUp = false;
    bool heldDown = false;
    uint64_t linkChanges = 0;
    int64_t lastChange = 0; // ns since 1970-01-01 UTC
    uint32_t mtu = 0;       // bytes; 0 unknown
    std::string name;
    std::string description;
    std::string mac;    // empty: unknown
    std::string trunk;  // of a member: the trunk's name
    std::string master; // of a trunk: the name of the member that stands for it
    std::vector<std::string> addresses;
};

// One bound port; nothing when the system port is free, or was freed while we asked.
std::optional<PortInfo> portInfo(uint32_t systemPort, const PortBoard &board);

// All bound ports in the order of their system ports.
std::vector<PortInfo> allPortInfo(const PortBoard &board);

// The system port that a text means: a number, or an interface name. 0: none.
uint32_t systemPortNamed(const std::string &text);

std::string portsTable(const std::vector<PortInfo> &ports);
// All about one port; `vlans` is a text of its own making.
std::string portText(const PortInfo &port, const std::string &vlans);
nlohmann::ordered_json portJson(const PortInfo &port);
