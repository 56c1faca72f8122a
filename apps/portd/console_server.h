// console_server.h: the console: line requests over a Unix-domain socket, any number of sessions side by side.
//
// Policy:     one thread serves everybody, one request a session and round; commands take milliseconds and never wait
//             for a client. At most `maxSessions` at once: for the next one the session that is idle longest is
//             closed, so that clients that forget to leave lock nobody out. When all are being answered, it is refused.
// Locking:    none; the counters are atomic, all else belongs to the thread.
#pragma once

#include "console_session.h"
#include "counters.h"

#include <atomic>
#include <list>
#include <string>
#include <sys/types.h>
#include <thread>

class ConsoleServer
{
public:
    static constexpr size_t maxSessions = 200;

    ConsoleServer(std::string path, ConsoleSession::Execute execute, ConsoleCounters &counted,
                  ConsoleSession::Clock::duration stallLimit = std::chrono::seconds(5));
    ~ConsoleServer();
    ConsoleServer(const ConsoleServer &) = delete;
    ConsoleServer &operator=(const ConsoleServer &) = delete;

    // Takes the path: one that nobody listens on any more is replaced. Returns an empty text, or why not.
    std::string open();

    void start();
    void stop(); // ends the thread and removes the socket; harmless when not started

private:
    std::string bindSocket();
    void run();
    void acceptOne();
    void makeRoom(); // for the newest session, or refuses it
    void serveAll(const std::vector<struct pollfd> &polled);
    int waitMilliseconds() const;

    std::string socketPath;
    ConsoleSession::Execute executeRequest;
    ConsoleCounters &counts;
    ConsoleSession::Clock::duration sessionStallLimit;
    int listener = -1;
    int wake = -1; // eventfd that stop() writes
    dev_t socketDevice = 0;
    ino_t socketInode = 0; // of our socket file, so that only that one is removed
    std::atomic<bool> stopping = false;
    bool acceptPaused = false; // no descriptors left: listen again a little later
    std::list<ConsoleSession> sessions;
    std::thread thread;
};
