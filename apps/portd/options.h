// options.h: the command line of kel-portd.
#pragma once

#include "udp_endpoint.h"

#include <cstdint>
#include <optional>
#include <string>

struct Options {
    std::string topology;             // empty: this host's interfaces
    std::optional<double> runSeconds; // without: until a signal
    uint32_t maxDelay_ticks = 20;     // of a held-back wake-up of the main task
    uint32_t threshold = 8;           // events that wake it at once
    std::string socketPath;
    bool quiet = false;
    uint32_t flapLimit = 10; // link changes in a window that are still fine; 0: any number
    uint32_t flapWindow_ticks = 1000;
    uint32_t flapHold_ticks = 500;
    std::optional<UdpEndpoint> statusEndpoint; // without: no status over UDP
    std::optional<std::string> agentMaster;    // the master agent's AgentX socket; without: no subagent
};

// Fills `options`, or returns the status to exit with (help, version, usage errors; the text has been printed).
std::optional<int> parseOptions(int argc, const char *const *argv, Options &options);
