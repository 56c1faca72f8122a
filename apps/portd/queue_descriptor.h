// queue_descriptor.h: lends queues a file descriptor, for threads that wait for sockets as well.
//
// Policy:  a queue gives its external flag when its receiver is to wake: once a batch. A relay thread waits for the
// flag
//          and writes an eventfd. Whoever finds the descriptor readable clears it first and then receives until there
//          is nothing more, so nothing is missed; a wake-up may find nothing.
// Locking: none; a semaphore and an eventfd.
#pragma once

#include "vxw_shim.h"

#include <atomic>
#include <thread>

class QueueDescriptor
{
public:
    QueueDescriptor();
    // The queues that were made with flag() are gone by now.
    ~QueueDescriptor();
    QueueDescriptor(const QueueDescriptor &) = delete;
    QueueDescriptor &operator=(const QueueDescriptor &) = delete;

    // For the creation of queues: their external flag.
    SEM_ID flag() const
    {
        return sem;
    }
    // Readable when a queue may have something.
    int descriptor() const
    {
        return event;
    }
    void clear() const;

private:
    void run() const;

    SEM_ID sem; // set once
    int event;  // set once
    std::atomic<bool> stopping = false;
    std::thread relay;
};
