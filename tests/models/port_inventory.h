// port_inventory.h: a model of the stand-in's inventory, too simple to be wrong: one map from port instances to ports.
#pragma once

#include <kel_standin.h>

#include <map>
#include <random>
#include <string>
#include <vector>

class PortInventoryModel
{
public:
    struct Port {
        unsigned slot = 0;
        unsigned port = 0;
        int linkUp = 0;
        portInstance_t trunk = 0;
        portInstance_t master = 0;
        std::string name;
    };

    std::map<portInstance_t, Port> ports;

    void leaveTrunk(portInstance_t member)
    {
        const portInstance_t trunk = ports.at(member).trunk;
        ports.at(member).trunk = 0;
        if (trunk == 0 || ports.at(trunk).master != member)
            return;
        ports.at(trunk).master = 0;
        for (const auto &[instance, port] : ports)
            if (port.trunk == trunk) {
                ports.at(trunk).master = instance;
                break;
            }
    }

    void remove(portInstance_t instance)
    {
        leaveTrunk(instance);
        for (auto &[other, port] : ports)
            if (port.trunk == instance)
                port.trunk = 0;
        ports.erase(instance);
    }

    // What the inventory says otherwise than the model; empty when they agree.
    std::string firstDifference() const
    {
        std::vector<kelStandinPort> found(kelStandinSnapshot(nullptr, 0));
        kelStandinSnapshot(found.data(), found.size());
        if (found.size() != ports.size())
            return std::to_string(found.size()) + " ports instead of " + std::to_string(ports.size());
        auto expected = ports.begin();
        for (const kelStandinPort &port : found) {
            if (const std::string difference = differenceOf(port, expected->first, expected->second);
                !difference.empty())
                return difference + " of port instance " + std::to_string(expected->first);
            ++expected;
        }
        return {};
    }

private:
    static std::string differenceOf(const kelStandinPort &found, portInstance_t instance, const Port &expected)
    {
        pif_ *record = nullptr;
        if (found.portInstance != instance)
            return "port instance";
        if (vlanLibGetLifByPortInstance(instance, &record) != 1)
            return "look-up by port instance";
        if (record->slot != expected.slot || record->port != expected.port)
            return "slot or port";
        if (record->trunkPortInstance != expected.trunk || found.trunk != expected.trunk)
            return "trunk";
        if (record->masterPortInstance != expected.master || found.master != expected.master)
            return "master";
        if (vlanLibGetLifFromIfIndex(1000 * expected.slot + expected.port) != record)
            return "look-up by ifIndex";
        pif_ *bySlotPort = nullptr;
        if (vlanLibGetLifBySlotPort(expected.slot, expected.port, &bySlotPort) != 1 || bySlotPort != record)
            return "look-up by slot and port";
        if (found.linkUp != expected.linkUp)
            return "link";
        return found.name == expected.name ? "" : "name";
    }
};

// Random changes of a few ports and trunks, made on the stand-in and on the model.
class RandomPortProgram
{
public:
    explicit RandomPortProgram(unsigned seed) : random_(seed) {}

    void step(PortInventoryModel &model)
    {
        const portInstance_t port = kelStandinPortInstance(upTo(3), upTo(3));
        const portInstance_t trunk = kelStandinTrunkInstance(upTo(3));
        switch (upTo(8)) {
        case 1:
        case 2:
            add(model, port >> 16, port & 0xFFFF, "port");
            break;
        case 3:
            add(model, KEL_STANDIN_TRUNK_SLOT, trunk & 0xFFFF, "trunk");
            break;
        case 4:
            remove(model, upTo(2) == 1 ? port : trunk);
            break;
        case 5:
            join(model, trunk, port);
            break;
        case 6:
            if (kelStandinLeaveTrunk(port) == 0)
                model.leaveTrunk(port);
            break;
        case 7:
            if (kelStandinSetMaster(trunk, port) == 0)
                model.ports.at(trunk).master = port;
            break;
        default:
            setLink(model, port, upTo(2) == 1);
        }
    }

private:
    unsigned upTo(unsigned highest)
    {
        return static_cast<unsigned>(random_() % highest) + 1;
    }

    static void add(PortInventoryModel &model, unsigned slot, unsigned port, const std::string &name)
    {
        const bool isTrunk = slot == KEL_STANDIN_TRUNK_SLOT;
        const int result = isTrunk ? kelStandinAddTrunk(port, name.c_str(), 0, "")
                                   : kelStandinAddPort(slot, port, name.c_str(), 0, "");
        if (result == 0)
            model.ports[isTrunk ? kelStandinTrunkInstance(port) : kelStandinPortInstance(slot, port)] = {
                .slot = slot, .port = port, .name = name};
    }

    static void remove(PortInventoryModel &model, portInstance_t instance)
    {
        if (kelStandinRemovePort(instance) == 0)
            model.remove(instance);
    }

    static void join(PortInventoryModel &model, portInstance_t trunk, portInstance_t port)
    {
        if (kelStandinJoinTrunk(trunk, port) != 0 || model.ports.at(port).trunk == trunk)
            return;
        model.leaveTrunk(port);
        model.ports.at(port).trunk = trunk;
        if (model.ports.at(trunk).master == 0)
            model.ports.at(trunk).master = port;
    }

    static void setLink(PortInventoryModel &model, portInstance_t port, bool up)
    {
        if (kelStandinSetLink(port, up ? 1 : 0) == 0)
            model.ports.at(port).linkUp = up ? 1 : 0;
    }

    std::mt19937 random_;
};
