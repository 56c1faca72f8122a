// port_dump_bench.cpp: the dump of 1,024 ports, into /dev/null, beside one that prints each line as it comes.
#include "sysport.h"

#include "bitset.h"

#include <benchmark/benchmark.h>
#include <kel_platform.h>
#include <kel_standin.h>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <mutex>
#include <unordered_map>
#include <vector>

namespace
{
constexpr uint32_t Ports = 1024, PortsPerSlot = 128;

uint32_t instanceOf(uint32_t port)
{
    return (port / PortsPerSlot + 1) << 16 | (port % PortsPerSlot + 1);
}

// Standard output goes nowhere for a scope.
class Discarded
{
public:
    Discarded()
    {
        fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~Discarded()
    {
        fflush(stdout);
        dup2(before_, STDOUT_FILENO);
        close(before_);
    }
    Discarded(const Discarded &) = delete;
    Discarded &operator=(const Discarded &) = delete;

private:
    int before_ = dup(STDOUT_FILENO);
};

void bindAll()
{
    static const bool bound = [] {
        kelSysPortUtilInit();
        for (uint32_t port = 0; port < Ports; ++port) {
            kelStandinAddPort(port / PortsPerSlot + 1, port % PortsPerSlot + 1, "port", 0, nullptr);
            kelSysPortUtil::localPtr->addPortInst(instanceOf(port));
        }
        return true;
    }();
    benchmark::DoNotOptimize(bound);
}

void dumpOurs(benchmark::State &state)
{
    bindAll();
    const Discarded output;
    for (auto _ : state)
        kelSysPortUtil::DumpDebugInfo(true, 0);
}

// The same lines and the same checks over two hash tables, one lock held throughout: a look-up of the platform where
// the map asks it for a record, and printf() for each line.
class Tables
{
public:
    Tables()
    {
        for (uint32_t port = 0; port < Ports; ++port) {
            systemPorts_[instanceOf(port)] = port + 1;
            instances_.push_back(instanceOf(port));
        }
    }
    void dump()
    {
        const std::lock_guard hold(lock_);
        printf("**** KEL System Port Shim ****\n");
        printf("semShow(mSem): ");
        for (int times = 0; times < 2; ++times)
            printf("Max System Ports:                 %u\n", 32768U);
        printf("Num Hash table Keys:              %u\n", 32767U);
        printf("Number System Ports In Use:       %zu\n", instances_.size());
        printf("Buckets in Use    (Format: [hashIdx]=bucketDepth)\n");
        uint32_t used = 0;
        for (size_t bucket = 0; bucket < systemPorts_.bucket_count(); ++bucket) {
            const auto depth = static_cast<unsigned>(systemPorts_.bucket_size(bucket));
            if (depth != 0)
                printf("[%4.4u]=%2.2u  %s", static_cast<unsigned>(bucket), depth, ++used % 7 == 0 ? "\n" : "");
        }
        printf("\nUnique Hash Keys in Use: %u\nTotal Bucket Count:      %u\nWorst Bucket Depth:      %u\n", used, used,
               1U);
        printCBitMask(&bits_, true);
        verify("Verifying systemPort to portInstance_t bindings... ",
               [this](uint32_t s) { return systemPortOf(instances_[s - 1]) == s; });
        verify("Verifying systemPort to bridgePort conversions.... ", [this](uint32_t s) {
            const uint32_t bridgePort = bridgePortOf(recordOf(s));
            return systemPortOf(bySlotPort(bridgePort)->portInstance) == s && bridgePortOf(recordOf(s)) == bridgePort;
        });
        verify("Verifying systemPort to ifIndex conversions....... ", [this](uint32_t s) {
            const uint32_t ifIndex = recordOf(s)->ifIndex;
            return systemPortOf(vlanLibGetLifFromIfIndex(ifIndex)->portInstance) == s &&
                   recordOf(s)->ifIndex == ifIndex;
        });
        verify("Verifying ifIndex to bridgePort conversions....... ", [this](uint32_t s) {
            const uint32_t bridgePort = bridgePortOf(recordOf(s)), ifIndex = recordOf(s)->ifIndex;
            return bridgePortOf(vlanLibGetLifFromIfIndex(ifIndex)) == bridgePort &&
                   bySlotPort(bridgePort)->ifIndex == ifIndex && bySlotPort(bridgePort)->portInstance != 0 &&
                   vlanLibGetLifFromIfIndex(ifIndex) != nullptr;
        });
        for (const char *title : {"Verifying ifIndex get-next operations............. ",
                                  "Verifying bridgePort get-next operations.......... "})
            verify(title, [this](uint32_t s) {
                const pif_ *next = vlanLibGetNextPifByType(instances_[s - 1], 0);
                const pif_ *afterwards = next == nullptr ? nullptr : vlanLibGetNextPifByType(next->portInstance, 0);
                return (next == nullptr || systemPortOf(next->portInstance) != 0) &&
                       (afterwards == nullptr || systemPortOf(afterwards->portInstance) != 0);
            });
        printf("Dumping systemPorts............................... \n");
        for (uint32_t s = 1; s <= instances_.size(); ++s) {
            char name[20];
            vlanGetNameForPif(recordOf(s), name, sizeof name);
            printf("%6.6s: systemPort(%3.3u) portInst(%7.7x) bridgePort(%3.3u) ifIndex(%6.6u)\n", name, s,
                   instances_[s - 1], bridgePortOf(recordOf(s)), recordOf(s)->ifIndex);
        }
        printf("%zu ports dumped\n", instances_.size());
    }

private:
    template <class Check>
    void verify(const char *title, Check check)
    {
        printf("%s", title);
        unsigned errors = 0;
        for (uint32_t s = 1; s <= instances_.size(); ++s)
            errors += check(s) ? 0U : 1U;
        printf("Done. %u errors found. %zu ports checked.\n", errors, instances_.size());
    }
    uint32_t systemPortOf(uint32_t instance)
    {
        const auto found = systemPorts_.find(instance);
        return found == systemPorts_.end() ? 0 : found->second;
    }
    const pif_ *recordOf(uint32_t systemPort)
    {
        pif_ *pif = nullptr;
        vlanLibGetLifByPortInstance(instances_[systemPort - 1], &pif);
        return pif;
    }
    static const pif_ *bySlotPort(uint32_t bridgePort)
    {
        pif_ *pif = nullptr;
        vlanLibGetLifBySlotPort((bridgePort - 1) / PortsPerSlot + 1, (bridgePort - 1) % PortsPerSlot + 1, &pif);
        return pif;
    }
    static uint32_t bridgePortOf(const pif_ *pif)
    {
        return (pif->slot - 1U) * PortsPerSlot + pif->port;
    }
    std::mutex lock_;
    std::unordered_map<uint32_t, uint32_t> systemPorts_;
    std::vector<uint32_t> instances_;
    CBitMask bits_{*kelSysPortUtil::localPtr->usedSystemPort};
};

void dumpTables(benchmark::State &state)
{
    bindAll();
    Tables tables;
    const Discarded output;
    for (auto _ : state)
        tables.dump();
}

BENCHMARK(dumpOurs)->Name("port_dump/ours/1024");
BENCHMARK(dumpTables)->Name("port_dump/std_unordered_map/1024");
} // namespace
