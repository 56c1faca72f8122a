/* A poller in the old manner: it relies on task arguments, priorities and identifiers. */
#include <stdio.h>
#include <vxw_shim.h>

#define POLL_PRIORITY 100
#define REPORT_PRIORITY 50

static int pollers;

static int poll(int slot)
{
    pollers += slot;
    return slot;
}

static int report()
{
    printf("%d pollers\n", pollers);
    return 0;
}

int startAlarms(int slots)
{
    int id;
    int slot;
    for (slot = 1; slot <= slots; ++slot) {
        id = taskSpawn("tPoll", POLL_PRIORITY, 0, 8192, (FUNCPTR)poll, slot, 0, 0, 0, 0, 0, 0, 0, 0, 0); /* expect: task-arguments task-priority */
        if (id == ERROR) /* expect: task-identifier */
            return ERROR;
    }
    if (taskSpawn("tReport", REPORT_PRIORITY, 0, 8192, report, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) < 0) /* expect: task-identifier task-priority */
        return ERROR;
    return OK;
}
