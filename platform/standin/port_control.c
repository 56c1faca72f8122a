/* port_control.c: adding, removing and changing slot ports and trunks.
 *
 * Locking:    a change is made under inventoryLock; the listener is told after it (before it, for a removal) with no
 * lock. Invariants: a record that says it is in a trunk names a trunk that is there, and a trunk's master is one of its
 * members, except for records that a test added as they are. Cost:       joins, leaves and removals of trunks walk all
 * ports; the rest is a look-up.
 */
#include "inventory.h"
#include "listener.h"

#include <errno.h>
#include <string.h>

enum { TYPE_TRUNK = 1 };

static unsigned typeOf(portInstance_t instance)
{
    return instance >> 24;
}

/* ---- Adding ---- */

static void describe(struct port_entry *entry, const char *name, const char *description)
{
    entry->linkUp = 0;
    entry->mtu = 0;
    entry->linkChanges = 0;
    entry->lastChange = wallClock();
    memset(entry->mac, 0, sizeof entry->mac);
    copyText(entry->name, sizeof entry->name, name);
    copyText(entry->description, sizeof entry->description, description);
}

static int addLocked(const pif_ *record, const char *name, const char *description, bool ifIndexMustBeFree)
{
    struct port_entry *entry = reserveEntry(record->portInstance);
    if (entry == NULL)
        return ENOMEM;
    if (entry->state != PORT_ABSENT)
        return entry->state == PORT_LEAVING ? EBUSY : EEXIST;
    if (ifIndexMustBeFree && entryOfIfIndex(record->ifIndex) != NULL)
        return EEXIST;
    struct record_version *version = versionWith(entry, record);
    if (version == NULL)
        return ENOMEM;
    describe(entry, name, description);
    enlist(entry, version);
    return 0;
}

static int add(const pif_ *record, const char *name, const char *description, bool ifIndexMustBeFree)
{
    lockInventory();
    const int result = addLocked(record, name, description, ifIndexMustBeFree);
    unlockInventory();
    if (result == 0)
        tellAppeared(record->portInstance);
    return result;
}

static bool isPortNumber(unsigned port)
{
    return port >= 1 && port <= KEL_STANDIN_MAX_PORT;
}

static uint32_t ifIndexOr(uint32_t ifIndex, unsigned slot, unsigned port)
{
    return ifIndex != 0 ? ifIndex : 1000 * slot + port;
}

int kelStandinAddPort(unsigned slot, unsigned port, const char *name, uint32_t ifIndex, const char *description)
{
    if (slot < 1 || slot > KEL_STANDIN_MAX_SLOT || !isPortNumber(port))
        return EINVAL;
    const pif_ record = {.portInstance = kelStandinPortInstance(slot, port),
                         .ifIndex = ifIndexOr(ifIndex, slot, port),
                         .slot = (uint16_t)slot,
                         .port = (uint16_t)port};
    return add(&record, name, description, true);
}

int kelStandinAddTrunk(unsigned number, const char *name, uint32_t ifIndex, const char *description)
{
    if (!isPortNumber(number))
        return EINVAL;
    const pif_ record = {.portInstance = kelStandinTrunkInstance(number),
                         .ifIndex = ifIndexOr(ifIndex, KEL_STANDIN_TRUNK_SLOT, number),
                         .slot = KEL_STANDIN_TRUNK_SLOT,
                         .port = (uint16_t)number};
    return add(&record, name, description, true);
}

int kelStandinAddRecord(const pif_ *record, const char *name)
{
    if (record == NULL || record->portInstance == 0)
        return EINVAL;
    return add(record, name, NULL, false);
}

/* ---- Trunks ---- */

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

/* Both records are made before either is published, so that a failure changes nothing. */
static int leaveLocked(struct port_entry *member)
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

