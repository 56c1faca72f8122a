// netlink_provider.cpp: the route netlink socket, the dumps, and the platform's thread.
//
// Policy:     the socket is subscribed before the first dump is asked for, so that no change falls between. The dumps
//             of links, bridge VLANs and addresses add up to a picture; from then on each message changes it.
//             Messages that were lost (ENOBUFS) start everything over with a fresh socket and an empty picture: what
//             is left in the old socket is of no use, as any message behind the loss may contradict the hosts's true
//             state.
// Locking:    none; everything but the stop signal and the count of resynchronisations belongs to the platform's
//             thread.
#include "netlink_provider.h"

#include "host_ports.h"
#include "netlink_messages.h"
#include "provider_error.h"

#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <future>
#include <span>
#include <system_error>
#include <thread>
#include <vector>

namespace kel
{
namespace
{
struct SocketDeleter {
    void operator()(nl_sock *socket) const
    {
        nl_socket_free(socket);
    }
};
using Socket = std::unique_ptr<nl_sock, SocketDeleter>;

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

Socket openSocket(int receiveBuffer)
{
    Socket socket(nl_socket_alloc());
    if (socket == nullptr)
        throw ProviderError("netlink: cannot make a socket: no memory");
    check(nl_connect(socket.get(), NETLINK_ROUTE), "open a route socket");
    check(nl_socket_set_buffer_size(socket.get(), receiveBuffer, 0), "set the receive buffer");
    check(nl_socket_set_nonblocking(socket.get()), "make the socket non-blocking");
    check(nl_socket_add_memberships(socket.get(), RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, 0),
          "subscribe to links and addresses");
    return socket;
}

// What is asked for after each other.
enum class Dump { links, bridgeVlans, addresses, none };

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

class NetlinkProvider::Follower
{
public:
    explicit Follower(const Options &options) : options_(options)
    {
        if (stopSignal_ < 0)
            throw ProviderError(std::string("netlink: cannot make a stop signal: ") + std::strerror(errno));
        try {
            startOver();
            thread_ = std::thread([this] { run(); });
            firstPicture_.get_future().get();
        } catch (...) {
            end();
            throw;
        }
    }

    ~Follower()
    {
        end();
    }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    unsigned resynchronisations() const noexcept
    {
        return resynchronisations_.load(std::memory_order_relaxed);
    }

private:
    void end() noexcept
    {
        if (thread_.joinable()) {
            eventfd_write(stopSignal_, 1);
            thread_.join();
        }
        if (stopSignal_ >= 0)
            close(stopSignal_);
        stopSignal_ = -1;
    }

    void run() noexcept
    {
        pthread_setname_np(pthread_self(), "kelPlatform");
        try {
            while (waitForBytes())
                receive();
        } catch (const std::exception &error) {
            fail(error);
        }
    }

    // The first failure belongs to start(), a later one to whoever wants to hear of it.
    void fail(const std::exception &error) noexcept
    {
        if (!pictureShown_)
            firstPicture_.set_exception(std::current_exception());
        else if (options_.onFailure)
            options_.onFailure(error.what());
    }

    // Returns false when told to stop.
    bool waitForBytes()
    {
        pollfd sources[] = {{.fd = stopSignal_, .events = POLLIN, .revents = 0},
                            {.fd = nl_socket_get_fd(socket_.get()), .events = POLLIN, .revents = 0}};
        while (poll(sources, std::size(sources), -1) < 0)
            if (errno != EINTR)
                throw ProviderError(std::string("netlink: cannot wait for messages: ") + std::strerror(errno));
        return sources[0].revents == 0;
    }

    void receive()
    {
        sockaddr_nl sender{};
        unsigned char *bytes = nullptr;
        const int length = nl_recv(socket_.get(), &sender, &bytes, nullptr);
        const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
        if (length == -NLE_NOMEM) // how libnl spells ENOBUFS
            resynchronise();
        else if (length == -NLE_AGAIN || length == 0)
            return;
        else if (check(length, "receive"); sender.nl_pid == 0) // the kernel's; other processes may write to us as well
            take(parseNetlink(std::as_bytes(std::span(bytes, static_cast<std::size_t>(length))), sequence_));
    }

    void take(const NetlinkBatch &batch)
    {
        if (batch.overrun) {
            resynchronise();
            return;
        }
        for (const HostEvent &event : batch.events) {
            picture_.take(event);
            if (dump_ == Dump::none)
                ports_.follow(picture_, linkOf(event));
        }
        interrupted_ = interrupted_ || batch.dumpInterrupted;
        if (batch.error == EOPNOTSUPP && dump_ == Dump::bridgeVlans)
            nextDump(); // a kernel without bridges
        else if (batch.error != 0)
            throw ProviderError(std::string("netlink: the kernel refused to tell: ") + std::strerror(batch.error));
        else if (batch.dumpDone)
            endDump();
    }

    // ---- Dumps

    void startOver()
    {
        socket_ = openSocket(options_.receiveBuffer);
        picture_ = {};
        request(Dump::links);
    }

    void resynchronise()
    {
        resynchronisations_.fetch_add(1, std::memory_order_relaxed);
        startOver();
    }

    void request(Dump dump)
    {
        const Message message = dumpRequest(dump);
        dump_ = dump;
        interrupted_ = false;
        check(nl_send_auto(socket_.get(), message.get()), "ask the kernel");
        sequence_ = nlmsg_hdr(message.get())->nlmsg_seq;
    }

    // A dump during which links came or went may lack others; nothing in the picture is wrong, so it is asked for
    // again.
    void endDump()
    {
        if (interrupted_)
            request(dump_);
        else
            nextDump();
    }

    void nextDump()
    {
        if (dump_ == Dump::links)
            request(Dump::bridgeVlans);
        else if (dump_ == Dump::bridgeVlans)
            request(Dump::addresses);
        else
            showPicture();
    }

    void showPicture()
    {
        dump_ = Dump::none;
        ports_.followAll(picture_);
        if (!pictureShown_)
            firstPicture_.set_value();
        pictureShown_ = true;
    }

    const Options &options_;
    int stopSignal_ = eventfd(0, EFD_CLOEXEC);
    Socket socket_;
    std::uint32_t sequence_ = 0; // of the dump under way
    Dump dump_ = Dump::none;
    bool interrupted_ = false;
    HostPicture picture_;
    HostPorts ports_;
    bool pictureShown_ = false;
    std::promise<void> firstPicture_;
    std::atomic<unsigned> resynchronisations_{0};
    std::thread thread_;
};

NetlinkProvider::NetlinkProvider() = default;
NetlinkProvider::NetlinkProvider(Options options) : options_(std::move(options)) {}

NetlinkProvider::~NetlinkProvider()
{
    stop();
}

void NetlinkProvider::start()
{
    if (follower_ == nullptr)
        follower_ = std::make_unique<Follower>(options_);
}

void NetlinkProvider::stop() noexcept
{
    follower_.reset();
}

unsigned NetlinkProvider::resynchronisations() const noexcept
{
    return follower_ == nullptr ? 0 : follower_->resynchronisations();
}

} // namespace kel
