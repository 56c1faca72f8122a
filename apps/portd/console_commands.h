// console_commands.h: the commands of the console.
//
// Policy:  a command is looked up in one table, which also makes the help. Whatever the line holds, the answer is a
//          text or a reason.
// Locking: none of its own; runs on the console's thread alone.
#pragma once

#include "change_writer.h"
#include "console_protocol.h"
#include "counters.h"
#include "flap_damper.h"
#include "port_board.h"
#include "port_events.h"
#include "uptime.h"

#include <string>
#include <vector>

class ConsoleCommands
{
public:
    // What the commands show; all of it outlives them.
    struct Shown {
        const PortBoard &board;
        const Counters &counters;
        FlapDamper &damper;
        const PortEvents &events;
        ChangeWriter &writer;
        const ConsoleCounters &console;
        const AgentCounters &agent;
        const Uptime &uptime;
    };
    explicit ConsoleCommands(const Shown &shownParts) : shown(shownParts) {}

    Reply execute(const std::string &request) const;

private:
    using Words = std::vector<std::string>;
    struct Command {
        const char *words;
        const char *arguments; // as the help shows them
        const char *help;
        Reply (ConsoleCommands::*run)(const Words &arguments) const;
    };
    static const std::vector<Command> &table();

    Reply showPorts(const Words &arguments) const;
    Reply showPort(const Words &arguments) const;
    Reply showVlans(const Words &arguments) const;
    Reply showMap(const Words &arguments) const;
    Reply showTrace(const Words &arguments) const;
    Reply showStats(const Words &arguments) const;
    Reply showQueues(const Words &arguments) const;
    Reply showTimers(const Words &arguments) const;
    Reply showPool(const Words &arguments) const;
    Reply help(const Words &arguments) const;

    Shown shown;
};
