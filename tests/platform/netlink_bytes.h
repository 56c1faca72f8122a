// netlink_bytes.h: route netlink messages built byte for byte, for links that this machine cannot have.
#pragma once

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class NetlinkBytes
{
public:
    static constexpr std::uint32_t sequence = 77;

    // One message; the lengths are filled in when `body` is done.
    template <class Header>
    NetlinkBytes &message(
        std::uint16_t type, const Header &header, const std::function<void()> &body = [] {}, std::uint16_t flags = 0,
        std::uint32_t number = sequence)
    {
        const std::size_t start = bytes_.size();
        append(nlmsghdr{.nlmsg_len = 0, .nlmsg_type = type, .nlmsg_flags = flags, .nlmsg_seq = number, .nlmsg_pid = 0});
        append(header);
        body();
        const auto length = static_cast<std::uint32_t>(bytes_.size() - start);
        std::memcpy(bytes_.data() + start, &length, sizeof length);
        return *this;
    }

    NetlinkBytes &link(int index, const std::function<void()> &body, unsigned flags = IFF_UP | IFF_RUNNING,
                       std::uint16_t type = RTM_NEWLINK, unsigned char family = AF_UNSPEC)
    {
        ifinfomsg header{};
        header.ifi_family = family;
        header.ifi_index = index;
        header.ifi_flags = flags;
        return message(type, header, body);
    }

    NetlinkBytes &address(int index, unsigned char family, unsigned char prefixLength,
                          const std::function<void()> &body, std::uint16_t type = RTM_NEWADDR)
    {
        ifaddrmsg header{};
        header.ifa_family = family;
        header.ifa_prefixlen = prefixLength;
        header.ifa_index = static_cast<unsigned>(index);
        return message(type, header, body);
    }

    void raw(std::uint16_t type, const void *data, std::size_t size)
    {
        append(nlattr{.nla_len = static_cast<std::uint16_t>(sizeof(nlattr) + size), .nla_type = type});
        append(data, size);
    }

    void number(std::uint16_t type, std::uint32_t value)
    {
        raw(type, &value, sizeof value);
    }
    void text(std::uint16_t type, const std::string &value)
    {
        raw(type, value.c_str(), value.size() + 1);
    }
    void vlan(std::uint16_t id, std::uint16_t flags)
    {
        const bridge_vlan_info info{.flags = flags, .vid = id};
        raw(IFLA_BRIDGE_VLAN_INFO, &info, sizeof info);
    }

    void nest(std::uint16_t type, const std::function<void()> &body)
    {
        const std::size_t start = bytes_.size();
        append(nlattr{.nla_len = 0, .nla_type = type});
        body();
        const auto length = static_cast<std::uint16_t>(bytes_.size() - start);
        std::memcpy(bytes_.data() + start, &length, sizeof length);
    }

    std::vector<std::byte> &bytes()
    {
        return bytes_;
    }

private:
    template <class Plain>
    void append(const Plain &plain)
    {
        append(&plain, sizeof plain);
    }

    void append(const void *data, std::size_t size)
    {
        const auto *from = static_cast<const std::byte *>(data);
        bytes_.insert(bytes_.end(), from, from + size);
        bytes_.resize((bytes_.size() + 3) / 4 * 4);
    }

    std::vector<std::byte> bytes_;
};
