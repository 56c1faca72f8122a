// sysport_faults.cpp: the port map under faults, over the stand-in platform with a slot port and a trunk.
#include "fault_table.h"

#include "bitset.h"
#include "sysport.h"

#include <kel_standin.h>

#include <gtest/gtest.h>

#include <new>

using namespace faults;

namespace
{
constexpr portInstance_t Port = 1U << 16 | 1;

// Removes what kelSysPortUtilInit() has made, the lock included.
void endMap()
{
    delete kelSysPortUtil::localPtr;
    if (kelSysPortUtil::mSem != nullptr)
        semDelete(kelSysPortUtil::mSem);
    kelSysPortUtil::mSem = nullptr;
}

struct Map {
    Map()
    {
        kelSysPortUtilInit();
    }
    ~Map()
    {
        endMap();
    }
    kelSysPortUtil &table = (kelSysPortUtilInit(), *kelSysPortUtil::localPtr);
};

// Without the lock nothing is made; memory that the table lacks lets the exception pass, and a later call makes it.
template <void (*Init)()>
void startsTheMap(Injection &injection)
{
    injection.during([] { Init(); });
    const bool noLock = injection.failed() && !injection.threw();
    EXPECT_EQ(noLock, kelSysPortUtil::mSem == nullptr);
    EXPECT_EQ(injection.failed(), kelSysPortUtil::localPtr == nullptr);
    EXPECT_TRUE(!injection.threw() || injection.nth() > 2);
    Init();
    EXPECT_NE(nullptr, kelSysPortUtil::localPtr);
    endMap();
}

// One allocation for the mask's object, one for its words.
void constructsTheTable(Injection &injection)
{
    void *memory = operator new(sizeof(kelSysPortUtil));
    auto *table = injection.during([&] { return new (memory) kelSysPortUtil; });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed(), table == nullptr);
    if (table != nullptr)
        table->~kelSysPortUtil();
    operator delete(memory);
}

void destroysTheTable(Injection &injection)
{
    kelSysPortUtilInit();
    injection.during([] { delete kelSysPortUtil::localPtr; });
    EXPECT_EQ(nullptr, kelSysPortUtil::localPtr);
    endMap();
}

void bindsAndConverts(Injection &injection)
{
    Map map;
    kelSysPortUtil &table = map.table;
    CBitMask ports(64);
    portlist_t list{};
    char name[33];
    pif_ *pif = vlanLibGetLifFromIfIndex(1001);
    ASSERT_NE(nullptr, pif);
    injection.during([&] {
        EXPECT_EQ(1, kelSysPortUtilAddPifCB(Port));
        EXPECT_EQ(1U, table.portInst2SystemPort(Port));
        EXPECT_EQ(Port, table.systemPort2PortInst(1));
        EXPECT_EQ(1U, table.getSystemPort(1));
        EXPECT_EQ(Port, table.getPortInstance_t(Port));
        EXPECT_EQ(1001U, table.getIfIndex(1001));
        EXPECT_EQ(1U, table.getBridgePort(1));
        EXPECT_EQ(1001U, table.getIfIndexFromPortInst(Port));
        EXPECT_EQ(1U, table.getBridgePortFromPortInst(Port));
        EXPECT_EQ(1001U, table.getIfIndexFromSystemPort(1));
        EXPECT_EQ(1U, table.getBridgePortFromSystemPort(1));
        EXPECT_EQ(1U, table.getSystemPortFromIfIndex(1001));
        EXPECT_EQ(1U, table.getSystemPortFromBridgePort(1));
        EXPECT_EQ(1001U, table.getIfIndexFromBridgePort(1));
        EXPECT_EQ(1U, table.getBridgePortFromIfIndex(1001));
        EXPECT_EQ(Port, table.getMasterPortInstance_t(Port));
        table.getIfIndexFromDmPortMask(Port);
        table.getBridgePortFromDmPortMask(Port);
        table.getSystemPortFromDmPortMask(Port);
        EXPECT_EQ(Port, table.getDmPortMaskFromSystemPort(1));
        EXPECT_EQ(Port, table.getDmPortMaskFromBridgePort(1));
        EXPECT_EQ(Port, table.getDmPortMaskFromIfIndex(1001));
        EXPECT_EQ(1U, table.getNextSystemPort(0));
        EXPECT_EQ(Port, table.getNextPortInstance_t(0));
        EXPECT_EQ(1001U, table.getNextIfIndex(0));
        EXPECT_EQ(1U, table.getNextBridgePort(0));
        EXPECT_STREQ("a", table.getIfNameFromIfIndex(1001, name, sizeof name));
        EXPECT_STREQ("a", table.getIfNameFromBridgePort(1, name, sizeof name));
        EXPECT_STREQ("a", table.getIfNameFromSystemPort(1, name, sizeof name));
        EXPECT_EQ(Port, table.getBestPortInstanceForPif(pif));
        EXPECT_EQ(1U, table.getPortListFromSystemPort(&list, 1));
        EXPECT_EQ(1U, table.getPortListFromBridgePort(&list, 1));
        EXPECT_EQ(1U, table.getPortListFromIfIndex(&list, 1001));
        EXPECT_EQ(1U, table.getSystemPortsFromPortList(&ports, &list));
        EXPECT_EQ(1U, table.getPortListFromSystemPorts(&list, &ports));
        EXPECT_EQ(1, kelSysPortUtilDelPifCB(Port));
        EXPECT_EQ(1U, table.addPortInst(7));
        EXPECT_EQ(1U, table.delPortInst(7));
    });
    EXPECT_EQ(0U, table.usedSystemPort->numBitsSet());
}

