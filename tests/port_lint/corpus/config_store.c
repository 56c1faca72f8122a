/* A store that tests results as the old interface returned them. */
#include <string.h>
#include <vxw_shim.h>

#define ONE_DAY (24 * 60 * 60 * sysClkRateGet())
#define HALF_HOUR (30 * 60 * 100)

static SEM_ID storeLock;
static MSG_Q_ID requests;
static char store[64];

int storeInit(void)
{
    storeLock = semMCreate(SEM_Q_PRIORITY | SEM_DELETE_SAFE);
    requests = msgQCreate(16, 64, MSG_Q_FIFO);
    return storeLock == NULL || requests == NULL ? ERROR : OK;
}

int storeWrite(const char *text)
{
    STATUS status;
    if (semTake(storeLock, HALF_HOUR) == ERROR) /* expect: result-error */
        return ERROR;
    strncpy(store, text, sizeof store - 1);
    status = semGive(storeLock);
    if (ERROR == status) /* expect: result-error */
        return ERROR;
    if (semTake(storeLock, ONE_DAY) != OK) /* expect: long-wait */
        return ERROR;
    return semGive(storeLock) == OK ? OK : ERROR;
}

int storeServe(void)
{
    char request[64];
    if (msgQReceive(requests, request, sizeof request, WAIT_FOREVER) < 0) /* expect: receive-negative */
        return ERROR;
    if (msgQSend(requests, request, sizeof request, NO_WAIT, MSG_PRI_NORMAL) == ERROR) /* expect: send-error */
        return ERROR;
    taskDelay(500000); /* expect: long-delay */
    return storeWrite(request);
}
