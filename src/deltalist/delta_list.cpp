// delta_list.cpp: timers in order of expiry, each holding only its distance to the one before it.
//
// Policy:     entries that are due together age in the order in which they were added. All entries that are due leave
//             the list before the first aged() is called.
// Locking:    dbID guards the list and the links of its entries; aged() and awaken() run with it held and may call the
//             list again. Only add() looks at something before locking: head, tail and the entry's links.
// Invariants: the deltas add up to totalTime; head->prev and tail->next are null, and so for the kill list; an entry is
//             free, on one list, or on one kill list.
// Cost:       time passing touches what expires and the next entry; a delete is constant; an add walks from the tail
//             past what expires later, which is nothing at the tail time. Nothing allocates.
#include "deltalist.h"

#include "deltalist/delta_list_links.h"
#include "deltalist/delta_list_lock.h"
#include "vxw_shim/sem_lock.h"
#include "vxw_shim/unlocked_access.h"

namespace
{
using namespace deltalist;

constexpr int BadArgument = 0, NoSemaphore = 1, Unusable = 2; // the codes of report()

unsigned int headTime(const CDeltaList &list) KEL_REQUIRES(list.dbID)
{
    return list.head == nullptr ? 0 : list.head->time;
}

// For a call that was refused before locking: the head may be leaving at this moment. A list that was never given its
// semaphore is read as it is.
unsigned int lockedHeadTime(const CDeltaList &list)
{
    const SemLock lock(list.dbID);
    return headTime(list);
}

// Whether the entry is on no list, as far as can be seen without the lock.
KEL_UNCHECKED_LOCKING bool looksFree(const CDeltaList &list, const CDeltaListEntry *entry)
{
    return readUnlocked(entry->next) == nullptr && readUnlocked(entry->prev) == nullptr &&
           readUnlocked(list.head) != entry && readUnlocked(list.tail) != entry;
}

// Moves everything that is due within `ticks` to the kill list and lets the time pass for the rest.
void expire(CDeltaList &list, unsigned int ticks) KEL_REQUIRES(list.dbID)
{
    while (list.head != nullptr) {
        if (list.head->time > ticks) {
            list.head->time -= ticks;
            list.totalTime -= ticks;
            return;
        }
        ticks -= list.head->time;
        list.pop();
    }
}

// Calls aged() for everything on the kill list, also for what those calls put there. Unless the list is astable,
// nothing of an entry is touched after its aged(), which may have destroyed it.
void ageKilled(CDeltaList &list) KEL_REQUIRES(list.dbID)
{
    while (list.killHead != nullptr) {
        CDeltaListEntry *entry = takeFromKillList(list);
        entry->zero();
        entry->aged();
        if (list.astable)
            entry->add(&list, 0);
    }
}

void restart(CDeltaList &list) KEL_REQUIRES(list.dbID)
{
    forgetEntries(list);
    list.upTime = 0;
}
} // namespace

// Kept: the lock is not given back. Its own semaphore is deleted while held, so that nobody gets in any more; a
// client's stays taken, and the client may rely on that to delete it
// (DeltaList.DestructorLeavesAnExternalSemaphoreTaken).
KEL_UNCHECKED_LOCKING CDeltaList::~CDeltaList()
{
    if (semTake(dbID, vxw_shim::WaitForever) == -1)
        report("semTake Error", Unusable);
    forgetEntries(*this);
    writeUnlocked(tailTime, 0);
    writeUnlocked(ticSize, 0);
    if (!externalSem)
        semDelete(dbID);
}

unsigned int CDeltaList::getDeltaT()
{
    return 0;
}

void CDeltaList::awaken() {}

int CDeltaList::initSem(mutex_sem *sem)
{
    externalSem = sem != nullptr;
    dbID = externalSem ? sem : semMCreate(SEM_Q_PRIORITY | SEM_INVERSION_SAFE);
    if (dbID == nullptr)
        report("semMCreate Error", NoSemaphore);
    return dbID != nullptr;
}

void CDeltaList::init(unsigned int newTailTime, unsigned int newTicSize, bool isAstable)
{
    const Lock lock(dbID);
    if (lock.failed()) {
        report("semTake Error", Unusable);
        return;
    }
    restart(*this);
    tailTime = newTailTime;
    ticSize = newTicSize;
    astable = isAstable;
}

void CDeltaList::init()
{
    const Lock lock(dbID);
    if (lock.failed())
        report("semTake Error", Unusable);
    else
        restart(*this);
}

unsigned int CDeltaList::add(CDeltaListEntry *entry, unsigned int time)
{
    if (entry != nullptr && looksFree(*this, entry))
        return entry->add(this, time);
    report("Add error(entry)", BadArgument);
    return lockedHeadTime(*this);
}

