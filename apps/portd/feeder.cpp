// feeder.cpp: what fills the platform's inventory: this host's interfaces, or a simulated chassis.
#include "feeder.h"

#include <netlink_provider.h>
#include <topology_provider.h>

namespace
{
class HostFeeder : public Feeder
{
public:
    void start(OnFailure onFailure) override
    {
        kel::NetlinkProvider::Options options;
        options.onFailure = std::move(onFailure);
        provider = std::make_unique<kel::NetlinkProvider>(std::move(options));
        provider->start();
    }

    void stop() override
    {
        provider.reset();
    }

private:
    std::unique_ptr<kel::NetlinkProvider> provider;
};

class TopologyFeeder : public Feeder
{
public:
    explicit TopologyFeeder(const std::string &file) : provider(kel::readTopology(file)) {}

    void start(OnFailure) override
    {
        provider.start();
    }
    void stop() override
    {
        provider.stop();
    }

private:
    kel::TopologyProvider provider;
};
} // namespace

std::unique_ptr<Feeder> Feeder::forHost()
{
    return std::make_unique<HostFeeder>();
}

std::unique_ptr<Feeder> Feeder::forTopology(const std::string &file)
{
    return std::make_unique<TopologyFeeder>(file);
}
