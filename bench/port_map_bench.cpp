// port_map_bench.cpp: the port map with 48, 1,024 and 32,000 bound ports, beside hash tables that are guarded by a
// mutex.
//
// The platform knows 32,000 ports at any time; a table binds the first of them. What the map asks the platform for, the
// peers keep in tables of their own: their users would have to keep those up to date.
#include "sysport.h"

#include "bitset.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <kel_platform.h>
#include <kel_standin.h>
#include <tsl/robin_map.h>

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
constexpr uint32_t MaxPorts = 32000, PortsPerSlot = 128;
constexpr uint32_t HighestSystemPort = 32767;

uint32_t instanceOf(uint32_t port)
{
    return (port / PortsPerSlot + 1) << 16 | (port % PortsPerSlot + 1);
}

uint32_t ifIndexOf(uint32_t port)
{
    return 1000 * (port / PortsPerSlot + 1) + port % PortsPerSlot + 1;
}

void traceAdd(uint32_t instance)
{
    static void *const buffer = emsInitTraceBuffer("peer", 0x100000, 0);
    emsTraceLogf(buffer, 0, "%s(%x):hashKey=%u", "addPortInst", instance, instance & 0x7FFF);
}

// ---- The contenders ----

class OurMap
{
public:
    explicit OurMap(uint32_t ports)
    {
        static const bool started = [] {
            kelSysPortUtilInit();
            return true;
        }();
        benchmark::DoNotOptimize(started);
        for (uint32_t port = 0; port < ports; ++port)
            add(port);
    }
    ~OurMap()
    {
        kelSysPortUtil *const the = kelSysPortUtil::localPtr; // the end of any table leaves none
        table_.reset();
        kelSysPortUtil::localPtr = the;
    }
    void add(uint32_t port)
    {
        table_->addPortInst(instanceOf(port));
    }
    void remove(uint32_t port)
    {
        table_->delPortInst(instanceOf(port));
    }
    uint32_t systemPortOf(uint32_t instance)
    {
        return table_->portInst2SystemPort(instance);
    }
    uint32_t instanceOfSystemPort(uint32_t systemPort)
    {
        return table_->systemPort2PortInst(systemPort);
    }
    uint32_t ifIndexOfSystemPort(uint32_t systemPort)
    {
        return table_->getIfIndexFromSystemPort(systemPort);
    }
    uint32_t systemPortOfIfIndex(uint32_t ifIndex)
    {
        return table_->getSystemPortFromIfIndex(ifIndex);
    }
    uint32_t nextSystemPort(uint32_t systemPort)
    {
        return table_->getNextSystemPort(systemPort);
    }
    uint32_t nextIfIndex(uint32_t ifIndex)
    {
        return table_->getNextIfIndex(ifIndex);
    }
    kelSysPortUtil &table()
    {
        return *table_;
    }

private:
    std::unique_ptr<kelSysPortUtil> table_ = std::make_unique<kelSysPortUtil>();
};

// What the map cannot do without: its recursive lock for each look at the table, and the platform's look-ups.
class Floor
{
public:
    explicit Floor(uint32_t)
    {
        pthread_mutexattr_t recursive;
        pthread_mutexattr_init(&recursive);
        pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&lock_, &recursive);
    }
    void add(uint32_t port)
    {
        traceAdd(instanceOf(port));
        lockOnce();
    }
    void remove(uint32_t)
    {
        lockOnce();
    }
    uint32_t systemPortOf(uint32_t instance)
    {
        lockOnce();
        return instance;
    }
    uint32_t instanceOfSystemPort(uint32_t systemPort)
    {
        lockOnce();
        return instanceOf(systemPort - 1);
    }
    uint32_t ifIndexOfSystemPort(uint32_t systemPort)
    {
        lockOnce();
        lockOnce();
        pif_ *pif;
        vlanLibGetLifByPortInstance(instanceOf(systemPort - 1), &pif);
        return pif->ifIndex;
    }
    uint32_t systemPortOfIfIndex(uint32_t ifIndex)
    {
        const pif_ *pif = vlanLibGetLifFromIfIndex(ifIndex);
        lockOnce();
        return pif->portInstance;
    }
    uint32_t nextIfIndex(uint32_t ifIndex)
    {
        const pif_ *pif = vlanLibGetNextPifByType((ifIndex / 1000) << 16 | ifIndex % 1000, 0);
        lockOnce();
        return pif->ifIndex;
    }

