// topology_provider.cpp: the platform's thread of a simulated chassis, and its clock.
//
// Policy:     events come in the order of their time, those of one time in the order of the file; an event that is late
//             is played at once. A repeated one is due again `every` after the time when it was due.
// Locking:    lock_ guards the stop mark and the end mark; it is not held while an event is played.
#include "topology_provider.h"

#include "chassis.h"

#include <pthread.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <queue>
#include <thread>

namespace kel
{
namespace
{
struct Due {
    std::chrono::milliseconds at;
    std::size_t event; // its place in the file
    unsigned timesLeft;

    // The queue's top is the largest: the earliest, and the first in the file.
    bool operator<(const Due &other) const
    {
        return at != other.at ? at > other.at : event > other.event;
    }
};
} // namespace

class TopologyProvider::Player
{
public:
    explicit Player(const Topology &topology) : topology_(topology), chassis_(topology)
    {
        for (std::size_t event = 0; event < topology.events.size(); ++event)
            due_.push({topology.events[event].at, event, topology.events[event].times});
        thread_ = std::thread([this] { run(); });
        try {
            built_.get_future().get();
        } catch (...) {
            thread_.join();
            throw;
        }
    }

    ~Player()
    {
        {
            const std::lock_guard lock(lock_);
            stopping_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    bool waitForEnd(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(lock_);
        return changed_.wait_for(lock, limit, [this] { return ended_; });
    }

private:
    void run() noexcept
    {
        pthread_setname_np(pthread_self(), "kelPlatform");
        try {
            chassis_.build();
        } catch (...) {
            built_.set_exception(std::current_exception());
            return;
        }
        built_.set_value();
        playAll();
        const std::lock_guard lock(lock_);
        ended_ = true;
        changed_.notify_all();
    }

    void playAll() noexcept
    {
        const auto start = std::chrono::steady_clock::now();
        while (!due_.empty() && waitUntil(start + due_.top().at)) {
            Due due = due_.top();
            due_.pop();
            const TopologyEvent &event = topology_.events[due.event];
            playOnce(event);
            if (--due.timesLeft > 0) {
                due.at += event.every;
                due_.push(due);
            }
        }
    }

    // The inventory refuses nothing that it took when the chassis was built, except for lack of memory.
    void playOnce(const TopologyEvent &event) noexcept
    {
        try {
            chassis_.play(event);
        } catch (const ProviderError &) {
        }
    }

    // Returns false when told to stop.
    bool waitUntil(std::chrono::steady_clock::time_point time)
    {
        std::unique_lock lock(lock_);
        return !changed_.wait_until(lock, time, [this] { return stopping_; });
    }

    const Topology &topology_;
    Chassis chassis_;
    std::priority_queue<Due> due_; // the platform's thread's, once it runs
    std::promise<void> built_;
    std::mutex lock_;
    std::condition_variable changed_;
    bool stopping_ = false; // under lock_
    bool ended_ = false;    // under lock_
    std::thread thread_;
};

TopologyProvider::TopologyProvider(Topology topology) : topology_(std::move(topology)) {}

TopologyProvider::~TopologyProvider()
{
    stop();
}

void TopologyProvider::start()
{
    if (player_ == nullptr)
        player_ = std::make_unique<Player>(topology_);
}

void TopologyProvider::stop() noexcept
{
    player_.reset();
}

bool TopologyProvider::waitForEnd(std::chrono::milliseconds limit)
{
    return player_ != nullptr && player_->waitForEnd(limit);
}

} // namespace kel
