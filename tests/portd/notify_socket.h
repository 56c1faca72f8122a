// notify_socket.h: the service manager's end of a notify socket.
#pragma once

#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

class NotifySocket
{
public:
    // `socketAddress`: a path, or '@' and an abstract name.
    explicit NotifySocket(const std::string &socketAddress) : address(socketAddress)
    {
        sockaddr_un own = {};
        own.sun_family = AF_UNIX;
        memcpy(own.sun_path, address.data(), address.size());
        if (address[0] == '@')
            own.sun_path[0] = '\0';
        const size_t end = offsetof(sockaddr_un, sun_path) + address.size() + (address[0] != '@');
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&own), static_cast<socklen_t>(end))) << address;
    }
    ~NotifySocket()
    {
        close(fd);
        if (address[0] != '@')
            unlink(address.c_str());
    }
    NotifySocket(const NotifySocket &) = delete;
    NotifySocket &operator=(const NotifySocket &) = delete;

    // The next state that was sent; empty when none comes for `patience_ms`.
    std::string next(int patience_ms = 60'000) const
    {
        pollfd wait = {fd, POLLIN, 0};
        char state[256];
        if (poll(&wait, 1, patience_ms) != 1)
            return "";
        const ssize_t count = recv(fd, state, sizeof state, 0);
        return count < 0 ? "" : std::string(state, static_cast<size_t>(count));
    }
    // Whether a state is among those that come, soon.
    bool comes(const std::string &state) const
    {
        for (std::string seen = next(); !seen.empty(); seen = next())
            if (seen == state)
                return true;
        return false;
    }

    const std::string address;

private:
    int fd;
};
