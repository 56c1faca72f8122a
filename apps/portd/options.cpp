// options.cpp: the command line of kel-portd.
#include "options.h"

#include "console_protocol.h"
#include "snmp_agent.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>

namespace
{
constexpr int usageError = 2;
constexpr const char *usualMaster = "/var/agentx/master"; // where Debian's SNMP agent listens
} // namespace

std::optional<int> parseOptions(int argc, const char *const *argv, Options &options)
{
    CLI::App app{"Watches the ports of this host, or of a simulated chassis, and prints their changes in batches."};
    app.name("kel-portd");
    app.set_version_flag("--version", "kel-portd " KEL_VERSION);
    options.socketPath = defaultSocketPath();
    app.add_option("--topology", options.topology, "simulate the chassis described in this JSON file")
        ->type_name("FILE");
    app.add_option("--for", options.runSeconds, "end by itself after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 31'536'000.0))
        ->check([](const std::string &text) { // no range keeps that one out
            return std::isnan(std::strtod(text.c_str(), nullptr)) ? "must be a number, is " + text : "";
        });
    app.add_option("--max-delay", options.maxDelay_ticks, "hold changes back this long to batch them; 0 does not")
        ->type_name("TICKS")
        ->check(CLI::Range(0u, 6000u))
        ->capture_default_str();
    app.add_option("--threshold", options.threshold, "stop holding back when this many ports have changed")
        ->type_name("N")
        ->check(CLI::Range(1u, 32767u))
        ->capture_default_str();
    app.add_option("--flap-limit", options.flapLimit, "hold down a port that changes more often in a window; 0 never")
        ->type_name("N")
        ->check(CLI::Range(0u, 1'000'000u))
        ->capture_default_str();
    app.add_option("--flap-window", options.flapWindow_ticks, "length of that window")
        ->type_name("TICKS")
        ->check(CLI::Range(1u, 360'000u))
        ->capture_default_str();
    app.add_option("--flap-hold", options.flapHold_ticks, "how long it is held down")
        ->type_name("TICKS")
        ->check(CLI::Range(1u, 360'000u))
        ->capture_default_str();
    app.add_option("--socket", options.socketPath, "the console's socket")->type_name("PATH")->capture_default_str();
    std::string udp;
    app.add_option("--udp", udp, "answer status requests on this UDP port")
        ->type_name("ADDRESS:PORT")
        ->check([](const std::string &text) {
            return parseUdpEndpoint(text) ? "" : "must be like 192.0.2.1:9161 or [2001:db8::1]:9161, is " + text;
        });
    std::string master;
    const auto *agentx =
        app.add_option("--agentx", master, "serve the ports as a subagent of the SNMP agent at this AgentX socket")
            ->type_name("[SOCKET]")
            ->expected(0, 1)
            ->default_str(usualMaster)
            ->check([](const std::string &) {
                return SnmpAgent::isAvailable() ? "" : "this kel-portd was built without net-snmp";
            });
    app.add_flag("--quiet", options.quiet, "print no change lines; the console has everything");
    app.footer("A tick is 10 ms. The console's client is kel-portctl; try: kel-portctl help");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : usageError;
    }
    options.statusEndpoint = parseUdpEndpoint(udp);
    if (agentx->count() > 0)
        options.agentMaster = master.empty() ? usualMaster : master;
    return std::nullopt;
}