private:
    void lockOnce()
    {
        pthread_mutex_lock(&lock_);
        pthread_mutex_unlock(&lock_);
    }
    pthread_mutex_t lock_;
};

// GHashTable with the calls of the other tables.
class GlibTable
{
public:
    explicit GlibTable() : table_(g_hash_table_new(g_direct_hash, g_direct_equal)) {}
    ~GlibTable()
    {
        g_hash_table_unref(table_);
    }
    GlibTable(const GlibTable &) = delete;
    GlibTable &operator=(const GlibTable &) = delete;
    void put(uint32_t key, uint32_t value)
    {
        g_hash_table_insert(table_, GUINT_TO_POINTER(key), GUINT_TO_POINTER(value));
    }
    void erase(uint32_t key)
    {
        g_hash_table_remove(table_, GUINT_TO_POINTER(key));
    }
    uint32_t at(uint32_t key) const
    {
        return GPOINTER_TO_UINT(g_hash_table_lookup(table_, GUINT_TO_POINTER(key)));
    }

private:
    GHashTable *table_;
};

template <class Map>
class StdTable
{
public:
    void put(uint32_t key, uint32_t value)
    {
        map_.emplace(key, value);
    }
    void erase(uint32_t key)
    {
        map_.erase(key);
    }
    uint32_t at(uint32_t key) const
    {
        const auto found = map_.find(key);
        return found == map_.end() ? 0 : found->second;
    }

private:
    Map map_;
};

// A table by port instance, another by ifIndex, an array by system port, and the freed numbers, the lowest first.
template <class Table>
class GuardedTables
{
public:
    explicit GuardedTables(uint32_t ports) : bySystemPort_(HighestSystemPort + 1)
    {
        for (uint32_t port = 0; port < ports; ++port)
            add(port);
    }
    void add(uint32_t port)
    {
        traceAdd(instanceOf(port));
        const std::lock_guard hold(lock_);
        const uint32_t systemPort = takeLowestFree();
        byInstance_.put(instanceOf(port), systemPort);
        byIfIndex_.put(ifIndexOf(port), systemPort);
        bySystemPort_[systemPort] = {instanceOf(port), ifIndexOf(port)};
    }
    void remove(uint32_t port)
    {
        const std::lock_guard hold(lock_);
        const uint32_t systemPort = byInstance_.at(instanceOf(port));
        byInstance_.erase(instanceOf(port));
        byIfIndex_.erase(ifIndexOf(port));
        bySystemPort_[systemPort] = {};
        freed_.push(systemPort);
    }
    uint32_t systemPortOf(uint32_t instance)
    {
        const std::lock_guard hold(lock_);
        return byInstance_.at(instance);
    }
    uint32_t instanceOfSystemPort(uint32_t systemPort)
    {
        const std::lock_guard hold(lock_);
        return bySystemPort_[systemPort].instance;
    }
    uint32_t ifIndexOfSystemPort(uint32_t systemPort)
    {
        const std::lock_guard hold(lock_);
        return bySystemPort_[systemPort].ifIndex;
    }
    uint32_t systemPortOfIfIndex(uint32_t ifIndex)
    {
        const std::lock_guard hold(lock_);
        return byIfIndex_.at(ifIndex);
    }

private:
    uint32_t takeLowestFree()
    {
        if (freed_.empty())
            return neverUsed_++;
        const uint32_t lowest = freed_.top();
        freed_.pop();
        return lowest;
    }
    struct Port {
        uint32_t instance = 0, ifIndex = 0;
    };
    std::mutex lock_;
    Table byInstance_, byIfIndex_;
    std::vector<Port> bySystemPort_;
    std::priority_queue<uint32_t, std::vector<uint32_t>, std::greater<>> freed_;
    uint32_t neverUsed_ = 1;
};

// What is walked in order.
class GuardedSet
{
public:
    explicit GuardedSet(uint32_t ports)
    {
        for (uint32_t port = 0; port < ports; ++port) {
            systemPorts_.insert(port + 1);
            ifIndexes_.insert(ifIndexOf(port));
        }
    }
    uint32_t nextSystemPort(uint32_t systemPort)
    {
        return next(systemPorts_, systemPort);
    }
    uint32_t nextIfIndex(uint32_t ifIndex)
    {
        return next(ifIndexes_, ifIndex);
    }

private:
    uint32_t next(const std::set<uint32_t> &numbers, uint32_t number)
    {
        const std::lock_guard hold(lock_);
        const auto found = numbers.upper_bound(number);
        return found == numbers.end() ? 0 : *found;
    }
    std::mutex lock_;
    std::set<uint32_t> systemPorts_, ifIndexes_;
};

