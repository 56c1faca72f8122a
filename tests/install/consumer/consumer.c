/* A C program that knows nothing but the installed library. Prints what a queue and a mutual exclusion did. */
#include <queues.h>
#include <stdio.h>
#include <vxw_shim.h>

static SEM_ID both;
static SMultiEventQ *events;

static int sendFromATask()
{
    semTake(both, (unsigned int)WAIT_FOREVER);
    meqSend(events, 5, 17);
    semGive(both);
    return 0;
}

int main(void)
{
    unsigned short event = 0;
    unsigned int data = 0;

    if (kel_utils_init() != 0)
        return 1;
    both = semMCreate(SEM_Q_FIFO);
    events = meqCreate(4, 64, NULL); /* 64 events with 4 bytes each */
    if (both == NULL || events == NULL)
        return 1;
    if (taskSpawn("sender", 100, 0, 0, sendFromATask, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) != OK)
        return 1;
    if (meqRecvX(events, &event, &data, 6000) != 0)
        return 1;
    printf("C: event %d says %u\n", event, data);
    return 0;
}
