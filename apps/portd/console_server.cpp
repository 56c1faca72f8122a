// console_server.cpp: the console: line requests over a Unix-domain socket, any number of sessions side by side.
#include "console_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr int acceptPauseMilliseconds = 100;
constexpr int staleProbes = 5;
constexpr std::chrono::milliseconds staleProbeInterval(40);

// Whether connecting to the path is refused: its file is a socket, and nobody listens on it.
bool refusesConnections(const sockaddr_un &address)
{
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0)
        return false;
    const bool refused =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 && errno == ECONNREFUSED;
    close(probe);
    return refused;
}

// Whether a file at the path is a socket that its owner left behind. One that has just been made is not yet listened
// on, so it is asked more than once.
bool isStaleSocket(const sockaddr_un &address)
{
    struct stat file;
    if (lstat(address.sun_path, &file) != 0 || !S_ISSOCK(file.st_mode))
        return false;
    for (int probe = 0; probe < staleProbes; ++probe) {
        if (!refusesConnections(address))
            return false;
        std::this_thread::sleep_for(staleProbeInterval);
    }
    return true;
}
} // namespace

ConsoleServer::ConsoleServer(std::string path, ConsoleSession::Execute execute, ConsoleCounters &counted,
                             ConsoleSession::Clock::duration stallLimit)
    : socketPath(std::move(path)), executeRequest(std::move(execute)), counts(counted), sessionStallLimit(stallLimit)
{
}

ConsoleServer::~ConsoleServer()
{
    stop();
}

std::string ConsoleServer::open()
{
    const std::string reason = bindSocket();
    return reason.empty() ? reason : "console socket " + socketPath + ": " + reason;
}

std::string ConsoleServer::bindSocket()
{
    sockaddr_un address;
    std::string reason;
    listener = unixSocket(socketPath, address, reason);
    if (listener < 0)
        return reason;
    const auto bindHere = [&] {
        const mode_t others = umask(0177); // only the daemon's own user may command it
        const int result = bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        umask(others);
        return result;
    };
    int result = bindHere();
    if (result != 0 && errno == EADDRINUSE) {
        if (!isStaleSocket(address))
            return "in use by another process, or not a socket";
        unlink(address.sun_path);
        result = bindHere();
    }
    struct stat file;
    if (result != 0 || lstat(address.sun_path, &file) != 0)
        return strerror(errno);
    socketDevice = file.st_dev;
    socketInode = file.st_ino;
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0 || listen(listener, 128) != 0)
        return strerror(errno);
    return "";
}

void ConsoleServer::start()
{
    thread = std::thread(&ConsoleServer::run, this);
}

void ConsoleServer::stop()
{
    if (thread.joinable()) {
        stopping = true;
        const uint64_t one = 1;
        while (write(wake, &one, sizeof one) < 0 && errno == EINTR)
            continue;
        thread.join();
    }
    sessions.clear();
    struct stat file;
    if (socketInode != 0 && lstat(socketPath.c_str(), &file) == 0 && file.st_dev == socketDevice &&
        file.st_ino == socketInode)
        unlink(socketPath.c_str());
    socketInode = 0;
    for (int *descriptor : {&listener, &wake}) {
        if (*descriptor >= 0)
            close(*descriptor);
        *descriptor = -1;
    }
}

int ConsoleServer::waitMilliseconds() const
{
    int wait = acceptPaused ? acceptPauseMilliseconds : -1;
    const auto now = ConsoleSession::Clock::now();
    for (const ConsoleSession &session : sessions) {
        if (session.hasWork())
            return 0;
        if (!session.isAnswering())
            continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(session.stallDeadline() - now).count();
        const int bounded = static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
        wait = wait < 0 ? bounded : std::min(wait, bounded);
    }
    return wait;
}

void ConsoleServer::run()
{
    std::vector<pollfd> polled;
    while (!stopping) {
        polled.clear();
        polled.push_back({wake, POLLIN, 0});
        polled.push_back({acceptPaused ? -1 : listener, POLLIN, 0});
        for (const ConsoleSession &session : sessions)
            polled.push_back({session.descriptor(), session.wantedEvents(), 0});
        const int ready = poll(polled.data(), polled.size(), waitMilliseconds());
        if (ready < 0)
            continue; // interrupted
        serveAll(polled);
        acceptPaused = false;
        if (polled[1].revents != 0)
            acceptOne();
        counts.open = sessions.size();
    }
    sessions.clear();
    counts.open = 0;
}

void ConsoleServer::serveAll(const std::vector<pollfd> &polled)
{
    const auto execute = [this](const std::string &request) {
        ++counts.requests;
        Reply reply = executeRequest(request);
        if (!reply.error.empty())
            ++counts.errors;
        return reply;
    };
    const auto now = ConsoleSession::Clock::now();
    size_t index = 2;
    for (auto session = sessions.begin(); session != sessions.end() && !stopping; ++index) {
        session->serve(polled[index].revents, execute);
        const bool stalled = session->isStalled(now);
        if (stalled)
            ++counts.stalled;
        session = session->isFinished() || stalled ? sessions.erase(session) : std::next(session);
    }
}

void ConsoleServer::acceptOne()
{
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        // Out of descriptors or memory: the connection stays in the backlog, and polling at once would only spin.
        acceptPaused = errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
        return;
    }
    ++counts.sessions;
    sessions.emplace_back(fd, sessionStallLimit);
    if (sessions.size() > maxSessions)
        makeRoom();
}

void ConsoleServer::makeRoom()
{
    const auto newest = std::prev(sessions.end());
    auto leaves = newest;
    for (auto session = sessions.begin(); session != newest; ++session)
        if (session->isIdle() && session->idleSince() < leaves->idleSince())
            leaves = session;
    ++(leaves == newest ? counts.refused : counts.displaced);
    leaves->refuse("too many sessions, at most " + std::to_string(maxSessions) +
                   (leaves == newest ? "" : "; this one was idle longest"));
    sessions.erase(leaves);
}
