/**
 * @file deltalist.h
 * Delta-list timers: a locked list of entries ordered by expiry, advanced by ticks, that calls back what has expired.
 *
 * Results of this family:
 * 1. Most calls return the head time: the time until the nearest entry expires, 0 when the list is empty.
 * 2. CDeltaList::initSem() returns non-zero when the list has a semaphore.
 * 3. A refused call prints one line "text:code" on standard output and returns the head time or 0. Codes: 0 the
 *    arguments are wrong, 1 no semaphore could be created, 2 the lock or the list is not usable.
 *
 * All times are unsigned 32-bit counts of one unit, the one in which the client calls tic(). The list reads no clock.
 *
 * Calls that may run together: add, del, touch, tic, getNext, getEntryAgeOut and setTailTime, freely, as long as two
 * threads do not add or delete one plain entry at the same time (a self-tracking entry takes that as well). With dbID
 * held by the caller: pop, internalAdd, internalDel, and the print calls if others may change the list.
 */
#ifndef DELTALIST_H
#define DELTALIST_H

#include <stddef.h>
#include <stdint.h>

#include "vxw_shim.h"

#pragma GCC visibility push(default)

class CDeltaList;

/**
 * A timer: clients derive from it and override aged().
 *
 * It is in one of three states: free (all fields zero), on a list, or on a list's kill list, between its expiry and its
 * aged() call. An entry that waits for its aged() call is not to be deleted or added by clients. The list does not own
 * its entries: whoever made an entry takes it off the list before it goes.
 */
class CDeltaListEntry
{
public:
    /** Makes a free entry. */
    CDeltaListEntry() : next(nullptr), prev(nullptr), time(0) {}
    /** A copy of an entry that is on a list would look as if it were on the list too. */
    CDeltaListEntry(const CDeltaListEntry &) = delete;
    CDeltaListEntry &operator=(const CDeltaListEntry &) = delete;

    /** Does nothing; in particular it does not take the entry off its list. */
    virtual ~CDeltaListEntry();

    /**
     * Puts this free entry on a list; clients call CDeltaList::add(), which also checks that the entry is free.
     *
     * @param list  where to; null is refused with the line "CDeltaListEntry::add,no list:0"
     * @param time  from now until it expires; 0 means the list's tail time
     * @return the head time of @p list, or 0
     * @blocking while others hold dbID    @locks dbID of @p list    @context any thread
     */
    virtual unsigned int add(CDeltaList *list, unsigned int time);

    /**
     * Takes this entry off a list and zeroes it; clients call CDeltaList::del().
     *
     * @param list  the one it is on; null is refused with the line "CDeltaListEntry::del,no list:0"
     * @return the head time of @p list, or 0
     * @blocking while others hold dbID    @locks dbID of @p list    @context any thread
     */
    virtual unsigned int del(CDeltaList *list);

    /**
     * Called once when the entry has expired; does nothing here.
     *
     * The entry is free again by then. The call may add, delete and move entries, this one included; on a list that is
     * not astable it may also destroy this entry. On an astable list the entry is added again afterwards, so there the
     * call must neither destroy it nor, unless it tracks its list itself, add it.
     * @blocking must not    @locks called with dbID held, which is recursive    @context the caller of tic, setTailTime
     */
    virtual void aged();

    /**
     * Makes the entry free: clears its links and its time. An override calls this one.
     * @blocking no    @locks called with dbID held    @context whoever deletes or ages the entry
     */
    virtual void zero();

    /**
     * Prints the three fields, a line each, on standard output.
     * @blocking as standard output does    @locks nothing    @context any thread; hold dbID if others change the list
     */
    void printCDeltaListEntry();

    /** Empty text; nothing here reads it. It stays because processes linked earlier import it. */
    static const char *name;

    // All three belong to the list that the entry is on and are under its dbID, which no annotation here can name.
    CDeltaListEntry *next; /**< expires after this one (towards the tail), or null; also read unlocked */
    CDeltaListEntry *prev; /**< expires before this one (towards the head), or null; also read unlocked */
    unsigned int time;     /**< from the expiry of prev to this one's; for the head, from now */
};

/**
 * A list of timers in order of expiry, each storing only its distance (delta) to the one before it.
 *
 * Advancing touches only the entries that expire and the next one. Adding at the tail time appends at once when nothing
 * expires later; any other add walks from the tail past the entries that expire later. Deleting is constant.
 *
 * Life: construct, initSem(), init(tailTime, ticSize, astable), then use. Nothing else is legal before init.
 */
