/* The same habits, ported: nothing is to be found here. "semTake(x, 999999) == ERROR" in a text is no call. */
#include <signal.h>
#include <string.h>
#include <vxw_shim.h>

#define TEN_MINUTES (10 * 60 * 100)

static SEM_ID ready;
static SEM_ID lock;
static int slotToPoll;
static MSG_Q_ID answers;

static void onSignal(int number)
{
    (void)number;
}

static int poll()
{
    return slotToPoll;
}

int start(int slot)
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGHUP, &action, NULL);
    ready = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    lock = semMCreate(0);
    slotToPoll = slot;
    return taskSpawn("tPoll", 100, 0, 0, poll, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) == OK ? OK : ERROR;
}

int turn(void)
{
    unsigned int got = 0;
    int rounds;
    for (rounds = 0; rounds < 3; ++rounds) {
        semGive(ready);
        got += semTake(ready, TEN_MINUTES) == OK;
    }
    semGive(ready);
    semTake(ready, WAIT_FOREVER);
    semGive(ready);
    if (semTake(lock, NO_WAIT) != OK)
        return ERROR;
    /* kel-port-lint: binary-given-twice is meant */
    semGive(ready);
    if ((int)msgQReceive(answers, &rounds, sizeof rounds, 0) < 0)
        return ERROR;
    return semGive(lock) == OK ? (int)got : ERROR;
}
