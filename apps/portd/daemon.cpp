// daemon.cpp: the whole of kel-portd, from its parts.
#include "daemon.h"

#include "signal_thread.h"
#include "sysport.h"

#include <cstdio>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <unistd.h>

namespace
{
constexpr int failed = 1;
constexpr uint32_t longestWait_ticks = 6000; // the tick conversion of the waits wraps after 35 minutes
} // namespace

Daemon::Daemon(const Options &daemonOptions, Feeder &portFeeder)
    : options(daemonOptions), feeder(portFeeder), events(options.maxDelay_ticks, options.threshold, counters),
      damper({options.flapLimit, options.flapWindow_ticks, options.flapHold_ticks},
             [this](uint32_t systemPort) {
                 if (const auto word = board.heldDown(systemPort, false))
                     events.send(systemPort, *word);
             }),
      output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)), writer(output, counters),
      reporter(events, board, counters,
               [this](const ChangeRecord &record) {
                   if (!options.quiet)
                       writer.put(record);
                   if (agent)
                       agent->portChanged(record.systemPort);
               }),
      commands({board, counters, damper, events, writer, consoleCounters, agentCounters, uptime}),
      console(
          options.socketPath, [this](const std::string &request) { return commands.execute(request); },
          consoleCounters),
      manager(ServiceNotifier::fromEnvironment())
{
    if (options.statusEndpoint)
        responder.emplace(
            *options.statusEndpoint, [this] { return statusLine(); }, counters);
    if (options.agentMaster)
        agent = SnmpAgent::forMaster(*options.agentMaster, board, agentCounters);
}

Daemon::~Daemon()
{
    writer.stop();
    close(output);
    delete kelSysPortUtil::localPtr;
}

void Daemon::fail(const std::string &reason)
{
    fprintf(stderr, "kel-portd: %s\n", reason.c_str());
    hasFailed = true;
    stopping = true;
    events.wake();
}

std::string Daemon::openAll()
{
    std::string reason = console.open();
    if (reason.empty() && responder)
        reason = responder->open();
    return reason;
}

std::string Daemon::statusLine() const
{
    const nlohmann::ordered_json status = {{"name", "kel-portd"},
                                           {"version", KEL_VERSION},
                                           {"uptimeSeconds", uptime.seconds()},
                                           {"portsPresent", board.portsPresent()},
                                           {"portsUp", board.portsUp()},
                                           {"linkChanges", counters.linkChanges.load()},
                                           {"linesLost", counters.linesLost.load()}};
    return status.dump();
}

int Daemon::run()
{
    if (const std::string reason = openAll(); !reason.empty()) {
        fail(reason);
        return failed;
    }
    SignalThread signals(
        [this](int) {
            stopping = true;
            events.wake();
        },
        manager.watchdogPeriod(), [this] { events.nudge(); });
    PortWatch watch(board, damper, events, counters);
    writer.start(options.quiet ? "" : changeTitleLine());
    console.start();
    if (responder)
        responder->start();
    if (agent)
        agent->start();
    try {
        feeder.start([this](const std::string &reason) { fail(reason); });
    } catch (const std::runtime_error &error) {
        fail(error.what());
    }
    if (!stopping)
        manager.ready();
    mainLoop();
    manager.stopping();
    feeder.stop();
    while (reporter.reportBatch() > 0) // what is still queued
        continue;
    console.stop();
    if (responder)
        responder->stop();
    if (agent)
        agent->stop();
    writer.stop();
    return hasFailed ? failed : 0;
}

uint32_t Daemon::ticksLeft() const
{
    return options.runSeconds ? uptime.ticksLeft(*options.runSeconds, longestWait_ticks) : longestWait_ticks;
}

void Daemon::mainLoop()
{
    for (uint32_t ticks = ticksLeft(); !stopping && ticks != 0; ticks = ticksLeft()) {
        if (events.wait(ticks))
            reporter.reportBatch();
        manager.alive();
    }
}
