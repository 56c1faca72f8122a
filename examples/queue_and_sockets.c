/* One epoll loop serves an event queue and a socket.
 *
 * A queue has no descriptor, but it gives a semaphore of its creator, its external flag, whenever its receiver is to
 * wake: once a batch. A small relay task waits for that flag and writes an eventfd, which epoll can wait for. Receiving
 * then never waits, and goes on until there is nothing more: a batch may be many events. */
#include <queues.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

static SMultiEventQ *links;
static SEM_ID flag; /* the queue's external flag */
static SEM_ID relayEnded;
static SEM_ID watchStarts;
static int wakeUp; /* eventfd: the queue has something, or 0 is written and the relay ends */
static atomic_int relayStops;
static int toClient, clientEnd; /* a pair of sockets */

static int relay()
{
    const uint64_t one = 1;
    for (;;) {
        semTake(flag, WAIT_FOREVER);
        if (relayStops)
            break;
        if (write(wakeUp, &one, sizeof one) < 0)
            break;
    }
    semGive(relayEnded);
    return 0;
}

static int watchPorts()
{
    semTake(watchStarts, WAIT_FOREVER);
    meqSend(links, 3, 1);
    meqSend(links, 7, 1);
    meqSend(links, 3, 0);
    return 0;
}

static int client()
{
    char text[64];
    send(clientEnd, "watch", 5, 0);
    recv(clientEnd, text, sizeof text, 0); /* the answer to the batch */
    send(clientEnd, "bye", 3, 0);
    return 0;
}

static void serveQueue(void)
{
    uint64_t wakeUps;
    unsigned short port;
    unsigned int up;
    int count = 0;
    if (read(wakeUp, &wakeUps, sizeof wakeUps) < 0) /* first the eventfd, then the queue: nothing is missed */
        return;
    while (meqRecv(links, &port, &up) != -1) {
        printf("queue: port %d is %s\n", port, up ? "up" : "down");
        ++count;
    }
    if (count > 0) /* a receive that left something gave the flag again: such a wake-up finds nothing */
        send(toClient, "changed", 7, 0);
}

/* Returns 0 when the client has left. */
static int serveSocket(void)
{
    char text[64];
    const ssize_t bytes = recv(toClient, text, sizeof text, 0);
    if (bytes <= 0)
        return 0;
    printf("socket: %.*s\n", (int)bytes, text);
    if (bytes == 5 && memcmp(text, "watch", 5) == 0)
        semGive(watchStarts);
    return bytes != 3;
}

int main(void)
{
    int pair[2];
    kel_utils_init();
    flag = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    relayEnded = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    watchStarts = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    links = meqCreateX(1, 64, 0, 10, 5, flag); /* wake after 10 changes or 5 ticks */
    wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0 || wakeUp < 0 || loop < 0)
        return 1;
    toClient = pair[0];
    clientEnd = pair[1];
    taskSpawn("relay", 100, 0, 0, relay, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    taskSpawn("watcher", 100, 0, 0, watchPorts, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    taskSpawn("client", 100, 0, 0, client, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

    struct epoll_event waitFor = {.events = EPOLLIN, .data.fd = wakeUp};
    epoll_ctl(loop, EPOLL_CTL_ADD, wakeUp, &waitFor);
    waitFor.data.fd = toClient;
    epoll_ctl(loop, EPOLL_CTL_ADD, toClient, &waitFor);
    for (int going = 1; going;) {
        struct epoll_event ready;
        if (epoll_wait(loop, &ready, 1, -1) != 1)
            continue;
        if (ready.data.fd == wakeUp)
            serveQueue();
        else
            going = serveSocket();
    }

    relayStops = 1;
    semGive(flag);
    semTake(relayEnded, WAIT_FOREVER);
    meqDelete(links); /* the flag is ours: it goes after the queue */
    semDelete(flag);
    semDelete(relayEnded);
    semDelete(watchStarts);
    close(loop);
    close(wakeUp);
    close(toClient);
    close(clientEnd);
}

/* Prints:
socket: watch
queue: port 3 is down
queue: port 7 is up
socket: bye
*/
