/* Lines for a management session, collected in a buffer of the caller: few writes, and the same code for the console.
 */
#include <stdio.h>
#include <vxw_shim.h>

enum { console = 0 }; /* any other number is a session of the platform's command line */

static void showPorts(int session)
{
    char buffer[80] = "";
    char *cursor = buffer;
    size_t room = sizeof buffer;
    for (int port = 1; port <= 6; ++port) /* a full buffer is sent before the text that would not fit */
        dbgCliPrint(buffer, sizeof buffer, &cursor, &room, session, "port %d: %s\n", port, port % 2 ? "up" : "down");
    if (room < sizeof buffer)
        fputs(buffer, stdout); /* what is left; to another session it would go through cmNotifyCLI() */
}

int main(void)
{
    showPorts(console);
}

/* Prints:
port 1: up
port 2: down
port 3: up
port 4: down
port 5: up
port 6: down
*/
