// console_client.h: a raw connection to a console, for everything that kel-portctl would never do.
#pragma once

#include "console_protocol.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

class ConsoleClient
{
public:
    explicit ConsoleClient(const std::string &path)
    {
        sockaddr_un address;
        std::string reason;
        fd = unixSocket(path, address, reason);
        // A socket that was just made is not listened on yet.
        int result = -1;
        for (int attempt = 0; attempt < 1000 && result != 0; ++attempt) {
            result = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
            if (result != 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_EQ(0, result) << path;
        const timeval hang = {60, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &hang, sizeof hang);
    }
    ~ConsoleClient()
    {
        close(fd);
    }
    ConsoleClient(const ConsoleClient &) = delete;
    ConsoleClient &operator=(const ConsoleClient &) = delete;

    // False when the other side is gone.
    bool say(const std::string &bytes) const
    {
        return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
    }
    void finish() const
    {
        shutdown(fd, SHUT_WR);
    }

    // The next `count` bytes, or fewer at the end of the connection.
    std::string hear(size_t count) const
    {
        std::string text(count, '\0');
        size_t got = 0;
        while (got < count) {
            const ssize_t some = recv(fd, text.data() + got, count - got, 0);
            if (some <= 0)
                break;
            got += size_t(some);
        }
        text.resize(got);
        return text;
    }
    std::string hearAll() const
    {
        std::string text;
        for (std::string some = hear(65536); !some.empty(); some = hear(65536))
            text += some;
        return text;
    }

private:
    int fd;
};
