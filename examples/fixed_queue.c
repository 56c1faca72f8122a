/* Two producers hand readings to one consumer over a queue of four fixed-size slots, and wait while it is full. */
#include <stdio.h>
#include <vxw_shim.h>

struct reading {
    int sensor;
    int celsius;
};

enum { readings = 100 };
static MSG_Q_ID queue; /* no call deletes a fixed-size queue; it lives until the process ends */

static void produce(int sensor)
{
    for (int i = 0; i < readings; ++i) {
        const struct reading one = {sensor, 20 + i % 10};
        msgQSend(queue, &one, sizeof one, WAIT_FOREVER, MSG_PRI_NORMAL);
    }
}

static int inlet()
{
    produce(0);
    return 0;
}
static int outlet()
{
    produce(1);
    return 0;
}

int main(void)
{
    queue = msgQCreate(4, sizeof(struct reading), MSG_Q_FIFO);
    taskSpawn("inlet", 100, 0, 0, inlet, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    taskSpawn("outlet", 100, 0, 0, outlet, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

    int count[2] = {0, 0}, sum[2] = {0, 0};
    struct reading one;
    for (int received = 0; received < 2 * readings; ++received) {
        if (msgQReceive(queue, &one, sizeof one, WAIT_FOREVER) != sizeof one)
            return 1;
        ++count[one.sensor];
        sum[one.sensor] += one.celsius;
    }
    for (int sensor = 0; sensor < 2; ++sensor)
        printf("sensor %d: %d readings, %.1f degrees\n", sensor, count[sensor], (double)sum[sensor] / count[sensor]);

    /* 0xFFFFFFFF is "nothing received"; an empty message is a message of 0 bytes. */
    printf("then %s\n", msgQReceive(queue, &one, sizeof one, NO_WAIT) == 0xFFFFFFFF ? "nothing" : "more");
    printf("too long a message is %s\n", msgQSend(queue, "0123456789", 10, NO_WAIT, 0) == 1 ? "refused" : "taken");
}

/* Prints:
sensor 0: 100 readings, 24.5 degrees
sensor 1: 100 readings, 24.5 degrees
then nothing
too long a message is refused
*/
