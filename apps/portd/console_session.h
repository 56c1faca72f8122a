// console_session.h: one connection of the console.
//
// Policy:     requests of a session are answered one after the other. More is read only when all that was read is
//             answered and the answers are taken, so what is kept for a session is bounded by one answer and one read.
//             A request that is cut off by the end of the connection is refused, not run.
//             A client that takes nothing of an answer for `stallLimit` is closed.
// Locking:    none; a session belongs to the console's thread.
#pragma once

#include "console_protocol.h"
#include "line_reader.h"

#include <chrono>
#include <functional>

class ConsoleSession
{
public:
    using Clock = std::chrono::steady_clock;
    using Execute = std::function<Reply(const std::string &request)>;

    // Owns `socket` from now on; it must be non-blocking.
    ConsoleSession(int socket, Clock::duration stallLimitTime);
    ~ConsoleSession();
    ConsoleSession(const ConsoleSession &) = delete;
    ConsoleSession &operator=(const ConsoleSession &) = delete;

    int descriptor() const
    {
        return fd;
    }
    short wantedEvents() const; // for poll()
    bool isAnswering() const
    {
        return sent < output.size();
    }
    bool hasWork() const; // can go on without waiting for the socket
    Clock::time_point stallDeadline() const
    {
        return lastProgress + stallLimit;
    }
    bool isStalled(Clock::time_point now) const
    {
        return isAnswering() && now >= stallDeadline();
    }
    bool isIdle() const
    {
        return !isAnswering() && !hasWork();
    }
    Clock::time_point idleSince() const // of an idle one: its last answer was taken, or it connected
    {
        return lastProgress;
    }
    bool isFinished() const
    {
        return finished;
    }

    // Does what `events` of poll() allow, then answers at most one request.
    void serve(short events, const Execute &execute);

    // Appends a line to what the client gets, then ends the session.
    void refuse(const std::string &reason);

private:
    void read();
    void answerOne(const Execute &execute);
    void queue(const Reply &reply);
    void write();

    int fd;
    LineReader input{maxRequestBytes};
    std::string output; // of the current answer
    size_t sent = 0;    // bytes of it that the socket took
    Clock::duration stallLimit;
    Clock::time_point lastProgress;
    bool requestReady = true; // the reader may hold a whole request
    bool endOfInput = false;
    bool finished = false;
};
