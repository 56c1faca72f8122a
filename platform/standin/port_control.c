/* port_control.c: adding and removing slot ports and trunks.
 *
 * Locking: a change is made under inventoryLock; the listener is told with no lock, after an addition, and before a
 *          removal is complete: a leaving port still answers every look-up.
 * Cost:    the removal of a member or a trunk walks all ports; the rest is a look-up.
 */
#include "inventory.h"
#include "listener.h"
#include "trunk.h"

#include <errno.h>
#include <string.h>

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

/* ---- Removing ---- */

static int beginLeaving(portInstance_t instance)
{
    struct port_entry *entry = entryOfInstance(instance);
    if (entry == NULL)
        return ENOENT;
    if (entry->state == PORT_LEAVING)
        return EBUSY;
    const int result = isTrunkInstance(instance) ? releaseMembers(instance) : leaveTrunkOf(entry);
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
