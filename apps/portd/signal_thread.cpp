// signal_thread.cpp: SIGINT and SIGTERM as an ordinary call on a thread of their own, and a call in even intervals.
#include "signal_thread.h"

#include <cerrno>
#include <csignal>
#include <pthread.h>

namespace
{
// SIGUSR1 is the destructor's: it ends the wait.
sigset_t waitedFor()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&set, signal);
    return set;
}
} // namespace

void SignalThread::blockSignals()
{
    const sigset_t set = waitedFor();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN); // a reader of the output that goes away is an error of write(), not the end
}

SignalThread::SignalThread(std::function<void(int)> onSignal, std::chrono::milliseconds every,
                           std::function<void()> onInterval)
    : callback(std::move(onSignal)), interval(every), intervalCallback(std::move(onInterval))
{
    thread = std::thread(&SignalThread::run, this);
}

SignalThread::~SignalThread()
{
    stopping = true;
    pthread_kill(thread.native_handle(), SIGUSR1);
    thread.join();
}

void SignalThread::run()
{
    for (;;) {
        const int number = nextSignal();
        if (stopping)
            return;
        if (number == 0)
            intervalCallback();
        else if (number != SIGUSR1)
            callback(number);
    }
}

int SignalThread::nextSignal() const
{
    const sigset_t set = waitedFor();
    for (;;) {
        int number = 0;
        if (interval.count() == 0) {
            sigwait(&set, &number);
            return number;
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(interval);
        const std::chrono::nanoseconds rest = interval - seconds;
        const timespec longest = {seconds.count(), rest.count()};
        number = sigtimedwait(&set, nullptr, &longest);
        if (number > 0)
            return number;
        if (errno == EAGAIN)
            return 0;
    }
}
