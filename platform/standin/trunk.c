/* trunk.c: who is in which trunk, and who stands for it.
 *
 * Locking:    everything is under inventoryLock; no listener hears of it.
 * Invariants: a record that says it is in a trunk names a trunk that is there, and a trunk's master is one of its
 *             members, except for records that a test added as they are. All records of a change are made before the
 *             first is published, so that a lack of memory changes nothing.
 * Cost:       finding the next master, and releasing the members, walks all ports.
 */
#include "trunk.h"

#include <errno.h>

static struct port_entry *firstMemberExcept(portInstance_t trunk, const struct port_entry *except)
{
    for (struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry))
        if (entry->current->record.trunkPortInstance == trunk && entry != except && entry->state == PORT_PRESENT)
            return entry;
    return NULL;
}

static struct record_version *versionInTrunk(struct port_entry *entry, portInstance_t trunk)
{
    pif_ record = entry->current->record;
    record.trunkPortInstance = trunk;
    return versionWith(entry, &record);
}

static struct record_version *versionWithMaster(struct port_entry *trunk, portInstance_t master)
{
    pif_ record = trunk->current->record;
    record.masterPortInstance = master;
    return versionWith(trunk, &record);
}

int leaveTrunkOf(struct port_entry *member)
{
    const pif_ *record = &member->current->record;
    if (record->trunkPortInstance == 0)
        return 0;
    struct record_version *single = versionInTrunk(member, 0);
    if (single == NULL)
        return ENOMEM;
    struct port_entry *trunk = entryOfInstance(record->trunkPortInstance);
    if (trunk != NULL && trunk->current->record.masterPortInstance == record->portInstance) {
        const struct port_entry *next = firstMemberExcept(record->trunkPortInstance, member);
        struct record_version *ledByNext = versionWithMaster(trunk, next == NULL ? 0 : next->instance);
        if (ledByNext == NULL)
            return ENOMEM;
        trunk->current = ledByNext;
    }
    member->current = single;
    return 0;
}

int releaseMembers(portInstance_t trunk)
{
    for (struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry))
        if (entry->current->record.trunkPortInstance == trunk && versionInTrunk(entry, 0) == NULL)
            return ENOMEM;
    for (struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry))
        if (entry->current->record.trunkPortInstance == trunk)
            entry->current = versionInTrunk(entry, 0); /* found again */
    return 0;
}

static int joinLocked(portInstance_t trunkInstance, portInstance_t memberInstance)
{
    struct port_entry *trunk = entryOfInstance(trunkInstance);
    struct port_entry *member = entryOfInstance(memberInstance);
    if (trunk == NULL || member == NULL || trunk->state == PORT_LEAVING || member->state == PORT_LEAVING)
        return ENOENT;
    if (!isTrunkInstance(trunkInstance) || isTrunkInstance(memberInstance))
        return EINVAL;
    if (member->current->record.trunkPortInstance == trunkInstance)
        return 0;
    struct record_version *inTrunk = versionInTrunk(member, trunkInstance);
    struct record_version *led =
        trunk->current->record.masterPortInstance != 0 ? trunk->current : versionWithMaster(trunk, memberInstance);
    if (inTrunk == NULL || led == NULL)
        return ENOMEM;
    const int result = leaveTrunkOf(member);
    if (result != 0)
        return result;
    member->current = inTrunk;
    trunk->current = led;
    return 0;
}

int kelStandinJoinTrunk(portInstance_t trunk, portInstance_t member)
{
    lockInventory();
    const int result = joinLocked(trunk, member);
    unlockInventory();
    return result;
}

int kelStandinLeaveTrunk(portInstance_t instance)
{
    lockInventory();
    struct port_entry *member = entryOfInstance(instance);
    const int result = member == NULL ? ENOENT : leaveTrunkOf(member);
    unlockInventory();
    return result;
}

static int setMasterLocked(portInstance_t trunkInstance, portInstance_t memberInstance)
{
    struct port_entry *trunk = entryOfInstance(trunkInstance);
    struct port_entry *member = entryOfInstance(memberInstance);
    if (trunk == NULL || member == NULL)
        return ENOENT;
    if (!isTrunkInstance(trunkInstance) || member->current->record.trunkPortInstance != trunkInstance)
        return EINVAL;
    struct record_version *led = versionWithMaster(trunk, memberInstance);
    if (led == NULL)
        return ENOMEM;
    trunk->current = led;
    return 0;
}

int kelStandinSetMaster(portInstance_t trunk, portInstance_t member)
{
    lockInventory();
    const int result = setMasterLocked(trunk, member);
    unlockInventory();
    return result;
}