void dumpsTheMap(Injection &injection)
{
    Map map;
    EXPECT_EQ(1, kelSysPortUtilAddPifCB(Port));
    injection.during([] {
        kelSysPortUtil::DumpDebugInfo(true, 0);
        kelSysPortUtilDumpDebugInfo();
    });
}

const Row rows[] = {
    {"kelSysPortUtilInit", startsTheMap<kelSysPortUtilInit>},
    {"kelSysPortUtilInitWrapper", startsTheMap<kelSysPortUtilInitWrapper>},
    {"kelSysPortUtil::kelSysPortUtil()", constructsTheTable},
    {"kelSysPortUtil::~kelSysPortUtil()", destroysTheTable, Row::ReachesNothing},
    {"kelSysPortUtilAddPifCB\n"
     "kelSysPortUtilDelPifCB\n"
     "kelSysPortUtil::addPortInst(unsigned int)\n"
     "kelSysPortUtil::delPortInst(unsigned int)\n"
     "kelSysPortUtil::portInst2SystemPort(unsigned int)\n"
     "kelSysPortUtil::systemPort2PortInst(unsigned int)\n"
     "kelSysPortUtil::getSystemPort(unsigned int)\n"
     "kelSysPortUtil::getPortInstance_t(unsigned int)\n"
     "kelSysPortUtil::getIfIndex(unsigned int)\n"
     "kelSysPortUtil::getBridgePort(unsigned int)\n"
     "kelSysPortUtil::getIfIndexFromPortInst(unsigned int)\n"
     "kelSysPortUtil::getBridgePortFromPortInst(unsigned int)\n"
     "kelSysPortUtil::getIfIndexFromSystemPort(unsigned int)\n"
     "kelSysPortUtil::getBridgePortFromSystemPort(unsigned int)\n"
     "kelSysPortUtil::getSystemPortFromIfIndex(unsigned int)\n"
     "kelSysPortUtil::getSystemPortFromBridgePort(unsigned int)\n"
     "kelSysPortUtil::getIfIndexFromBridgePort(unsigned int)\n"
     "kelSysPortUtil::getBridgePortFromIfIndex(unsigned int)\n"
     "kelSysPortUtil::getMasterPortInstance_t(unsigned int)\n"
     "kelSysPortUtil::getIfIndexFromDmPortMask(unsigned int)\n"
     "kelSysPortUtil::getBridgePortFromDmPortMask(unsigned int)\n"
     "kelSysPortUtil::getSystemPortFromDmPortMask(unsigned int)\n"
     "kelSysPortUtil::getDmPortMaskFromSystemPort(unsigned int)\n"
     "kelSysPortUtil::getDmPortMaskFromBridgePort(unsigned int)\n"
     "kelSysPortUtil::getDmPortMaskFromIfIndex(unsigned int)\n"
     "kelSysPortUtil::getNextSystemPort(unsigned int)\n"
     "kelSysPortUtil::getNextPortInstance_t(unsigned int)\n"
     "kelSysPortUtil::getNextIfIndex(unsigned int)\n"
     "kelSysPortUtil::getNextBridgePort(unsigned int)\n"
     "kelSysPortUtil::getIfNameFromIfIndex(unsigned int, char*, unsigned long)\n"
     "kelSysPortUtil::getIfNameFromBridgePort(unsigned int, char*, unsigned long)\n"
     "kelSysPortUtil::getIfNameFromSystemPort(unsigned int, char*, unsigned long)\n"
     "kelSysPortUtil::getBestPortInstanceForPif(pif_*) const\n"
     "kelSysPortUtil::getPortListFromSystemPort(portlist_t*, unsigned int)\n"
     "kelSysPortUtil::getPortListFromBridgePort(portlist_t*, unsigned int)\n"
     "kelSysPortUtil::getPortListFromIfIndex(portlist_t*, unsigned int)\n"
     "kelSysPortUtil::getSystemPortsFromPortList(CBitMask*, portlist_t*)\n"
     "kelSysPortUtil::getPortListFromSystemPorts(portlist_t*, CBitMask const*)",
     bindsAndConverts},
    {"kelSysPortUtil::DumpDebugInfo(bool, unsigned int)\n"
     "kelSysPortUtilDumpDebugInfo",
     dumpsTheMap, Row::ReachesNothing},
};
} // namespace

TEST(PortMapFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    ASSERT_EQ(0, kelStandinAddPort(1, 1, "a", 1001, ""));
    runTable(rows);
    kelStandinReset();
}
