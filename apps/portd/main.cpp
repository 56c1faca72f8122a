// main.cpp: kel-portd, a small control process that watches ports.
//
// Exit status: 0 ended as asked, 1 could not start, 2 wrong usage or a wrong topology file.
#include "daemon.h"
#include "signal_thread.h"
#include "standard_descriptors.h"
#include "sysport.h"

#include <cstdio>
#include <stdexcept>

namespace
{
constexpr int cannotStart = 1;
constexpr int wrongUsage = 2;

int runDaemon(const Options &options, Feeder &feeder)
{
    SignalThread::blockSignals();
    if (kel_utils_init() != 0) {
        fputs("kel-portd: cannot start the queues' timer task\n", stderr);
        return cannotStart;
    }
    kelSysPortUtilInit();
    Daemon daemon(options, feeder);
    return daemon.run();
}
} // namespace

int main(int argc, char **argv)
{
    if (!openStandardDescriptors())
        return cannotStart; // there may be nowhere to say so
    setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        Options options;
        if (const auto status = parseOptions(argc, argv, options))
            return *status;
        std::unique_ptr<Feeder> feeder;
        try {
            feeder = options.topology.empty() ? Feeder::forHost() : Feeder::forTopology(options.topology);
        } catch (const std::runtime_error &error) {
            fprintf(stderr, "kel-portd: %s\n", error.what());
            return wrongUsage;
        }
        return runDaemon(options, *feeder);
    } catch (const std::exception &error) {
        fprintf(stderr, "kel-portd: %s\n", error.what());
        return cannotStart;
    }
}
