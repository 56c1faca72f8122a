// msg_queue_x_c.cpp: the C entry points of the variable-length queue. Each checks the handle and calls the method.
#include "queues/ring.h"
#include "queues/type_mark.h"

#include <algorithm>

SMsgQueueX *msgQxCreate(int maxMsgs, int maxMsgLength, int pendOption, int rxThreshold, int maxDelay,
                        SEM_ID externalFlag)
{
    return msgQxCreateX(maxMsgs, maxMsgLength, pendOption, rxThreshold, maxMsgs, maxDelay, externalFlag);
}

SMsgQueueX *msgQxCreateX(int maxMsgs, int maxMsgLength, int pendOption, int rxThreshold, int txThreshold, int maxDelay,
                         SEM_ID externalFlag)
{
    if (maxMsgs < 1 || maxMsgLength <= 0 || rxThreshold < 0 || rxThreshold > maxMsgs || txThreshold < 0 || maxDelay < 0)
        return nullptr;
    return new SMsgQueueX(maxMsgs, maxMsgLength, pendOption, rxThreshold, std::min(maxMsgs, txThreshold), maxDelay,
                          externalFlag);
}

void msgQxDelete(SMsgQueueX *queue)
{
    if (queues::isMsgQueueX(queue))
        delete queue;
}

int msgQxNumMsgs(SMsgQueueX *queue)
{
    return queues::isMsgQueueX(queue) ? queues::messageCount(*queue) : 0;
}

unsigned int msgQxSize(SMsgQueueX *queue)
{
    return queues::isMsgQueueX(queue) ? queue->size() : 0;
}

int msgQxSend(SMsgQueueX *queue, const char *msg, int len, int timeout, int flags)
{
    return queues::isMsgQueueX(queue) ? queue->send(msg, len, timeout, flags) : -1;
}

int msgQxRecv(SMsgQueueX *queue, char *buf, int maxLen, int timeout)
{
    return queues::isMsgQueueX(queue) ? queue->recv(buf, maxLen, timeout) : -1;
}
