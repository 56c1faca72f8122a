// Threads on one port map: ports come and go through the callbacks while others look up, walk and dump.
#include "harness/printed_by.h"
#include "models/port_table_model.h"
#include "sysport/port_map.h"
#include "vxw_shim/unlocked_access.h"

#include <atomic>
#include <thread>

namespace
{
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || !defined(__x86_64__) || !defined(__OPTIMIZE__)
constexpr int Cycles = 50;
#else
constexpr int Cycles = 500;
#endif

constexpr uint16_t PortsOfASlot = 24;

class PortMapChurn : public PortMap
{
protected:
    PortMapChurn()
    {
        for (const uint16_t slot : slots) {
            for (uint16_t port = 1; port <= PortsOfASlot; ++port)
                fake.addSlotPort(slot, port);
        }
    }
    static uint32_t instance(uint32_t slot, uint32_t port)
    {
        return slot << 16 | port;
    }

    // Slots 1 and 2 churn, slot 3 stays bound. Keys of slots 1 and 2 never meet, so a delete is never answered by 0.
    static constexpr uint16_t slots[] = {1, 2, 3};
};

// Adds and deletes all ports of a slot, over and over; counts what does not come out as it must.
int churn(uint32_t slot)
{
    int wrong = 0;
    for (int cycle = 0; cycle < Cycles; ++cycle) {
        for (uint32_t port = 1; port <= PortsOfASlot; ++port) {
            wrong += kelSysPortUtilAddPifCB(slot << 16 | port) != 1;
            const uint32_t systemPort = kelSysPortUtil::localPtr->portInst2SystemPort(slot << 16 | port);
            wrong += kelSysPortUtil::localPtr->systemPort2PortInst(systemPort) != (slot << 16 | port);
            wrong += kelSysPortUtil::localPtr->getSystemPort(systemPort) != systemPort;
        }
        for (uint32_t port = PortsOfASlot; port >= 1; --port)
            wrong += kelSysPortUtilDelPifCB(slot << 16 | port) != 1;
    }
    return wrong;
}
} // namespace

TEST_F(PortMapChurn, PortsComeAndGoWhileOthersLookUpWalkAndDump)
{
    for (uint32_t port = 1; port <= PortsOfASlot; ++port)
        table().addPortInst(instance(3, port));
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::atomic<unsigned> rounds{0};

    std::vector<std::thread> readers;
    readers.emplace_back([&] {
        while (!stop) {
            for (uint32_t port = 1; port <= PortsOfASlot; ++port) {
                const uint32_t systemPort = table().portInst2SystemPort(instance(3, port));
                wrong += table().getSystemPort(systemPort) != port;
                wrong += table().getIfIndexFromSystemPort(systemPort) != 3000 + port;
                wrong += table().getBridgePortFromPortInst(instance(3, port)) != 256 + port;
            }
            ++rounds;
        }
    });
    readers.emplace_back([&] {
        while (!stop) {
            uint32_t bound = 0;
            uint32_t last = 0;
            for (uint32_t s = table().getNextSystemPort(0); s != 0; s = table().getNextSystemPort(s)) {
                wrong += s <= last;
                last = s;
                ++bound;
            }
            wrong += bound < PortsOfASlot || bound > 3 * PortsOfASlot;
            for (uint32_t i = table().getNextIfIndex(0), before = 0; i != 0; before = i, i = table().getNextIfIndex(i))
                wrong += i <= before;
            CBitMask ports(kelSysPortUtil::maxSystemPorts);
            portlist_t list{};
            for (uint32_t s = 1; s <= PortsOfASlot; ++s)
                ports.setBit(s);
            wrong += table().getPortListFromSystemPorts(&list, &ports) != 1;
            ++rounds;
        }
    });
    readers.emplace_back([&] {
        while (!stop) {
            kelSysPortUtil::DumpDebugInfo(rounds % 2 == 0, 7);
            std::lock_guard hold(fake.mutex);
            std::string all = fake.cliText();
            wrong += all.find("bindings... Done. 0 errors found.") == std::string::npos;
            wrong += all.find("BAD") != std::string::npos;
            fake.forget();
            ++rounds;
        }
    });
    std::vector<std::thread> writers;
    for (const uint32_t slot : {1U, 2U})
        writers.emplace_back([&wrong, slot] { wrong += churn(slot); });
    // Refused adds and deletes count without the lock.
    for (int refuser = 0; refuser < 2; ++refuser) {
        writers.emplace_back([] {
            for (int i = 0; i < 1000; ++i)
                kelSysPortUtil::localPtr->delPortInst(0x7FFF);
        });
    }
    for (std::thread &writer : writers)
        writer.join();
    while (rounds < 6)
        std::this_thread::yield();
    stop = true;
    for (std::thread &reader : readers)
        reader.join();

    EXPECT_EQ(0, wrong);
    EXPECT_EQ(2000U, kelSysPortUtil::badHashKey);
    EXPECT_EQ(0U, kelSysPortUtil::idxOutOfBounds + kelSysPortUtil::entryAlreadyInUse);
    EXPECT_EQ(nullptr, brokenInvariant(table()));
    EXPECT_EQ(uint32_t{PortsOfASlot}, table().usedSystemPort->numBitsSet());
    for (uint32_t port = 1; port <= PortsOfASlot; ++port)
        EXPECT_EQ(port, table().portInst2SystemPort(instance(3, port)));
}