class CDeltaList
{
public:
    /** Makes an empty list without a semaphore. @p listName is shown by printCDeltaList() and is not copied. */
    explicit CDeltaList(const char *listName = "")
        : head(nullptr), tail(nullptr), killHead(nullptr), killTail(nullptr), totalTime(0), tailTime(0), ticSize(0),
          numEntries(0), dbID(nullptr), externalSem(false), upTime(0), astable(false), name(listName)
    {
    }
    /** The list has a semaphore of its own, and its entries can be on one list only. */
    CDeltaList(const CDeltaList &) = delete;
    CDeltaList &operator=(const CDeltaList &) = delete;

    /**
     * Takes the lock for good and forgets the entries, which stay as they are. A semaphore of its own is deleted while
     * held; one that the client supplied stays taken, and its owner may delete it.
     *
     * No other thread may use the list any more.
     * @blocking while others hold dbID    @locks dbID, never given    @context any thread
     */
    virtual ~CDeltaList();

    /**
     * Called on every insertion: how much of the next tic has passed already. It is added to the entry's time.
     *
     * @return time since the last tic; 0 here
     * @blocking must not    @locks called with dbID held    @context whoever adds an entry
     */
    virtual unsigned int getDeltaT();

    /**
     * Called when an insertion has made a new head, that is, when the nearest expiry has changed. Does nothing here.
     * @blocking must not    @locks called with dbID held    @context whoever adds an entry
     */
    virtual void awaken();

    /**
     * Gives the list its lock; once, before anything else.
     *
     * @param sem  the client's, which stays the client's: a mutual-exclusion semaphore, because callbacks take it again
     *             (a take of any other kind can also be ended by a signal, and the list would go on without it). Null
     *             makes the list create one of its own.
     * @retval 1  the list has a semaphore
     * @retval 0  none could be created; the line "semMCreate Error:1" says so
     * @blocking no    @locks nothing    @context one thread, before the list is used
     */
    int initSem(mutex_sem *sem);

    /**
     * Empties the list and stores its settings. Entries that were on it are forgotten, not zeroed.
     *
     * @param newTailTime  time of entries that are added with time 0
     * @param newTicSize   time that tic(0) advances
     * @param isAstable    true: an expired entry is added again at the tail time after its aged() call
     * @blocking while others hold dbID    @locks dbID    @context any thread
     */
    void init(unsigned int newTailTime, unsigned int newTicSize, bool isAstable);

    /** Empties the list and keeps its settings; otherwise as the other init. */
    void init();

    /**
     * Adds a free entry through its virtual add().
     *
     * Entries with equal expiry keep the order in which they were added. What getDeltaT() returns is added to the time;
     * a sum above 0xFFFFFFFF counts as 0xFFFFFFFF. With time 0 on a list whose tail time is 0 that still holds time,
     * the entry goes last and the list's total time starts over at 0, unless getDeltaT() returns something.
     *
     * @param entry  free; one that is null or on a list is refused with the line "Add error(entry):0"
     * @param time   from now until it expires; 0 means the tail time
     * @return the head time
     * @blocking while others hold dbID    @locks dbID    @context any thread; the entry is checked before locking
     */
    unsigned int add(CDeltaListEntry *entry, unsigned int time);

    /**
     * Adds a free entry; the caller holds dbID and has made sure that the entry is free.
     *
     * @param entry  not null, zeroed, and on no list
     * @param time   from now until it expires; 0 means the tail time
     * @return the head time
     * @blocking no    @locks caller holds dbID    @context any thread; calls getDeltaT() and awaken()
     */
    unsigned int internalAdd(CDeltaListEntry *entry, unsigned int time) KEL_REQUIRES(dbID);

    /**
     * Takes an entry off the list through its virtual del().
     *
     * @param entry  on this list. One that is not is zeroed and counted down all the same, and the lines "Del
     *               error(head) - entry not on list:0" and "Del error(tail) - entry not on list:0" say so. Null does
     *               nothing.
     * @return the head time
     * @blocking while others hold dbID    @locks dbID    @context any thread
     */
    unsigned int del(CDeltaListEntry *entry);

    /**
     * Takes an entry off the list; the caller holds dbID. What expires after it keeps its expiry.
     *
     * @param entry  not null, on this list; otherwise as for del()
     * @return the head time
     * @blocking no    @locks caller holds dbID    @context any thread; calls the entry's zero()
     */
    unsigned int internalDel(CDeltaListEntry *entry) KEL_REQUIRES(dbID);

    /**
     * Deletes an entry and adds it again, in two locked steps: others may come between them.
     *
     * @param entry  on this list
     * @param time   from now until it expires; 0 means the tail time
     * @return the head time
     * @blocking while others hold dbID    @locks dbID, twice    @context any thread
     */
    unsigned int touch(CDeltaListEntry *entry, unsigned int time);

