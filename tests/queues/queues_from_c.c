/* queues_from_c.c: a C client of the queues, which knows them by handle only. */
#include <queues.h>

#include <string.h>

int firstWrongAnswerFromC(void);

static int firstWrongAnswerOfEvents(SMultiEventQ *queue)
{
    unsigned short event = 0;
    unsigned int data = 0;
    if (queue == NULL || meqSize(queue) == 0)
        return 1;
    if (meqSend(queue, 2, 7) != OK || meqSendX(queue, 2, 8, 0xFF, 0xFF) != OK || meqSendY(queue, 1, 9, 2) != OK ||
        meqSendXY(queue, 0, 10, 0xFF, 0xFF, 2) != OK)
        return 2;
    if (meqSnoop(queue, 2, &data) != -2 || data != 8)
        return 3;
    if (meqRecv(queue, &event, &data) != -2 || event != 2 || data != 8)
        return 4;
    if (meqRecvX(queue, &event, &data, WAIT_FOREVER) != OK || event != 1 || data != 9)
        return 5;
    return 0;
}

static int firstWrongAnswerOfMessages(SMsgQueueX *queue)
{
    char text[8] = "";
    if (queue == NULL || msgQxSize(queue) == 0)
        return 11;
    if (msgQxSend(queue, "hello", 6, WAIT_FOREVER, 0) != OK || msgQxNumMsgs(queue) != 1)
        return 12;
    if (msgQxRecv(queue, text, sizeof text, NO_WAIT) != 6 || strcmp(text, "hello") != 0)
        return 13;
    return 0;
}

int firstWrongAnswerFromC(void)
{
    SMultiEventQ *events = meqCreate(1, 3, NULL);
    SMsgQueueX *messages = msgQxCreate(3, 8, SEM_Q_FIFO, 0, 0, NULL);
    int wrong = firstWrongAnswerOfEvents(events);
    if (wrong == 0)
        wrong = firstWrongAnswerOfMessages(messages);
    meqDelete(events);
    msgQxDelete(messages);
    return wrong;
}
