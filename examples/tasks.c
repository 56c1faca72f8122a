/* Tasks are threads that nobody joins; ticks of 10 ms count on the monotonic clock. */
#include <stdio.h>
#include <vxw_shim.h>

static SEM_ID beat;

/* The numbers behind the entry routine in taskSpawn() are ignored: a task finds its work in data of its own. */
static const unsigned int period_ticks = 3;

static int heart()
{
    for (int count = 0; count < 4; ++count) {
        taskDelay(period_ticks);
        semGive(beat);
    }
    return 0; /* the task ends; its result goes nowhere */
}

int main(void)
{
    beat = semCCreate(SEM_Q_FIFO, 0);
    printf("%d ticks are a second\n", sysClkRateGet());
    const uint32_t start = tickGet();
    if (taskSpawn("heart", 100, 0, 0, heart, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) != OK) {
        puts("no thread to be had");
        return 1;
    }
    for (int count = 1; count <= 4; ++count) {
        semTake(beat, WAIT_FOREVER);
        /* Unsigned, so that the difference is right when the clock wraps, and one tick less: it started within one. */
        const uint32_t elapsed = tickGet() - start;
        printf("beat %d %s\n", count, elapsed + 1 >= (unsigned)count * period_ticks ? "in time" : "too early");
    }
    semDelete(beat);
}

/* Prints:
100 ticks are a second
beat 1 in time
beat 2 in time
beat 3 in time
beat 4 in time
*/
