/* Two tasks that wait for each other's lock, queues in all states, and a core file when it is asked for. */
#include <queues.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vxw_shim.h>

SEM_ID portLock;
SEM_ID vlanLock;
SEM_ID bothHold; /* counts the tasks that hold their first lock */
SEM_ID mayCross; /* lets them go for the second */
SMultiEventQ *links;
SMsgQueueX *requests;
MSG_Q_ID replies;

int takePortThenVlan()
{
    semTake(portLock, WAIT_FOREVER);
    semGive(bothHold);
    semTake(mayCross, WAIT_FOREVER);
    return semTake(vlanLock, WAIT_FOREVER);
}

int takeVlanThenPort()
{
    semTake(vlanLock, WAIT_FOREVER);
    semTake(vlanLock, WAIT_FOREVER);
    semGive(bothHold);
    semTake(mayCross, WAIT_FOREVER);
    return semTake(portLock, 20 * 60 * 100); /* 20 minutes */
}

/* Where the debugger stops: everything is as it shall be shown. */
void stuck(void)
{
    if (getenv("STUCK_ABORTS") != NULL)
        abort();
    puts("stuck");
}

int main(void)
{
    kel_utils_init();
    portLock = semMCreate(SEM_Q_PRIORITY);
    vlanLock = semMCreate(SEM_Q_PRIORITY);
    bothHold = semCCreate(SEM_Q_FIFO, 0);
    mayCross = semCCreate(SEM_Q_FIFO, 0);
    links = meqCreateX(2, 64, 0, 100, 100000, NULL);
    meqSend(links, 7, 1);
    meqSend(links, 9, 500);
    meqSend(links, 7, 2);
    requests = msgQxCreate(4, 16, 0, 0, 0, NULL);
    msgQxSend(requests, "hello", 5, 0, 0);
    replies = msgQCreate(8, 32, MSG_Q_FIFO);
    msgQSend(replies, "reply", 5, 0, MSG_PRI_NORMAL);

    taskSpawn("port", 10, 0, 0, takePortThenVlan, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    taskSpawn("vlan", 10, 0, 0, takeVlanThenPort, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    semTake(bothHold, WAIT_FOREVER);
    semTake(bothHold, WAIT_FOREVER);
    semGive(mayCross);
    semGive(mayCross);
    taskDelay(50); /* nothing tells when a thread sleeps on a lock, and the test asks again if it does not yet */
    stuck();
    return 0;
}
