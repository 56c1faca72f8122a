// netlink_provider.cpp: the dumps, the changes, and the platform's thread.
//
// Policy:  the socket is subscribed before the first dump is asked for, so that no change falls between. The dumps of
//          links, bridge VLANs and addresses add up to a picture; from then on each message changes it. Messages that
//          were lost start everything over with a fresh socket and an empty picture: what is left in the old socket
//          is of no use, as any message behind the loss may contradict the host's true state.
// Locking: none; everything but the stop signal and the count of resynchronisations belongs to the platform's thread.
#include "netlink_provider.h"

#include "host_ports.h"
#include "netlink_socket.h"
#include "provider_error.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <optional>
#include <thread>

namespace kel
{

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
                take(socket_->receive());
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
                            {.fd = socket_->descriptor(), .events = POLLIN, .revents = 0}};
        while (poll(sources, std::size(sources), -1) < 0)
            if (errno != EINTR)
                throw ProviderError(std::string("netlink: cannot wait for messages: ") + std::strerror(errno));
        return sources[0].revents == 0;
    }

    void take(const NetlinkBatch &batch)
    {
        if (batch.overrun) {
            resynchronise();
            return;
        }
        for (const HostEvent &event : batch.events) {
            picture_.take(event);
            if (!dump_)
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
        socket_.emplace(options_.receiveBuffer);
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
        dump_ = dump;
        interrupted_ = false;
        socket_->ask(dump);
    }

    // A dump during which links came or went may lack others; nothing in the picture is wrong, so it is asked for
    // again.
    void endDump()
    {
        if (interrupted_)
            request(*dump_);
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
        dump_.reset();
        ports_.followAll(picture_);
        if (!pictureShown_)
            firstPicture_.set_value();
        pictureShown_ = true;
    }

    const Options &options_;
    int stopSignal_ = eventfd(0, EFD_CLOEXEC);
    std::optional<NetlinkSocket> socket_;
    std::optional<Dump> dump_; // the one under way; none: the picture is complete
    bool interrupted_ = false; // the dump under way
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
