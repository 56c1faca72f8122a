// ipaddr_bench.cpp: CIpAddress and CIpHostname beside what else parses and prints addresses.
//
// The floor is the one call of the C library that an operation is documented to make.
#include "ipaddr.h"
#include "row.h"

#include <arpa/inet.h>
#include <boost/asio/ip/address.hpp>
#include <netdb.h>
#include <netinet/in.h>

#include <cstring>

namespace
{
namespace asio = boost::asio::ip;
__extension__ typedef unsigned __int128 Number;

struct Text {
    const char *name; // of the row
    const char *text;
    unsigned short family;
};
constexpr Text texts[] = {
    {"ipv4", "192.168.100.201", AF_INET},
    {"ipv6", "2001:db8:85a3::8a2e:370:7334", AF_INET6},
};

CIpAddress parsed(const Text &text)
{
    CIpAddress address;
    address.setAddrString(text.text, text.family, AI_NUMERICHOST);
    return address;
}

void parse(const Text &text)
{
    const std::string operation = std::string("ip_parse_") + text.name;
    row(operation, "ours", [text] {
        return [text, address = CIpAddress()]() mutable {
            keep(address.setAddrString(text.text, text.family, AI_NUMERICHOST));
        };
    });
    row(operation, "asio", [text] { return [text] { keep(asio::make_address(text.text)); }; });
    row(operation, "inet_pton", [text] {
        return [text, address = in6_addr()]() mutable { keep(inet_pton(text.family, text.text, &address)); };
    });
    row(operation, "floor", [text] { // getaddrinfo() alone
        return [text] {
            addrinfo hints{};
            hints.ai_flags = AI_NUMERICHOST;
            hints.ai_family = text.family;
            addrinfo *list = nullptr;
            keep(getaddrinfo(text.text, nullptr, &hints, &list));
            freeaddrinfo(list);
        };
    });
}

void print(const Text &text)
{
    const std::string operation = std::string("ip_print_") + text.name;
    row(operation, "ours", [text] {
        return [address = parsed(text)] {
            char buf[64];
            keep(address.privResolveAddrString(buf, sizeof buf));
            keep(buf);
        };
    });
    row(operation, "asio", [text] { return [address = asio::make_address(text.text)] { keep(address.to_string()); }; });
    row(operation, "inet_ntop", [text] {
        in6_addr address{};
        inet_pton(text.family, text.text, &address);
        return [text, address] {
            char buf[64];
            keep(inet_ntop(text.family, &address, buf, sizeof buf));
        };
    });
    row(operation, "floor", [text] { // getnameinfo() alone
        sockaddr_storage name;
        const CIpAddress address = parsed(text);
        memcpy(&name, &address, sizeof name);
        return [name, text] {
            char buf[64];
            const socklen_t length = text.family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
            keep(getnameinfo(reinterpret_cast<const sockaddr *>(&name), length, buf, sizeof buf, nullptr, 0,
                             NI_NUMERICHOST));
            keep(buf);
        };
    });
}

// The distance of two addresses, and the address that far on.
void range()
{
    row("ip_range_ipv4", "ours", [] {
        return [first = parsed({"", "10.1.0.1", AF_INET}), last = parsed({"", "10.1.200.7", AF_INET}),
                out = CIpAddress()]() mutable {
            unsigned count = 0;
            keep(first.findAddressRange(last, count));
            keep(first.getAddressFromRangeOffset(count, out));
            keep(out);
        };
    });
    row("ip_range_ipv4", "asio", [] {
        return [first = asio::make_address_v4("10.1.0.1"), last = asio::make_address_v4("10.1.200.7")]() mutable {
            benchmark::ClobberMemory();
            keep(&first);
            const unsigned count = last.to_uint() - first.to_uint();
            keep(count);
            keep(asio::address_v4(first.to_uint() + count));
        };
    });
    row("ip_range_ipv6", "ours", [] {
        return [first = parsed({"", "2001:db8::1", AF_INET6}), last = parsed({"", "2001:db8::1:2345", AF_INET6}),
                out = CIpAddress()]() mutable {
            unsigned count = 0;
            keep(first.findAddressRange(last, count));
            keep(first.getAddressFromRangeOffset(count, out));
            keep(out);
        };
    });
    row("ip_range_ipv6", "asio", [] {
        // By its user: 128-bit numbers from and to the bytes.
        const auto number = [](const asio::address_v6 &address) {
            Number value = 0;
            for (const unsigned char byte : address.to_bytes())
                value = value << 8 | byte;
            return value;
        };
        return [number, first = asio::make_address_v6("2001:db8::1"),
                last = asio::make_address_v6("2001:db8::1:2345")]() mutable {
            benchmark::ClobberMemory();
            keep(&first);
            const Number count = number(last) - number(first);
            Number sum = number(first) + count;
            asio::address_v6::bytes_type bytes;
            for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, sum >>= 8)
                *byte = static_cast<unsigned char>(sum);
            keep(asio::address_v6(bytes));
        };
    });
}

// A peer's user classifies the text and writes text and address one behind the other.
struct PeersHost {
    unsigned char type;
    std::string name;
    unsigned char family;
    in6_addr address;
};

void hostName()
{
    static constexpr const char *text = "2001:db8:85a3::8a2e:370:7334";
    row("host_name_store", "ours",
        [] { return [host = CIpHostname()]() mutable { keep(host.privDecodeNStoreString(text)); }; });
    row("host_name_store", "inet_pton", [] {
        return [host = PeersHost()]() mutable {
            host.name = text;
            const bool isV4 = inet_pton(AF_INET, text, &host.address) == 1;
            host.type = isV4 || inet_pton(AF_INET6, text, &host.address) == 1 ? 2 : 1;
            keep(host);
        };
    });
    row("host_name_store", "floor", [] { // both tries of getaddrinfo()
        return [] {
            for (const int family : {AF_INET, AF_INET6}) {
                addrinfo hints{};
                hints.ai_flags = AI_NUMERICHOST;
                hints.ai_family = family;
                addrinfo *list = nullptr;
                if (getaddrinfo(text, nullptr, &hints, &list) == 0)
                    freeaddrinfo(list);
            }
        };
    });
    row("host_name_record", "ours", [] {
        CIpHostname host;
        host.privDecodeNStoreString(text);
        return [host, back = CIpHostname(), record = std::vector<unsigned char>(300)]() mutable {
            int written = 0;
            keep(host.serialize(record.data(), written, 300));
            benchmark::ClobberMemory();
            int read = 0;
            keep(back.deserialize(record.data(), read, written));
        };
    });
    row("host_name_record", "std_string", [] {
        PeersHost host{2, text, AF_INET6, {}};
        inet_pton(AF_INET6, text, &host.address);
        return [host, back = PeersHost(), record = std::string()]() mutable {
            record.clear();
            record += static_cast<char>(host.type);
            record += static_cast<char>(host.name.size());
            record += host.name;
            record += static_cast<char>(host.family);
            record.append(reinterpret_cast<const char *>(&host.address), sizeof host.address);
            benchmark::ClobberMemory();
            const size_t length = static_cast<unsigned char>(record[1]);
            back.type = static_cast<unsigned char>(record[0]);
            back.name.assign(record, 2, length);
            back.family = static_cast<unsigned char>(record[2 + length]);
            memcpy(&back.address, record.data() + 3 + length, sizeof back.address);
            keep(back);
        };
    });
}

[[maybe_unused]] const bool registered = [] {
    for (const Text &text : texts)
        parse(text);
    for (const Text &text : texts)
        print(text);
    range();
    hostName();
    return true;
}();
} // namespace
