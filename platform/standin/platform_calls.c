/* platform_calls.c: the interface look-ups of kel_platform.h, answered from the inventory.
 *
 * A record is found under inventoryLock and handed out as it is then; it never changes afterwards. Trouble on demand is
 * asked for first, so that a hook can change the inventory before the call looks.
 */
#include "fault.h"
#include "inventory.h"

static pif_ *recordOf(struct port_entry *entry)
{
    return entry == NULL ? NULL : &entry->current->record;
}

static pif_ *recordOfInstance(portInstance_t instance)
{
    lockInventory();
    pif_ *record = recordOf(entryOfInstance(instance));
    unlockInventory();
    return record;
}

static pif_ *recordOfSlotPort(uint32_t slot, uint32_t port)
{
    lockInventory();
    pif_ *record = recordOf(entryOfSlotPort(slot, port));
    unlockInventory();
    return record;
}

/* The end of the calls with a result and a record: 1 when found. */
static int answer(const struct trouble *trouble, pif_ **to, pif_ *record)
{
    handOutRecord(trouble, to, record);
    return resultOr(trouble, record != NULL);
}

int vlanLibGetLifByPortInstance(portInstance_t instance, pif_ **record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_LIF_BY_INSTANCE, instance);
    return answer(&trouble, record, recordOfInstance(instance));
}

pif_ *vlanLibGetLifFromIfIndex(uint32_t ifIndex)
{
    const struct trouble trouble = troubleOf(KEL_CALL_LIF_BY_IFINDEX, ifIndex);
    lockInventory();
    pif_ *record = recordOf(entryOfIfIndex(ifIndex));
    unlockInventory();
    return trouble.handOut == KEL_HAND_OUT_TRUE ? record : NULL;
}

int vlanLibGetLifBySlotPort(uint32_t slot, uint32_t port, pif_ **record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_LIF_BY_SLOT_PORT, slot << 16 | port);
    return answer(&trouble, record, recordOfSlotPort(slot, port));
}

int vlanLibGetPifByPortInstance(portInstance_t instanceOrMask, pif_ **record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_PIF_BY_INSTANCE, instanceOrMask);
    pif_ *found = recordOfInstance(instanceOrMask);
    if (found == NULL) /* a trunk's DmPortMask is not its port instance */
        found = recordOfSlotPort(instanceOrMask >> 16, instanceOrMask & 0xFFFF);
    return answer(&trouble, record, found);
}

pif_ *vlanLibGetNextPifByType(portInstance_t key, int type)
{
    const struct trouble trouble = troubleOf(KEL_CALL_NEXT_PIF, key);
    if (trouble.handOut != KEL_HAND_OUT_TRUE || type < 0 || type > UINT8_MAX)
        return NULL;
    const uint64_t lowest = (uint64_t)type << 24;
    const uint64_t from = (uint64_t)key + 1 > lowest ? (uint64_t)key + 1 : lowest;
    lockInventory();
    pif_ *record = recordOf(entryFrom(from));
    unlockInventory();
    return record != NULL && record->portInstance >> 24 == (unsigned)type ? record : NULL;
}

char *vlanGetNameForPif(const pif_ *record, char *buf, size_t len)
{
    const struct trouble trouble = troubleOf(KEL_CALL_NAME, record == NULL ? 0 : record->portInstance);
    if (trouble.handOut == KEL_HAND_OUT_NULL)
        return NULL;
    if (buf == NULL || len == 0)
        return buf;
    buf[0] = '\0';
    if (record == NULL || trouble.handOut == KEL_HAND_OUT_EMPTY)
        return buf;
    lockInventory();
    const struct port_entry *entry = entryOfInstance(record->portInstance);
    if (entry != NULL)
        copyText(buf, len, entry->name);
    unlockInventory();
    return buf;
}

int getPifByPortInstance(portInstance_t trunk, pif_ **record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_TRUNK_BY_INSTANCE, trunk);
    return answer(&trouble, record, recordOfInstance(trunk));
}

int isPortMasterOfTrunk(const pif_ *record)
{
    const struct trouble trouble = troubleOf(KEL_CALL_IS_MASTER, record == NULL ? 0 : record->portInstance);
    if (record == NULL || record->trunkPortInstance == 0)
        return resultOr(&trouble, 0);
    const pif_ *trunk = recordOfInstance(record->trunkPortInstance);
    return resultOr(&trouble, trunk != NULL && trunk->masterPortInstance == record->portInstance);
}
