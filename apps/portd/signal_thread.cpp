// signal_thread.cpp: SIGINT and SIGTERM as an ordinary call on a thread of their own.
#include "signal_thread.h"

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

SignalThread::SignalThread(std::function<void(int)> onSignal) : callback(std::move(onSignal))
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
    const sigset_t set = waitedFor();
    for (;;) {
        int number = 0;
        sigwait(&set, &number);
        if (stopping)
            return;
        if (number != SIGUSR1)
            callback(number);
    }
}
