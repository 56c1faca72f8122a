// ports.cpp: the port map over the stand-in platform. Each worker has a slot whose ports come and go; all look up, walk
// and dump.
#include "subsystem.h"

#include "models/port_table_model.h"
#include "vxw_shim/sem_lock.h"

#include <kel_platform.h>
#include <kel_standin.h>

#include <algorithm>
#include <array>

namespace
{
using namespace soak;

void appeared(void *, portInstance_t instance)
{
    kelSysPortUtilAddPifCB(instance);
}

void disappeared(void *, portInstance_t instance)
{
    kelSysPortUtilDelPifCB(instance);
}

class Ports : public Subsystem
{
public:
    Ports() : Subsystem("port map")
    {
        kelSysPortUtilInit();
        const kelStandinListener listener = {appeared, disappeared, nullptr, nullptr};
        kelStandinSetListener(&listener);
    }
    ~Ports() override
    {
        kelStandinSetListener(nullptr);
    }

    void round(Random &random, unsigned worker) override
    {
        for (int i = 0; i < 10; ++i)
            addOrRemove(worker + 1, 1 + random.below(PortsOfASlot), worker);
        did(30);
        if (random.oneIn(4))
            walk();
        if (random.oneIn(500)) {
            kelSysPortUtil::DumpDebugInfo(random.oneIn(2), 0);
            did();
        }
        if (random.oneIn(1000)) {
            SemLock hold(kelSysPortUtil::mSem);
            mustHold(brokenInvariant(*kelSysPortUtil::localPtr));
        }
    }
    void settle() override
    {
        mustHold(brokenInvariant(*kelSysPortUtil::localPtr));
        size_t present = 0;
        for (const auto &slot : present_)
            present += static_cast<size_t>(std::count(slot.begin(), slot.end(), true));
        must(kelSysPortUtil::localPtr->usedSystemPort->numBitsSet() == present &&
                 kelStandinSnapshot(nullptr, 0) == present,
             "as many ports are bound as there are");
        must(kelSysPortUtil::badHashKey + kelSysPortUtil::idxOutOfBounds + kelSysPortUtil::entryAlreadyInUse == 0,
             "no error is counted");
    }

private:
    static constexpr unsigned PortsOfASlot = 48;

    void addOrRemove(unsigned slot, unsigned port, unsigned worker)
    {
        kelSysPortUtil &map = *kelSysPortUtil::localPtr;
        const portInstance_t instance = kelStandinPortInstance(slot, port);
        bool &isThere = present_[worker][port - 1];
        if (isThere)
            must(kelStandinRemovePort(instance) == 0, "a port goes");
        else
            must(kelStandinAddPort(slot, port, "soak", 0, nullptr) == 0, "a port comes");
        isThere = !isThere;
        const uint32_t systemPort = map.portInst2SystemPort(instance);
        must((systemPort != 0) == isThere, "a port is bound while it is there");
        must(!isThere || map.systemPort2PortInst(systemPort) == instance, "its system port leads back to it");
        must(!isThere || map.getIfIndexFromSystemPort(systemPort) == 1000 * slot + port, "its interface is known");
    }
    void walk()
    {
        kelSysPortUtil &map = *kelSysPortUtil::localPtr;
        uint32_t seen = 0;
        for (uint32_t port = map.getNextSystemPort(0), last = 0; port != 0; port = map.getNextSystemPort(port)) {
            must(port > last, "a walk goes upward");
            last = port;
            ++seen;
        }
        must(seen <= Workers * PortsOfASlot, "a walk ends");
        did(seen + 1);
    }

    std::array<std::array<bool, PortsOfASlot>, Workers> present_{}; // each slot belongs to one worker
};
} // namespace

void soak::addPorts(Subsystems &all)
{
    all.push_back(std::make_unique<Ports>());
}
