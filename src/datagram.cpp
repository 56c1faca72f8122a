// datagram.cpp: receive with destination, send with source.
//
// Policy:     the packet-information record is copied byte for byte to and from the control data, by the table in the
//             header; nothing is converted, and nothing is assumed about the alignment of either.
//             Lengths in received control data are not trusted: nothing outside it is read, and a message counts only
//             when all of its data is there.
// Locking:    none; all state is the caller's or on the stack.
// Invariants: every byte of the control data that is sent is set, padding included.
#include "vxw_shim.h"

#include <netinet/in.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace
{
constexpr size_t HeaderBytes = sizeof(cmsghdr);
constexpr size_t Ipv4DataBytes = sizeof(in_pktinfo);
constexpr size_t Ipv6DataBytes = sizeof(in6_pktinfo);
constexpr size_t Ipv4ControlBytes = CMSG_SPACE(Ipv4DataBytes);
constexpr size_t Ipv6ControlBytes = CMSG_SPACE(Ipv6DataBytes);

static_assert(HeaderBytes == 16 && Ipv4ControlBytes == 32 && Ipv6ControlBytes == 40, "the layout of the control data");
static_assert(sizeof(packet_info) == 20 && Ipv6DataBytes == 20 && Ipv4DataBytes == 12);
static_assert(offsetof(in_pktinfo, ipi_spec_dst) == 4 && offsetof(in_pktinfo, ipi_addr) == 8);
static_assert(offsetof(in6_pktinfo, ipi6_ifindex) == 16);

struct alignas(cmsghdr) Control {
    unsigned char bytes[Ipv6ControlBytes] = {};
};

sa_family_t familyOf(const sockaddr *address)
{
    sa_family_t family;
    memcpy(&family, address, sizeof family); // the address may stand anywhere
    return family;
}

constexpr size_t roundedUp(size_t bytes)
{
    return (bytes + 7) / 8 * 8;
}

// Copies a control message's data into the record if it is packet information of the family.
void copyInfo(sa_family_t family, const cmsghdr &header, const unsigned char *data, size_t dataBytes,
              unsigned char *record)
{
    if (family == AF_INET && header.cmsg_level == IPPROTO_IP && header.cmsg_type == IP_PKTINFO &&
        dataBytes >= Ipv4DataBytes) {
        memcpy(record, data, 4);
        memcpy(record + 8, data + 8, 4);
    } else if (family == AF_INET6 && header.cmsg_level == IPPROTO_IPV6 && header.cmsg_type == IPV6_PKTINFO &&
               dataBytes >= Ipv6DataBytes) {
        memcpy(record, data, Ipv6DataBytes);
    }
}

// Walks the control messages: each starts where the one before it ends, rounded up to 8, and one that says that it goes
// beyond the control data is the last. In 40 bytes only the first can have room for packet information.
void readInfo(sa_family_t family, const unsigned char *control, size_t controlBytes, unsigned char *record)
{
    size_t start = 0;
    while (controlBytes - start >= HeaderBytes) {
        cmsghdr header;
        memcpy(&header, control + start, HeaderBytes);
        if (header.cmsg_len < HeaderBytes)
            return;
        const size_t room = controlBytes - start;
        const size_t messageBytes = header.cmsg_len < room ? header.cmsg_len : room;
        copyInfo(family, header, control + start + HeaderBytes, messageBytes - HeaderBytes, record);
        if (header.cmsg_len > room || roundedUp(header.cmsg_len) > room)
            return;
        start += roundedUp(header.cmsg_len);
    }
}

void putHeader(unsigned char *control, int level, int type, size_t dataBytes)
{
    cmsghdr header = {};
    header.cmsg_len = CMSG_LEN(dataBytes);
    header.cmsg_level = level;
    header.cmsg_type = type;
    memcpy(control, &header, HeaderBytes);
}

// ::ffff:0:0/96. A destination too short for an IPv6 address is none; the kernel refuses it.
bool isMapped(const sockaddr *destination, socklen_t destinationBytes)
{
    constexpr unsigned char prefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    return destinationBytes >= offsetof(sockaddr_in6, sin6_addr) + sizeof(in6_addr) &&
           memcmp(reinterpret_cast<const unsigned char *>(destination) + offsetof(sockaddr_in6, sin6_addr), prefix,
                  sizeof prefix) == 0;
}

// Builds the control message for a destination in cleared control data. Returns its length, 0 for none.
size_t putInfo(const sockaddr *destination, socklen_t destinationBytes, const unsigned char *record,
               unsigned char *control)
{
    unsigned char *const data = control + HeaderBytes;
    const sa_family_t family = familyOf(destination);
    if (family == AF_INET) {
        putHeader(control, IPPROTO_IP, IP_PKTINFO, Ipv4DataBytes);
        memcpy(data, record, 4);
        memcpy(data + 8, record + 8, 4);
        return Ipv4ControlBytes;
    }
    if (family != AF_INET6)
        return 0;
    if (isMapped(destination, destinationBytes)) {
        // Kept: here the source address goes into the specific-destination field, where Linux looks for it, and for a
        // plain IPv4 destination into the address field (SendtoWsrc.AMappedDestinationHasItsSourceInTheOtherField).
        putHeader(control, IPPROTO_IP, IP_PKTINFO, Ipv4DataBytes);
        memcpy(data, record + 16, 4);
        memcpy(data + 4, record + 12, 4);
        return Ipv4ControlBytes;
    }
    putHeader(control, IPPROTO_IPV6, IPV6_PKTINFO, Ipv6DataBytes);
    memcpy(data, record, Ipv6DataBytes);
    return Ipv6ControlBytes;
}
} // namespace

ssize_t recvfrom_wdst(int socket, void *buffer, int length, int flags, sockaddr *source, socklen_t *sourceBytes,
                      packet_info *info)
{
    Control control;
    iovec part = {buffer, static_cast<size_t>(length)};
    msghdr message = {};
    message.msg_name = source;
    message.msg_namelen = sourceBytes != nullptr ? *sourceBytes : 0;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    const ssize_t received = recvmsg(socket, &message, flags);
    if (received < 0)
        return received;
    if (sourceBytes != nullptr)
        *sourceBytes = message.msg_namelen;
    // Kept: without a source address to look at there is no family, and the record stays as it was
    // (RecvfromWdst.WithoutASourceAddressTheRecordIsNeverFilled).
    if (message.msg_controllen < HeaderBytes || source == nullptr || (message.msg_flags & MSG_CTRUNC) != 0 ||
        info == nullptr)
        return received;
    auto *const record = reinterpret_cast<unsigned char *>(info);
    memset(record, 0, sizeof *info);
    const size_t controlBytes =
        message.msg_controllen < sizeof control.bytes ? message.msg_controllen : sizeof control.bytes;
    readInfo(familyOf(source), control.bytes, controlBytes, record);
    return received;
}

ssize_t sendto_wsrc(int socket, const void *buffer, int length, int flags, const sockaddr *destination,
                    socklen_t destinationBytes, const packet_info *info)
{
    Control control;
    iovec part = {const_cast<void *>(buffer), static_cast<size_t>(length)};
    msghdr message = {};
    message.msg_name = const_cast<sockaddr *>(destination);
    message.msg_namelen = destinationBytes;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (info != nullptr && destination != nullptr) {
        message.msg_control = control.bytes;
        message.msg_controllen =
            putInfo(destination, destinationBytes, reinterpret_cast<const unsigned char *>(info), control.bytes);
    }
    return sendmsg(socket, &message, flags);
}
