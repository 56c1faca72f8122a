// port_numbering.cpp: converts between the port numberings, and finds interface names.
//
// Policy:  the platform's record tells an interface's numbers; the table tells whether it is bound. A number is
//          converted only when the port instance in its record is bound: its own, or for a DmPortMask the best one
//          (of its trunk, if it stands for one). Names are given for any interface that the platform knows.
// Locking: mSem is held only inside the raw table look-ups, never while calling the platform.
// Cost:    one platform look-up and one or two table look-ups; nothing allocates.
#include "sysport.h"

#include "port_encoding.h"

#include "bitset.h"

#include <kel_platform.h>

using namespace sysport;

namespace
{
// The platform's look-ups: the record, or null when the platform reports a failure or gives no record.

pif_ *byInstance(uint32_t portInst)
{
    pif_ *pif = nullptr;
    return vlanLibGetLifByPortInstance(portInst, &pif) != 0 ? pif : nullptr;
}

pif_ *byBridgePort(uint32_t bridgePort)
{
    const Position at = positionOf(bridgePort);
    pif_ *pif = nullptr;
    return vlanLibGetLifBySlotPort(at.slot, at.port, &pif) != 0 ? pif : nullptr;
}

pif_ *byDmPortMask(uint32_t dmPortMask)
{
    pif_ *pif = nullptr;
    return vlanLibGetPifByPortInstance(dmPortMask, &pif) != 0 ? pif : nullptr;
}

// The name of `pif` in `buf`, or null when there is no record or no name.
char *nameOf(const pif_ *pif, char *buf, unsigned long len)
{
    if (pif == nullptr)
        return nullptr;
    const char *name = vlanGetNameForPif(pif, buf, len);
    return name != nullptr && name[0] != '\0' ? buf : nullptr;
}

// Empties the text; false when there is no room even for that.
bool clearText(char *buf, unsigned long len)
{
    if (buf == nullptr || len == 0)
        return false;
    buf[0] = '\0';
    return true;
}
} // namespace

uint32_t kelSysPortUtil::getSystemPort(uint32_t systemPort)
{
    return systemPort < maxSystemPorts && usedSystemPort->chkBit(systemPort) ? systemPort : 0;
}

uint32_t kelSysPortUtil::getPortInstance_t(uint32_t portInst)
{
    return portInst2SystemPort(portInst) != 0 ? portInst : 0;
}

uint32_t kelSysPortUtil::getIfIndex(uint32_t ifIndex)
{
    const pif_ *pif = vlanLibGetLifFromIfIndex(ifIndex);
    return pif != nullptr && portInst2SystemPort(pif->portInstance) != 0 ? ifIndex : 0;
}

uint32_t kelSysPortUtil::getBridgePort(uint32_t bridgePort)
{
    // Kept: here alone a look-up by slot and port that returns another non-zero value than 1 has failed, and bridge
    // port 0 is looked up too (PortNumbering.BridgePortIsConfirmedOnlyByALookUpThatReturnsExactly1).
    const Position at = positionOf(bridgePort);
    pif_ *pif = nullptr;
    if (vlanLibGetLifBySlotPort(at.slot, at.port, &pif) != 1 || pif == nullptr)
        return 0;
    return portInst2SystemPort(pif->portInstance) != 0 ? bridgePort : 0;
}

uint32_t kelSysPortUtil::getIfIndexFromPortInst(uint32_t portInst)
{
    if (portInst2SystemPort(portInst) == 0)
        return 0;
    const pif_ *pif = byInstance(portInst);
    return pif != nullptr ? pif->ifIndex : 0;
}

uint32_t kelSysPortUtil::getBridgePortFromPortInst(uint32_t portInst)
{
    if (portInst2SystemPort(portInst) == 0)
        return 0;
    const pif_ *pif = byInstance(portInst);
    return pif != nullptr ? bridgePortOf(*pif) : 0;
}

uint32_t kelSysPortUtil::getIfIndexFromSystemPort(uint32_t systemPort)
{
    return systemPort != 0 ? getIfIndexFromPortInst(systemPort2PortInst(systemPort)) : 0;
}

uint32_t kelSysPortUtil::getBridgePortFromSystemPort(uint32_t systemPort)
{
    return systemPort != 0 ? getBridgePortFromPortInst(systemPort2PortInst(systemPort)) : 0;
}

uint32_t kelSysPortUtil::getSystemPortFromIfIndex(uint32_t ifIndex)
{
    if (ifIndex == 0)
        return 0;
    const pif_ *pif = vlanLibGetLifFromIfIndex(ifIndex);
    return pif != nullptr ? portInst2SystemPort(pif->portInstance) : 0;
}

