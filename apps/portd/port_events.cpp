// port_events.cpp: the way of a port's change from the platform's thread to the main task.
#include "port_events.h"

#include <new>

namespace
{
constexpr int dataBytes = 4;
constexpr unsigned short eventIds = 32768; // every system port, and 0
constexpr int atOnce = 2;                  // urgency from which a wake-up is never held back
constexpr int pendByPriority = 1;
constexpr int dataChanged = -2;
} // namespace

PortEvents::PortEvents(uint32_t maxDelay, uint32_t threshold, Counters &counted)
    : flag(semBCreate(SEM_Q_PRIORITY, SEM_EMPTY)),
      queue(flag == nullptr ? nullptr
                            : meqCreateX(dataBytes, eventIds, pendByPriority, static_cast<int>(threshold),
                                         static_cast<int>(maxDelay), flag)),
      counters(counted)
{
    if (queue == nullptr)
        throw std::bad_alloc();
}

PortEvents::~PortEvents()
{
    meqDelete(queue);
    semDelete(flag);
}

void PortEvents::send(uint32_t systemPort, uint32_t word)
{
    ++counters.eventsSent;
    meqSend(queue, static_cast<unsigned short>(systemPort), word);
}

void PortEvents::wake()
{
    meqSendY(queue, 0, 0, atOnce);
}

void PortEvents::nudge()
{
    ++nudges;
    semGive(flag);
}

bool PortEvents::wait(uint32_t ticks)
{
    if (semTake(flag, ticks) != 0)
        return false;
    // The queue gives the flag again with every event that is received while others remain; all of that is one wake-up.
    uint32_t gives = 1;
    while (semTake(flag, NO_WAIT) == 0)
        ++gives;
    // A nudge that is counted and not yet given takes the place of a wake-up, and is one itself a moment later.
    return gives > nudges.exchange(0);
}

bool PortEvents::receive(Event &event)
{
    unsigned short id = 0;
    unsigned int word = 0;
    int result;
    do
        result = meqRecv(queue, &id, &word);
    while (id == 0 && (result == 0 || result == dataChanged));
    if (result != 0 && result != dataChanged)
        return false;
    ++counters.eventsReceived;
    if (result == dataChanged)
        ++counters.eventsCoalesced;
    event = {id, word, result == dataChanged};
    return true;
}
