// netlink_provider.h: fills the stand-in's inventory with this Linux host's interfaces, and follows them.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kel
{

// The interfaces of the network namespace in which start() is called.
//
// One provider at a time fills the inventory. start() and stop() come from one thread. Every change, and so every call
// of the stand-in's listener, is made on the provider's own thread, the platform's.
class NetlinkProvider
{
public:
    struct Options {
        int receiveBuffer = 1 << 20; // bytes that the kernel may keep for us before it drops messages
        // Called on the platform's thread when the host can be followed no longer; may be empty.
        std::function<void(const std::string &reason)> onFailure;
    };

    NetlinkProvider();
    explicit NetlinkProvider(Options options);
    ~NetlinkProvider(); // stops
    NetlinkProvider(const NetlinkProvider &) = delete;
    NetlinkProvider &operator=(const NetlinkProvider &) = delete;

    // Returns when the links that exist now are in the inventory; throws ProviderError when they cannot be read.
    void start();

    // Returns when the platform's thread has ended; the inventory stays as it is. Not to be called by the listener.
    void stop() noexcept;

    // How often messages were lost and everything was read anew.
    unsigned resynchronisations() const noexcept;

private:
    class Follower;
    Options options_;
    std::unique_ptr<Follower> follower_; // while started
};

} // namespace kel
