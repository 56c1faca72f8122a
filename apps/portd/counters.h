// counters.h: what the daemon counts about itself, for `show stats`.
//
// Every counter is atomic and, the open sessions and the connection to the master agent aside, only grows.
#pragma once

#include <atomic>
#include <cstdint>

struct Counters {
    std::atomic<uint64_t> portsAdded = 0;
    std::atomic<uint64_t> portsRemoved = 0;
    std::atomic<uint64_t> portsRefused = 0; // the port map did not take them
    std::atomic<uint64_t> linkChanges = 0;
    std::atomic<uint64_t> eventsSent = 0;      // to the main task, coalesced ones included
    std::atomic<uint64_t> eventsReceived = 0;  // by the main task
    std::atomic<uint64_t> eventsCoalesced = 0; // received, and changed while they were queued
    std::atomic<uint64_t> batches = 0;
    std::atomic<uint64_t> largestBatch = 0;
    std::atomic<uint64_t> portsHeldDown = 0; // times that a flapping port was
    std::atomic<uint64_t> linesPrinted = 0;
    std::atomic<uint64_t> linesLost = 0;      // the output was too slow
    std::atomic<uint64_t> statusAnswered = 0; // requests over UDP
    std::atomic<uint64_t> statusIgnored = 0;  // datagrams that were no request
    std::atomic<uint64_t> statusFailed = 0;   // answers that could not be sent
};

struct AgentCounters {
    std::atomic<uint64_t> connected = 0; // 1 while the master agent has the tables
    std::atomic<uint64_t> sessions = 0;  // with the master agent, ever opened
    std::atomic<uint64_t> requests = 0;  // objects asked for
    std::atomic<uint64_t> notifications = 0;
};

struct ConsoleCounters {
    std::atomic<uint64_t> sessions = 0; // ever opened
    std::atomic<uint64_t> open = 0;
    std::atomic<uint64_t> refused = 0;   // too many at once, and none of them idle
    std::atomic<uint64_t> displaced = 0; // idle longest when another one came
    std::atomic<uint64_t> stalled = 0;   // closed because they took nothing
    std::atomic<uint64_t> requests = 0;
    std::atomic<uint64_t> errors = 0; // requests answered with an error
};
