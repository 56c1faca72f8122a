// netlink_socket.cpp: the one place that talks to the kernel; see netlink_socket.h.
#include "netlink_socket.h"

#include "provider_error.h"

#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

#include <cstdlib>
#include <span>
#include <string>

namespace kel
{
namespace
{
struct MessageDeleter {
    void operator()(nl_msg *message) const
    {
        nlmsg_free(message);
    }
};
using Message = std::unique_ptr<nl_msg, MessageDeleter>;

void check(int result, const char *what)
{
    if (result < 0)
        throw ProviderError(std::string("netlink: cannot ") + what + ": " + nl_geterror(result));
}

Message dumpRequest(Dump dump)
{
    const int type = dump == Dump::addresses ? RTM_GETADDR : RTM_GETLINK;
    Message request(nlmsg_alloc_simple(type, NLM_F_REQUEST | NLM_F_DUMP));
    ifinfomsg header{}; // a GETADDR header is shorter and begins with the family too
    header.ifi_family = dump == Dump::bridgeVlans ? AF_BRIDGE : AF_UNSPEC;
    if (request == nullptr || nlmsg_append(request.get(), &header, sizeof header, NLMSG_ALIGNTO) < 0 ||
        (dump == Dump::bridgeVlans && nla_put_u32(request.get(), IFLA_EXT_MASK, RTEXT_FILTER_BRVLAN_COMPRESSED) < 0))
        throw ProviderError("netlink: cannot make a request: no memory");
    return request;
}
} // namespace

void NetlinkSocket::Deleter::operator()(nl_sock *socket) const
{
    nl_socket_free(socket);
}

NetlinkSocket::NetlinkSocket(int receiveBuffer) : socket_(nl_socket_alloc())
{
    if (socket_ == nullptr)
        throw ProviderError("netlink: cannot make a socket: no memory");
    check(nl_connect(socket_.get(), NETLINK_ROUTE), "open a route socket");
    check(nl_socket_set_buffer_size(socket_.get(), receiveBuffer, 0), "set the receive buffer");
    check(nl_socket_set_nonblocking(socket_.get()), "make the socket non-blocking");
    check(nl_socket_add_memberships(socket_.get(), RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, 0),
          "subscribe to links and addresses");
}

int NetlinkSocket::descriptor() const
{
    return nl_socket_get_fd(socket_.get());
}

void NetlinkSocket::ask(Dump dump)
{
    const Message request = dumpRequest(dump);
    check(nl_send_auto(socket_.get(), request.get()), "ask the kernel");
    sequence_ = nlmsg_hdr(request.get())->nlmsg_seq;
}

NetlinkBatch NetlinkSocket::receive()
{
    sockaddr_nl sender{};
    unsigned char *bytes = nullptr;
    const int length = nl_recv(socket_.get(), &sender, &bytes, nullptr);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
    NetlinkBatch batch;
    if (length == -NLE_NOMEM) // how libnl spells ENOBUFS
        batch.overrun = true;
    else if (length != -NLE_AGAIN)
        check(length, "receive");
    if (length > 0 && sender.nl_pid == 0) // from the kernel; other processes may write to us as well
        batch = parseNetlink(std::as_bytes(std::span(bytes, static_cast<std::size_t>(length))), sequence_);
    return batch;
}

} // namespace kel
