/* trunk.h: leaving trunks, for ports that disappear. Under inventoryLock. */
#ifndef STANDIN_TRUNK_H
#define STANDIN_TRUNK_H

#include "inventory.h"

static inline bool isTrunkInstance(portInstance_t instance)
{
    return instance >> 24 == 1;
}

/* Takes a port out of its trunk, if it is in one. Returns 0 or ENOMEM. */
int leaveTrunkOf(struct port_entry *member);

/* Takes all ports out of a trunk. Returns 0; ENOMEM only for records that a test added as members, as all others have
 * been single before. */
int releaseMembers(portInstance_t trunk);

#endif
