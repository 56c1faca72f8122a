// beside.h: a thread that works beside the measured one.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <thread>
#include <utility>

namespace beside
{
// How many round trips a measurement makes. The benchmark library would take the first few for typical, in which the
// other thread only starts.
inline constexpr int RoundTrips = 4000;

// Keeps the calling thread on one CPU, or lets it go anywhere again. Round trips are measured with both threads on one
// CPU: then they cost the calls and the switch, and not the time an idle CPU takes to wake up.
inline void stayOnCpu(int cpu)
{
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
}

class OnOneCpu
{
public:
    OnOneCpu()
    {
        pthread_getaffinity_np(pthread_self(), sizeof before_, &before_);
        stayOnCpu(sched_getcpu());
    }
    ~OnOneCpu()
    {
        pthread_setaffinity_np(pthread_self(), sizeof before_, &before_);
    }
    OnOneCpu(const OnOneCpu &) = delete;
    OnOneCpu &operator=(const OnOneCpu &) = delete;

private:
    cpu_set_t before_;
};

// Runs step() again and again in a thread of its own, on the CPUs of its creator, until stop() is called. A step that
// waits has to be woken by whoever stops it.
class Loop
{
public:
    template <class Step>
    explicit Loop(Step step)
        : thread_([this, step = std::move(step)]() mutable {
              while (!stop_.load(std::memory_order_relaxed))
                  step();
              ended_.store(true);
          })
    {
    }
    ~Loop()
    {
        stop();
        thread_.join();
    }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    void stop()
    {
        stop_.store(true);
    }
    bool ended() const
    {
        return ended_.load();
    }

private:
    std::atomic<bool> stop_{false};
    std::atomic<bool> ended_{false};
    std::thread thread_;
};
} // namespace beside
