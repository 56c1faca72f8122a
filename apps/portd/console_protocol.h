// console_protocol.h: what kel-portd and kel-portctl say to each other.
//
// A session is a stream connection to a Unix-domain socket. A request is one line. A reply is any number of lines and
// then one last line: "ok", or "error: " and the reason. A reply's own lines never look like a last line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

inline constexpr size_t maxRequestBytes = 512; // of a request line, its end not counted
inline constexpr std::string_view replyOk = "ok";
inline constexpr std::string_view replyError = "error: ";

struct Reply {
    std::string text;  // whole lines
    std::string error; // empty: success; otherwise one line, without its end
};

// A reply as it goes over the socket.
std::string framed(const Reply &reply);

// Where the console is when nobody says otherwise: /run for root, the user's runtime folder or /tmp for others.
std::string defaultSocketPath();

// Opens a stream socket and fills in `path`: returns the descriptor, or -1 with the reason.
struct sockaddr_un;
int unixSocket(const std::string &path, sockaddr_un &address, std::string &reason);