// ---- The operations. Ports are asked for in an order that no cache foresees ----

uint32_t portsOf(const benchmark::State &state)
{
    return static_cast<uint32_t>(state.range());
}

std::vector<uint32_t> shuffled(uint32_t ports)
{
    std::vector<uint32_t> order(ports);
    for (uint32_t port = 0; port < ports; ++port)
        order[port] = port;
    std::shuffle(order.begin(), order.end(), std::minstd_rand(1));
    return order;
}

// Calls ask(port) for the ports in turn.
template <class Ask>
void forPorts(benchmark::State &state, uint32_t ports, Ask ask)
{
    const std::vector<uint32_t> order = shuffled(ports);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ask(order[i]));
        i = i + 1 == order.size() ? 0 : i + 1;
    }
}

template <class Map>
void byInstance(benchmark::State &state)
{
    Map map(portsOf(state));
    forPorts(state, portsOf(state), [&](uint32_t port) { return map.systemPortOf(instanceOf(port)); });
}

template <class Map>
void bySystemPort(benchmark::State &state)
{
    Map map(portsOf(state));
    forPorts(state, portsOf(state), [&](uint32_t port) { return map.instanceOfSystemPort(port + 1); });
}

template <class Map>
void byInstanceOfThreads(benchmark::State &state)
{
    constexpr uint32_t ports = 1024;
    static Map map(ports);
    forPorts(state, ports, [&](uint32_t port) { return map.systemPortOf(instanceOf(port)); });
}

template <class Map>
void toIfIndex(benchmark::State &state)
{
    Map map(portsOf(state));
    forPorts(state, portsOf(state), [&](uint32_t port) { return map.ifIndexOfSystemPort(port + 1); });
}

template <class Map>
void fromIfIndex(benchmark::State &state)
{
    Map map(portsOf(state));
    forPorts(state, portsOf(state), [&](uint32_t port) { return map.systemPortOfIfIndex(ifIndexOf(port)); });
}

template <class Map>
void walkSystemPorts(benchmark::State &state)
{
    Map map(portsOf(state));
    while (state.KeepRunningBatch(state.range())) {
        uint32_t number = 0;
        for (uint32_t port = 0; port < portsOf(state); ++port)
            number = map.nextSystemPort(number);
        benchmark::DoNotOptimize(number);
    }
}

template <class Map>
void walkIfIndexes(benchmark::State &state)
{
    Map map(portsOf(state));
    while (state.KeepRunningBatch(state.range())) {
        uint32_t number = 0;
        for (uint32_t port = 0; port < portsOf(state); ++port)
            number = map.nextIfIndex(number == 0 ? 1000 : number);
        benchmark::DoNotOptimize(number);
    }
}

template <class Map>
void churn(benchmark::State &state)
{
    Map map(portsOf(state));
    forPorts(state, portsOf(state), [&](uint32_t port) {
        map.remove(port);
        map.add(port);
        return port;
    });
}

// A list of half of the ports; time of one port.
struct HalfOfThePorts {
    OurMap map;
    CBitMask ports{kelSysPortUtil::maxSystemPorts};
    portlist_t list{};
    explicit HalfOfThePorts(uint32_t count) : map(count)
    {
        for (uint32_t port = 1; port <= count; port += 2)
            ports.setBit(port);
        map.table().getPortListFromSystemPorts(&list, &ports);
    }
};

void portsToList(benchmark::State &state)
{
    HalfOfThePorts half(portsOf(state));
    while (state.KeepRunningBatch(state.range() / 2))
        benchmark::DoNotOptimize(half.map.table().getPortListFromSystemPorts(&half.list, &half.ports));
}

void portsToListFloor(benchmark::State &state)
{
    HalfOfThePorts half(portsOf(state));
    Floor floor(0);
    while (state.KeepRunningBatch(state.range() / 2)) {
        for (uint32_t port = 1; port <= portsOf(state); port += 2) {
            pif_ *pif;
            vlanLibGetLifByPortInstance(floor.instanceOfSystemPort(port), &pif);
            half.list.words[(half.list.slotOffset[pif->slot] - 1U + (pif->port - 1U) / 32) % 256] |=
                0x80000000U >> (pif->port - 1U) % 32;
        }
    }
}

