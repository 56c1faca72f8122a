// port_encoding.h: how slot and port are packed into the port numberings. All arithmetic is unsigned and may wrap.
#pragma once

#include <kel_platform.h>

#include <stdint.h>

namespace sysport
{
inline constexpr uint32_t PortsPerSlot = 128;

struct Position {
    uint32_t slot;
    uint32_t port;
};

// Slot 0 wraps to port + 0xFFFFFF80; most callers ask bridgePortOf() instead.
inline uint32_t uncheckedBridgePortOf(const pif_ &pif)
{
    return pif.port + (uint32_t{pif.slot} - 1) * PortsPerSlot;
}

inline uint32_t bridgePortOf(const pif_ &pif)
{
    return pif.slot == 0 ? 0 : uncheckedBridgePortOf(pif);
}

// Bridge port 0 stands for the place before the first port: slot 1, port 0.
inline Position positionOf(uint32_t bridgePort)
{
    if (bridgePort == 0)
        return {1, 0};
    return {(bridgePort - 1) / PortsPerSlot + 1, (bridgePort - 1) % PortsPerSlot + 1};
}

inline uint32_t dmPortMaskOf(const pif_ &pif)
{
    return uint32_t{pif.slot} << 16 | pif.port;
}

// The key from which a walk over the slot ports starts; a slot has 8 bits there.
inline portInstance_t walkKey(uint32_t slot, uint32_t port)
{
    return (slot & 0xFF) << 16 | port;
}

enum InterfaceType : uint32_t { SlotPort = 0, Trunk = 1 };

inline uint32_t interfaceTypeOf(portInstance_t instance)
{
    return instance >> 24;
}
} // namespace sysport
