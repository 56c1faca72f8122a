// port_callbacks.cpp: makes the table, and keeps it in step with the platform's interfaces.
//
// Policy:  an interface is bound under the port instance that the platform passes; the record decides whether its type
//          is one that the map takes. Every callback leaves its result in the trace buffer.
// Locking: the callbacks run on the platform's thread and hold mSem only inside the table's own calls. A new table is
//          published under mSem, so that whoever sees it and then takes mSem also sees it whole.
#include "sysport.h"

#include "port_encoding.h"
#include "port_trace.h"

#include "vxw_shim/sem_lock.h"
#include "vxw_shim/unlocked_access.h"

#include <kel_platform.h>

#include <stdio.h>

using namespace sysport;

namespace
{
constexpr uint32_t Failed = 0xFFFFFFFF;
constexpr unsigned long NameBytes = 33;

// True when the platform knows `portInstance` as a slot port or a trunk; otherwise the trace says why not.
//
// Kept: the record tells the type, although the argument is what is bound
// (PortCallbacks.TypeComesFromTheRecordAndTheBindingFromTheArgument).
bool isPortOrTrunk(uint32_t portInstance, const char *caller)
{
    void *trace = readUnlocked(traceBuffer);
    pif_ *pif = nullptr;
    if (vlanLibGetLifByPortInstance(portInstance, &pif) == 0) {
        emsTraceLogf(trace, TraceLevel, "%s(%x):vlanLibGetLifByPortInstance failed", caller, portInstance);
        return false;
    }
    if (pif == nullptr) {
        emsTraceLogf(trace, TraceLevel, "%s(%x):pif==NULL", caller, portInstance);
        return false;
    }
    if (interfaceTypeOf(pif->portInstance) > Trunk) {
        emsTraceLogf(trace, TraceLevel, "%s(%x):pif not SLOTPORT || TRUNK", caller, portInstance);
        return false;
    }
    return true;
}

void traceAdded(kelSysPortUtil &table, uint32_t portInstance, const char *caller)
{
    const uint32_t ifIndex = table.getIfIndexFromPortInst(portInstance);
    const uint32_t bridgePort = table.getBridgePortFromPortInst(portInstance);
    const uint32_t systemPort = table.portInst2SystemPort(portInstance);
    char name[NameBytes];
    table.getIfNameFromIfIndex(ifIndex, name, sizeof name);
    emsTraceLogf(readUnlocked(traceBuffer), TraceLevel, "%s(%x);Added ifIndex=%u;bridgePort=%u;systemPort=%u;ifName=%s",
                 caller, portInstance, ifIndex, bridgePort, systemPort, name);
}
} // namespace

void kelSysPortUtilInit()
{
    constexpr int options = 9;
    if (kelSysPortUtil::mSem == nullptr)
        kelSysPortUtil::mSem = semMCreate(options);
    if (kelSysPortUtil::mSem == nullptr) {
        printf("v2lin must be initialized before %s\n", "kelSysPortUtilInit");
        return;
    }
    if (readUnlocked(kelSysPortUtil::localPtr) != nullptr)
        return;
    auto *table = new kelSysPortUtil;
    SemLock lock(kelSysPortUtil::mSem);
    writeUnlocked(kelSysPortUtil::localPtr, table);
}

void kelSysPortUtilInitWrapper()
{
    kelSysPortUtilInit();
}

int kelSysPortUtilAddPifCB(uint32_t portInstance)
{
    constexpr const char *caller = "kelSysPortUtilAddPifCB";
    if (!isPortOrTrunk(portInstance, caller))
        return 0;
    kelSysPortUtil *table = readUnlocked(kelSysPortUtil::localPtr);
    if (table == nullptr || table->addPortInst(portInstance) == Failed) {
        emsTraceLogf(readUnlocked(traceBuffer), TraceLevel, "%s(%x):AddPortInst() failed", caller, portInstance);
        return 0;
    }
    traceAdded(*table, portInstance, caller);
    return 1;
}

int kelSysPortUtilDelPifCB(uint32_t portInstance)
{
    constexpr const char *caller = "kelSysPortUtilDelPifCB";
    if (!isPortOrTrunk(portInstance, caller))
        return 0;
    kelSysPortUtil *table = readUnlocked(kelSysPortUtil::localPtr);
    emsTraceLogf(readUnlocked(traceBuffer), TraceLevel, "%s(%x);Removing systemPort=%u", caller, portInstance,
                 table != nullptr ? table->portInst2SystemPort(portInstance) : 0);
    if (table == nullptr || table->delPortInst(portInstance) == Failed) {
        emsTraceLogf(readUnlocked(traceBuffer), TraceLevel, "%s(%x):DelPortInst() failed", caller, portInstance);
        return 0;
    }
    return 1;
}

void kelSysPortUtilDumpDebugInfo()
{
    kelSysPortUtil::DumpDebugInfo(true, 0);
}
