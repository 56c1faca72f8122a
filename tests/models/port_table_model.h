// port_table_model.h: what the port table must hold after any program of adds and deletes, and what must hold always.
#pragma once

#include "bitset.h"
#include "sysport.h"

#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <vector>

// Names the first invariant of the table that does not hold; null when all hold. Nobody else may be changing it.
inline const char *brokenInvariant(const kelSysPortUtil &table) KEL_UNCHECKED_LOCKING
{
    const auto isEmpty = [](const kelSysPortUtil::portRecord &record) {
        return record.portInst == 0 && record.systemPort == 0 && record.next == nullptr;
    };
    if (!isEmpty(table.portRecords[0]) || table.usedSystemPort->chkBit(0))
        return "record 0 and bit 0 are empty";
    uint32_t bound = 0;
    for (uint32_t s = 1; s < kelSysPortUtil::maxSystemPorts; ++s) {
        const kelSysPortUtil::portRecord &record = table.portRecords[s];
        if (record.systemPort != 0 && record.systemPort != s)
            return "a bound record holds its own index";
        if (table.usedSystemPort->chkBit(s) != (record.systemPort == s))
            return "bit s is set exactly when record s is bound";
        if (record.systemPort == 0 && !isEmpty(record))
            return "a free record is all zero";
        bound += record.systemPort != 0;
    }
    if (table.usedSystemPort->numBitsSet() != bound)
        return "no bit is set beyond the bound records";

    std::set<const kelSysPortUtil::portRecord *> chained;
    std::set<uint32_t> instances;
    for (uint32_t key = 0; key < kelSysPortUtil::numHashKeys; ++key) {
        for (const auto *record = table.hashBuckets[key]; record != nullptr; record = record->next) {
            if (!chained.insert(record).second)
                return "a record is on one chain, once";
            if (record->systemPort == 0)
                return "only bound records are on chains";
            const uint32_t high = record->portInst / 65536;
            if (((record->portInst ^ high * 256 ^ high) & 0x7FFF) != key)
                return "a record is in the bucket of its instance";
            if (!instances.insert(record->portInst).second)
                return "an instance is bound once";
        }
    }
    return chained.size() == bound ? nullptr : "every bound record is on a chain";
}

// The table and two maps that are told the same.
class PortTableAndModel
{
public:
    explicit PortTableAndModel(kelSysPortUtil &t) : table(t) {}

    // Each call is made on both; false when the results differ.
    bool add(uint32_t portInst)
    {
        return table.addPortInst(portInst) == modelAdd(portInst);
    }
    bool remove(uint32_t portInst)
    {
        return table.delPortInst(portInst) == modelRemove(portInst);
    }
    bool lookUp(uint32_t portInst) const
    {
        const auto at = bound.find(portInst);
        return table.portInst2SystemPort(portInst) == (at == bound.end() ? 0 : at->second);
    }
    bool lookUpPort(uint32_t systemPort) const
    {
        const auto at = instances.find(systemPort);
        const auto next = instances.upper_bound(systemPort);
        const bool isBound = at != instances.end();
        return table.systemPort2PortInst(systemPort) == (isBound ? at->second : 0) &&
               table.getSystemPort(systemPort) == (isBound ? systemPort : 0) &&
               table.getNextSystemPort(systemPort) == (next == instances.end() ? 0 : next->first);
    }

    // Names the first thing in which the table differs from the model or breaks its rules; null when there is none.
    const char *difference() const KEL_UNCHECKED_LOCKING
    {
        if (const char *broken = brokenInvariant(table))
            return broken;
        for (uint32_t s = 0; s < kelSysPortUtil::maxSystemPorts; ++s) {
            const auto at = instances.find(s);
            if (table.portRecords[s].portInst != (at == instances.end() ? 0 : at->second))
                return "the same instances on the same system ports";
        }
        for (const auto &[key, chain] : chains) {
            const auto *record = table.hashBuckets[key];
            for (const uint32_t portInst : chain) {
                if (record == nullptr || record->portInst != portInst)
                    return "chains hold the newest first";
                record = record->next;
            }
        }
        return nullptr;
    }