static int joinLocked(portInstance_t trunkInstance, portInstance_t memberInstance)
{
    struct port_entry *trunk = entryOfInstance(trunkInstance);
    struct port_entry *member = entryOfInstance(memberInstance);
    if (trunk == NULL || member == NULL || trunk->state == PORT_LEAVING || member->state == PORT_LEAVING)
        return ENOENT;
    if (typeOf(trunkInstance) != TYPE_TRUNK || typeOf(memberInstance) == TYPE_TRUNK)
        return EINVAL;
    if (member->current->record.trunkPortInstance == trunkInstance)
        return 0;
    struct record_version *inTrunk = versionInTrunk(member, trunkInstance);
    struct record_version *led =
        trunk->current->record.masterPortInstance != 0 ? trunk->current : versionWithMaster(trunk, memberInstance);
    if (inTrunk == NULL || led == NULL)
        return ENOMEM;
    const int result = leaveLocked(member);
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
    const int result = member == NULL ? ENOENT : leaveLocked(member);
    unlockInventory();
    return result;
}

static int setMasterLocked(portInstance_t trunkInstance, portInstance_t memberInstance)
{
    struct port_entry *trunk = entryOfInstance(trunkInstance);
    struct port_entry *member = entryOfInstance(memberInstance);
    if (trunk == NULL || member == NULL)
        return ENOENT;
    if (typeOf(trunkInstance) != TYPE_TRUNK || member->current->record.trunkPortInstance != trunkInstance)
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

/* ---- Removing ---- */

static int releaseMembers(portInstance_t trunk)
{
    for (struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry)) {
        if (entry->current->record.trunkPortInstance != trunk)
            continue;
        struct record_version *single = versionInTrunk(entry, 0);
        if (single == NULL)
            return ENOMEM;
        entry->current = single;
    }
    return 0;
}

static int beginLeaving(portInstance_t instance)
{
    struct port_entry *entry = entryOfInstance(instance);
    if (entry == NULL)
        return ENOENT;
    if (entry->state == PORT_LEAVING)
        return EBUSY;
    const int result = typeOf(instance) == TYPE_TRUNK ? releaseMembers(instance) : leaveLocked(entry);
    if (result == 0)
        entry->state = PORT_LEAVING;
    return result;
}

int kelStandinRemovePort(portInstance_t instance)
{
    lockInventory();
    const int result = beginLeaving(instance);
    unlockInventory();
    if (result != 0)
        return result;

    tellDisappeared(instance);

    lockInventory();
    struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL) { /* unless the inventory was emptied meanwhile */
        clearExtras(entry);
        delist(entry);
    }
    unlockInventory();
    return 0;
}

/* ---- Links, names and the like ---- */

/* Returns 1 when the state changed, 0 when not, -1 when there is no such port. */
static int changeLink(portInstance_t instance, int up)
{
    struct port_entry *entry = entryOfInstance(instance);
    if (entry == NULL)
        return -1;
    if (entry->linkUp == up)
        return 0;
    entry->linkUp = up;
    ++entry->linkChanges;
    entry->lastChange = wallClock();
    return 1;
}

int kelStandinSetLink(portInstance_t instance, int up)
{
    lockInventory();
    const int changed = changeLink(instance, up != 0);
    unlockInventory();
    if (changed == 1)
        tellLinkChanged(instance, up != 0);
    return changed < 0 ? ENOENT : 0;
}

int kelStandinGetLink(portInstance_t instance)
{
    lockInventory();
    const struct port_entry *entry = entryOfInstance(instance);
    const int up = entry == NULL ? -1 : entry->linkUp;
    unlockInventory();
    return up;
}

int kelStandinRename(portInstance_t instance, const char *name)
{
    lockInventory();
    struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL)
        copyText(entry->name, sizeof entry->name, name);
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

int kelStandinSetDescription(portInstance_t instance, const char *description)
{
    lockInventory();
    struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL)
        copyText(entry->description, sizeof entry->description, description);
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

int kelStandinSetMac(portInstance_t instance, const uint8_t mac[6])
{
    static const uint8_t unknown[6];
    lockInventory();
    struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL)
        memcpy(entry->mac, mac == NULL ? unknown : mac, sizeof entry->mac);
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

int kelStandinSetMtu(portInstance_t instance, uint32_t mtu)
{
    lockInventory();
    struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL)
        entry->mtu = mtu;
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}
