// port_tables.cpp: the port map as tables of a management interface.
#include "port_tables.h"

#include "mgmt_text.h"
#include "port_info.h"
#include "sysport.h"

namespace
{
SuOID identifier(const char *text)
{
    SuOID value;
    value = text;
    return value;
}

// ---- BRIDGE-MIB

constexpr const char *dot1dBasePortEntry = "1.3.6.1.2.1.17.1.4.1";
enum : uint32_t { dot1dBasePort = 1, dot1dBasePortIfIndex = 2, dot1dBasePortCircuit = 3 };

std::optional<MibValue> bridgePortCell(uint32_t column, uint32_t bridgePort)
{
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    // A row is there when the walk gives it: the map also knows the bridge ports of trunks and of all their members.
    if (bridgePort == 0 || map.getNextBridgePort(bridgePort - 1) != bridgePort)
        return std::nullopt;
    if (column == dot1dBasePort)
        return MibInteger{static_cast<int32_t>(bridgePort)};
    if (column == dot1dBasePortCircuit)
        return identifier("0.0"); // no other bridge port has the same ifIndex
    const uint32_t ifIndex = map.getIfIndexFromBridgePort(bridgePort);
    if (ifIndex == 0)
        return std::nullopt; // the port went while we asked
    return MibInteger{static_cast<int32_t>(ifIndex)};
}

// ---- KEL-SYSPORT-MIB

constexpr const char *kelSysPort = "1.3.6.1.4.1.32473.1";
enum : uint32_t {
    kelSysPortInstance = 2, // the index, column 1, is not accessible
    kelSysPortIfIndex = 3,
    kelSysPortBridgePort = 4,
    kelSysPortDmPortMask = 5,
    kelSysPortName = 6,
    kelSysPortState = 7,
    kelSysPortLinkChanges = 8,
    kelSysPortLastChange = 9,
    kelSysPortIfObject = 10
};
enum : unsigned { statePresentBit = 0, stateLinkUpBit = 1, stateHeldDownBit = 2, stateTrunkBit = 3 };

SuOID systemPortEntry()
{
    return extended(identifier(kelSysPort), {1, 1, 1});
}

bool isTrunk(uint32_t portInstance)
{
    return portInstance >> 24 == 1;
}

void setBit(SuBITS &bits, unsigned bit)
{
    unsigned char &octet = bits.os.ptr[bit / 8];
    octet = static_cast<unsigned char>(octet | 0x80 >> bit % 8);
}

SuOctetString octets(const std::string &text)
{
    SuOctetString value(0);
    value.setData(reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size()));
    return value;
}

std::optional<MibValue> systemPortCell(const PortBoard &board, uint32_t column, uint32_t systemPort)
{
    const auto port = portInfo(systemPort, board);
    if (!port)
        return std::nullopt;
    switch (column) {
    case kelSysPortInstance:
        return MibUnsigned{port->portInstance};
    case kelSysPortIfIndex:
        return MibInteger{static_cast<int32_t>(port->ifIndex)};
    case kelSysPortBridgePort:
        return MibInteger{static_cast<int32_t>(port->bridgePort)};
    case kelSysPortDmPortMask:
        return MibUnsigned{port->dmPortMask};
    case kelSysPortName:
        return octets(port->name);
    case kelSysPortState:
        return kelSysPortMib::stateBits(
            statePresent | (port->linkUp ? stateLinkUp : 0) | (port->heldDown ? stateHeldDown : 0), port->portInstance);
    case kelSysPortLinkChanges:
        return MibCounter{static_cast<uint32_t>(port->linkChanges)}; // wraps, as counters do
    case kelSysPortLastChange:
        return SuOctetString(dateAndTime(port->lastChange));
    case kelSysPortIfObject:
        return ifTableOid(port->ifIndex);
    default:
        return std::nullopt;
    }
}
} // namespace

MibTable bridgePortTable()
{
    return {identifier(dot1dBasePortEntry),
            {dot1dBasePort, dot1dBasePortIfIndex, dot1dBasePortCircuit},
            [](uint32_t above) { return kelSysPortUtil::localPtr->getNextBridgePort(above); },
            bridgePortCell};
}

MibTable systemPortTable(const PortBoard &board)
{
    return {systemPortEntry(),
            {kelSysPortInstance, kelSysPortIfIndex, kelSysPortBridgePort, kelSysPortDmPortMask, kelSysPortName,
             kelSysPortState, kelSysPortLinkChanges, kelSysPortLastChange, kelSysPortIfObject},
            [](uint32_t above) { // the map starts over from 0xFFFFFFFF
                return above == UINT32_MAX ? 0 : kelSysPortUtil::localPtr->getNextSystemPort(above);
            },
            [&board](uint32_t column, uint32_t systemPort) { return systemPortCell(board, column, systemPort); }};
}

SuOID kelSysPortMib::portChanged()
{
    return extended(identifier(kelSysPort), {0, 1});
}

SuOID kelSysPortMib::name(uint32_t systemPort)
{
    return extended(systemPortEntry(), {kelSysPortName, systemPort});
}

SuOID kelSysPortMib::state(uint32_t systemPort)
{
    return extended(systemPortEntry(), {kelSysPortState, systemPort});
}

SuOctetString kelSysPortMib::stateBits(uint32_t word, uint32_t portInstance)
{
    SuBITS bits(stateTrunkBit);
    if (word & statePresent)
        setBit(bits, statePresentBit);
    if (word & stateLinkUp)
        setBit(bits, stateLinkUpBit);
    if (word & stateHeldDown)
        setBit(bits, stateHeldDownBit);
    if (isTrunk(portInstance))
        setBit(bits, stateTrunkBit);
    return bits;
}
