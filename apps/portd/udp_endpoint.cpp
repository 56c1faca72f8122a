// udp_endpoint.cpp: a local address and port, as the command line gives them.
#include "udp_endpoint.h"

#include <charconv>
#include <netdb.h>
#include <sys/socket.h>

std::optional<UdpEndpoint> parseUdpEndpoint(const std::string &text)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0)
        return std::nullopt;
    UdpEndpoint endpoint;
    endpoint.text = text;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, endpoint.port);
    if (error != std::errc() || stop != end || endpoint.port == 0)
        return std::nullopt;
    std::string host = text.substr(0, colon);
    const bool inBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (inBrackets)
        host = host.substr(1, host.size() - 2);
    const unsigned short family = inBrackets ? AF_INET6 : AF_INET;
    if (endpoint.address.setAddrString(host.c_str(), family, AI_NUMERICHOST) != 0 || endpoint.address.family != family)
        return std::nullopt;
    return endpoint;
}
