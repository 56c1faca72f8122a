// signalling.h: how a sender wakes the receiver, and how the receiver takes the wake-up.
//
// Invariant: every queued message is one give of the queue's counting semaphore: given, or held back in delayedGives.
#pragma once

#include "queues.h"

#include "queues/ring.h"
#include "vxw_shim/tick_deadline.h"

#include <errno.h>

namespace queues
{
// Gives a batch: `gives` messages, and once for all of them the external flag. The handles are passed by value, because
// the receiver may delete the queue as soon as it has the last of them.
inline void giveBatch(SEM_ID cflag, SEM_ID externalFlag, int gives)
{
    for (int given = 0; given < gives; ++given)
        semGive(cflag);
    if (externalFlag != nullptr)
        semGive(externalFlag);
}

// Signals one message that was just queued: holds its give back if the queue does that and still lacks messages, else
// gives it with all that was held back.
inline void signalSent(SBaseQ &queue, bool atOnce)
{
    constexpr int fromSender = 1;
    if (queue.maxDelay != 0 && !atOnce && queue.rxThreshold > messageCount(queue)) {
        queue.age_start(fromSender);
        return;
    }
    queue.age_stop(fromSender);
    giveBatch(queue.cflag, queue.externalFlag, 1);
}

// Takes the give of one message. A receiver that finds none takes what is held back; one with an external flag has
// waited on that already and does not wait here. Any result but 0 is a failed take.
inline bool takeGive(SBaseQ &queue, int timeout, const char *className)
{
    constexpr int fromReceiver = 2;
    const bool mayWait = queue.externalFlag == nullptr;
    const auto ticks = static_cast<uint32_t>(timeout);
    if (semTake(queue.cflag, mayWait ? ticks : 0) == 0)
        return true;
    if (mayWait && ticks == vxw_shim::WaitForever) {
        logEarly(2, 4, "%s::recv semTake failure (%p,%d,%u)", className, static_cast<void *>(queue.cflag), timeout,
                 static_cast<unsigned>(errno));
        return false;
    }
    queue.age_stop(fromReceiver);
    return semTake(queue.cflag, 0) == 0;
}
} // namespace queues
