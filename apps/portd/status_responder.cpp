// status_responder.cpp: tells the daemon's status over UDP, from the very address that was asked.
#include "status_responder.h"

#include "vxw_shim.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr const char *request = "status";
constexpr int requestBytes = 64; // of a datagram that is looked at
constexpr int rest_ms = 100;     // after a receive that failed

int setOption(int fd, int level, int option, int value)
{
    return setsockopt(fd, level, option, &value, sizeof value);
}

bool isRequest(std::string text)
{
    constexpr const char *blanks = " \t\r\n";
    text.erase(text.find_last_not_of(blanks) + 1);
    text.erase(0, text.find_first_not_of(blanks));
    return text == request;
}

// The endpoint's address as the socket is bound to it.
CIpAddress localAddress(const UdpEndpoint &endpoint)
{
    CIpAddress address = endpoint.address;
    if (address.family == AF_INET && address.ipv4OrFlowInfo == INADDR_ANY)
        address.convertToAddressFamily(AF_INET6);
    if (address.family == AF_INET6)
        address.ipv4OrFlowInfo = 0; // a mapped address has none either
    address.port = htons(endpoint.port);
    return address;
}
} // namespace

StatusResponder::StatusResponder(UdpEndpoint localEndpoint, Status statusLine, Counters &counted)
    : endpoint(std::move(localEndpoint)), status(std::move(statusLine)), counters(counted)
{
}

StatusResponder::~StatusResponder()
{
    stop();
}

std::string StatusResponder::open()
{
    const std::string reason = bindSocket();
    return reason.empty() ? reason : "status responder " + endpoint.text + ": " + reason;
}

std::string StatusResponder::bindSocket()
{
    const CIpAddress local = localAddress(endpoint);
    const bool isIpv6 = local.family == AF_INET6;
    fd = socket(local.family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0 || wake < 0)
        return strerror(errno);
    const int wanted =
        isIpv6 ? setOption(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1) | setOption(fd, IPPROTO_IPV6, IPV6_V6ONLY, 0)
               : setOption(fd, IPPROTO_IP, IP_PKTINFO, 1);
    const socklen_t bytes = isIpv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (wanted != 0 || bind(fd, reinterpret_cast<const sockaddr *>(&local), bytes) != 0)
        return strerror(errno);
    return "";
}

void StatusResponder::start()
{
    thread = std::thread(&StatusResponder::run, this);
}

void StatusResponder::stop()
{
    if (thread.joinable()) {
        stopping = true;
        const uint64_t one = 1;
        while (write(wake, &one, sizeof one) < 0 && errno == EINTR)
            continue;
        thread.join();
    }
    for (int *descriptor : {&fd, &wake}) {
        if (*descriptor >= 0)
            close(*descriptor);
        *descriptor = -1;
    }
}

void StatusResponder::run()
{
    while (!stopping) {
        pollfd polled[2] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
        poll(polled, 2, -1);
        while (!stopping && answerOne())
            continue;
    }
}

void StatusResponder::rest() const
{
    pollfd stopped = {wake, POLLIN, 0};
    poll(&stopped, 1, rest_ms);
}

bool StatusResponder::answerOne()
{
    char datagram[requestBytes];
    sockaddr_storage source = {};
    socklen_t sourceBytes = sizeof source;
    packet_info arrivedAt = {};
    const ssize_t count = recvfrom_wdst(fd, datagram, sizeof datagram, MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr *>(&source), &sourceBytes, &arrivedAt);
    if (count < 0) {
        if (errno != EAGAIN)
            rest(); // an error that an earlier reply met is gone now; one that lasts must not keep the thread busy
        return false;
    }
    if (!isRequest(std::string(datagram, static_cast<size_t>(count)))) {
        ++counters.statusIgnored;
        return true;
    }
    const std::string reply = status() + '\n';
    const ssize_t sent = sendto_wsrc(fd, reply.data(), static_cast<int>(reply.size()), MSG_DONTWAIT | MSG_NOSIGNAL,
                                     reinterpret_cast<const sockaddr *>(&source), sourceBytes,
                                     source.ss_family == AF_INET6 ? &arrivedAt : nullptr);
    ++(sent < 0 ? counters.statusFailed : counters.statusAnswered);
    return true;
}
