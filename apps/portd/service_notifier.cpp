// service_notifier.cpp: tells the service manager that started this process how it is doing.
//
// Policy: what cannot be sent is lost. A manager that does not listen must not hold up a daemon that works, so nothing
// here waits, and nothing fails.
#include "service_notifier.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace
{
const char *environment(const char *name)
{
    const char *value = getenv(name);
    return value == nullptr ? "" : value;
}

// A datagram socket that is connected to the manager, or -1.
int connectTo(const std::string &address)
{
    sockaddr_un to = {};
    const bool isAbstract = address.starts_with('@');
    // A path needs its final zero, an abstract name is exactly as long as it is.
    if (address.size() < 2 || address.size() > sizeof to.sun_path - !isAbstract || (!isAbstract && address[0] != '/'))
        return -1;
    to.sun_family = AF_UNIX;
    memcpy(to.sun_path, address.data(), address.size());
    if (isAbstract)
        to.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size() + !isAbstract);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&to), length) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

std::chrono::milliseconds half(uint64_t usec)
{
    constexpr uint64_t longest = 86'400'000; // a day in milliseconds, so that no later sum overflows
    return std::chrono::milliseconds(usec == 0 ? 0 : std::clamp<uint64_t>(usec / 2000, 1, longest));
}
} // namespace

ServiceNotifier ServiceNotifier::fromEnvironment()
{
    const char *watched = environment("WATCHDOG_PID");
    const bool forUs = *watched == '\0' || strtol(watched, nullptr, 10) == getpid();
    return ServiceNotifier(environment("NOTIFY_SOCKET"),
                           forUs ? strtoull(environment("WATCHDOG_USEC"), nullptr, 10) : 0);
}

ServiceNotifier::ServiceNotifier(const std::string &address, uint64_t watchdog_usec)
    : fd(connectTo(address)), period(fd < 0 ? half(0) : half(watchdog_usec))
{
}

ServiceNotifier::~ServiceNotifier()
{
    if (fd >= 0)
        close(fd);
}

ServiceNotifier::ServiceNotifier(ServiceNotifier &&other) noexcept
    : fd(std::exchange(other.fd, -1)), period(other.period), lastAlive(other.lastAlive)
{
}

void ServiceNotifier::ready()
{
    send("READY=1");
}

void ServiceNotifier::stopping()
{
    send("STOPPING=1");
}

void ServiceNotifier::alive()
{
    const auto now = std::chrono::steady_clock::now();
    if (period.count() == 0 || now - lastAlive < period / 2)
        return;
    lastAlive = now;
    send("WATCHDOG=1");
}

void ServiceNotifier::send(const char *state)
{
    if (fd >= 0 && ::send(fd, state, strlen(state), MSG_NOSIGNAL) < 0)
        return; // lost; see above
}
