// port_next.cpp: walks the bound ports of each numbering.
//
// Policy:  system ports go by their bits. The other three follow the platform's order of slot ports, from a key made of
//          the number given; a walk always goes on from the record met last, also when its number was passed over.
// Locking: mSem is held only inside the raw table look-ups; the bits are read without it.
// Cost:    one bit search, or one platform call a slot port passed over; nothing allocates.
#include "sysport.h"

#include "port_encoding.h"

#include "bitset.h"

#include <kel_platform.h>

using namespace sysport;

namespace
{
pif_ *nextSlotPort(portInstance_t key)
{
    return vlanLibGetNextPifByType(key, SlotPort);
}
} // namespace

uint32_t kelSysPortUtil::getNextSystemPort(uint32_t systemPort)
{
    const uint32_t next = usedSystemPort->findSetBit(systemPort + 1);
    return next < maxSystemPorts ? next : 0;
}

uint32_t kelSysPortUtil::getNextPortInstance_t(uint32_t portInst)
{
    for (const pif_ *pif = nextSlotPort(portInst); pif != nullptr; pif = nextSlotPort(pif->portInstance)) {
        if (portInst2SystemPort(pif->portInstance) != 0)
            return pif->portInstance;
    }
    return 0;
}

uint32_t kelSysPortUtil::getNextIfIndex(uint32_t ifIndex)
{
    constexpr uint32_t ifIndexesPerSlot = 1000;
    const portInstance_t key = walkKey(ifIndex / ifIndexesPerSlot, ifIndex % ifIndexesPerSlot);
    for (pif_ *pif = nextSlotPort(key); pif != nullptr; pif = nextSlotPort(pif->portInstance)) {
        // 0 is no ifIndex and never greater than the one given.
        if (pif->ifIndex > ifIndex && portInst2SystemPort(getBestPortInstanceForPif(pif)) != 0)
            return pif->ifIndex;
    }
    return 0;
}

uint32_t kelSysPortUtil::getNextBridgePort(uint32_t bridgePort)
{
    const Position at = positionOf(bridgePort);
    for (pif_ *pif = nextSlotPort(walkKey(at.slot, at.port)); pif != nullptr; pif = nextSlotPort(pif->portInstance)) {
        // Kept: slot 0 is not refused; its candidate is above every real bridge port
        // (PortNext.BridgePortWalkReturnsTheWrappedCandidateOfSlot0).
        const uint32_t candidate = uncheckedBridgePortOf(*pif);
        if (candidate > bridgePort && portInst2SystemPort(getBestPortInstanceForPif(pif)) != 0)
            return candidate;
    }
    return 0;
}
