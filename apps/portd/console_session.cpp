// console_session.cpp: one connection of the console.
#include "console_session.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

ConsoleSession::ConsoleSession(int socket, Clock::duration stallLimitTime)
    : fd(socket), stallLimit(stallLimitTime), lastProgress(Clock::now())
{
}

ConsoleSession::~ConsoleSession()
{
    close(fd);
}

short ConsoleSession::wantedEvents() const
{
    if (isAnswering())
        return POLLOUT;
    return requestReady || endOfInput ? 0 : POLLIN;
}

bool ConsoleSession::hasWork() const
{
    return !finished && !isAnswering() && (requestReady || endOfInput);
}

void ConsoleSession::serve(short events, const Execute &execute)
{
    if (isAnswering() && (events & (POLLOUT | POLLERR | POLLHUP)))
        write();
    else if (!isAnswering() && !requestReady && !endOfInput && (events & (POLLIN | POLLERR | POLLHUP)))
        read();
    if (hasWork())
        answerOne(execute);
}

void ConsoleSession::read()
{
    char bytes[4096];
    const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
    if (count > 0) {
        input.feed(bytes, static_cast<size_t>(count));
        requestReady = true;
    } else if (count == 0) {
        endOfInput = true;
    } else if (errno != EAGAIN && errno != EINTR) {
        finished = true;
    }
}

void ConsoleSession::answerOne(const Execute &execute)
{
    const std::optional<LineReader::Line> line = input.next();
    requestReady = line.has_value();
    if (line && line->tooLong)
        queue({"", "line longer than " + std::to_string(maxRequestBytes) + " bytes, ignored"});
    else if (line)
        queue(execute(line->text));
    else if (endOfInput && input.hasPartialLine())
        refuse("the last line has no end, ignored");
    else if (endOfInput)
        finished = true;
}

void ConsoleSession::queue(const Reply &reply)
{
    output = framed(reply);
    sent = 0;
    lastProgress = Clock::now();
    write();
}

void ConsoleSession::refuse(const std::string &reason)
{
    queue({"", reason});
    finished = true;
}

void ConsoleSession::write()
{
    while (isAnswering()) {
        const ssize_t count = send(fd, output.data() + sent, output.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            finished = finished || (errno != EAGAIN && errno != EINTR);
            return;
        }
        sent += static_cast<size_t>(count);
        lastProgress = Clock::now();
    }
    output.clear();
    output.shrink_to_fit();
    sent = 0;
}