    size_t size() const
    {
        return bound.size();
    }

    // Bit i of the key is bit i of the low half, of the high half, and of the high half 8 bits up.
    static uint32_t keyOf(uint32_t portInst)
    {
        uint32_t key = 0;
        for (unsigned bit = 0; bit < 15; ++bit) {
            const uint32_t ones =
                (portInst >> bit & 1) + (portInst >> (bit + 16) & 1) + (bit >= 8 ? portInst >> (bit + 8) & 1 : 0);
            key |= ones % 2 << bit;
        }
        return key;
    }

    // Some instance of a key.
    template <class Random>
    static uint32_t instanceOf(uint32_t key, Random &random)
    {
        const uint32_t high = random() % 4 == 0 ? random() & 0xFFFF : random() % 8;
        const uint32_t low = (key ^ high * 256 ^ high) & 0x7FFF;
        return high << 16 | (random() & 0x8000) | low;
    }

private:
    static constexpr uint32_t Failed = 0xFFFFFFFF;

    uint32_t modelAdd(uint32_t portInst)
    {
        const uint32_t key = keyOf(portInst);
        if (key == 32767 || bound.count(portInst) != 0 || bound.size() == 32767)
            return Failed;
        if (freed.empty())
            freed.insert(neverUsed++);
        const uint32_t systemPort = *freed.begin();
        freed.erase(systemPort);
        bound[portInst] = systemPort;
        instances[systemPort] = portInst;
        chains[key].push_front(portInst);
        return systemPort;
    }
    uint32_t modelRemove(uint32_t portInst)
    {
        const uint32_t key = keyOf(portInst);
        const auto chain = chains.find(key);
        if (key == 32767 || chain == chains.end())
            return Failed;
        const auto at = bound.find(portInst);
        if (at == bound.end())
            return 0;
        const uint32_t systemPort = at->second;
        std::erase(chain->second, portInst);
        if (chain->second.empty())
            chains.erase(chain);
        instances.erase(systemPort);
        bound.erase(at);
        freed.insert(systemPort);
        return systemPort;
    }

    kelSysPortUtil &table;
    uint32_t neverUsed = 1;                          // lowest system port that was never handed out
    std::set<uint32_t> freed;                        // free system ports below it
    std::map<uint32_t, uint32_t> bound;              // port instance to system port
    std::map<uint32_t, uint32_t> instances;          // and back
    std::map<uint32_t, std::deque<uint32_t>> chains; // instances of each hash key, newest first
};

// A random program on an empty table. Few keys, so that chains grow; the forbidden key among them.
inline const char *runRandomPortProgram(PortTableAndModel &both, unsigned seed, unsigned steps)
{
    std::mt19937 random(seed);
    std::vector<uint32_t> pool;
    for (int i = 0; i < 48; ++i) {
        const uint32_t keys[] = {1, 2, 0x7FFE, 0x7FFF, static_cast<uint32_t>(random() % 40)};
        pool.push_back(PortTableAndModel::instanceOf(keys[random() % 5], random) | 1U << 15);
    }
    for (unsigned step = 0; step < steps; ++step) {
        const uint32_t portInst = pool[random() % pool.size()];
        const uint32_t systemPort = random() % 16 == 0 ? 32760 + random() % 16 : random() % 48;
        bool agree = true;
        switch (random() % 5) {
        case 0:
        case 1:
            agree = both.add(portInst);
            break;
        case 2:
            agree = both.remove(portInst);
            break;
        case 3:
            agree = both.lookUp(portInst);
            break;
        default:
            agree = both.lookUpPort(systemPort);
        }
        if (!agree)
            return "a call returned something else";
        if (step % 256 == 255) {
            if (const char *difference = both.difference())
                return difference;
        }
    }
    return both.difference();
}
