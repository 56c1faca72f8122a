// delta_list_smart_entry.cpp: a timer that knows which list it is on.
//
// Locking:    the entry's semaphore, which is the dbID of every list that the entry goes on. `list` is also read before
//             locking (del), so it is written with atomic stores.
// Invariants: getList() is null exactly when the entry is free; it still names the list while the entry waits for its
//             aged() call.
#include "deltalist.h"

#include "deltalist/delta_list_lock.h"
#include "vxw_shim/unlocked_access.h"

// The annotations cannot know that getSem() is the dbID of the lists.
KEL_UNCHECKED_LOCKING unsigned int CDeltaListSmartEntryBase::add(CDeltaList *list, unsigned int delay)
{
    if (list == nullptr) {
        deltalist::report("CDeltaListSmartEntry::add,no list", 0);
        return 0;
    }
    const deltalist::Lock lock(getSem());
    if (lock.failed())
        return 0;
    if (CDeltaList *current = getList())
        current->internalDel(this);
    const unsigned int headTime = list->internalAdd(this, delay);
    setList(list);
    return headTime;
}

KEL_UNCHECKED_LOCKING unsigned int CDeltaListSmartEntryBase::del()
{
    const deltalist::Lock lock(getSem());
    if (lock.failed())
        return 0;
    CDeltaList *current = getList();
    return current == nullptr ? 0 : current->internalDel(this);
}

unsigned int CDeltaListSmartEntryBase::del(CDeltaList *list)
{
    if (getList() != list) {
        deltalist::report("CDeltaListSmartEntry::del,no list", 0);
        return 0;
    }
    return del();
}

void CDeltaListSmartEntryBase::zero()
{
    CDeltaListEntry::zero();
    setList(nullptr);
}

unsigned int CDeltaListSmartEntryBase::getEntryAgeOut()
{
    const deltalist::Lock lock(getSem());
    if (lock.failed())
        return 0;
    CDeltaList *current = getList();
    return current == nullptr ? 0 : current->getEntryAgeOut(this);
}

void CDeltaListSmartEntryBase::printCDeltaListSmartEntryBase()
{
    printCDeltaListEntry();
    CDeltaList *current = getList();
    if (current != nullptr)
        printf("list name      : %s\n", current->name);
    printf("list pointer   : %p\n", static_cast<void *>(current));
    printf("sem (SEM_ID)   : %p\n", static_cast<void *>(getSem()));
}

CDeltaList *CDeltaListSmartEntry::getList()
{
    return readUnlocked(list);
}

SEM_ID CDeltaListSmartEntry::getSem()
{
    return sem;
}

void CDeltaListSmartEntry::setList(CDeltaList *newList)
{
    writeUnlocked(list, newList);
}