uint32_t kelSysPortUtil::getSystemPortFromBridgePort(uint32_t bridgePort)
{
    if (bridgePort == 0)
        return 0;
    const pif_ *pif = byBridgePort(bridgePort);
    return pif != nullptr ? portInst2SystemPort(pif->portInstance) : 0;
}

uint32_t kelSysPortUtil::getIfIndexFromBridgePort(uint32_t bridgePort)
{
    if (bridgePort == 0)
        return 0;
    const pif_ *pif = byBridgePort(bridgePort);
    return pif != nullptr && portInst2SystemPort(pif->portInstance) != 0 ? pif->ifIndex : 0;
}

uint32_t kelSysPortUtil::getBridgePortFromIfIndex(uint32_t ifIndex)
{
    if (ifIndex == 0)
        return 0;
    const pif_ *pif = vlanLibGetLifFromIfIndex(ifIndex);
    return pif != nullptr && portInst2SystemPort(pif->portInstance) != 0 ? bridgePortOf(*pif) : 0;
}

uint32_t kelSysPortUtil::getMasterPortInstance_t(uint32_t portInst)
{
    if (portInst2SystemPort(portInst) == 0)
        return 0;
    pif_ *trunk = nullptr;
    if (interfaceTypeOf(portInst) == Trunk && getPifByPortInstance(portInst, &trunk) == 1 && trunk != nullptr)
        return trunk->masterPortInstance;
    return portInst;
}

uint32_t kelSysPortUtil::getIfIndexFromDmPortMask(uint32_t dmPortMask)
{
    pif_ *pif = byDmPortMask(dmPortMask);
    return pif != nullptr && portInst2SystemPort(getBestPortInstanceForPif(pif)) != 0 ? pif->ifIndex : 0;
}

uint32_t kelSysPortUtil::getBridgePortFromDmPortMask(uint32_t dmPortMask)
{
    // Kept: slot 0 is not refused, unlike in the other conversions to a bridge port
    // (PortNumbering.BridgePortFromADmPortMaskOfSlot0Wraps).
    pif_ *pif = byDmPortMask(dmPortMask);
    return pif != nullptr && portInst2SystemPort(getBestPortInstanceForPif(pif)) != 0 ? uncheckedBridgePortOf(*pif) : 0;
}

uint32_t kelSysPortUtil::getSystemPortFromDmPortMask(uint32_t dmPortMask)
{
    pif_ *pif = byDmPortMask(dmPortMask);
    return pif != nullptr ? portInst2SystemPort(getBestPortInstanceForPif(pif)) : 0;
}

uint32_t kelSysPortUtil::getDmPortMaskFromSystemPort(uint32_t systemPort)
{
    const pif_ *pif = byInstance(systemPort2PortInst(systemPort));
    return pif != nullptr ? dmPortMaskOf(*pif) : 0;
}

uint32_t kelSysPortUtil::getDmPortMaskFromBridgePort(uint32_t bridgePort)
{
    const uint32_t systemPort = getSystemPortFromBridgePort(bridgePort);
    return systemPort != 0 ? getDmPortMaskFromSystemPort(systemPort) : 0;
}

uint32_t kelSysPortUtil::getDmPortMaskFromIfIndex(uint32_t ifIndex)
{
    const uint32_t systemPort = getSystemPortFromIfIndex(ifIndex);
    return systemPort != 0 ? getDmPortMaskFromSystemPort(systemPort) : 0;
}

char *kelSysPortUtil::getIfNameFromIfIndex(uint32_t ifIndex, char *buf, unsigned long len)
{
    if (!clearText(buf, len) || ifIndex == 0)
        return nullptr;
    return nameOf(vlanLibGetLifFromIfIndex(ifIndex), buf, len);
}

char *kelSysPortUtil::getIfNameFromBridgePort(uint32_t bridgePort, char *buf, unsigned long len)
{
    if (!clearText(buf, len) || bridgePort == 0)
        return nullptr;
    return nameOf(byBridgePort(bridgePort), buf, len);
}

char *kelSysPortUtil::getIfNameFromSystemPort(uint32_t systemPort, char *buf, unsigned long len)
{
    if (!clearText(buf, len))
        return nullptr;
    return nameOf(byInstance(systemPort2PortInst(systemPort)), buf, len);
}

uint32_t kelSysPortUtil::getBestPortInstanceForPif(pif_ *pif) const
{
    if (pif == nullptr)
        return 0;
    if (pif->trunkPortInstance == 0)
        return pif->portInstance;
    return isPortMasterOfTrunk(pif) == 1 ? pif->trunkPortInstance : 0;
}
