/* One task reports link changes, another is woken for the whole batch half a second later. */
#include <queues.h>
#include <stdio.h>
#include <vxw_shim.h>

static SMultiEventQ *links;

static int watchPorts()
{
    meqSend(links, 3, 1);
    meqSend(links, 7, 1);
    meqSend(links, 3, 0); /* port 3 went down again before anybody looked */
    return 0;
}

int main(void)
{
    kel_utils_init();
    links = meqCreateX(1, 64, 0, 10, 50, NULL); /* 64 ports, 8 bits each; wake after 10 changes or 50 ticks */
    taskSpawn("watcher", 100, 0, 0, watchPorts, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

    unsigned short port;
    unsigned int up;
    for (int result; (result = meqRecvX(links, &port, &up, 100)) != -1;)
        printf("port %d is %s%s\n", port, up ? "up" : "down", result == -2 ? ", and changed while it waited" : "");
    meqDelete(links);
}

/* Prints:
port 3 is down, and changed while it waited
port 7 is up
*/
