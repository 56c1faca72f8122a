/* port_list.c: walking a port list and reserving room in it.
 *
 * A list comes from outside: an offset whose words would lie beyond the list's holds no ports. The words of trunks are
 * those of slot 255, and the walk names them by their trunks' port instances, which are above those of all slot ports.
 */
#include "fault.h"
#include "inventory.h"

#include <string.h>

enum { SLOTS = 256, WORDS_A_SLOT = 4, PORTS_A_SLOT = 32 * WORDS_A_SLOT, WORDS = 4 * 64, TYPE_TRUNK = 1 };

static const portInstance_t none = 0xFFFFFFFF;

static bool hasWords(const portlist_t *list, unsigned slot)
{
    const unsigned offset = list->slotOffset[slot];
    return offset != 0 && offset - 1 + WORDS_A_SLOT <= WORDS;
}

static bool hasPort(const portlist_t *list, unsigned slot, unsigned port)
{
    const uint32_t word = list->words[list->slotOffset[slot] - 1u + (port - 1) / 32];
    return (word & 0x80000000u >> (port - 1) % 32) != 0;
}

static bool isTrunk(portInstance_t instance)
{
    lockInventory();
    const bool there = entryOfInstance(instance) != NULL;
    unlockInventory();
    return there;
}

static portInstance_t instanceAt(unsigned slot, unsigned port)
{
    const portInstance_t trunk = kelStandinTrunkInstance(port);
    return slot == KEL_STANDIN_TRUNK_SLOT && isTrunk(trunk) ? trunk : kelStandinPortInstance(slot, port);
}

static portInstance_t nextPort(const portlist_t *list, portInstance_t previous)
{
    unsigned slot = 0;
    unsigned port = 1;
    if (previous != none) {
        slot = previous >> 24 == TYPE_TRUNK ? (unsigned)KEL_STANDIN_TRUNK_SLOT : previous >> 16;
        port = (previous & 0xFFFF) + 1;
    }
    for (; slot < SLOTS; ++slot, port = 1) {
        if (!hasWords(list, slot))
            continue;
        for (; port <= PORTS_A_SLOT; ++port)
            if (hasPort(list, slot, port))
                return instanceAt(slot, port);
    }
    return none;
}

portInstance_t PORTLIST_GETNEXTPORT(portlist_t *list, portInstance_t previous)
{
    const struct trouble trouble = troubleOf(KEL_CALL_PORTLIST_NEXT, previous);
    if (trouble.replaceResult)
        return trouble.result;
    return list == NULL ? none : nextPort(list, previous);
}

static bool isFree(const portlist_t *list, unsigned offset)
{
    for (unsigned slot = 0; slot < SLOTS; ++slot) {
        const unsigned other = list->slotOffset[slot];
        if (other != 0 && other < offset + WORDS_A_SLOT && offset < other + WORDS_A_SLOT)
            return false;
    }
    return true;
}

static unsigned reserve(portlist_t *list, unsigned slot)
{
    if (list->slotOffset[slot] != 0)
        return list->slotOffset[slot];
    for (unsigned offset = 1; offset - 1 + WORDS_A_SLOT <= WORDS; offset += WORDS_A_SLOT) {
        if (!isFree(list, offset))
            continue;
        memset(&list->words[offset - 1], 0, WORDS_A_SLOT * sizeof list->words[0]);
        list->slotOffset[slot] = (uint8_t)offset;
        return offset;
    }
    return 0;
}

unsigned plRsrvSlotBitOffset(portlist_t *list, unsigned slot, const pif_ *record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_PORTLIST_RESERVE, record == NULL ? 0 : record->portInstance);
    if (trouble.replaceResult)
        return trouble.result;
    return list == NULL || slot >= SLOTS ? 0 : reserve(list, slot);
}
