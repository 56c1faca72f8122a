// change_writer.h: prints change records on a task of its own, so that a slow output never holds up events.
//
// Policy:     put() copies a record into a block of a fixed-size pool and passes the block's address over a message
//             queue; it never waits. When the output is so slow that no block is free, records are lost, counted, and
//             the loss is told in the output as soon as it takes text again.
// Locking:    the pool's and the queue's own. put() is called by one task.
// Invariants: a block is out of the pool exactly while its address is in the queue or in the writer's hands. The queue
//             has room for every block and one more, the end mark, so a send never fails for want of room.
// Cost:       put() allocates nothing.
#pragma once

#include "change_line.h"
#include "counters.h"
#include "mempool.h"
#include "queues.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

class ChangeWriter
{
public:
    static constexpr unsigned records = 2048; // that can wait for the output

    // Lines go to `descriptor`, which stays the caller's; a negative one is nowhere. kel_utils_init() has been called.
    ChangeWriter(int descriptor, Counters &counted);
    ~ChangeWriter();
    ChangeWriter(const ChangeWriter &) = delete;
    ChangeWriter &operator=(const ChangeWriter &) = delete;

    // Starts the task, whose first line is `title`.
    void start(const std::string &title);

    // Ends the task when everything is printed, or when the output takes nothing for `grace`.
    void stop(std::chrono::milliseconds grace = std::chrono::seconds(1));

    void put(const ChangeRecord &record);

    vxFixedSizeMemPool &memory()
    {
        return pool;
    }
    SMsgQueueX *queueHandle() const
    {
        return queue;
    }

private:
    void run(const std::string &title);
    void printRecord(ChangeRecord *record);
    void printText(const std::string &text);
    bool waitForRoom(); // false: give up

    int output;
    Counters &counters;
    vxFixedSizeMemPool pool;
    SMsgQueueX *queue;
    int wake; // eventfd that stop() writes
    std::atomic<bool> stopping = false;
    std::atomic<std::chrono::steady_clock::time_point> giveUpAt = std::chrono::steady_clock::time_point::max();
    bool outputGone;         // the task's
    uint64_t lossesTold = 0; // the task's
    std::thread thread;
};
