// port_table.cpp: binds port instances to dense system ports.
//
// Policy:     the lowest free system port is handed out first, from 1; freed numbers are reused.
// Locking:    records and buckets are under mSem, which may be null; the bits of usedSystemPort are also read without
//             it. The counters are relaxed atomics. The platform is never called with mSem held.
// Invariants: for s >= 1, bit s is set exactly when portRecords[s].systemPort == s; a bound record is on the chain of
//             its instance's bucket, once, newest first; record 0 and bit 0 stay empty.
// Cost:       one hash and a short walk; add also scans for a clear bit; nothing allocates.
#include "sysport.h"

#include "port_trace.h"

#include "bitset.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/sem_lock.h"
#include "vxw_shim/unlocked_access.h"

#include <kel_platform.h>

#include <stdio.h>

kelSysPortUtil *kelSysPortUtil::localPtr;
SEM_ID kelSysPortUtil::mSem;
uint32_t kelSysPortUtil::badHashKey;
uint32_t kelSysPortUtil::idxOutOfBounds;
uint32_t kelSysPortUtil::entryAlreadyInUse;

void *sysport::traceBuffer;

namespace
{
using portRecord = kelSysPortUtil::portRecord;

constexpr uint32_t Failed = 0xFFFFFFFF;

// Kept: 15 bits give keys 0 to 32767 for buckets 0 to 32766. The last key is refused everywhere, so a port instance
// such as 0x00007FFF has no system port (PortTable.InstanceOfTheForbiddenKeyIsRefusedByAdd).
uint32_t hashKeyOf(uint32_t portInst)
{
    const uint32_t high = portInst >> 16;
    return (portInst ^ high << 8 ^ high) & 0x7FFF;
}

bool isForbidden(uint32_t hashKey)
{
    return hashKey >= kelSysPortUtil::numHashKeys;
}

void countOne(uint32_t &counter)
{
    __atomic_fetch_add(&counter, 1, __ATOMIC_RELAXED);
}

// The first bound record of `portInst` on a chain, or null.
portRecord *boundRecordIn(portRecord *chain, uint32_t portInst)
{
    while (chain != nullptr && (chain->portInst != portInst || chain->systemPort == 0))
        chain = chain->next;
    return chain;
}

// Unlinks the records of `portInst` behind `head` and returns the system port of the last one; 0 without any.
//
// Kept: the walk goes on behind an unlinked record, but steps over the one that follows it. On a sound chain an
// instance stands once (PortTable.DeleteOnADamagedChainUnlinksAllButTheRecordRightAfterAnUnlinkedOne).
uint32_t unlinkBehind(portRecord *head, uint32_t portInst)
{
    uint32_t systemPort = 0;
    for (portRecord *trailing = head; trailing != nullptr && trailing->next != nullptr; trailing = trailing->next) {
        const portRecord *record = trailing->next;
        if (record->portInst == portInst) {
            systemPort = record->systemPort;
            trailing->next = record->next;
        }
    }
    return systemPort;
}

// Takes the records of `portInst` off a chain that is not empty; the result is as for unlinkBehind().
uint32_t unlinkFrom(portRecord *&bucket, uint32_t portInst)
{
    if (bucket->portInst != portInst)
        return unlinkBehind(bucket, portInst);
    const uint32_t systemPort = bucket->systemPort;
    bucket = bucket->next;
    return systemPort;
}
} // namespace

kelSysPortUtil::kelSysPortUtil() : portRecords{}, hashBuckets{}, usedSystemPort(new CBitMask(maxSystemPorts))
{
    usedSystemPort->reset(0, 0);
    constexpr unsigned traceBytes = 0x100000;
    writeUnlocked(sysport::traceBuffer, emsInitTraceBuffer("kelSystemPortUtils", traceBytes, 0));
}

kelSysPortUtil::~kelSysPortUtil()
{
    SemLock lock(mSem);
    writeUnlocked(localPtr, nullptr);
    delete usedSystemPort;
}

uint32_t kelSysPortUtil::addPortInst(uint32_t portInst)
{
    const uint32_t hashKey = hashKeyOf(portInst);
    emsTraceLogf(readUnlocked(sysport::traceBuffer), sysport::TraceLevel, "%s(%x):hashKey=%u", "addPortInst", portInst,
                 hashKey);
    if (isForbidden(hashKey)) {
        printf("hashKey(%u) bad", hashKey);
        countOne(badHashKey);
        return Failed;
    }

    SemLock lock(mSem);
    portRecord *&bucket = hashBuckets[hashKey];
    if (boundRecordIn(bucket, portInst) != nullptr)
        return Failed;

    const uint32_t systemPort = usedSystemPort->findClrBit(1);
    if (systemPort >= maxSystemPorts) {
        printf("Index(%u) out of bounds", systemPort);
        countOne(idxOutOfBounds);
        return Failed;
    }
    portRecord &record = portRecords[systemPort];
    if (record.portInst != 0 || record.systemPort != 0) {
        printf("systemPort(%u) in use(%u,%x)", systemPort, record.systemPort, record.portInst);
        countOne(entryAlreadyInUse);
        return Failed;
    }
    record = {portInst, systemPort, bucket};
    bucket = &record;
    usedSystemPort->setBit(systemPort);
    KEL_PROBE(port_add, portInst, systemPort);
    return systemPort;
}

uint32_t kelSysPortUtil::delPortInst(uint32_t portInst)
{
    const uint32_t hashKey = hashKeyOf(portInst);
    if (isForbidden(hashKey)) {
        countOne(badHashKey);
        return Failed;
    }

    SemLock lock(mSem);
    portRecord *&bucket = hashBuckets[hashKey];
    if (bucket == nullptr)
        return Failed;
    const uint32_t systemPort = unlinkFrom(bucket, portInst);
    if (systemPort >= maxSystemPorts) {
        countOne(idxOutOfBounds);
        return Failed;
    }
    // Kept: an instance that is not bound, in a bucket that holds others, clears record 0 and bit 0, which are always
    // empty, and returns 0; callers take that for success
    // (PortTable.DeleteOfAnUnboundInstanceInABucketWithOthersReturns0AndChangesNothing).
    portRecords[systemPort] = {};
    usedSystemPort->clrBit(systemPort);
    KEL_PROBE(port_delete, portInst, systemPort);
    return systemPort;
}

uint32_t kelSysPortUtil::systemPort2PortInst(uint32_t systemPort)
{
    if (systemPort >= maxSystemPorts)
        return 0;
    SemLock lock(mSem);
    return portRecords[systemPort].portInst;
}

uint32_t kelSysPortUtil::portInst2SystemPort(uint32_t portInst)
{
    const uint32_t hashKey = hashKeyOf(portInst);
    if (isForbidden(hashKey))
        return 0;
    SemLock lock(mSem);
    const portRecord *record = boundRecordIn(hashBuckets[hashKey], portInst);
    return record == nullptr ? 0 : record->systemPort;
}
