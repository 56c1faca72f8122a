// snmp_agent.h: the daemon as an AgentX subagent (RFC 2741) of the host's SNMP agent.
//
// It serves the tables of port_tables.h and sends a notification for each port that changed.
//
// Policy:  net-snmp's agent library is not made for threads, so one thread owns it: nothing of it is called on another.
//          Others reach that thread over a multi-event queue: the event is the system port that changed, so a port that
//          changes again before its notification is sent is told once, with its latest state; event 0 means stop. A
//          master agent that is not there, or goes away, is tried again every few seconds.
// Locking: none of its own.
#pragma once

#include "counters.h"
#include "port_board.h"

#include <cstdint>
#include <memory>
#include <string>

class SnmpAgent
{
public:
    // False when the build had no net-snmp.
    static bool isAvailable();

    // `master` is the master agent's AgentX socket: a path, or "tcp:ADDRESS:PORT". kel_utils_init() has been called,
    // and no other thread of the process reads the environment yet. Null when not available. A process makes one at
    // most.
    static std::unique_ptr<SnmpAgent> forMaster(const std::string &master, const PortBoard &board,
                                                AgentCounters &counted);

    virtual ~SnmpAgent() = default;

    virtual void start() = 0;
    virtual void stop() = 0; // harmless when not started

    // Any thread, before stop(); never waits.
    virtual void portChanged(uint32_t systemPort) = 0;
};
