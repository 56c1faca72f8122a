// host_event.cpp: adds events up to a picture of the host's links. No locks: one thread owns a picture.
#include "host_event.h"

#include <algorithm>
#include <cstring>

namespace kel
{
namespace
{
bool sameAddress(const kelStandinAddress &one, const kelStandinAddress &other)
{
    return one.family == other.family && one.prefixLength == other.prefixLength &&
           std::memcmp(one.bytes, other.bytes, sizeof one.bytes) == 0;
}
} // namespace

int linkOf(const HostEvent &event)
{
    return std::visit([](const auto &it) { return it.index; }, event);
}

void HostPicture::take(const HostEvent &event)
{
    std::visit([this](const auto &it) { apply(it); }, event);
}

void HostPicture::apply(const LinkIs &link)
{
    links[link.index].link = link;
}

void HostPicture::apply(const LinkIsGone &link)
{
    links.erase(link.index);
}

void HostPicture::apply(const BridgeVlansAre &vlans)
{
    if (const auto found = links.find(vlans.index); found != links.end())
        found->second.vlans = vlans.vlans;
}

void HostPicture::apply(const AddressIs &change)
{
    const auto found = links.find(change.index);
    if (found == links.end())
        return;
    auto &addresses = found->second.addresses;
    const auto place = std::ranges::find_if(
        addresses, [&](const kelStandinAddress &address) { return sameAddress(address, change.address); });
    if (change.gone && place != addresses.end())
        addresses.erase(place);
    else if (!change.gone && place == addresses.end())
        addresses.push_back(change.address);
}

} // namespace kel
