// port_events.h: the way of a port's change from the platform's thread to the main task.
//
// A multi-event queue: the event id is the system port, the data word its state (port_state.h). A port that changes
// again while its event is queued is still one event, with its latest state. The queue holds the main task's wake-up
// back for a while so that changes that come together are handled together; enough of them wake it at once.
//
// The main task waits on the queue's external flag, which is given once a batch, when every event of the batch can be
// received. It then receives until there is no more, so it never sees a half-delivered batch.
//
// Event 0 is no system port: it tells the main task that something else wants it, at once.
#pragma once

#include "counters.h"
#include "queues.h"

#include <atomic>

class PortEvents
{
public:
    // Ticks, and the number of queued events that are not held back. kel_utils_init() has been called.
    PortEvents(uint32_t maxDelay, uint32_t threshold, Counters &counted);
    ~PortEvents();
    PortEvents(const PortEvents &) = delete;
    PortEvents &operator=(const PortEvents &) = delete;

    // A system port's state. Any thread; never waits for the main task.
    void send(uint32_t systemPort, uint32_t word);

    // Wakes the main task now. Any thread.
    void wake();

    // Has wait() return, and leaves alone what is held back. Any thread.
    void nudge();

    // Waits at most `ticks` for a batch, or a wake-up. False: neither came, or only a nudge. The main task only.
    bool wait(uint32_t ticks);

    struct Event {
        uint32_t systemPort;
        uint32_t word;
        bool coalesced; // its state changed while it was queued
    };
    // Receives the oldest event; false when there is none. Fetches what is held back, too. The main task only.
    bool receive(Event &event);

    SMultiEventQ *handle() const
    {
        return queue;
    }

private:
    SEM_ID flag;                      // the queue's external flag; set once
    std::atomic<uint32_t> nudges = 0; // gives of the flag, done or just to come, that are no wake-ups
    SMultiEventQ *queue;
    Counters &counters;
};
