// delta_list_entry.cpp: a plain timer, which has to be told which list it is on.
//
// Locking: add and del take the list's dbID; the list itself does the linking. The links are also read before locking
//          (CDeltaList::add), so they are written with atomic stores.
#include "deltalist.h"

#include "deltalist/delta_list_lock.h"
#include "vxw_shim/unlocked_access.h"

const char *CDeltaListEntry::name = "";

CDeltaListEntry::~CDeltaListEntry() = default;

unsigned int CDeltaListEntry::add(CDeltaList *list, unsigned int delay)
{
    if (list == nullptr) {
        deltalist::report("CDeltaListEntry::add,no list", 0);
        return 0;
    }
    const deltalist::Lock lock(list->dbID);
    return lock.failed() ? 0 : list->internalAdd(this, delay);
}

unsigned int CDeltaListEntry::del(CDeltaList *list)
{
    if (list == nullptr) {
        deltalist::report("CDeltaListEntry::del,no list", 0);
        return 0;
    }
    const deltalist::Lock lock(list->dbID);
    return lock.failed() ? 0 : list->internalDel(this);
}

void CDeltaListEntry::aged() {}

void CDeltaListEntry::zero()
{
    writeUnlocked(next, nullptr);
    writeUnlocked(prev, nullptr);
    time = 0;
}

void CDeltaListEntry::printCDeltaListEntry()
{
    printf("next pointer   : %p\n", static_cast<void *>(next));
    printf("prev pointer   : %p\n", static_cast<void *>(prev));
    printf("time (delta)   : %u\n", time);
}
