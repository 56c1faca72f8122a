// service_notifier.h: tells the service manager that started this process how it is doing.
//
// The manager puts the address of a datagram socket into NOTIFY_SOCKET, and into WATCHDOG_USEC how often it wants to
// hear from us before it takes us for stuck. Without the first, nothing is ever sent. One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class ServiceNotifier
{
public:
    // From the environment; WATCHDOG_PID, when there, must be this process.
    static ServiceNotifier fromEnvironment();

    // `address`: an absolute path, or '@' and an abstract name; anything else sends nothing.
    // `watchdog_usec`: the manager's patience in microseconds; 0: it does not watch.
    explicit ServiceNotifier(const std::string &address, uint64_t watchdog_usec = 0);
    ~ServiceNotifier();
    ServiceNotifier(ServiceNotifier &&other) noexcept;
    ServiceNotifier(const ServiceNotifier &) = delete;
    ServiceNotifier &operator=(const ServiceNotifier &) = delete;

    void ready();
    void stopping();
    // To be called from the loop that the watchdog is about, at least once a watchdogPeriod(). Sends at most two times
    // a period, however often it is called.
    void alive();
    // Half of the manager's patience, at least 1 ms; 0 when it does not watch.
    std::chrono::milliseconds watchdogPeriod() const
    {
        return period;
    }

private:
    void send(const char *state);

    int fd = -1; // connected to the manager; -1: there is none
    std::chrono::milliseconds period;
    std::chrono::steady_clock::time_point lastAlive; // when alive() sent last; the epoch: never
};
