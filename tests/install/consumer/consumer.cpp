// A C++ program that knows nothing but the installed libraries: it feeds the stand-in platform a port and asks the port
// map for its numbers, and uses classes with virtual functions and exported data.
#include <bitset.h>
#include <deltalist.h>
#include <ipaddr.h>
#include <kel_standin.h>
#include <mempool.h>
#include <mgmt_types.h>
#include <queues.h>
#include <sysport.h>

#include <cstdio>
#include <netdb.h>

namespace
{
class Timer : public CDeltaListEntry
{
public:
    void aged() override
    {
        hasAged = true;
    }
    bool hasAged = false;
};
} // namespace

int main()
{
    kelSysPortUtilInit();
    if (kelStandinAddPort(1, 7, "swp7", 0, "") != 0 || kelSysPortUtilAddPifCB(kelStandinPortInstance(1, 7)) != 1)
        return 1;

    CBitMask mask(64);
    mask.set(3, 5);
    CIpAddress address;
    address.setAddrString("192.0.2.1", AF_INET, AI_NUMERICHOST);
    char text[64];
    address.getUnmappedAddressString(text, sizeof text);
    vxFixedSizeMemPool pool(32, 4);
    CDeltaList list;
    list.initSem(semMCreate(0));
    list.init(100, 1, true);
    Timer timer;
    list.add(&timer, 2);
    list.tic(2);
    std::printf("C++: system port %u, %u bits, %s, block %d, timer %d, version %#x\n",
                kelSysPortUtil::localPtr->getSystemPortFromIfIndex(1007), mask.numBitsSet(), text,
                pool.vxAlloc(0) != nullptr, timer.hasAged, CBitMask::version);
    return 0;
}