    /**
     * Walks the list.
     *
     * @param entry  on this list, or null
     * @return the entry that expires after @p entry; the head for null; null at the end of the list
     * @blocking while others hold dbID    @locks dbID    @context any thread
     */
    CDeltaListEntry *getNext(CDeltaListEntry *entry);

    /**
     * Returns the time until an entry expires. Walks to the head.
     *
     * @param entry  on this list, which is not checked; null gives 0
     * @return the time left
     * @blocking while others hold dbID    @locks dbID    @context any thread
     */
    unsigned int getEntryAgeOut(CDeltaListEntry *entry);

    /**
     * Moves the head to the end of the kill list, whatever its time; the next tic calls its aged(). Entries behind it
     * expire earlier by its time. The caller holds dbID.
     *
     * @return the new head time; a list whose links do not agree says "pop Error:2" and gives 0
     * @blocking no    @locks caller holds dbID    @context any thread
     */
    unsigned int pop() KEL_REQUIRES(dbID);

    /**
     * Changes the time of entries that are added with time 0.
     *
     * @param newTailTime  the new tail time
     * @param adjust       true: if the tail would expire later than that, the list is advanced (without counting into
     *                     upTime) until it expires at the new tail time, and what has expired by then is aged
     * @return without an adjustment the total time, that is the time until the tail expires; with one, the head time
     * @blocking while others hold dbID    @locks dbID    @context any thread; calls aged() of what expires
     */
    unsigned int setTailTime(unsigned int newTailTime, bool adjust);

    /**
     * Advances time: first all entries that are due leave the list, then aged() is called for each, in order of expiry.
     *
     * An entry that has exactly @p ticks left expires.
     *
     * @param ticks  time that has passed; 0 means the list's tic size
     * @return the head time afterwards
     * @blocking while others hold dbID    @locks dbID, held during aged()    @context any thread
     */
    unsigned int tic(unsigned int ticks);

    /**
     * Prints all fields, a line each, on standard output.
     * @blocking as standard output does    @locks nothing    @context any thread; hold dbID if others change the list
     */
    void printCDeltaList() const;

    CDeltaListEntry *head KEL_GUARDED_BY(dbID);     /**< expires first, or null; also read unlocked */
    CDeltaListEntry *tail KEL_GUARDED_BY(dbID);     /**< expires last, or null; also read unlocked */
    CDeltaListEntry *killHead KEL_GUARDED_BY(dbID); /**< the first that has expired and waits for aged(), or null */
    CDeltaListEntry *killTail KEL_GUARDED_BY(dbID); /**< the last of those, or null */
    unsigned int totalTime KEL_GUARDED_BY(dbID);    /**< time until the tail expires: the sum of all deltas */
    unsigned int tailTime KEL_GUARDED_BY(dbID);     /**< time of entries that are added with time 0 */
    unsigned int ticSize KEL_GUARDED_BY(dbID);      /**< time that tic(0) advances */
    unsigned int numEntries KEL_GUARDED_BY(dbID);   /**< on the list; the kill list is not counted */
    SEM_ID dbID;                                    /**< guards the list and its entries; set once by initSem() */
    bool externalSem;                               /**< dbID is the client's and never deleted here; set with it */
    unsigned int upTime KEL_GUARDED_BY(dbID);       /**< time advanced by tic() since init; wraps */
    bool astable KEL_GUARDED_BY(dbID);              /**< expired entries are added again at the tail time */
    const char *name;                               /**< the client's text, shown by printCDeltaList(); set once */
};

/**
 * An entry that knows which list it is on, so that it can be moved, deleted and asked without naming the list.
 *
 * The derived class stores the list and the semaphore. That semaphore must be the dbID of every list that the entry
 * goes on (hand it to CDeltaList::initSem()), because it is all that is taken before a list is changed. Several threads
 * may add and delete one such entry at the same time.
 */
class CDeltaListSmartEntryBase : public CDeltaListEntry
{
public:
    /**
     * Puts the entry on a list, after taking it off the one it is on.
     *
     * @param list  where to; null is refused with the line "CDeltaListSmartEntry::add,no list:0"
     * @param time  from now until it expires; 0 means the list's tail time
     * @return the head time of @p list, or 0
     * @blocking while others hold the semaphore    @locks getSem()    @context any thread
     */
    unsigned int add(CDeltaList *list, unsigned int time) override;

