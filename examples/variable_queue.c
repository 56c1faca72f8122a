/* A queue of messages of any length: urgent ones go to the front, and a batch wakes its receiver once. */
#include <queues.h>
#include <stdio.h>
#include <string.h>

enum { longest = 64, toTheFront = 1, wakeAtOnce = 2 };
static SMsgQueueX *queue;

static void say(const char *text, int flags)
{
    msgQxSend(queue, text, (int)strlen(text), WAIT_FOREVER, flags);
}

static int talk()
{
    /* Held back until four messages are queued, or for 10 s: the receiver wakes once, for all four. */
    say("the first", 0);
    say("the second", 0);
    say("in front of them", toTheFront);
    say("the third", 0);
    return 0;
}

static void hear(int messages)
{
    char text[longest];
    for (int bytes; messages > 0 && (bytes = msgQxRecv(queue, text, longest, WAIT_FOREVER)) >= 0; --messages)
        printf("%2d bytes: %.*s\n", bytes, bytes, text);
}

int main(void)
{
    kel_utils_init();
    /* 16 messages; the wake-up is held back for 4 messages or 1000 ticks */
    queue = msgQxCreate(16, longest, 0, 4, 1000, NULL);
    taskSpawn("talker", 100, 0, 0, talk, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    hear(4);

    say("not held back", wakeAtOnce);
    hear(1);

    char start[4];
    say("a longer message than the buffer", wakeAtOnce);
    const int bytes = msgQxRecv(queue, start, sizeof start, NO_WAIT);
    printf("%d bytes: %.*s, and the rest is lost: %d queued\n", bytes, bytes, start, msgQxNumMsgs(queue));
    msgQxDelete(queue);
}

/* Prints:
16 bytes: in front of them
 9 bytes: the first
10 bytes: the second
 9 bytes: the third
13 bytes: not held back
4 bytes: a lo, and the rest is lost: 0 queued
*/
