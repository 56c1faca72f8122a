// multi_event_q_c.cpp: the C entry points of the multi-event queues. Each checks the handle and calls the method.
#include "queues/type_mark.h"

namespace
{
constexpr unsigned int AllBits = 0xFFFFFFFF;
}

SMultiEventQ *meqCreateX(int width, unsigned short numEvents, int pendOption, int rxThreshold, int maxDelay,
                         SEM_ID externalFlag)
{
    if (numEvents == 0)
        return nullptr;
    switch (width) {
    case 0:
        return new SMultiEventQ(numEvents, pendOption, rxThreshold, maxDelay, externalFlag);
    case 1:
        return new SMultiEventQ8(numEvents, pendOption, rxThreshold, maxDelay, externalFlag);
    case 2:
        return new SMultiEventQ16(numEvents, pendOption, rxThreshold, maxDelay, externalFlag);
    case 4:
        return new SMultiEventQ32(numEvents, pendOption, rxThreshold, maxDelay, externalFlag);
    default:
        return nullptr;
    }
}

SMultiEventQ *meqCreate(int width, unsigned short numEvents, SEM_ID externalFlag)
{
    return meqCreateX(width, numEvents, 1, 0, 0, externalFlag);
}

void meqDelete(SMultiEventQ *queue)
{
    if (queues::isMultiEventQ(queue))
        delete queue;
}

unsigned int meqSize(SMultiEventQ *queue)
{
    return queues::isMultiEventQ(queue) ? queue->size() : 0;
}

int meqSnoop(SMultiEventQ *queue, unsigned short event, unsigned int *data)
{
    return queues::isMultiEventQ(queue) ? queue->snoop(event, *data) : -1;
}

int meqRecv(SMultiEventQ *queue, unsigned short *event, unsigned int *data)
{
    return meqRecvX(queue, event, data, 0);
}

int meqRecvX(SMultiEventQ *queue, unsigned short *event, unsigned int *data, int timeout)
{
    return queues::isMultiEventQ(queue) ? queue->recv(*event, *data, timeout) : -1;
}

int meqSend(SMultiEventQ *queue, unsigned short event, unsigned int data)
{
    return meqSendXY(queue, event, data, AllBits, AllBits, 0);
}

int meqSendY(SMultiEventQ *queue, unsigned short event, unsigned int data, int urgency)
{
    return meqSendXY(queue, event, data, AllBits, AllBits, urgency);
}

int meqSendX(SMultiEventQ *queue, unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask)
{
    return meqSendXY(queue, event, data, cmpMask, wrMask, 0);
}

int meqSendXY(SMultiEventQ *queue, unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask,
              int urgency)
{
    return queues::isMultiEventQ(queue) ? queue->send(event, data, cmpMask, wrMask, urgency) : -1;
}
