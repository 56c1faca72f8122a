// console_protocol.cpp: what kel-portd and kel-portctl say to each other.
#include "console_protocol.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
bool looksLikeLastLine(std::string_view line)
{
    return line == replyOk || line.starts_with(replyError);
}
} // namespace

std::string framed(const Reply &reply)
{
    std::string text;
    std::string_view rest = reply.text;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        if (looksLikeLastLine(line))
            text += ' ';
        text.append(line) += '\n';
        rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : line.size());
    }
    if (reply.error.empty())
        text += replyOk;
    else
        text.append(replyError) += reply.error;
    return text + '\n';
}

std::string defaultSocketPath()
{
    if (geteuid() == 0)
        return "/run/kel-portd.sock";
    if (const char *folder = getenv("XDG_RUNTIME_DIR"); folder != nullptr && *folder == '/')
        return std::string(folder) + "/kel-portd.sock";
    return "/tmp/kel-portd-" + std::to_string(geteuid()) + ".sock";
}

int unixSocket(const std::string &path, sockaddr_un &address, std::string &reason)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path || path.find('\0') != std::string::npos) {
        reason = "the path must have 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes";
        return -1;
    }
    memcpy(address.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        reason = strerror(errno);
    return fd;
}
