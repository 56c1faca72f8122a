/* inventory.h: the ports that the stand-in knows, shared by its sources. Everything here is under inventoryLock. */
#ifndef STANDIN_INVENTORY_H
#define STANDIN_INVENTORY_H

#include "kel_standin.h"

#include <pthread.h>
#include <stdbool.h>

/* One content that a port's record has had. Immutable from the moment it is published; kept for the process's life. */
struct record_version {
    pif_ record;
    struct record_version *next;
};

struct port_extras; /* VLANs and addresses, in port_extras.c */

enum port_state {
    PORT_ABSENT, /* the entry waits for its port instance to come again */
    PORT_PRESENT,
    PORT_LEAVING /* answers every look-up; its listener call is under way */
};

/* A port instance that was added at least once; never freed. */
struct port_entry {
    portInstance_t instance;
    enum port_state state;
    struct record_version *current;  /* what look-ups hand out; null until added the first time */
    struct record_version *versions; /* all contents so far, the newest first */
    struct port_entry *nextByIfIndex;
    struct port_entry *nextBySlotPort;
    struct port_extras *extras; /* null until the first VLAN or address; kept with the entry */
    int linkUp;
    uint32_t mtu;
    uint64_t linkChanges;
    int64_t lastChange;
    uint8_t mac[6];
    char name[KEL_STANDIN_NAME_SIZE];
    char description[KEL_STANDIN_DESCRIPTION_SIZE];
};

extern pthread_mutex_t inventoryLock;

void lockInventory(void);
void unlockInventory(void);

/* The look-ups see present and leaving ports; null when there is none. */
struct port_entry *entryOfInstance(portInstance_t instance);
struct port_entry *entryOfIfIndex(uint32_t ifIndex);
struct port_entry *entryOfSlotPort(uint32_t slot, uint32_t port);

/* The first entry there whose port instance is not below `from`; null at the end. */
struct port_entry *entryFrom(uint64_t from);
struct port_entry *entryAfter(const struct port_entry *entry);

/* Finds the entry of a port instance in any state, or makes an absent one; null when there is no memory. */
struct port_entry *reserveEntry(portInstance_t instance);

/* Finds or makes the version with that content; null when there is no memory. */
struct record_version *versionWith(struct port_entry *entry, const pif_ *content);

/* Puts an absent entry into the look-ups, or takes it out. */
void enlist(struct port_entry *entry, struct record_version *version);
void delist(struct port_entry *entry);

void clearExtras(struct port_entry *entry);

void copyText(char *to, size_t size, const char *from);
int64_t wallClock(void); /* ns since 1970-01-01 UTC */

#endif
