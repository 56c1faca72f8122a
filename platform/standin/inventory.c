/* inventory.c: where the ports are kept and found.
 *
 * Locking:    everything is under inventoryLock.
 * Invariants: `entries` is sorted by port instance and only grows; an entry that is not absent is on the chains of its
 *             ifIndex and of its slot and port, once each; its ifIndex, slot and port stay the same until it is absent.
 *             A published record is never written again, so that readers need no lock: they got the pointer under it.
 * Cost:       a look-up by port instance is a binary search, the others a hash and a short chain; a port instance that
 *             is added for the first time moves the entries above it; nothing else allocates or moves.
 */
#include "inventory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { BUCKETS = 4096, FIRST_ROOM = 64 };

pthread_mutex_t inventoryLock = PTHREAD_MUTEX_INITIALIZER;

static struct port_entry **entries; /* by port instance */
static size_t entryCount;
static size_t entryRoom;
static struct port_entry *byIfIndex[BUCKETS];
static struct port_entry *bySlotPort[BUCKETS];

void lockInventory(void)
{
    pthread_mutex_lock(&inventoryLock);
}

void unlockInventory(void)
{
    pthread_mutex_unlock(&inventoryLock);
}

static size_t bucketOf(uint32_t key)
{
    return key * 2654435769u >> 20; /* the top 12 bits of the golden ratio's multiple */
}

static struct port_entry **ifIndexBucket(const pif_ *record)
{
    return &byIfIndex[bucketOf(record->ifIndex)];
}

static struct port_entry **slotPortBucket(const pif_ *record)
{
    return &bySlotPort[bucketOf((uint32_t)record->slot << 16 | record->port)];
}

/* The place of the first entry whose port instance is not below `from`. */
static size_t placeOf(uint64_t from)
{
    size_t low = 0;
    size_t high = entryCount;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (entries[middle]->instance < from)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

static struct port_entry *lowerOf(struct port_entry *one, struct port_entry *other)
{
    return one == NULL || other->instance < one->instance ? other : one;
}

struct port_entry *entryOfInstance(portInstance_t instance)
{
    const size_t place = placeOf(instance);
    if (place == entryCount || entries[place]->instance != instance || entries[place]->state == PORT_ABSENT)
        return NULL;
    return entries[place];
}

struct port_entry *entryOfIfIndex(uint32_t ifIndex)
{
    struct port_entry *found = NULL;
    for (struct port_entry *entry = byIfIndex[bucketOf(ifIndex)]; entry != NULL; entry = entry->nextByIfIndex)
        if (entry->current->record.ifIndex == ifIndex)
            found = lowerOf(found, entry);
    return found;
}

struct port_entry *entryOfSlotPort(uint32_t slot, uint32_t port)
{
    if (slot > UINT16_MAX || port > UINT16_MAX)
        return NULL;
    struct port_entry *found = NULL;
    for (struct port_entry *entry = bySlotPort[bucketOf(slot << 16 | port)]; entry != NULL;
         entry = entry->nextBySlotPort)
        if (entry->current->record.slot == slot && entry->current->record.port == port)
            found = lowerOf(found, entry);
    return found;
}

struct port_entry *entryFrom(uint64_t from)
{
    for (size_t place = placeOf(from); place < entryCount; ++place)
        if (entries[place]->state != PORT_ABSENT)
            return entries[place];
    return NULL;
}

struct port_entry *entryAfter(const struct port_entry *entry)
{
    return entryFrom((uint64_t)entry->instance + 1);
}

static bool makeRoom(void)
{
    if (entryCount < entryRoom)
        return true;
    const size_t room = entryRoom == 0 ? FIRST_ROOM : 2 * entryRoom;
    struct port_entry **larger = realloc(entries, room * sizeof(struct port_entry *));
    if (larger == NULL)
        return false;
    entries = larger;
    entryRoom = room;
    return true;
}

struct port_entry *reserveEntry(portInstance_t instance)
{
    const size_t place = placeOf(instance);
    if (place < entryCount && entries[place]->instance == instance)
        return entries[place];
    if (!makeRoom())
        return NULL;
    struct port_entry *entry = calloc(1, sizeof *entry);
    if (entry == NULL)
        return NULL;
    entry->instance = instance;
    memmove(&entries[place + 1], &entries[place], (entryCount - place) * sizeof(struct port_entry *));
    entries[place] = entry;
    ++entryCount;
    return entry;
}

static bool sameRecord(const pif_ *one, const pif_ *other)
{
    return one->portInstance == other->portInstance && one->ifIndex == other->ifIndex &&
           one->trunkPortInstance == other->trunkPortInstance && one->masterPortInstance == other->masterPortInstance &&
           one->slot == other->slot && one->port == other->port;
}

struct record_version *versionWith(struct port_entry *entry, const pif_ *content)
{
    for (struct record_version *version = entry->versions; version != NULL; version = version->next)
        if (sameRecord(&version->record, content))
            return version;
    struct record_version *version = malloc(sizeof *version);
    if (version == NULL)
        return NULL;
    version->record = *content;
    version->next = entry->versions;
    entry->versions = version;
    return version;
}

void enlist(struct port_entry *entry, struct record_version *version)
{
    entry->current = version;
    entry->state = PORT_PRESENT;
    struct port_entry **head = ifIndexBucket(&version->record);
    entry->nextByIfIndex = *head;
    *head = entry;
    head = slotPortBucket(&version->record);
    entry->nextBySlotPort = *head;
    *head = entry;
}

void delist(struct port_entry *entry)
{
    struct port_entry **link = ifIndexBucket(&entry->current->record);
    while (*link != entry)
        link = &(*link)->nextByIfIndex;
    *link = entry->nextByIfIndex;
    link = slotPortBucket(&entry->current->record);
    while (*link != entry)
        link = &(*link)->nextBySlotPort;
    *link = entry->nextBySlotPort;
    entry->state = PORT_ABSENT;
}

void copyText(char *to, size_t size, const char *from)
{
    snprintf(to, size, "%s", from == NULL ? "" : from);
}

int64_t wallClock(void)
{
    struct timespec now = {0, 0}; /* stays the epoch when the clock cannot be read */
    clock_gettime(CLOCK_REALTIME, &now);
    return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}
