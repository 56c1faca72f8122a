/* port_extras.c: the VLANs and IP addresses of ports, for consoles that show them; no switch service asks for them.
 *
 * Locking: everything is under inventoryLock.
 * Cost:    a port's block is made with its first VLAN or address and kept with its entry; a VLAN's members are found by
 *          a walk over all ports.
 */
#include "inventory.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

struct port_extras {
    uint8_t vlans[KEL_STANDIN_MAX_VLAN + 1]; /* by VLAN id: how the port belongs to it */
    unsigned addressCount;
    kelStandinAddress addresses[KEL_STANDIN_MAX_ADDRESSES];
};

/* Finds a port's block, making it when there is none. */
static int extrasOf(portInstance_t instance, struct port_extras **extras)
{
    struct port_entry *entry = entryOfInstance(instance);
    if (entry == NULL || entry->state == PORT_LEAVING)
        return ENOENT;
    if (entry->extras == NULL)
        entry->extras = calloc(1, sizeof *entry->extras);
    *extras = entry->extras;
    return entry->extras == NULL ? ENOMEM : 0;
}

void clearExtras(struct port_entry *entry)
{
    if (entry->extras != NULL)
        memset(entry->extras, 0, sizeof *entry->extras);
}

static bool isVlan(unsigned vlan)
{
    return vlan >= 1 && vlan <= KEL_STANDIN_MAX_VLAN;
}

int kelStandinSetVlan(portInstance_t instance, unsigned vlan, int membership)
{
    if (!isVlan(vlan) || membership < KEL_STANDIN_VLAN_NONE || membership > KEL_STANDIN_VLAN_UNTAGGED)
        return EINVAL;
    struct port_extras *extras;
    lockInventory();
    const int result = extrasOf(instance, &extras);
    if (result == 0)
        extras->vlans[vlan] = (uint8_t)membership;
    unlockInventory();
    return result;
}

int kelStandinClearVlans(portInstance_t instance)
{
    lockInventory();
    const struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL && entry->extras != NULL)
        memset(entry->extras->vlans, 0, sizeof entry->extras->vlans);
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

static int membershipOf(const struct port_entry *entry, unsigned vlan)
{
    return entry == NULL || entry->extras == NULL ? KEL_STANDIN_VLAN_NONE : entry->extras->vlans[vlan];
}

int kelStandinGetVlan(portInstance_t instance, unsigned vlan)
{
    if (!isVlan(vlan))
        return KEL_STANDIN_VLAN_NONE;
    lockInventory();
    const int membership = membershipOf(entryOfInstance(instance), vlan);
    unlockInventory();
    return membership;
}

unsigned kelStandinNextVlan(unsigned vlan)
{
    unsigned lowest = 0;
    lockInventory();
    for (const struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry))
        for (unsigned next = vlan + 1; isVlan(next) && (lowest == 0 || next < lowest); ++next)
            if (membershipOf(entry, next) != KEL_STANDIN_VLAN_NONE)
                lowest = next;
    unlockInventory();
    return lowest;
}

size_t kelStandinVlanMembers(unsigned vlan, portInstance_t *members, size_t max)
{
    if (!isVlan(vlan))
        return 0;
    size_t count = 0;
    lockInventory();
    for (const struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry)) {
        if (membershipOf(entry, vlan) == KEL_STANDIN_VLAN_NONE)
            continue;
        if (count < max)
            members[count] = entry->instance;
        ++count;
    }
    unlockInventory();
    return count;
}

/* ---- Addresses ---- */

static bool isAddress(const kelStandinAddress *address)
{
    return address != NULL && ((address->family == AF_INET && address->prefixLength <= 32) ||
                               (address->family == AF_INET6 && address->prefixLength <= 128));
}

/* The place of an address; the count when it is not there. */
static unsigned placeOfAddress(const struct port_extras *extras, const kelStandinAddress *address)
{
    unsigned place = 0;
    while (place < extras->addressCount && memcmp(&extras->addresses[place], address, sizeof *address) != 0)
        ++place;
    return place;
}

int kelStandinAddAddress(portInstance_t instance, const kelStandinAddress *address)
{
    if (!isAddress(address))
        return EINVAL;
    struct port_extras *extras;
    lockInventory();
    int result = extrasOf(instance, &extras);
    if (result == 0 && placeOfAddress(extras, address) == extras->addressCount) {
        if (extras->addressCount < KEL_STANDIN_MAX_ADDRESSES)
            extras->addresses[extras->addressCount++] = *address;
        else
            result = ENOSPC;
    }
    unlockInventory();
    return result;
}

static int removeAddressLocked(portInstance_t instance, const kelStandinAddress *address)
{
    const struct port_entry *entry = entryOfInstance(instance);
    if (entry == NULL || entry->extras == NULL)
        return ENOENT;
    struct port_extras *extras = entry->extras;
    const unsigned place = placeOfAddress(extras, address);
    if (place == extras->addressCount)
        return ENOENT;
    --extras->addressCount;
    memmove(&extras->addresses[place], &extras->addresses[place + 1],
            (extras->addressCount - place) * sizeof extras->addresses[0]);
    return 0;
}

int kelStandinRemoveAddress(portInstance_t instance, const kelStandinAddress *address)
{
    if (!isAddress(address))
        return EINVAL;
    lockInventory();
    const int result = removeAddressLocked(instance, address);
    unlockInventory();
    return result;
}

int kelStandinClearAddresses(portInstance_t instance)
{
    lockInventory();
    const struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL && entry->extras != NULL)
        entry->extras->addressCount = 0;
    unlockInventory();
    return entry == NULL ? ENOENT : 0;
}

size_t kelStandinGetAddresses(portInstance_t instance, kelStandinAddress *addresses, size_t max)
{
    size_t count = 0;
    lockInventory();
    const struct port_entry *entry = entryOfInstance(instance);
    if (entry != NULL && entry->extras != NULL) {
        count = entry->extras->addressCount;
        const size_t copied = count < max ? count : max;
        if (copied > 0)
            memcpy(addresses, entry->extras->addresses, copied * sizeof *addresses);
    }
    unlockInventory();
    return count;
}
