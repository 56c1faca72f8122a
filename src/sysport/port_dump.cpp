// port_dump.cpp: prints the whole map and checks its conversions against each other.
//
// Policy:  the dump reports and never repairs. Lines go through a 128-byte buffer to standard output or to a CLI
//          session; what prints directly (the semaphore, the bits) overtakes the lines still in it.
// Locking: mSem is held from the first look at the table to the last, also while the platform is called: the methods
//          called here take it again, and what they say belongs together.
// Cost:    every bucket twice, every bound port some ten platform look-ups; diagnostics only.
#include "sysport.h"

#include "line_buffer.h"

#include "bitset.h"
#include "vxw_shim/sem_lock.h"
#include "vxw_shim/unlocked_access.h"

#include <stdio.h>

namespace
{
using sysport::LineBuffer;
using portRecord = kelSysPortUtil::portRecord;
using Conversion = uint32_t (kelSysPortUtil::*)(uint32_t);

// One dump: the table, where its text goes, and how much of it.
struct Dump {
    kelSysPortUtil &table;
    LineBuffer &out;
    bool verbose;
};

// A verification pass: its title goes out at once, its result at the end.
class Pass
{
public:
    Pass(const Dump &dump, const char *title) : out_(dump.out)
    {
        out_.print("%s", title);
    }
    void check(bool good)
    {
        ++checked_;
        errors_ += good ? 0U : 1U;
    }
    void finish()
    {
        if (errors_ != 0)
            out_.print("\n");
        out_.print("Done. %u errors found. %u ports checked.\n", errors_, checked_);
    }

private:
    LineBuffer &out_;
    uint32_t errors_ = 0;
    uint32_t checked_ = 0;
};

// The next bound system port by its bit; maxSystemPorts or above is the end.
uint32_t nextBound(const kelSysPortUtil &table, uint32_t systemPort)
{
    return table.usedSystemPort->findSetBit(systemPort + 1);
}

void printSizes(const Dump &dump)
{
    const uint32_t inUse = dump.table.usedSystemPort != nullptr ? dump.table.usedSystemPort->numBitsSet() : 0;
    // Kept: the first line comes twice, because readers of the dump may count its lines (PortDump.EmptyTable).
    for (int times = 0; times < 2; ++times)
        dump.out.print("Max System Ports:                 %u\n", static_cast<uint32_t>(kelSysPortUtil::maxSystemPorts));
    dump.out.print("Num Hash table Keys:              %u\n", static_cast<uint32_t>(kelSysPortUtil::numHashKeys));
    dump.out.print("Number System Ports In Use:       %u\n", inUse);
}

uint32_t depthOf(const portRecord *chain)
{
    uint32_t depth = 0;
    for (; chain != nullptr; chain = chain->next)
        ++depth;
    return depth;
}

void printBuckets(const Dump &dump) KEL_REQUIRES(kelSysPortUtil::mSem)
{
    constexpr uint32_t bucketsPerLine = 7;
    uint32_t used = 0;
    uint32_t total = 0;
    uint32_t worst = 0;
    if (dump.verbose)
        dump.out.print("Buckets in Use    (Format: [hashIdx]=bucketDepth)\n");
    for (uint32_t key = 0; key < kelSysPortUtil::numHashKeys; ++key) {
        const uint32_t depth = depthOf(dump.table.hashBuckets[key]);
        if (depth == 0)
            continue;
        ++used;
        total += depth;
        worst = depth > worst ? depth : worst;
        if (dump.verbose) {
            dump.out.print("[%4.4u]=%2.2u  ", key, depth);
            if (used % bucketsPerLine == 0)
                dump.out.print("\n");
        }
    }
    dump.out.print("\n");
    dump.out.print("Unique Hash Keys in Use: %u\n", used);
    dump.out.print("Total Bucket Count:      %u\n", total);
    dump.out.print("Worst Bucket Depth:      %u\n", worst);
}

void verifyBindings(const Dump &dump) KEL_REQUIRES(kelSysPortUtil::mSem)
{
    Pass pass(dump, "Verifying systemPort to portInstance_t bindings... ");
    for (uint32_t s = nextBound(dump.table, 0); s < kelSysPortUtil::maxSystemPorts; s = nextBound(dump.table, s)) {
        const uint32_t portInst = dump.table.portRecords[s].portInst;
        const uint32_t verifyPI = dump.table.systemPort2PortInst(s);
        const uint32_t verifySP = dump.table.portInst2SystemPort(verifyPI);
        const bool good = verifySP == s && verifyPI == portInst && verifySP != 0 && verifyPI != 0;
        pass.check(good);
        if (!good && dump.verbose)
            dump.out.print("\n  BAD: systemPort(%u);verifySP(%u);portInst(%x);verifyPI(%x)", s, verifySP, portInst,
                           verifyPI);
    }
    pass.finish();
}

// A numbering that is converted from the system port and back.
struct RoundTrip {
    const char *title;
    const char *number;
    const char *verifyNumber;
    Conversion fromSystemPort;
    Conversion toSystemPort;
};

constexpr RoundTrip BridgePorts{"Verifying systemPort to bridgePort conversions.... ", "bridgePort", "verifyBP",
                                &kelSysPortUtil::getBridgePortFromSystemPort,
                                &kelSysPortUtil::getSystemPortFromBridgePort};
constexpr RoundTrip IfIndexes{"Verifying systemPort to ifIndex conversions....... ", "ifIndex", "verifyIf",
                              &kelSysPortUtil::getIfIndexFromSystemPort, &kelSysPortUtil::getSystemPortFromIfIndex};

void verifyRoundTrip(const Dump &dump, const RoundTrip &trip)
{
    Pass pass(dump, trip.title);
    for (uint32_t s = nextBound(dump.table, 0); s < kelSysPortUtil::maxSystemPorts; s = nextBound(dump.table, s)) {
        const uint32_t number = (dump.table.*trip.fromSystemPort)(s);
        const uint32_t verifySP = (dump.table.*trip.toSystemPort)(number);
        const uint32_t verifyNumber = (dump.table.*trip.fromSystemPort)(verifySP);
        const bool good = verifySP == s && verifyNumber == number && verifySP != 0 && verifyNumber != 0;
        pass.check(good);
        if (!good && dump.verbose)
            dump.out.print("\n  BAD: systemPort(%u);verifySP(%u);%s(%u);%s(%u)", s, verifySP, trip.number, number,
                           trip.verifyNumber, verifyNumber);
    }
    pass.finish();
}

bool verifyRecord(const Dump &dump, uint32_t portInst)
{
    const uint32_t bridgePort = dump.table.getBridgePortFromPortInst(portInst);
    const uint32_t ifIndex = dump.table.getIfIndexFromPortInst(portInst);
    const uint32_t verifyBP = dump.table.getBridgePortFromIfIndex(ifIndex);
    const uint32_t verifyIf = dump.table.getIfIndexFromBridgePort(bridgePort);
    const bool isBrdgPort = dump.table.getBridgePort(bridgePort) == bridgePort;
    const bool isIfIndex = dump.table.getIfIndex(ifIndex) == ifIndex;
    const bool good =
        isBrdgPort && isIfIndex && verifyBP == bridgePort && verifyIf == ifIndex && verifyBP != 0 && verifyIf != 0;
    if (!good && dump.verbose)
        dump.out.print("\n  BAD: portInst(%x);bridgePort(%u);verifyBP(%u);isBrdgPort(%d);ifIndex(%u);verifyIf(%u);"
                       "isIfIndex(%d)",
                       portInst, bridgePort, verifyBP, isBrdgPort, ifIndex, verifyIf, isIfIndex);
    return good;
}

void verifyRecords(const Dump &dump) KEL_REQUIRES(kelSysPortUtil::mSem)
{
    Pass pass(dump, "Verifying ifIndex to bridgePort conversions....... ");
    for (const portRecord *record : dump.table.hashBuckets) {
        for (; record != nullptr; record = record->next)
            pass.check(verifyRecord(dump, record->portInst));
    }
    pass.finish();
}

// A numbering that is walked in ascending order.
struct Walk {
    const char *title;
    const char *number;
    const char *nextNumber;
    Conversion next;
    Conversion toSystemPort;
};

constexpr Walk IfIndexWalk{"Verifying ifIndex get-next operations............. ", "ifIndex", "nextIfIdx",
                           &kelSysPortUtil::getNextIfIndex, &kelSysPortUtil::getSystemPortFromIfIndex};
constexpr Walk BridgePortWalk{"Verifying bridgePort get-next operations.......... ", "bridgePort", "nextBp",
                              &kelSysPortUtil::getNextBridgePort, &kelSysPortUtil::getSystemPortFromBridgePort};

void verifyWalk(const Dump &dump, const Walk &walk)
{
    Pass pass(dump, walk.title);
    for (uint32_t n = (dump.table.*walk.next)(0); n != 0; n = (dump.table.*walk.next)(n)) {
        const uint32_t next = (dump.table.*walk.next)(n);
        const bool good = next == 0 || next > n;
        pass.check(good);
        // Kept: only a verbose walk ends here (PortDumpWalk.WithoutVerboseTheWalkGoesOn).
        if (!good && dump.verbose) {
            const uint32_t systemPort = (dump.table.*walk.toSystemPort)(n);
            dump.out.print("\n  BAD: %s(%u);%s(%u);systemPort(%u);portInst(%x)", walk.number, n, walk.nextNumber, next,
                           systemPort, dump.table.systemPort2PortInst(systemPort));
            break;
        }
    }
    pass.finish();
}

void listPorts(const Dump &dump) KEL_REQUIRES(kelSysPortUtil::mSem)
{
    uint32_t listed = 0;
    dump.out.print("Dumping systemPorts............................... \n");
    for (uint32_t s = nextBound(dump.table, 0); s < kelSysPortUtil::maxSystemPorts; s = nextBound(dump.table, s)) {
        const uint32_t portInst = dump.table.portRecords[s].portInst;
        char name[20];
        dump.table.getIfNameFromSystemPort(s, name, sizeof name);
        dump.out.print("%6.6s: systemPort(%3.3u) portInst(%7.7x) bridgePort(%3.3u) ifIndex(%6.6u)\n", name, s, portInst,
                       dump.table.getBridgePortFromPortInst(portInst), dump.table.getIfIndexFromPortInst(portInst));
        ++listed;
    }
    dump.out.print("%u ports dumped\n", listed);
}

void dumpTable(const Dump &dump, bool toStandardOutput) KEL_REQUIRES(kelSysPortUtil::mSem)
{
    printSizes(dump);
    printBuckets(dump);
    if (dump.table.usedSystemPort == nullptr) {
        dump.out.print("Error: usedSystemPort is NULL!\n");
        return;
    }
    if (toStandardOutput)
        printCBitMask(dump.table.usedSystemPort, true);
    verifyBindings(dump);
    verifyRoundTrip(dump, BridgePorts);
    verifyRoundTrip(dump, IfIndexes);
    verifyRecords(dump);
    verifyWalk(dump, IfIndexWalk);
    verifyWalk(dump, BridgePortWalk);
    if (dump.verbose)
        listPorts(dump);
}
} // namespace

void kelSysPortUtil::DumpDebugInfo(bool verbose, uint32_t cli)
{
    LineBuffer out(cli);
    out.print("**** KEL System Port Shim ****\n");
    if (mSem != nullptr && cli == 0 && stdout != nullptr) {
        printf("semShow(mSem): ");
        semShow(mSem, verbose);
    }
    if (readUnlocked(localPtr) == nullptr) {
        out.print("kelSysPortUtil is not initialized\n");
    } else {
        SemLock lock(mSem);
        // Looked at again: the table may have ended while the lock was awaited.
        if (kelSysPortUtil *table = readUnlocked(localPtr))
            dumpTable({*table, out, verbose}, cli == 0);
        else
            out.print("kelSysPortUtil is not initialized\n");
    }
    out.flush();
}
