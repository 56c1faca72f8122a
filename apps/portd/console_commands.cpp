// console_commands.cpp: the commands of the console.
#include "console_commands.h"

#include "captured_output.h"
#include "change_line.h"
#include "port_info.h"
#include "sysport.h"
#include "text_table.h"
#include "vlan_matrix.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <kel_standin.h>
#include <sstream>

namespace
{
constexpr size_t echoedBytes = 40; // of a foreign word in an error
constexpr uint32_t defaultTraceLines = 100;
constexpr const char *mapTrace = "kelSystemPortUtils";

std::vector<std::string> wordsOf(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

std::string echoed(const std::string &text)
{
    const std::string shown = printable(text.substr(0, echoedBytes));
    return "'" + shown + (text.size() > echoedBytes ? "...'" : "'");
}

// Takes "--json" out of the arguments; tells whether it was there.
bool takeJson(std::vector<std::string> &arguments)
{
    return std::erase(arguments, "--json") != 0;
}

Reply unexpected(const std::string &argument)
{
    return {"", "unexpected argument " + echoed(argument) + "; try help"};
}

std::string jsonText(const nlohmann::ordered_json &json)
{
    // Names come from outside and may be no UTF-8.
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

// What `print` prints on standard output, below `title`.
Reply printedReply(const std::string &title, const std::function<void()> &print)
{
    const std::optional<std::string> text = capturedOutput(print);
    return text ? Reply{title + *text, ""} : Reply{"", "no descriptor is free for it"};
}

int appendText(void *user, const char *text, size_t length)
{
    static_cast<std::string *>(user)->append(text, length);
    return 0;
}

int keepTraceLine(void *user, int64_t time, const char *text)
{
    constexpr int64_t nanosecondsPerSecond = 1'000'000'000;
    static_cast<std::deque<std::string> *>(user)->push_back(
        timeOfDay({static_cast<time_t>(time / nanosecondsPerSecond), static_cast<long>(time % nanosecondsPerSecond)}) +
        "  " + printable(text) + '\n');
    return 1;
}
} // namespace

const std::vector<ConsoleCommands::Command> &ConsoleCommands::table()
{
    static const std::vector<Command> commands = {
        {"show ports", "[--json]", "all ports, one a line", &ConsoleCommands::showPorts},
        {"show port", "N|NAME [--json]", "all about one system port", &ConsoleCommands::showPort},
        {"show map", "[brief]", "the port map's own dump, checking itself", &ConsoleCommands::showMap},
        {"show vlans", "[--json]", "which port is in which VLAN", &ConsoleCommands::showVlans},
        {"show trace", "[LINES]", "the port map's latest trace lines", &ConsoleCommands::showTrace},
        {"show stats", "[--json]", "what the daemon has counted", &ConsoleCommands::showStats},
        {"show queues", "", "the daemon's queues, as the library prints them", &ConsoleCommands::showQueues},
        {"show timers", "", "ports that are being counted or held down for flapping", &ConsoleCommands::showTimers},
        {"show pool", "", "the pool of change records on their way to the output", &ConsoleCommands::showPool},
        {"help", "", "this list", &ConsoleCommands::help},
    };
    return commands;
}

Reply ConsoleCommands::execute(const std::string &request) const
{
    const Words words = wordsOf(request);
    if (words.empty())
        return {};
    for (const Command &command : table()) {
        const Words name = wordsOf(command.words);
        if (words.size() >= name.size() && std::equal(name.begin(), name.end(), words.begin()))
            return (this->*command.run)(Words(words.begin() + static_cast<std::ptrdiff_t>(name.size()), words.end()));
    }
    const bool twoWords = words[0] == "show" && words.size() > 1;
    return {"", "unknown command " + echoed(twoWords ? words[0] + ' ' + words[1] : words[0]) + "; try help"};
}

Reply ConsoleCommands::showPorts(const Words &given) const
{
    Words arguments = given;
    const bool json = takeJson(arguments);
    if (!arguments.empty())
        return unexpected(arguments[0]);
    const std::vector<PortInfo> ports = allPortInfo(shown.board);
    if (!json)
        return {portsTable(ports), ""};
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const PortInfo &port : ports)
        list.push_back(portJson(port));
    return {jsonText(list), ""};
}

Reply ConsoleCommands::showPort(const Words &given) const
{
    Words arguments = given;
    const bool json = takeJson(arguments);
    if (arguments.empty())
        return {"", "which port? usage: show port N|NAME [--json]"};
    if (arguments.size() > 1)
        return unexpected(arguments[1]);
    const uint32_t systemPort = systemPortNamed(arguments[0]);
    const auto port = systemPort == 0 ? std::nullopt : portInfo(systemPort, shown.board);
    if (!port)
        return {"", "no port " + echoed(arguments[0])};
    if (json)
        return {jsonText(portJson(*port)), ""};
    return {portText(*port, VlanMatrix().ofPort(systemPort)), ""};
}

Reply ConsoleCommands::showVlans(const Words &given) const
{
    Words arguments = given;
    const bool json = takeJson(arguments);
    if (!arguments.empty())
        return unexpected(arguments[0]);
    const VlanMatrix vlans;
    return {json ? jsonText(vlans.json()) : vlans.table(), ""};
}

Reply ConsoleCommands::showMap(const Words &arguments) const
{
    const bool brief = !arguments.empty() && arguments[0] == "brief";
    if (arguments.size() > (brief ? 1 : 0))
        return unexpected(arguments[brief ? 1 : 0]);
    // The map prints to a CLI session of the platform; ours collects the text and never keeps the map waiting.
    std::string text;
    const int session = kelStandinOpenSink(appendText, &text);
    if (session == 0)
        return {"", "too many CLI sessions"};
    kelSysPortUtil::DumpDebugInfo(!brief, static_cast<uint32_t>(session));
    kelStandinCloseSession(session);
    return {text, ""};
}

Reply ConsoleCommands::showTrace(const Words &arguments) const
{
    uint32_t wanted = defaultTraceLines;
    if (!arguments.empty()) {
        const char *end = arguments[0].data() + arguments[0].size();
        const auto [stop, error] = std::from_chars(arguments[0].data(), end, wanted);
        if (error != std::errc() || stop != end || wanted == 0)
            return {"", "not a number of lines: " + echoed(arguments[0])};
    }
    if (arguments.size() > 1)
        return unexpected(arguments[1]);
    std::deque<std::string> lines;
    if (kelStandinReadTrace(mapTrace, keepTraceLine, &lines) < 0)
        return {"", "there is no trace buffer"};
    Reply reply;
    for (size_t i = lines.size() > wanted ? lines.size() - wanted : 0; i < lines.size(); ++i)
        reply.text += lines[i];
    return reply;
}

Reply ConsoleCommands::showStats(const Words &given) const
{
    Words arguments = given;
    const bool json = takeJson(arguments);
    if (!arguments.empty())
        return unexpected(arguments[0]);
    const Counters &counters = shown.counters;
    const ConsoleCounters &console = shown.console;
    const AgentCounters &agent = shown.agent;
    const std::vector<std::pair<const char *, uint64_t>> values = {
        {"uptimeSeconds", shown.uptime.seconds()},
        {"portsPresent", shown.board.portsPresent()},
        {"portsUp", shown.board.portsUp()},
        {"portsAdded", counters.portsAdded},
        {"portsRemoved", counters.portsRemoved},
        {"portsRefused", counters.portsRefused},
        {"linkChanges", counters.linkChanges},
        {"eventsSent", counters.eventsSent},
        {"eventsReceived", counters.eventsReceived},
        {"eventsCoalesced", counters.eventsCoalesced},
        {"batches", counters.batches},
        {"largestBatch", counters.largestBatch},
        {"portsHeldDown", counters.portsHeldDown},
        {"linesPrinted", counters.linesPrinted},
        {"linesLost", counters.linesLost},
        {"statusAnswered", counters.statusAnswered},
        {"statusIgnored", counters.statusIgnored},
        {"statusFailed", counters.statusFailed},
        {"consoleSessions", console.sessions},
        {"consoleSessionsRefused", console.refused},
        {"consoleSessionsDisplaced", console.displaced},
        {"consoleSessionsStalled", console.stalled},
        {"consoleRequests", console.requests},
        {"consoleErrors", console.errors},
        {"agentConnected", agent.connected},
        {"agentSessions", agent.sessions},
        {"agentRequests", agent.requests},
        {"agentNotifications", agent.notifications},
    };
    if (json) {
        nlohmann::ordered_json object;
        for (const auto &[name, value] : values)
            object[name] = value;
        return {jsonText(object), ""};
    }
    using enum TextTable::Align;
    TextTable table({{"COUNTER", left}, {"VALUE", right}});
    for (const auto &[name, value] : values)
        table.addRow({name, std::to_string(value)});
    return {table.text(), ""};
}

Reply ConsoleCommands::showQueues(const Words &arguments) const
{
    if (!arguments.empty())
        return unexpected(arguments[0]);
    constexpr int withAging = 1;
    return printedReply("", [this] {
        puts("Port events, to the main task:");
        meqShow(shown.events.handle(), withAging);
        puts("\nChange records, to the writer:");
        msgQxShow(shown.writer.queueHandle(), withAging);
    });
}

Reply ConsoleCommands::showTimers(const Words &arguments) const
{
    if (!arguments.empty())
        return unexpected(arguments[0]);
    using enum TextTable::Align;
    TextTable table({{"PORT", right}, {"NAME", left}, {"STATE", left}, {"CHANGES", right}, {"TICKS LEFT", right}});
    for (const FlapDamper::Row &row : shown.damper.rows()) {
        const auto port = shown.board.row(row.systemPort);
        table.addRow({std::to_string(row.systemPort), port ? printable(port->identity.name) : "-",
                      row.held ? "held down" : "counting", std::to_string(row.changes),
                      std::to_string(row.left_ticks)});
    }
    return printedReply(table.text() + '\n', [this] { shown.damper.printLists(); });
}

Reply ConsoleCommands::showPool(const Words &arguments) const
{
    if (!arguments.empty())
        return unexpected(arguments[0]);
    vxFixedSizeMemPool &pool = shown.writer.memory();
    const uint32_t unused = pool.getNodeCount();
    using enum TextTable::Align;
    TextTable table({{"CHANGE RECORDS", left}, {"VALUE", right}});
    table.addRow({"blocks", std::to_string(ChangeWriter::records)});
    table.addRow({"bytes in a block", std::to_string(sizeof(ChangeRecord))});
    table.addRow({"free", std::to_string(unused)});
    table.addRow({"waiting for the output", std::to_string(ChangeWriter::records - unused)});
    table.addRow({"lost for want of a block", std::to_string(shown.counters.linesLost)});
    return {table.text(), ""};
}

Reply ConsoleCommands::help(const Words &) const
{
    using enum TextTable::Align;
    TextTable list({{"COMMAND", left}, {"WHAT IT SHOWS", left}});
    for (const Command &command : table())
        list.addRow({std::string(command.words) + (*command.arguments ? " " : "") + command.arguments, command.help});
    return {list.text(), ""};
}
