/* Alarms as numbered events: each is queued at most once, with a data word in which senders change bits of their own.
 */
#include <queues.h>
#include <stdio.h>

enum { fan = 2, power = 5, alarms = 8 };                 /* event ids */
enum { slow = 0x1, stopped = 0x2, acknowledged = 0x80 }; /* bits of an alarm's word */

int main(void)
{
    kel_utils_init();
    SMultiEventQ *queue = meqCreate(1, alarms, NULL); /* one byte of data each, nothing is held back */

    meqSend(queue, power, slow);
    meqSend(queue, fan, slow);
    /* Still queued, so these are merged into it: each writes the bits of its mask alone. */
    meqSendX(queue, fan, stopped, stopped, stopped);
    /* Bits outside the compare mask are written without counting as a change. */
    meqSendX(queue, power, acknowledged, 0, acknowledged);

    unsigned int data = 0;
    const int seen = meqSnoop(queue, fan, &data);
    printf("look at %d: %d, data 0x%02x\n", fan, seen, data);

    unsigned short event;
    for (int result; (result = meqRecv(queue, &event, &data)) != -1;)
        printf("alarm %d, data 0x%02x%s\n", event, data, result == -2 ? ", changed while it was queued" : "");

    printf("no such alarm: %d\n", meqSend(queue, alarms, slow));
    meqDelete(queue);
}

/* Prints:
look at 2: -2, data 0x03
alarm 5, data 0x81
alarm 2, data 0x03, changed while it was queued
no such alarm: -1
*/
