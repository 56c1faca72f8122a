// portctl.cpp: kel-portctl, the client of kel-portd's console.
//
// Sends the command given as arguments, or each line of standard input, and prints the answers. Exit status: 0 all
// commands were answered, 1 a command failed, the daemon cannot be reached or the answer cannot be written, 2 wrong
// usage. A reader of the answers that goes away ends it by SIGPIPE, as it does other filters.
#include "console_protocol.h"
#include "standard_descriptors.h"

#include <cerrno>
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstring>
#include <iostream>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr time_t answerSeconds = 30; // a daemon that says nothing for so long is given up

void complain(const std::string &text)
{
    std::cout.flush();
    std::cerr << "kel-portctl: " << text << '\n';
}

class Connection
{
public:
    ~Connection()
    {
        if (fd >= 0)
            close(fd);
    }

    bool open(const std::string &path)
    {
        sockaddr_un address;
        std::string reason;
        fd = unixSocket(path, address, reason);
        if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            reason = strerror(errno);
            if (errno == ENOENT || errno == ECONNREFUSED)
                reason += " (is kel-portd running?)";
        }
        if (!reason.empty()) {
            complain("cannot reach " + path + ": " + reason);
            return false;
        }
        const timeval limit = {answerSeconds, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        return true;
    }

    // Sends one request and prints its answer. False when the connection is of no more use.
    bool ask(const std::string &request, bool &succeeded)
    {
        const std::string line = request + '\n';
        size_t sent = 0;
        while (sent < line.size()) {
            const ssize_t count = send(fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                break; // the daemon may have said why before it closed
            sent += static_cast<size_t>(count);
        }
        return printAnswer(succeeded);
    }

private:
    bool printAnswer(bool &succeeded)
    {
        for (;;) {
            size_t end;
            while ((end = received.find('\n')) != std::string::npos) {
                const std::string line = received.substr(0, end);
                received.erase(0, end + 1);
                succeeded = line == replyOk;
                if (succeeded)
                    return true;
                if (line.starts_with(replyError)) {
                    complain(line.substr(replyError.size()));
                    return true;
                }
                std::cout << line << '\n';
            }
            char bytes[16384];
            const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0) {
                complain(count == 0 ? "the daemon closed the connection" : strerror(errno));
                return false;
            }
            received.append(bytes, static_cast<size_t>(count));
        }
    }

    int fd = -1;
    std::string received;
};

bool runLines(Connection &connection)
{
    const bool interactive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
    bool allSucceeded = true;
    std::string line;
    while (std::cout && (!interactive || std::cout << "kel-portd> " << std::flush) && std::getline(std::cin, line)) {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        bool succeeded = false;
        if (!connection.ask(line, succeeded))
            return false;
        allSucceeded = allSucceeded && succeeded;
        std::cout.flush();
    }
    return allSucceeded;
}
} // namespace

int main(int argc, char **argv)
{
    if (!openStandardDescriptors())
        return 1; // there may be nowhere to say so
    CLI::App app{"Asks a running kel-portd. Without a command, reads commands from standard input, one a line."};
    app.name("kel-portctl");
    app.set_version_flag("--version", "kel-portctl " KEL_VERSION);
    std::string path = defaultSocketPath();
    app.add_option("--socket", path, "the console's socket")->type_name("PATH")->capture_default_str();
    app.prefix_command();
    app.footer("The options come first: kel-portctl [--socket PATH] [COMMAND...]\nThe commands are listed by: "
               "kel-portctl help");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    std::string command;
    for (const std::string &word : app.remaining())
        command += (command.empty() ? "" : " ") + word;
    if (command.starts_with('-') || command.find('\n') != std::string::npos) {
        complain(command.starts_with('-') ? "unknown option " + app.remaining().front() : "a command is one line");
        return 2;
    }
    signal(SIGPIPE, SIG_DFL);
    Connection connection;
    if (!connection.open(path))
        return 1;
    bool succeeded = false;
    if (command.empty())
        succeeded = runLines(connection);
    else
        succeeded = connection.ask(command, succeeded) && succeeded;
    std::cout.flush();
    if (!std::cout) {
        complain("cannot write to standard output");
        return 1;
    }
    return succeeded ? 0 : 1;
}
