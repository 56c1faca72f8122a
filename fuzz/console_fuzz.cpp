// console_fuzz.cpp: what a client sends to the console, in pieces: the lines are those of the whole stream, each is
// answered by the real commands over a small chassis, and each answer can be told from the next.
#include "fuzz_input.h"

#include <chassis.h>
#include <console_commands.h>
#include <line_reader.h>
#include <port_watch.h>
#include <sysport.h>

#include <optional>

namespace
{
// A daemon's parts, without its output and its socket.
struct Parts {
    Parts()
    {
        kel_utils_init();
        kelSysPortUtilInit();
        watch.emplace(board, damper, events, counters);
        kel::Chassis(topology).build();
    }
    ~Parts()
    {
        watch.reset();
        delete kelSysPortUtil::localPtr;
    }
    Parts(const Parts &) = delete;
    Parts &operator=(const Parts &) = delete;

    const kel::Topology topology = kel::parseTopology(R"({
        "slots": [{"slot": 1, "ports": 3, "prefix": "ge", "link": "up"},
                  {"slot": 2, "ports": [{"port": 1, "name": "ok", "description": "error: no", "mtu": 9000,
                                         "addresses": ["192.0.2.1/24", "2001:db8::1/64"]}]}],
        "trunks": [{"trunk": 1, "name": "po1", "members": ["1/1-2"]}],
        "vlans": [{"vlan": 10, "tagged": ["trunk/1"], "untagged": ["1/3", "2/1"]}]})",
                                                      "chassis");
    Counters counters;
    ConsoleCounters console;
    AgentCounters agent;
    Uptime uptime;
    PortBoard board;
    PortEvents events{20, 8, counters};
    FlapDamper damper{{10, 1000, 500}, [](uint32_t) {}};
    ChangeWriter writer{-1, counters};
    std::optional<PortWatch> watch;
    ConsoleCommands commands{{board, counters, damper, events, writer, console, agent, uptime}};
};

using Lines = std::vector<std::string>;
const std::string tooLong = "\n"; // no line has it

// The same rule written for a stream that is there as a whole.
Lines linesOf(const std::string &stream)
{
    Lines lines;
    size_t at = 0;
    for (size_t end; (end = stream.find('\n', at)) != std::string::npos; at = end + 1) {
        std::string line = stream.substr(at, end - at);
        if (line.ends_with('\r'))
            line.pop_back();
        lines.push_back(line.size() > maxRequestBytes ? tooLong : line);
    }
    if (stream.size() - at > maxRequestBytes + 1)
        lines.push_back(tooLong);
    return lines;
}

Lines readInPieces(const std::string &stream, size_t piece)
{
    LineReader reader(maxRequestBytes);
    Lines lines;
    for (size_t at = 0; at < stream.size(); at += piece) {
        reader.feed(stream.data() + at, std::min(piece, stream.size() - at));
        while (const auto line = reader.next()) {
            require(!line->tooLong || line->text.empty(), "an over-long line is dropped");
            lines.push_back(line->tooLong ? tooLong : line->text);
        }
    }
    require(reader.hasPartialLine() == (!stream.empty() && stream.back() != '\n'), "what has no end is known");
    return lines;
}

bool isLastLine(const std::string &line)
{
    return line == "ok" || line.starts_with("error: ");
}

void checkAnswer(const std::string &request, const Reply &reply)
{
    const bool blank = request.find_first_not_of(" \t\v\f\r") == std::string::npos;
    require(!blank || (reply.text.empty() && reply.error.empty()), "a blank line is answered with ok alone");
    require(reply.error.size() <= 120, "an error is short, whatever was sent");
    std::string rest = framed(reply);
    for (const char character : rest) {
        const auto c = static_cast<unsigned char>(character);
        require(c == '\n' || c == '\t' || c >= ' ', "an answer has no control characters");
    }
    while (!rest.empty()) {
        const size_t end = rest.find('\n');
        require(end != std::string::npos, "each line of an answer has an end");
        const bool last = isLastLine(rest.substr(0, end));
        rest.erase(0, end + 1);
        require(last == rest.empty(), "the last line, and only that, looks like one");
    }
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Parts parts;
    FuzzInput input(data, size);
    const size_t piece = 1 + input.byte();
    const auto bytes = input.rest();
    const std::string stream(bytes.begin(), bytes.end());
    const Lines lines = readInPieces(stream, piece);
    require(lines == linesOf(stream), "the lines do not depend on the pieces");
    for (const std::string &line : lines)
        if (line != tooLong)
            checkAnswer(line, parts.commands.execute(line));
    return 0;
}
