// ring.h: the arithmetic of a queue's ring.
//
// Slots pRead up to before pWrite are filled, around the end. Equal indices mean all or nothing, and `empty` says
// which. The three are written under the lock with writeUnlocked(), because they are also read without it.
#pragma once

#include "queues.h"

#include "vxw_shim/unlocked_access.h"

namespace queues
{
inline int nextSlot(const SBaseQ &queue, int slot)
{
    return slot + 1 >= queue.queueSize ? 0 : slot + 1;
}

inline int previousSlot(const SBaseQ &queue, int slot)
{
    return slot - 1 < 0 ? queue.queueSize - 1 : slot - 1;
}

inline bool isFull(const SBaseQ &queue)
{
    return !queue.empty && queue.pRead == queue.pWrite;
}

// Queued messages. Without the lock it is a number that was right a moment ago, from 0 to the ring's size.
inline int messageCount(const SBaseQ &queue)
{
    if (readUnlocked(queue.empty))
        return 0;
    const int read = readUnlocked(queue.pRead);
    const int write = readUnlocked(queue.pWrite);
    return write > read ? write - read : queue.queueSize - read + write;
}
} // namespace queues
