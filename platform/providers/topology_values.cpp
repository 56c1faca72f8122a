// topology_values.cpp: the small texts of a topology file.
#include "topology_values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace kel
{
namespace
{
constexpr std::size_t longestValue = 63; // bytes; more than any of these needs
}

std::optional<unsigned> takeNumber(std::string_view &text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc())
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

bool takeText(std::string_view &text, std::string_view wanted)
{
    if (!text.starts_with(wanted))
        return false;
    text.remove_prefix(wanted.size());
    return true;
}

std::array<std::uint8_t, 6> readMac(const JsonPlace &place)
{
    const std::string text = place.text(longestValue);
    std::array<std::uint8_t, 6> mac{};
    const char *at = text.c_str();
    for (std::size_t byte = 0; byte < mac.size(); ++byte) {
        const char *end = at + std::min<std::size_t>(2, std::strlen(at));
        const auto [behind, error] = std::from_chars(at, end, mac.at(byte), 16);
        const char separator = byte + 1 < mac.size() ? ':' : '\0';
        if (error != std::errc() || behind != at + 2 || *behind != separator)
            place.refuse("must be a station address like 02:00:00:00:01:2f, is \"" + text + "\"");
        at = behind + 1;
    }
    return mac;
}

kelStandinAddress readAddress(const JsonPlace &place)
{
    const std::string text = place.text(longestValue);
    const std::size_t slash = text.find('/');
    const std::string host = text.substr(0, slash);
    kelStandinAddress address{};
    if (inet_pton(AF_INET, host.c_str(), address.bytes) == 1)
        address.family = AF_INET;
    else if (inet_pton(AF_INET6, host.c_str(), address.bytes) == 1)
        address.family = AF_INET6;
    std::string_view rest = slash == std::string::npos ? std::string_view() : std::string_view(text).substr(slash + 1);
    const auto length = takeNumber(rest);
    if (address.family == 0 || !length || !rest.empty() || *length > (address.family == AF_INET ? 32u : 128u))
        place.refuse("must be an address like 192.0.2.1/24 or 2001:db8::1/64, is \"" + text + "\"");
    address.prefixLength = static_cast<std::uint8_t>(*length);
    return address;
}

bool readLink(const JsonPlace &place)
{
    return place.oneOf({"down", "up"}) == 1;
}

} // namespace kel