// Many threads want the same ports: each is bound by one of them, and freed by one.
TEST_F(PortMapChurn, EachPortIsBoundOnceWhoeverAsks)
{
    for (int cycle = 0; cycle < Cycles; ++cycle) {
        std::atomic<int> added{0};
        std::atomic<int> deleted{0};
        const auto together = [](auto code) {
            std::vector<std::thread> threads;
            for (int i = 0; i < 4; ++i)
                threads.emplace_back(code);
            for (std::thread &thread : threads)
                thread.join();
        };
        together([&] {
            for (uint32_t port = 1; port <= PortsOfASlot; ++port)
                added += kelSysPortUtilAddPifCB(instance(1, port));
        });
        EXPECT_EQ(PortsOfASlot, added);
        EXPECT_EQ(nullptr, brokenInvariant(table()));
        together([&] {
            for (uint32_t port = 1; port <= PortsOfASlot; ++port)
                deleted += kelSysPortUtilDelPifCB(instance(1, port));
        });
        EXPECT_EQ(PortsOfASlot, deleted);
        EXPECT_EQ(0U, table().usedSystemPort->numBitsSet());
    }
}

// The platform's thread calls while there is no table, and goes on when one is made: it sees the new one whole.
TEST_F(PortMapChurn, TableMadeWhileThePlatformCallsIsSeenWhole)
{
    for (int cycle = 0; cycle < Cycles; ++cycle) {
        endTable();
        std::atomic<bool> calling{false};
        std::thread platform([&] {
            while (kelSysPortUtilAddPifCB(instance(1, 1)) == 0)
                calling = true;
        });
        while (!calling)
            std::this_thread::yield();
        kelSysPortUtilInit();
        platform.join();
        EXPECT_EQ(1U, table().portInst2SystemPort(instance(1, 1)));
        EXPECT_EQ(nullptr, brokenInvariant(table()));
        fake.forget();
    }
}

// The same without the fake platform's own lock in between: nothing but the map's lock orders the two threads.
TEST_F(PortMapChurn, ThreadThatFindsANewTableSeesItWhole)
{
    for (int cycle = 0; cycle < Cycles; ++cycle) {
        endTable();
        std::atomic<bool> looking{false};
        uint32_t found = 1;
        std::thread finder([&] {
            kelSysPortUtil *made = nullptr;
            while ((made = readUnlocked(kelSysPortUtil::localPtr)) == nullptr)
                looking = true;
            found = made->portInst2SystemPort(instance(1, 1)) + made->systemPort2PortInst(1);
        });
        while (!looking)
            std::this_thread::yield();
        kelSysPortUtilInit();
        finder.join();
        EXPECT_EQ(0U, found);
    }
}
