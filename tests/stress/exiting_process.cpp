// exiting_process: a process that ends while the timer task and eight tasks of its own are at work. Run many times by
// process_exit_test, with how it ends and how many microseconds it works before it does.
#include "mempool.h"
#include "queues.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace
{
constexpr int Tasks = 8;
constexpr auto Forever = static_cast<unsigned int>(WAIT_FOREVER);

SEM_ID atWork;
SEM_ID shared;
MSG_Q_ID fixed;
SMsgQueueX *messages;
SMultiEventQ *events;
vxFixedSizeMemPool *pool;

// Runs `round` for the life of the process, and says when it has run once.
template <class Round>
int work(Round round)
{
    round();
    semGive(atWork);
    for (;;)
        round();
}

int sendFixed(...)
{
    return work([] { msgQSend(fixed, "m", 1, Forever, 0); });
}

int receiveFixed(...)
{
    return work([] {
        char byte;
        msgQReceive(fixed, &byte, 1, 1);
    });
}

int sendMessages(...)
{
    return work([] { msgQxSend(messages, "m", 1, WAIT_FOREVER, 0); });
}

int receiveMessages(...)
{
    return work([] {
        char byte;
        msgQxRecv(messages, &byte, 1, 1);
    });
}

int sendEvents(...)
{
    return work([] { meqSend(events, static_cast<unsigned short>(tickGet() % 4), tickGet()); });
}

int receiveEvents(...)
{
    return work([] {
        unsigned short event;
        unsigned int data;
        meqRecvX(events, &event, &data, 1);
    });
}

int useBlocks(...)
{
    return work([] {
        if (void *block = pool->vxAlloc(1))
            pool->vxFree(block);
    });
}

int takeAndGive(...)
{
    return work([] {
        semTake(shared, Forever);
        semGive(shared);
    });
}

void spinFor(long microseconds)
{
    const auto now = [] {
        timespec time;
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * 1000000 + time.tv_nsec / 1000;
    };
    for (const long end = now() + microseconds; now() < end;) {
    }
}
} // namespace

int main(int, char **argv)
{
    atWork = semCCreate(0, 0);
    shared = semMCreate(0);
    fixed = msgQCreate(4, 8, 0);
    if (kel_utils_init() != 0)
        return 3;
    messages = msgQxCreate(4, 8, 0, 2, 1, nullptr);
    events = meqCreateX(4, 4, 0, 3, 1, nullptr);
    pool = new vxFixedSizeMemPool(16, 1);
    const FUNCPTR entries[Tasks] = {sendFixed,  receiveFixed,  sendMessages, receiveMessages,
                                    sendEvents, receiveEvents, useBlocks,    takeAndGive};
    for (const FUNCPTR entry : entries)
        if (taskSpawn("worker", 100, 0, 0, entry, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) != 0)
            return 3;
    for (int i = 0; i < Tasks; ++i)
        semTake(atWork, Forever);
    spinFor(atol(argv[2]));
    if (strcmp(argv[1], "exit") == 0)
        exit(0);
    if (strcmp(argv[1], "_exit") == 0)
        _exit(0);
    if (strcmp(argv[1], "abort") == 0)
        abort();
    return 0;
}
