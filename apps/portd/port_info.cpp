// port_info.cpp: a port as the console shows it: the port map's numbers, the platform's state.
#include "port_info.h"

#include "change_line.h"
#include "mgmt_text.h"
#include "sysport.h"
#include "text_table.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <kel_standin.h>

namespace
{
constexpr uint32_t instanceTypeShift = 24;
constexpr uint32_t trunkType = 1;
constexpr int64_t nanosecondsPerSecond = 1'000'000'000;

std::string hex(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

std::string macText(const uint8_t (&mac)[6])
{
    char text[24];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return std::string(text) == "00:00:00:00:00:00" ? "" : text;
}

std::string nameOfInstance(portInstance_t instance)
{
    kelStandinPort record;
    if (instance == 0 || kelStandinGetPort(instance, &record) != 0)
        return "";
    return record.name;
}

std::vector<std::string> addressesOf(portInstance_t instance)
{
    kelStandinAddress addresses[KEL_STANDIN_MAX_ADDRESSES];
    const size_t count = kelStandinGetAddresses(instance, addresses, KEL_STANDIN_MAX_ADDRESSES);
    std::vector<std::string> texts;
    for (size_t i = 0; i < std::min<size_t>(count, KEL_STANDIN_MAX_ADDRESSES); ++i)
        texts.push_back(addressText(addresses[i]));
    return texts;
}

std::string linkText(const PortInfo &port)
{
    return port.heldDown ? "held" : port.linkUp ? "up" : "down";
}

std::string orDash(const std::string &text)
{
    return text.empty() ? "-" : printable(text);
}

std::string orDash(uint32_t number)
{
    return number == 0 ? "-" : std::to_string(number);
}

std::string placeText(const PortInfo &port)
{
    if (port.isTrunk)
        return "trunk " + std::to_string(port.port);
    return std::to_string(port.slot) + "/" + std::to_string(port.port);
}

std::string lastChangeText(const PortInfo &port)
{
    return timeOfDay({static_cast<time_t>(port.lastChange / nanosecondsPerSecond),
                      static_cast<long>(port.lastChange % nanosecondsPerSecond)});
}
} // namespace

std::optional<PortInfo> portInfo(uint32_t systemPort, const PortBoard &board)
{
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    PortInfo info;
    kelStandinPort record;
    info.systemPort = systemPort;
    info.portInstance = map.systemPort2PortInst(systemPort);
    if (info.portInstance == 0 || kelStandinGetPort(info.portInstance, &record) != 0)
        return std::nullopt;
    info.ifIndex = map.getIfIndexFromSystemPort(systemPort);
    info.bridgePort = map.getBridgePortFromSystemPort(systemPort);
    info.dmPortMask = map.getDmPortMaskFromSystemPort(systemPort);
    info.masterInstance = map.getMasterPortInstance_t(info.portInstance);
    info.isTrunk = info.portInstance >> instanceTypeShift == trunkType;
    info.slot = record.slot;
    info.port = record.port;
    info.linkUp = record.linkUp != 0;
    info.linkChanges = record.linkChanges;
    info.lastChange = record.lastChange;
    info.mtu = record.mtu;
    info.name = record.name;
    info.description = record.description;
    info.mac = macText(record.mac);
    info.trunk = nameOfInstance(record.trunk);
    info.master = info.isTrunk ? nameOfInstance(info.masterInstance) : "";
    info.addresses = addressesOf(info.portInstance);
    const std::optional<PortRow> row = board.row(systemPort);
    info.heldDown = row && (row->word & stateHeldDown);
    return info;
}

std::vector<PortInfo> allPortInfo(const PortBoard &board)
{
    std::vector<PortInfo> ports;
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    for (uint32_t port = map.getNextSystemPort(0); port != 0; port = map.getNextSystemPort(port)) {
        if (const auto info = portInfo(port, board))
            ports.push_back(*info);
    }
    return ports;
}

uint32_t systemPortNamed(const std::string &text)
{
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    if (const portInstance_t instance = kelStandinFindPort(text.c_str()); instance != 0)
        return map.portInst2SystemPort(instance);
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? map.getSystemPort(number) : 0;
}

std::string portsTable(const std::vector<PortInfo> &ports)
{
    using enum TextTable::Align;
    TextTable table({{"PORT", right},
                     {"NAME", left},
                     {"LINK", left},
                     {"IFINDEX", right},
                     {"BRIDGE", right},
                     {"INSTANCE", left},
                     {"SLOT/PORT", left},
                     {"TRUNK", left},
                     {"CHANGES", right},
                     {"LAST CHANGE", left},
                     {"DESCRIPTION", left}});
    for (const PortInfo &port : ports) {
        table.addRow({std::to_string(port.systemPort), orDash(port.name), linkText(port), orDash(port.ifIndex),
                      orDash(port.bridgePort), hex(port.portInstance), placeText(port), orDash(port.trunk),
                      std::to_string(port.linkChanges), lastChangeText(port), printable(port.description)});
    }
    return table.text();
}

std::string portText(const PortInfo &port, const std::string &vlans)
{
    using enum TextTable::Align;
    TextTable table({{"SYSTEM PORT", left}, {std::to_string(port.systemPort), left}});
    table.addRow({"name", orDash(port.name)});
    table.addRow({"description", orDash(port.description)});
    table.addRow({"link", linkText(port)});
    table.addRow({"link changes", std::to_string(port.linkChanges)});
    table.addRow({"last change", dateAndTimeText(port.lastChange)});
    table.addRow({"place", placeText(port)});
    table.addRow({"ifIndex", orDash(port.ifIndex)});
    table.addRow({"bridge port", orDash(port.bridgePort)});
    table.addRow({"port instance", hex(port.portInstance)});
    table.addRow({"DmPortMask", hex(port.dmPortMask)});
    if (port.isTrunk)
        table.addRow({"master", orDash(port.master)});
    else
        table.addRow({"trunk", orDash(port.trunk)});
    table.addRow({"MTU", orDash(port.mtu)});
    table.addRow({"MAC address", orDash(port.mac)});
    table.addRow({"ifTable object", ifTableOidText(port.ifIndex)});
    table.addRow({"VLANs", orDash(vlans)});
    for (size_t i = 0; i < std::max<size_t>(port.addresses.size(), 1); ++i)
        table.addRow({i == 0 ? "addresses" : "", port.addresses.empty() ? "-" : port.addresses[i]});
    return table.text();
}

nlohmann::ordered_json portJson(const PortInfo &port)
{
    nlohmann::ordered_json json = {
        {"systemPort", port.systemPort},
        {"name", port.name},
        {"link", port.linkUp ? "up" : "down"},
        {"heldDown", port.heldDown},
        {"ifIndex", port.ifIndex},
        {"bridgePort", port.bridgePort},
        {"portInstance", port.portInstance},
        {"dmPortMask", port.dmPortMask},
        {"type", port.isTrunk ? "trunk" : "slot"},
        {"slot", port.slot},
        {"port", port.port},
        {"trunk", port.trunk.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(port.trunk)},
        {"linkChanges", port.linkChanges},
        {"lastChange", static_cast<double>(port.lastChange) / 1e9},
        {"description", port.description},
        {"dateAndTime", dateAndTimeText(port.lastChange)},
        {"ifTableObject", ifTableOidText(port.ifIndex)},
        {"addresses", port.addresses}};
    if (port.isTrunk)
        json["master"] = port.master;
    if (port.mtu != 0)
        json["mtu"] = port.mtu;
    if (!port.mac.empty())
        json["mac"] = port.mac;
    return json;
}
