// port_lists.cpp: system ports to and from the platform's port lists.
//
// Policy:  port p of a slot is bit (p - 1) % 32, from the most significant, of word (offset - 1) + ((p - 1) / 32) % 4.
//          A slot without words gets four from the platform. A slot number or an offset that the list's arrays do not
//          reach counts as "cannot be reserved": nothing outside the list is ever read or written.
// Locking: mSem is held only inside the table look-ups. A list or mask belongs to the caller.
// Cost:    one table look-up, one platform look-up and one word a port; nothing allocates.
#include "sysport.h"

#include "bitset.h"

#include <kel_platform.h>

#include <iterator>

namespace
{
constexpr uint32_t WordsPerSlot = 4;
constexpr uint32_t HighestOffset = std::size(portlist_t{}.words) - WordsPerSlot + 1;
constexpr uint32_t NoMoreBits = 0xFFFFFFFF;
constexpr portInstance_t ListEnd = 0xFFFFFFFF;

// The slot's 1-based first word, reserved now if it was not; 0 when it cannot be.
uint32_t reservedOffset(portlist_t &list, const pif_ &pif)
{
    if (pif.slot >= std::size(list.slotOffset))
        return 0;
    uint8_t &offset = list.slotOffset[pif.slot];
    if (offset == 0)
        offset = static_cast<uint8_t>(plRsrvSlotBitOffset(&list, pif.slot, &pif)); // what counts is the stored byte
    return offset <= HighestOffset ? offset : 0;
}

// Adds the port unless its slot cannot be reserved.
void addToList(portlist_t &list, const pif_ &pif)
{
    const uint32_t offset = reservedOffset(list, pif);
    if (offset == 0)
        return;
    const uint32_t bit = uint32_t{pif.port} - 1; // port 0 wraps to the slot's last bit
    list.words[offset - 1 + bit / 32 % WordsPerSlot] |= 0x80000000 >> bit % 32;
}

pif_ *recordOf(kelSysPortUtil &table, uint32_t systemPort)
{
    pif_ *pif = nullptr;
    return vlanLibGetLifByPortInstance(table.systemPort2PortInst(systemPort), &pif) != 0 ? pif : nullptr;
}
} // namespace

uint32_t kelSysPortUtil::getPortListFromSystemPort(portlist_t *list, uint32_t systemPort)
{
    if (list == nullptr)
        return 0;
    const pif_ *pif = recordOf(*this, systemPort);
    if (pif == nullptr)
        return 0;
    // Kept: a slot that cannot be reserved leaves the port out and is a success all the same
    // (PortLists.PortWhoseSlotCannotBeReservedIsLeftOutAndCountsAsSuccess).
    addToList(*list, *pif);
    return 1;
}

uint32_t kelSysPortUtil::getPortListFromBridgePort(portlist_t *list, uint32_t bridgePort)
{
    const uint32_t systemPort = getSystemPortFromBridgePort(bridgePort);
    return systemPort != 0 ? getPortListFromSystemPort(list, systemPort) : 0;
}

uint32_t kelSysPortUtil::getPortListFromIfIndex(portlist_t *list, uint32_t ifIndex)
{
    const uint32_t systemPort = getSystemPortFromIfIndex(ifIndex);
    return systemPort != 0 ? getPortListFromSystemPort(list, systemPort) : 0;
}

uint32_t kelSysPortUtil::getPortListFromSystemPorts(portlist_t *list, const CBitMask *ports)
{
    for (uint32_t s = ports->findSetBit(0); s != NoMoreBits; s = ports->findSetBit(s + 1)) {
        const pif_ *pif = recordOf(*this, s);
        if (pif == nullptr)
            return 0;
        addToList(*list, *pif);
    }
    return 1;
}

uint32_t kelSysPortUtil::getSystemPortsFromPortList(CBitMask *ports, portlist_t *list)
{
    for (portInstance_t p = PORTLIST_GETNEXTPORT(list, ListEnd); p != ListEnd; p = PORTLIST_GETNEXTPORT(list, p)) {
        // Kept: a port that is not bound sets bit 0, so a second one ends the conversion
        // (PortLists.SecondPortThatIsNotBoundEndsTheConversionWith0).
        if (!ports->setBit(portInst2SystemPort(p)))
            return 0;
    }
    return 1;
}