void listToPorts(benchmark::State &state)
{
    HalfOfThePorts half(portsOf(state));
    while (state.KeepRunningBatch(state.range() / 2)) {
        half.ports.reset();
        benchmark::DoNotOptimize(half.map.table().getSystemPortsFromPortList(&half.ports, &half.list));
    }
}

void listToPortsFloor(benchmark::State &state)
{
    HalfOfThePorts half(portsOf(state));
    Floor floor(0);
    constexpr portInstance_t end = 0xFFFFFFFF;
    while (state.KeepRunningBatch(state.range() / 2)) {
        for (portInstance_t p = PORTLIST_GETNEXTPORT(&half.list, end); p != end;
             p = PORTLIST_GETNEXTPORT(&half.list, p))
            benchmark::DoNotOptimize(floor.systemPortOf(p));
    }
}

// The table alone, without ports.
void startUp(benchmark::State &state)
{
    for (auto _ : state)
        const OurMap map(0);
}

template <class Table>
void startUpOfTables(benchmark::State &state)
{
    for (auto _ : state)
        const GuardedTables<Table> tables(0);
}

// Bytes of the heap with 32,000 ports.
template <class Map>
void memory(benchmark::State &state)
{
    const auto inUse = [] {
        const auto heap = mallinfo2();
        return static_cast<double>(heap.uordblks + heap.hblkhd);
    };
    for (auto _ : state) {
        const double before = inUse();
        const auto map = std::make_unique<Map>(MaxPorts);
        state.counters["figure"] = inUse() - before;
        state.SetLabel("bytes");
    }
}

benchmark::internal::Benchmark *sized(const std::string &name, void (*run)(benchmark::State &), bool alsoLarge = true)
{
    auto *added = benchmark::RegisterBenchmark(name.c_str(), run)->Arg(48)->Arg(1024);
    return alsoLarge ? added->Arg(MaxPorts) : added;
}

template <class Map>
void addLookUps(const std::string &who)
{
    sized("port_by_instance/" + who, byInstance<Map>);
    sized("port_by_system_port/" + who, bySystemPort<Map>);
    benchmark::RegisterBenchmark(("port_by_instance_threads/" + who).c_str(), byInstanceOfThreads<Map>)
        ->Threads(4)
        ->UseRealTime();
    sized("port_to_if_index/" + who, toIfIndex<Map>);
    sized("port_from_if_index/" + who, fromIfIndex<Map>);
    sized("port_churn/" + who, churn<Map>);
}

template <class Table>
void addTables(const std::string &who)
{
    addLookUps<GuardedTables<Table>>(who);
    benchmark::RegisterBenchmark(("port_start_up/" + who).c_str(), startUpOfTables<Table>);
    benchmark::RegisterBenchmark(("port_memory/" + who).c_str(), memory<GuardedTables<Table>>)->Iterations(1);
}

const bool added = [] {
    for (uint32_t port = 0; port < MaxPorts; ++port)
        kelStandinAddPort(port / PortsPerSlot + 1, port % PortsPerSlot + 1, "port", ifIndexOf(port), nullptr);

    addLookUps<OurMap>("ours");
    addLookUps<Floor>("floor");
    addTables<StdTable<std::unordered_map<uint32_t, uint32_t>>>("std_unordered_map");
    addTables<GlibTable>("glib_hash_table");
    addTables<StdTable<absl::flat_hash_map<uint32_t, uint32_t>>>("absl_flat_hash_map");
    addTables<StdTable<tsl::robin_map<uint32_t, uint32_t>>>("tsl_robin_map");
    benchmark::RegisterBenchmark("port_start_up/ours", startUp);
    benchmark::RegisterBenchmark("port_memory/ours", memory<OurMap>)->Iterations(1);

    sized("port_walk_system_ports/ours", walkSystemPorts<OurMap>);
    sized("port_walk_system_ports/std_set", walkSystemPorts<GuardedSet>);
    sized("port_walk_if_indexes/ours", walkIfIndexes<OurMap>);
    sized("port_walk_if_indexes/floor", walkIfIndexes<Floor>);
    sized("port_walk_if_indexes/std_set", walkIfIndexes<GuardedSet>);

    sized("port_list_from_ports/ours", portsToList, false);
    sized("port_list_from_ports/floor", portsToListFloor, false);
    sized("port_list_to_ports/ours", listToPorts, false);
    sized("port_list_to_ports/floor", listToPortsFloor, false);
    return true;
}();
} // namespace
