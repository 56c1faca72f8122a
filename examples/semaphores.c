/* A mutual-exclusion semaphore guards a sum, a binary one says that work is done, a counting one counts seats. */
#include <errno.h>
#include <stdio.h>
#include <vxw_shim.h>

enum { workers = 3 };
static SEM_ID sumLock; /* guards sum; recursive: whoever holds it may take it again */
static SEM_ID done;    /* one give from each worker: a binary semaphore is not capped at 1 */
static int sum;

static void add(int number)
{
    semTake(sumLock, WAIT_FOREVER);
    sum += number;
    semGive(sumLock);
}

static int addToAHundred()
{
    semTake(sumLock, WAIT_FOREVER);
    for (int number = 1; number <= 100; ++number)
        add(number);
    semGive(sumLock);
    semGive(done);
    return 0;
}

int main(void)
{
    sumLock = semMCreate(SEM_Q_PRIORITY);
    done = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    for (int worker = 0; worker < workers; ++worker)
        taskSpawn("worker", 100, 0, 0, addToAHundred, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    for (int worker = 0; worker < workers; ++worker)
        semTake(done, WAIT_FOREVER);
    printf("the sum is %d\n", sum);

    /* Results are 0 or an errno value, never ERROR (-1). */
    printf("nobody gives any more: %s\n", semTake(done, 5) == ETIMEDOUT ? "timed out after 50 ms" : "taken");

    SEM_ID seats = semCCreate(SEM_Q_FIFO, 2);
    for (int guest = 1; guest <= 3; ++guest)
        printf("guest %d %s\n", guest, semTake(seats, NO_WAIT) == 0 ? "sits" : "finds no seat");

    semDelete(seats);
    semDelete(done);
    semDelete(sumLock);
}

/* Prints:
the sum is 15150
nobody gives any more: timed out after 50 ms
guest 1 sits
guest 2 sits
guest 3 finds no seat
*/
