// feeder.h: what fills the platform's inventory: this host's interfaces, or a simulated chassis.
#pragma once

#include <functional>
#include <memory>
#include <string>

class Feeder
{
public:
    // Gets the reason when the platform's thread cannot go on; called on that thread.
    using OnFailure = std::function<void(const std::string &reason)>;

    // This host's interfaces.
    static std::unique_ptr<Feeder> forHost();

    // The chassis that a file describes, which is read and checked whole here; nothing is started. Throws
    // std::runtime_error whose text names the file, the place in it and what is wrong there.
    static std::unique_ptr<Feeder> forTopology(const std::string &file);

    virtual ~Feeder() = default;

    // Starts the platform's thread. Throws std::runtime_error when that cannot be.
    virtual void start(OnFailure onFailure) = 0;

    // Ends it; harmless when it never started.
    virtual void stop() = 0;
};
