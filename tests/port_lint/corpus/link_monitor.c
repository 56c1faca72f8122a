/* A monitor that gives a binary semaphore as if it were capped, and catches signals. */
#include <signal.h>
#include <string.h>
#include <vxw_shim.h>

static SEM_ID changed;
static SEM_ID counted;
static volatile sig_atomic_t stop;

static void onSignal(int number)
{
    stop = number;
}

int monitorInit(void)
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = onSignal;
    sigaction(SIGTERM, &action, NULL); /* expect: signal-restart */
    changed = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    counted = semCCreate(SEM_Q_FIFO, 0);
    return 0;
}

void linkUp(void)
{
    semGive(changed);
    semGive(counted);
    semGive(counted);
    semGive(changed); /* expect: binary-given-twice */
}

void allLinksDown(int links)
{
    while (links-- > 0) {
        semGive(changed); /* expect: binary-given-twice */
    }
}

int monitor(void)
{
    while (!stop) {
        semTake(changed, 100);
    }
    return 0;
}
