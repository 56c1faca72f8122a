// topology_values.h: station and IP addresses, link states and numbers in a topology file.
#pragma once

#include "json_place.h"

#include <kel_standin.h>

#include <array>
#include <optional>
#include <string_view>

namespace kel
{

// A decimal number at the start of `text`, which moves behind it; none when there is no digit or it is too large.
std::optional<unsigned> takeNumber(std::string_view &text);

// Whether `text` starts with `wanted`; it then moves behind it.
bool takeText(std::string_view &text, std::string_view wanted);

// These throw TopologyError when the value is of another form.
std::array<std::uint8_t, 6> readMac(const JsonPlace &place);
kelStandinAddress readAddress(const JsonPlace &place);
bool readLink(const JsonPlace &place); // true: up

} // namespace kel
