// delta_list_links.h: how entries hang together: the arithmetic of deltas, without locks, clocks or callbacks.
//
// Locking:    the caller holds dbID. head, tail and an entry's links are also read without it (CDeltaList::add), so
//             they are written with atomic stores only.
// Invariants: an entry's expiry, counted from now, is the sum of the deltas from the head to it. Linking and
//             unlinking change nobody else's expiry. totalTime is the expiry of the tail.
#pragma once

#include "deltalist.h"

#include "vxw_shim/unlocked_access.h"

namespace deltalist
{
inline constexpr unsigned int Longest = 0xFFFFFFFF;

inline void setHead(CDeltaList &list, CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    writeUnlocked(list.head, entry);
}

inline void setTail(CDeltaList &list, CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    writeUnlocked(list.tail, entry);
}

inline void setNext(CDeltaListEntry *entry, CDeltaListEntry *next)
{
    writeUnlocked(entry->next, next);
}

inline void setPrev(CDeltaListEntry *entry, CDeltaListEntry *prev)
{
    writeUnlocked(entry->prev, prev);
}

// Links `entry` in front of all others.
inline void linkAsHead(CDeltaList &list, CDeltaListEntry *entry, unsigned int time) KEL_REQUIRES(list.dbID)
{
    CDeltaListEntry *follower = list.head;
    if (follower != nullptr) {
        follower->time -= time;
        setPrev(follower, entry);
    }
    setNext(entry, follower);
    entry->time = time;
    setHead(list, entry);
    if (list.tail == nullptr) {
        setTail(list, entry);
        list.totalTime += time;
    }
}

// Links `entry` behind `before`, to expire `delta` after it. What follows keeps its expiry.
inline void linkAfter(CDeltaList &list, CDeltaListEntry *before, CDeltaListEntry *entry, unsigned int delta)
    KEL_REQUIRES(list.dbID)
{
    CDeltaListEntry *follower = before->next;
    setPrev(entry, before);
    setNext(entry, follower);
    entry->time = delta;
    setNext(before, entry);
    if (follower != nullptr) {
        follower->time -= delta;
        setPrev(follower, entry);
    }
    if (list.tail == before) {
        setTail(list, entry);
        list.totalTime += delta;
    }
}

// The last entry that expires together with `entry`.
inline CDeltaListEntry *lastDueWith(CDeltaListEntry *entry)
{
    while (entry->next != nullptr && entry->next->time == 0)
        entry = entry->next;
    return entry;
}

// Links `entry` behind the last entry that expires no later than `time`.
inline void insertByExpiry(CDeltaList &list, CDeltaListEntry *entry, unsigned int time) KEL_REQUIRES(list.dbID)
{
    CDeltaListEntry *before = list.tail;
    unsigned int expiry = list.totalTime; // of `before`, counted from now
    while (before != nullptr && expiry > time) {
        expiry -= before->time;
        before = before->prev;
    }
    if (before == nullptr)
        linkAsHead(list, entry, time);
    else
        linkAfter(list, lastDueWith(before), entry, time - expiry);
}

// Links `entry` last, at the longest time there is.
inline void appendAtLongest(CDeltaList &list, CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    if (list.tail == nullptr)
        linkAsHead(list, entry, Longest);
    else
        linkAfter(list, lastDueWith(list.tail), entry, Longest - list.totalTime);
}

// Links `entry` last, at the tail time, without a search.
//
// Kept: with a tail time of 0 on a list that holds time the delta wraps and the total drops to 0, which is what such an
// add has always done (DeltaList.TimeZeroAddWithoutATailTimeWrapsTheDeltaAndDropsTheTotal).
inline void appendAtTailTime(CDeltaList &list, CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    CDeltaListEntry *before = list.tail;
    if (before == nullptr)
        setHead(list, entry);
    else
        setNext(before, entry);
    setPrev(entry, before);
    entry->time = list.tailTime - list.totalTime;
    setTail(list, entry);
    list.totalTime = list.tailTime;
}

// An entry that waits for its aged() call leaves the kill list when a client, against the rules, deletes or adds it:
// its owner may release it next. Its neighbours are linked together by the caller.
inline void leaveKillList(CDeltaList &list, const CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    if (list.killHead == entry)
        list.killHead = entry->next;
    if (list.killTail == entry)
        list.killTail = entry->prev;
}

inline void appendToKillList(CDeltaList &list, CDeltaListEntry *entry) KEL_REQUIRES(list.dbID)
{
    if (list.killTail == nullptr) {
        list.killHead = entry;
    } else {
        setNext(list.killTail, entry);
        setPrev(entry, list.killTail);
    }
    list.killTail = entry;
}

inline CDeltaListEntry *takeFromKillList(CDeltaList &list) KEL_REQUIRES(list.dbID)
{
    CDeltaListEntry *entry = list.killHead;
    list.killHead = entry->next;
    if (list.killHead == nullptr)
        list.killTail = nullptr;
    else
        setPrev(list.killHead, nullptr);
    return entry;
}

// Atomic stores throughout: the destructor calls this too, and plain stores there would be dropped as dead.
inline void forgetEntries(CDeltaList &list) KEL_REQUIRES(list.dbID)
{
    setHead(list, nullptr);
    setTail(list, nullptr);
    writeUnlocked(list.killHead, nullptr);
    writeUnlocked(list.killTail, nullptr);
    writeUnlocked(list.totalTime, 0);
    writeUnlocked(list.numEntries, 0);
}
} // namespace deltalist
