// status_responder.h: tells the daemon's status over UDP, from the very address that was asked.
//
// Policy:     a datagram that says "status" (white space around it aside) is answered with one line of JSON. Nothing
//             else is answered, so that two responders can never keep each other busy. A reply that the socket does
//             not take is dropped. Linux takes a reply's source from the packet information of IPv6, and of IPv4 on
//             an IPv6 socket. That of plain IPv4 only makes it forget the address that the socket is bound to. So one
//             IPv4 address is served by an IPv4 socket that is bound to it, without packet information in the
//             replies, and all of them together (0.0.0.0) by an IPv6 socket that is bound to the mapped form.
// Locking:    none; a thread of its own, which shares nothing but counters.
#pragma once

#include "counters.h"
#include "udp_endpoint.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

class StatusResponder
{
public:
    using Status = std::function<std::string()>; // one line; called on the responder's thread

    StatusResponder(UdpEndpoint localEndpoint, Status statusLine, Counters &counted);
    ~StatusResponder(); // stops
    StatusResponder(const StatusResponder &) = delete;
    StatusResponder &operator=(const StatusResponder &) = delete;

    // Binds the socket. Returns an empty text, or why not.
    std::string open();

    void start();
    void stop(); // harmless when not started

private:
    std::string bindSocket();
    void run();
    bool answerOne();  // false: no datagram is waiting
    void rest() const; // for a moment, or until stopped

    UdpEndpoint endpoint;
    Status status;
    Counters &counters;
    int fd = -1;
    int wake = -1; // eventfd that stop() writes
    std::atomic<bool> stopping = false;
    std::thread thread;
};