    /**
     * Takes the entry off a list if it is on that one; nothing is locked before that is known.
     *
     * @param list  where it is expected; any other is refused with the line "CDeltaListSmartEntry::del,no list:0"
     * @return the head time of the list, or 0
     * @blocking while others hold the semaphore    @locks getSem()    @context any thread
     */
    unsigned int del(CDeltaList *list) override;

    /**
     * Takes the entry off the list it is on, if any.
     *
     * @return the head time of that list, or 0
     * @blocking while others hold the semaphore    @locks getSem()    @context any thread
     */
    unsigned int del();

    /**
     * Makes the entry free: clears its links, its time and its list.
     * @blocking no    @locks called with the semaphore held    @context whoever deletes or ages the entry
     */
    void zero() override;

    /**
     * Returns the list that the entry is on, or null.
     * @blocking must not    @locks nothing, also called before locking    @context any thread
     */
    virtual CDeltaList *getList() = 0;

    /**
     * Returns the semaphore that guards the entry and its list: one and the same for the entry's whole life.
     * @blocking must not    @locks nothing    @context any thread
     */
    virtual SEM_ID getSem() = 0;

    /**
     * Remembers the list that the entry is on; null for none.
     * @blocking must not    @locks called with the semaphore held    @context whoever moves the entry
     */
    virtual void setList(CDeltaList *newList) = 0;

    /**
     * Returns the time until the entry expires; 0 when it is on no list.
     * @blocking while others hold the semaphore    @locks getSem()    @context any thread
     */
    unsigned int getEntryAgeOut();

    /**
     * Prints the entry, the name and address of its list, and its semaphore, on standard output.
     * @blocking as standard output does    @locks nothing    @context any thread; hold the semaphore if others move it
     */
    void printCDeltaListSmartEntryBase();
};

/** A self-tracking entry that stores its list and its semaphore itself. */
class CDeltaListSmartEntry : public CDeltaListSmartEntryBase
{
public:
    /** Makes a free entry for the lists whose dbID is @p listSem, which stays its owner's. */
    explicit CDeltaListSmartEntry(SEM_ID listSem) : list(nullptr), sem(listSem) {}

    /** Returns the list that the entry is on, or null. @blocking no    @locks nothing    @context any thread */
    CDeltaList *getList() override;
    /** Returns the semaphore given to the constructor. @blocking no    @locks nothing    @context any thread */
    SEM_ID getSem() override;
    /** Stores the list. @blocking no    @locks called with the semaphore held    @context whoever moves the entry */
    void setList(CDeltaList *newList) override;

    CDeltaList *list; /**< the one it is on, or null; written under sem, also read unlocked */
    SEM_ID sem;       /**< guards the entry and its list; set once */
};

// Processes linked earlier rely on the layout: clients embed and derive from these classes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(sizeof(CDeltaListEntry) == 32, "size of an entry");
static_assert(offsetof(CDeltaListEntry, next) == 8, "layout of an entry");
static_assert(offsetof(CDeltaListEntry, prev) == 16, "layout of an entry");
static_assert(offsetof(CDeltaListEntry, time) == 24, "layout of an entry");
static_assert(sizeof(CDeltaList) == 88, "size of a list");
static_assert(offsetof(CDeltaList, head) == 8, "layout of a list");
static_assert(offsetof(CDeltaList, tail) == 16, "layout of a list");
static_assert(offsetof(CDeltaList, killHead) == 24, "layout of a list");
static_assert(offsetof(CDeltaList, killTail) == 32, "layout of a list");
static_assert(offsetof(CDeltaList, totalTime) == 40, "layout of a list");
static_assert(offsetof(CDeltaList, tailTime) == 44, "layout of a list");
static_assert(offsetof(CDeltaList, ticSize) == 48, "layout of a list");
static_assert(offsetof(CDeltaList, numEntries) == 52, "layout of a list");
static_assert(offsetof(CDeltaList, dbID) == 56, "layout of a list");
static_assert(offsetof(CDeltaList, externalSem) == 64, "layout of a list");
static_assert(offsetof(CDeltaList, upTime) == 68, "layout of a list");
static_assert(offsetof(CDeltaList, astable) == 72, "layout of a list");
static_assert(offsetof(CDeltaList, name) == 80, "layout of a list");
static_assert(sizeof(CDeltaListSmartEntryBase) == 32, "size of a self-tracking entry");
static_assert(sizeof(CDeltaListSmartEntry) == 48, "size of a self-tracking entry");
static_assert(offsetof(CDeltaListSmartEntry, list) == 32, "layout of a self-tracking entry");
static_assert(offsetof(CDeltaListSmartEntry, sem) == 40, "layout of a self-tracking entry");
#pragma GCC diagnostic pop

#pragma GCC visibility pop

#endif