unsigned int CDeltaList::internalAdd(CDeltaListEntry *entry, unsigned int time)
{
    leaveKillList(*this, entry);
    const unsigned int elapsed = getDeltaT();
    const bool atTailTime = time == 0;
    if (atTailTime)
        time = tailTime;
    if (atTailTime && elapsed == 0 && (tailTime >= totalTime || tailTime == 0))
        appendAtTailTime(*this, entry);
    else if (elapsed != 0 && time >= Longest - elapsed)
        appendAtLongest(*this, entry);
    else
        insertByExpiry(*this, entry, time + elapsed);
    ++numEntries;
    if (head == entry)
        awaken();
    return headTime(*this);
}

unsigned int CDeltaList::del(CDeltaListEntry *entry)
{
    return entry == nullptr ? lockedHeadTime(*this) : entry->del(this);
}

// Kept: an entry that is not on the list is zeroed and counted down all the same, after the messages
// (DeltaList.DeleteOfAnEntryThatIsNotOnTheListStillZeroesItAndCountsDown).
unsigned int CDeltaList::internalDel(CDeltaListEntry *entry)
{
    leaveKillList(*this, entry);
    if (entry->prev != nullptr)
        setNext(entry->prev, entry->next);
    else if (head == entry)
        setHead(*this, entry->next);
    else
        report("Del error(head) - entry not on list", BadArgument);

    if (entry->next != nullptr) {
        setPrev(entry->next, entry->prev);
        entry->next->time += entry->time;
    } else if (tail == entry) {
        setTail(*this, entry->prev);
        totalTime -= entry->time;
    } else {
        report("Del error(tail) - entry not on list", BadArgument);
    }
    entry->zero();
    --numEntries;
    return headTime(*this);
}

unsigned int CDeltaList::touch(CDeltaListEntry *entry, unsigned int time)
{
    del(entry);
    return add(entry, time);
}

CDeltaListEntry *CDeltaList::getNext(CDeltaListEntry *entry)
{
    const Lock lock(dbID);
    if (lock.failed()) {
        report("semTake Error", Unusable);
        return nullptr;
    }
    return entry == nullptr ? head : entry->next;
}

unsigned int CDeltaList::getEntryAgeOut(CDeltaListEntry *entry)
{
    const Lock lock(dbID);
    if (lock.failed()) {
        report("semTake Error", Unusable);
        return 0;
    }
    unsigned int left = 0;
    for (; entry != nullptr; entry = entry->prev)
        left += entry->time;
    return left;
}

unsigned int CDeltaList::pop()
{
    CDeltaListEntry *entry = head;
    if (entry == nullptr)
        return 0;
    unsigned int newHeadTime = 0;
    setHead(*this, entry->next);
    if (tail == entry) {
        setTail(*this, nullptr);
    } else if (head != nullptr) {
        setPrev(head, nullptr);
        newHeadTime = head->time;
    } else {
        report("pop Error", Unusable);
    }
    --numEntries;
    totalTime -= entry->time;
    setNext(entry, nullptr);
    setPrev(entry, nullptr);
    entry->time = 0;
    appendToKillList(*this, entry);
    return newHeadTime;
}

// Kept: without an adjustment the result is the total time, not the head time
// (DeltaList.SetTailTimeWithoutAnAdjustmentReturnsTheTotalTime).
unsigned int CDeltaList::setTailTime(unsigned int newTailTime, bool adjust)
{
    const Lock lock(dbID);
    if (lock.failed()) {
        report("semTake Error", Unusable);
        return 0;
    }
    tailTime = newTailTime;
    if (!adjust || newTailTime >= totalTime)
        return totalTime;
    expire(*this, totalTime - newTailTime);
    ageKilled(*this);
    return headTime(*this);
}

unsigned int CDeltaList::tic(unsigned int ticks)
{
    const Lock lock(dbID);
    if (lock.failed()) {
        report("semTake Error", Unusable);
        return 0;
    }
    if (ticks == 0)
        ticks = ticSize;
    upTime += ticks;
    expire(*this, ticks);
    ageKilled(*this);
    return headTime(*this);
}

// Reads without the lock, for use from a debugger or with dbID held.
KEL_UNCHECKED_LOCKING void CDeltaList::printCDeltaList() const
{
    printf("name           : %s\n", name);
    printf("head pointer   : %p\n", static_cast<void *>(head));
    printf("tail pointer   : %p\n", static_cast<void *>(tail));
    printf("killHead ptr   : %p\n", static_cast<void *>(killHead));
    printf("killTail ptr   : %p\n", static_cast<void *>(killTail));
    printf("totalTime      : %u\n", totalTime);
    printf("tailTime       : %u\n", tailTime);
    printf("ticSize        : %u\n", ticSize);
    printf("numEntries     : %u\n", numEntries);
    printf("dbID (SEM_ID)  : %p\n", static_cast<void *>(dbID));
    printf("externalSem    : %c\n", externalSem ? 'Y' : 'N');
    printf("upTime         : %u\n", upTime);
    printf("astable        : %c\n", astable ? 'Y' : 'N');
}
