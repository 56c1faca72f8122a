/* port_details.c: link states, names and the like of a port that is there.
 *
 * Locking: everything is under inventoryLock; the listener is told of a link change afterwards, with no lock.
 */
#include "inventory.h"
#include "listener.h"

#include <errno.h>
#include <string.h>

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
