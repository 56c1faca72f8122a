// daemon.h: the whole of kel-portd, from its parts.
//
//   platform's thread   Feeder -> inventory -> PortWatch -> port map's callbacks, PortBoard, FlapDamper, PortEvents
//   main task           PortEvents -> ChangeReporter -> ChangeWriter
//   writer's thread     ChangeWriter -> standard output
//   responder's thread  StatusResponder -> PortBoard, counters (with --udp)
//   agent's thread      SnmpAgent -> port map, inventory, PortBoard (with --agentx); told of changes by the main task
//   timers' thread      FlapDamper -> PortBoard, PortEvents
//   console's thread    ConsoleServer -> ConsoleCommands -> port map, inventory, PortBoard
//   signal thread       stops the main task, and has it tell the service manager that it is alive
//   tQtimer             the library's: delivers held-back wake-ups
//
// Start: everything that listens exists before the feeder starts. End: the feeder first, so that nothing new comes in.
#pragma once

#include "change_reporter.h"
#include "change_writer.h"
#include "console_commands.h"
#include "console_server.h"
#include "feeder.h"
#include "flap_damper.h"
#include "options.h"
#include "port_watch.h"
#include "service_notifier.h"
#include "snmp_agent.h"
#include "status_responder.h"
#include "uptime.h"

#include <atomic>

class Daemon
{
public:
    // SignalThread::blockSignals() and kel_utils_init() and kelSysPortUtilInit() have been called.
    Daemon(const Options &daemonOptions, Feeder &portFeeder);
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Runs until a signal, the end of its time, or a failure of the platform. Returns the exit status.
    int run();

private:
    void mainLoop();
    std::string openAll(); // returns an empty text, or what cannot be opened
    std::string statusLine() const;
    void fail(const std::string &reason); // any thread
    uint32_t ticksLeft() const;           // 0: time is over

    const Options &options;
    Feeder &feeder;
    Counters counters;
    ConsoleCounters consoleCounters;
    AgentCounters agentCounters;
    PortBoard board;
    PortEvents events;
    FlapDamper damper;
    int output; // a duplicate of standard output, which is diverted while a show function prints
    ChangeWriter writer;
    ChangeReporter reporter;
    const Uptime uptime;
    ConsoleCommands commands;
    ConsoleServer console;
    std::optional<StatusResponder> responder;
    ServiceNotifier manager;          // the main task's: while it turns its loop, the daemon is alive
    std::unique_ptr<SnmpAgent> agent; // null without --agentx
    std::atomic<bool> stopping = false;
    std::atomic<bool> hasFailed = false;
};
