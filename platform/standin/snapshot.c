/* snapshot.c: copies of what is kept about ports, each as it is at one moment under inventoryLock. */
#include "inventory.h"

#include <errno.h>
#include <string.h>

static void copyPort(kelStandinPort *port, const struct port_entry *entry)
{
    const pif_ *record = &entry->current->record;
    *port = (kelStandinPort){.portInstance = record->portInstance,
                             .ifIndex = record->ifIndex,
                             .trunk = record->trunkPortInstance,
                             .master = record->masterPortInstance,
                             .slot = record->slot,
                             .port = record->port,
                             .linkUp = entry->linkUp,
                             .mtu = entry->mtu,
                             .linkChanges = entry->linkChanges,
                             .lastChange = entry->lastChange};
    memcpy(port->mac, entry->mac, sizeof port->mac);
    memcpy(port->name, entry->name, sizeof port->name);
    memcpy(port->description, entry->description, sizeof port->description);
}

int kelStandinGetPort(portInstance_t instance, kelStandinPort *port)
{
    if (port == NULL)
        return EINVAL;
    lockInventory();
    const struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL)
        copyPort(port, entry);
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

portInstance_t kelStandinFindPort(const char *name)
{
    if (name == NULL || *name == '\0')
        return 0;
    lockInventory();
    const struct port_entry *entry = entryFrom(0);
    while (entry != NULL && strcmp(entry->name, name) != 0)
        entry = entryAfter(entry);
    const portInstance_t instance = entry == NULL ? 0 : entry->instance;
    unlockInventory();
    return instance;
}

size_t kelStandinSnapshot(kelStandinPort *ports, size_t max)
{
    size_t count = 0;
    lockInventory();
    for (const struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry)) {
        if (count < max)
            copyPort(&ports[count], entry);
        ++count;
    }
    unlockInventory();
    return count;
}
