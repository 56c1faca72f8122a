// signal_thread.h: SIGINT and SIGTERM as an ordinary call on a thread of their own, and a call in even intervals.
//
// The intervals are the monotonic clock's: the library's waits end by the wall clock, and later when that is set back.
//
// Both are blocked in every thread, so no wait of the library is ever interrupted and no code runs in a handler. The
// mask is set before any other thread starts, because threads inherit it.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

class SignalThread
{
public:
    // To be called on the first thread before there are others. A signal that comes before the thread exists waits.
    static void blockSignals();

    // Both run on the thread: `onSignal` once a signal, with its number; `onInterval` when no signal came for
    // `interval`, never with an interval of 0.
    explicit SignalThread(std::function<void(int)> onSignal, std::chrono::milliseconds interval = {},
                          std::function<void()> onInterval = nullptr);
    ~SignalThread();
    SignalThread(const SignalThread &) = delete;
    SignalThread &operator=(const SignalThread &) = delete;

private:
    void run();
    int nextSignal() const; // its number; 0: the interval is over

    std::function<void(int)> callback;
    std::chrono::milliseconds interval;
    std::function<void()> intervalCallback;
    std::atomic<bool> stopping = false;
    std::thread thread;
};
