// standin_fixture.h: each test starts with an empty stand-in, and leaves none of its ports behind.
#pragma once

#include <kel_standin.h>

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

class EmptyStandin : public testing::Test
{
protected:
    EmptyStandin()
    {
        kelStandinReset();
    }
    ~EmptyStandin() override
    {
        kelStandinReset();
    }
};

inline kelStandinPort portOf(portInstance_t instance)
{
    kelStandinPort port{};
    EXPECT_EQ(0, kelStandinGetPort(instance, &port)) << "port instance " << instance;
    return port;
}

inline std::vector<kelStandinPort> allPorts()
{
    std::vector<kelStandinPort> ports(kelStandinSnapshot(nullptr, 0));
    ports.resize(kelStandinSnapshot(ports.data(), ports.size()));
    return ports;
}

inline std::vector<std::string> allNames()
{
    std::vector<std::string> names;
    for (const kelStandinPort &port : allPorts())
        names.emplace_back(port.name);
    return names;
}

inline std::vector<portInstance_t> membersOf(portInstance_t trunk)
{
    std::vector<portInstance_t> members;
    for (const kelStandinPort &port : allPorts())
        if (port.trunk == trunk)
            members.push_back(port.portInstance);
    return members;
}

inline std::vector<portInstance_t> vlanMembers(unsigned vlan)
{
    std::vector<portInstance_t> members(kelStandinVlanMembers(vlan, nullptr, 0));
    members.resize(kelStandinVlanMembers(vlan, members.data(), members.size()));
    return members;
}

inline pif_ *recordOf(portInstance_t instance)
{
    pif_ *record = nullptr;
    EXPECT_NE(0, vlanLibGetLifByPortInstance(instance, &record)) << "port instance " << instance;
    return record;
}

// Writes down what the listener hears, as "+1/2", "-1/2", "1/2 up"; slot 256 stands for trunks.
class Heard
{
public:
    Heard()
    {
        const kelStandinListener listener{
            [](void *user, portInstance_t instance) { static_cast<Heard *>(user)->note("+" + text(instance)); },
            [](void *user, portInstance_t instance) { static_cast<Heard *>(user)->note("-" + text(instance)); },
            [](void *user, portInstance_t instance, int up) {
                static_cast<Heard *>(user)->note(text(instance) + (up != 0 ? " up" : " down"));
            },
            this};
        kelStandinSetListener(&listener);
    }
    ~Heard()
    {
        kelStandinSetListener(nullptr);
    }
    Heard(const Heard &) = delete;
    Heard &operator=(const Heard &) = delete;

    std::vector<std::string> take()
    {
        const std::lock_guard lock(lock_);
        return std::exchange(lines_, {});
    }

private:
    static std::string text(portInstance_t instance)
    {
        return std::to_string(instance >> 16) + "/" + std::to_string(instance & 0xFFFF);
    }
    void note(const std::string &line)
    {
        const std::lock_guard lock(lock_);
        lines_.push_back(line);
    }

    std::mutex lock_;
    std::vector<std::string> lines_; // under lock_
};
