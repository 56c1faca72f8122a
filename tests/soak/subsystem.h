// subsystem.h: what the soak runs: parts that many tasks use at once, and that can tell whether they are well.
//
// A worker calls round() over and over; each call makes some operations and checks what it can check at once. Now and
// then all workers rest, and settle() takes out what is left and compares what went in with what came out. The first
// thing that does not hold ends the process with status 3.
#pragma once

#include "harness/seeded_chooser.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace soak
{
inline constexpr unsigned Workers = 8;

// What a test plants, to see it found.
enum class Plant { Nothing, Leak, LostMessage, BrokenInvariant };
inline Plant planted = Plant::Nothing;

// The record of a semaphore outlives it on purpose. This many were created and deleted, directly or inside a queue.
inline std::atomic<uint64_t> recordsLeft{0};

// Choices of one worker; also a Chooser for the models.
class Random : public SeededChooser
{
public:
    using SeededChooser::SeededChooser;
    bool oneIn(unsigned times)
    {
        return below(times) == 0;
    }
    // A time-out: most calls try once, so that the workers work; some wait for a tick.
    unsigned ticks()
    {
        return oneIn(100) ? 1 : 0;
    }
};

class Subsystem
{
public:
    explicit Subsystem(const char *title) : name(title) {}
    virtual ~Subsystem() = default;
    Subsystem(const Subsystem &) = delete;
    Subsystem &operator=(const Subsystem &) = delete;

    virtual void round(Random &random, unsigned worker) = 0;
    virtual void settle() {}

    const char *const name;
    std::atomic<uint64_t> operations{0};

protected:
    void did(uint64_t count = 1)
    {
        operations.fetch_add(count, std::memory_order_relaxed);
    }
    void must(bool holds, const char *what) const
    {
        if (holds)
            return;
        fprintf(stderr, "soak: %s: does not hold: %s\n", name, what);
        std::_Exit(3);
    }
    // For a brokenInvariant(), which names what is broken.
    void mustHold(const char *broken) const
    {
        must(broken == nullptr, broken);
    }
};

using Subsystems = std::vector<std::unique_ptr<Subsystem>>;
void addRealTime(Subsystems &all);
void addQueues(Subsystems &all);
void addContainers(Subsystems &all);
void addBits(Subsystems &all);
void addValues(Subsystems &all);
void addPorts(Subsystems &all);
} // namespace soak
