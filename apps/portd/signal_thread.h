// signal_thread.h: SIGINT and SIGTERM as an ordinary call on a thread of their own.
//
// Both are blocked in every thread, so no wait of the library is ever interrupted and no code runs in a handler. The
// mask is set before any other thread starts, because threads inherit it.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

class SignalThread
{
public:
    // To be called on the first thread before there are others. A signal that comes before the thread exists waits.
    static void blockSignals();

    // `onSignal` runs on the thread, once a signal, with its number.
    explicit SignalThread(std::function<void(int)> onSignal);
    ~SignalThread();
    SignalThread(const SignalThread &) = delete;
    SignalThread &operator=(const SignalThread &) = delete;

private:
    void run();

    std::function<void(int)> callback;
    std::atomic<bool> stopping = false;
    std::thread thread;
};
