// The inventory against a model, its memory over many rounds, and its threads.
#include "standin_fixture.h"

#include "models/port_inventory.h"

#include <gmock/gmock.h>

#include <atomic>
#include <malloc.h>
#include <thread>

namespace
{
using Inventory = EmptyStandin;
} // namespace

TEST_F(Inventory, AgreesWithTheModelAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        kelStandinReset();
        PortInventoryModel model;
        RandomPortProgram program(seed);
        for (int step = 0; step < 300; ++step) {
            program.step(model);
            ASSERT_EQ("", model.firstDifference()) << "seed " << seed << ", step " << step;
        }
    }
}

TEST_F(Inventory, ModelNoticesAPortChangedBehindItsBack)
{
    PortInventoryModel model;
    RandomPortProgram program(4711);
    for (int step = 0; step < 100; ++step)
        program.step(model);
    ASSERT_EQ("", model.firstDifference());
    kelStandinAddPort(200, 1, "stranger", 0, "");
    EXPECT_NE("", model.firstDifference());
    kelStandinRemovePort(kelStandinPortInstance(200, 1));
    ASSERT_EQ("", model.firstDifference());
    const portInstance_t any = allPorts().front().portInstance;
    kelStandinSetLink(any, kelStandinGetLink(any) == 0);
    EXPECT_NE("", model.firstDifference());
}

// A switch runs for years: a port that comes and goes must not cost memory each time.
TEST_F(Inventory, TenThousandRoundsCostNoMemory)
{
    const auto oneRound = [] {
        ASSERT_EQ(0, kelStandinAddTrunk(1, "po1", 0, "trunk"));
        ASSERT_EQ(0, kelStandinAddPort(1, 1, "swp1", 0, "port"));
        ASSERT_EQ(0, kelStandinJoinTrunk(kelStandinTrunkInstance(1), kelStandinPortInstance(1, 1)));
        ASSERT_EQ(0, kelStandinSetVlan(kelStandinPortInstance(1, 1), 10, KEL_STANDIN_VLAN_TAGGED));
        ASSERT_EQ(0, kelStandinSetLink(kelStandinPortInstance(1, 1), 1));
        ASSERT_EQ(0, kelStandinRemovePort(kelStandinPortInstance(1, 1)));
        ASSERT_EQ(0, kelStandinRemovePort(kelStandinTrunkInstance(1)));
    };
    oneRound();
    const pif_ *earlier = nullptr;
    kelStandinAddPort(1, 1, "", 0, "");
    earlier = recordOf(kelStandinPortInstance(1, 1));
    kelStandinRemovePort(kelStandinPortInstance(1, 1));
    const auto before = mallinfo2().uordblks;
    for (int round = 0; round < 10000; ++round)
        oneRound();
    EXPECT_EQ(before, mallinfo2().uordblks);
    kelStandinAddPort(1, 1, "", 0, "");
    EXPECT_EQ(earlier, recordOf(kelStandinPortInstance(1, 1)));
}

TEST_F(Inventory, ChassisWithAllPortsIsWalkedAndLookedUp)
{
    unsigned added = 0;
    for (unsigned slot = 1; slot <= KEL_STANDIN_MAX_SLOT; ++slot)
        for (unsigned port = 1; port <= KEL_STANDIN_MAX_PORT; ++port)
            added += kelStandinAddPort(slot, port, "", 0, "") == 0;
    EXPECT_EQ(254u * 128u, added);
    unsigned walked = 0;
    for (const pif_ *pif = vlanLibGetNextPifByType(0, 0); pif != nullptr;
         pif = vlanLibGetNextPifByType(pif->portInstance, 0)) {
        ++walked;
        ASSERT_EQ(pif, vlanLibGetLifFromIfIndex(pif->ifIndex));
        pif_ *bySlotPort = nullptr;
        ASSERT_EQ(1, vlanLibGetLifBySlotPort(pif->slot, pif->port, &bySlotPort));
        ASSERT_EQ(pif, bySlotPort);
    }
    EXPECT_EQ(added, walked);
}

// Readers hold no lock: whatever they find is whole, and stays readable.
TEST_F(Inventory, AnyThreadAsksWhilePortsComeAndGo)
{
    constexpr unsigned ports = 8;
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; ++reader)
        readers.emplace_back([&stop] {
            char name[33];
            while (!stop) {
                for (const pif_ *pif = vlanLibGetNextPifByType(0, 0); pif != nullptr;
                     pif = vlanLibGetNextPifByType(pif->portInstance, 0)) {
                    EXPECT_EQ(1000u * pif->slot + pif->port, pif->ifIndex);
                    EXPECT_EQ(kelStandinPortInstance(pif->slot, pif->port), pif->portInstance);
                    vlanGetNameForPif(pif, name, sizeof name);
                    isPortMasterOfTrunk(pif);
                }
                kelStandinSnapshot(nullptr, 0);
            }
        });
    kelStandinAddTrunk(1, "po1", 0, "");
    for (unsigned round = 0; round < 2000; ++round) {
        const unsigned port = round % ports + 1;
        kelStandinAddPort(1, port, "swp", 0, "");
        kelStandinJoinTrunk(kelStandinTrunkInstance(1), kelStandinPortInstance(1, port));
        kelStandinSetLink(kelStandinPortInstance(1, port), 1);
        kelStandinRemovePort(kelStandinPortInstance(1, (round + 3) % ports + 1));
    }
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
}

TEST_F(Inventory, PortsOfSeveralFeedersStayApart)
{
    std::vector<std::thread> feeders;
    for (unsigned slot = 1; slot <= 4; ++slot)
        feeders.emplace_back([slot] {
            for (unsigned round = 0; round < 500; ++round) {
                const unsigned port = round % 16 + 1;
                EXPECT_EQ(0, kelStandinAddPort(slot, port, "", 0, ""));
                EXPECT_EQ(0, kelStandinSetLink(kelStandinPortInstance(slot, port), 1));
                if (port != slot) {
                    EXPECT_EQ(0, kelStandinRemovePort(kelStandinPortInstance(slot, port)));
                } else if (round < 484) {
                    EXPECT_EQ(0, kelStandinRemovePort(kelStandinPortInstance(slot, port)));
                }
            }
        });
    for (std::thread &feeder : feeders)
        feeder.join();
    std::vector<portInstance_t> left;
    for (const kelStandinPort &port : allPorts())
        left.push_back(port.portInstance);
    EXPECT_THAT(left, testing::ElementsAre(0x00010001, 0x00020002, 0x00030003, 0x00040004));
}
