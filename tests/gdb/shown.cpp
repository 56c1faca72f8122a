// shown.cpp: one object of each type that the debugger prints.
#include <bitset.h>
#include <deltalist.h>
#include <ipaddr.h>
#include <mempool.h>
#include <mgmt_types.h>
#include <queues.h>
#include <sysport.h>
#include <vxw_shim.h>

#include <stdlib.h>
#include <sys/socket.h>

SEM_ID counted;
SEM_ID none;
CBitMask *mask;
CBitMask *emptyMask;
CBitMatrix *matrix;
CIpAddress v4;
CIpAddress v6;
CIpAddress noAddress;
CIpHostname dnsName;
CIpHostname literal;
SuOctetString octets(4);
SuOID oid;
SuOID noOid;
SuBITS bits(15);
SuDateAndTime date;
SuDateAndTime dateAndZone;
SuDateAndTime noDate;
CDeltaList *timers;
CDeltaListEntry early;
CDeltaListEntry late;
vxFixedSizeMemPool *pool;
kelSysPortUtil *ports;
SBaseQ *asBase;

// Where the debugger stops.
extern "C" [[gnu::noinline]] void shown()
{
    if (getenv("STUCK_ABORTS") != nullptr)
        abort();
}

int main()
{
    kel_utils_init();
    counted = semCCreate(SEM_Q_FIFO, 3);
    mask = new CBitMask(100);
    mask->set(3, 4);
    mask->setBit(64);
    mask->setBit(99);
    emptyMask = new CBitMask(32);
    matrix = new CBitMatrix(2, 40, nullptr);
    matrix->setBit(1, 0);
    matrix->setBit(1, 39);
    v4.setAddrString("192.0.2.7", AF_INET, 0);
    v6.setAddrString("fe80::1%1", AF_INET6, 0);
    dnsName.privDecodeNStoreString("switch.example");
    literal.privDecodeNStoreString("192.0.2.8");
    const unsigned char some[] = {0x41, 0x00, 0x42};
    octets.setData(some, 3);
    oid = "1.3.6.1.2.1";
    const unsigned char some16[] = {0x80, 0x60};
    bits.setData(some16, 2);
    date.init(8);
    const unsigned char day[] = {0x07, 0xEA, 11, 21, 9, 5, 0, 3};
    date.setData(day, 8);
    dateAndZone.init(11);
    const unsigned char dayAndZone[] = {0x07, 0xEA, 11, 21, 9, 5, 0, 3, '-', 2, 30};
    dateAndZone.setData(dayAndZone, 11);
    timers = new CDeltaList("retries");
    timers->initSem(nullptr);
    timers->init(10, 1, false);
    timers->add(&early, 5);
    timers->add(&late, 12);
    pool = new vxFixedSizeMemPool(64, 8);
    pool->vxAlloc(0);
    kelSysPortUtilInit();
    ports = kelSysPortUtil::localPtr;
    ports->addPortInst(0x01010001);
    ports->addPortInst(0x01010002);
    asBase = meqCreateX(1, 16, 0, 0, 0, nullptr);
    meqSend(static_cast<SMultiEventQ *>(asBase), 4, 200);
    shown();
}
