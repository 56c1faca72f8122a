// Each allocation of each call of the stand-in fails, once and from then on: the call says so, nothing is changed,
// nobody hears of it, and the same call succeeds as soon as there is memory.
#include "harness/fail_allocation.h"

#include "standin_fixture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace
{
// Trunks that more than one attempt may use.
constexpr unsigned someTrunk = KEL_STANDIN_MAX_PORT - 1;
constexpr unsigned otherTrunk = KEL_STANDIN_MAX_PORT;

// The inventory keeps what it once allocated for a port, so each attempt has a port of its own.
struct Fresh {
    Fresh()
    {
        static unsigned used = 0;
        slot = 1 + used / KEL_STANDIN_MAX_PORT;
        port = 1 + used++ % KEL_STANDIN_MAX_PORT;
        EXPECT_LT(used, someTrunk) << "no trunk of its own is left";
        trunk = used;
    }
    portInstance_t portInstance() const
    {
        return kelStandinPortInstance(slot, port);
    }
    pif_ record() const
    {
        return {.portInstance = portInstance(),
                .ifIndex = 1000 * slot + port,
                .trunkPortInstance = 0,
                .masterPortInstance = 0,
                .slot = static_cast<uint16_t>(slot),
                .port = static_cast<uint16_t>(port)};
    }
    unsigned slot, port, trunk;
};

std::string everythingThatIsThere()
{
    std::string all;
    for (const kelStandinPort &port : allPorts()) {
        for (const uint64_t number :
             {uint64_t{port.portInstance}, uint64_t{port.ifIndex}, uint64_t{port.trunk}, uint64_t{port.master},
              uint64_t{port.mtu}, port.linkChanges, static_cast<uint64_t>(port.lastChange),
              uint64_t{kelStandinGetAddresses(port.portInstance, nullptr, 0)}})
            all += std::to_string(number) + " ";
        all += std::string(port.name) + "\n";
    }
    for (unsigned vlan = kelStandinNextVlan(0); vlan != 0; vlan = kelStandinNextVlan(vlan))
        all += "VLAN " + std::to_string(vlan) + ": " + std::to_string(kelStandinVlanMembers(vlan, nullptr, 0)) + "\n";
    return all;
}

// Counts what the listener hears; takes no memory itself.
int heard = 0;

class MemoryFault : public EmptyStandin
{
protected:
    MemoryFault()
    {
        const kelStandinListener listener{[](void *, portInstance_t) { ++heard; },
                                          [](void *, portInstance_t) { ++heard; },
                                          [](void *, portInstance_t, int) { ++heard; }, nullptr};
        kelStandinSetListener(&listener);
    }
    ~MemoryFault() override
    {
        kelStandinSetListener(nullptr);
    }

    // Until a call gets through, which takes `atLeast` allocations.
    void eachAllocationFails(
        int atLeast, const std::function<int(const Fresh &)> &call,
        const std::function<void(const Fresh &)> &prepares = [](const Fresh &) {})
    {
        for (const Failing mode : {Failing::Once, Failing::FromThenOn}) {
            bool failed = true;
            for (int nth = 1; failed; ++nth) {
                kelStandinReset();
                const Fresh fresh;
                prepares(fresh);
                const std::string before = everythingThatIsThere();
                heard = 0;
                FailAllocation failing(nth, mode);
                const int result = call(fresh);
                failed = failing.happened();
                if (!failed) {
                    EXPECT_EQ(0, result);
                    EXPECT_GT(nth, atLeast) << "fewer allocations than expected";
                    break;
                }
                EXPECT_EQ(ENOMEM, result) << "allocation " << nth;
                EXPECT_EQ(before, everythingThatIsThere()) << "allocation " << nth;
                EXPECT_EQ(0, heard) << "allocation " << nth;
                EXPECT_EQ(0, call(fresh)) << "after allocation " << nth;
                EXPECT_NE(before, everythingThatIsThere());
            }
        }
    }
};

void addPort(const Fresh &fresh)
{
    ASSERT_EQ(0, kelStandinAddPort(fresh.slot, fresh.port, "port", 0, ""));
}

void addTrunk(unsigned number)
{
    ASSERT_EQ(0, kelStandinAddTrunk(number, "trunk", 0, ""));
}
// A trunk of two, so that it is still there when one leaves.
void addTrunkOf(const Fresh &fresh, const Fresh &second, unsigned number)
{
    addPort(fresh);
    addPort(second);
    addTrunk(number);
    const portInstance_t trunk = kelStandinTrunkInstance(number);
    ASSERT_EQ(0, kelStandinJoinTrunk(trunk, fresh.portInstance()));
    ASSERT_EQ(0, kelStandinJoinTrunk(trunk, second.portInstance()));
}
} // namespace

TEST_F(MemoryFault, PortIsNotAdded)
{
    eachAllocationFails(2, [](const Fresh &fresh) { return kelStandinAddPort(fresh.slot, fresh.port, "", 0, ""); });
}

TEST_F(MemoryFault, TrunkIsNotAdded)
{
    eachAllocationFails(2, [](const Fresh &fresh) { return kelStandinAddTrunk(fresh.trunk, "", 0, ""); });
}

TEST_F(MemoryFault, RecordIsNotAdded)
{
    eachAllocationFails(2, [](const Fresh &fresh) {
        const pif_ record = fresh.record();
        return kelStandinAddRecord(&record, "");
    });
}

TEST_F(MemoryFault, MemberStaysOutsideTheTrunk)
{
    eachAllocationFails(
        2,
        [](const Fresh &fresh) {
            return kelStandinJoinTrunk(kelStandinTrunkInstance(someTrunk), fresh.portInstance());
        },
        [](const Fresh &fresh) {
            addPort(fresh);
            addTrunk(someTrunk);
        });
}

// It leaves the other trunk last, so a failure before that leaves it there, standing for that trunk.
TEST_F(MemoryFault, MemberStaysInItsOtherTrunk)
{
    eachAllocationFails(
        2,
        [](const Fresh &fresh) {
            return kelStandinJoinTrunk(kelStandinTrunkInstance(someTrunk), fresh.portInstance());
        },
        [](const Fresh &fresh) {
            addTrunkOf(fresh, Fresh(), otherTrunk);
            addTrunk(someTrunk);
        });
}

TEST_F(MemoryFault, MemberDoesNotLeave)
{
    eachAllocationFails(
        1, [](const Fresh &fresh) { return kelStandinLeaveTrunk(fresh.portInstance()); },
        [](const Fresh &fresh) { addTrunkOf(fresh, Fresh(), someTrunk); });
}

TEST_F(MemoryFault, MasterStaysTheMaster)
{
    Fresh second;
    eachAllocationFails(
        1,
        [&second](const Fresh &) {
            return kelStandinSetMaster(kelStandinTrunkInstance(someTrunk), second.portInstance());
        },
        [&second](const Fresh &fresh) {
            second = Fresh();
            addTrunkOf(fresh, second, someTrunk);
        });
}

TEST_F(MemoryFault, PortStaysOutsideTheVlan)
{
    eachAllocationFails(
        1, [](const Fresh &fresh) { return kelStandinSetVlan(fresh.portInstance(), 10, KEL_STANDIN_VLAN_TAGGED); },
        addPort);
}

TEST_F(MemoryFault, PortGetsNoAddress)
{
    eachAllocationFails(
        1,
        [](const Fresh &fresh) {
            kelStandinAddress address{};
            address.family = AF_INET;
            address.prefixLength = 24;
            return kelStandinAddAddress(fresh.portInstance(), &address);
        },
        addPort);
}

TEST_F(MemoryFault, TraceBufferIsNone)
{
    for (const Failing mode : {Failing::Once, Failing::FromThenOn}) {
        for (int nth = 1; nth <= 2; ++nth) {
            const std::string name = "fault" + std::to_string(Fresh().trunk);
            {
                FailAllocation failing(nth, mode);
                void *const buffer = emsInitTraceBuffer(name.c_str(), 4096, 0);
                EXPECT_TRUE(failing.happened());
                EXPECT_EQ(nullptr, buffer) << "allocation " << nth;
            }
            EXPECT_EQ(-1, kelStandinReadTrace(name.c_str(), nullptr, nullptr)) << "no half of it is there";
            EXPECT_NE(nullptr, emsInitTraceBuffer(name.c_str(), 4096, 0));
        }
    }
}

// What the reader's socket does not take cannot be kept: the session is dead, and nobody waits or ends by it.
TEST_F(MemoryFault, SessionThatCannotKeepATextIsDead)
{
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
    const int session = kelStandinOpenSession(ends[0]);
    const std::string block(4096, '.');
    while (send(ends[0], block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
    {
        FailAllocation failing(1);
        const int result = cmNotifyCLI(session, "text");
        EXPECT_TRUE(failing.happened());
        EXPECT_NE(0, result);
    }
    EXPECT_NE(0, cmNotifyCLI(session, "text")) << "it takes nothing any more";
    EXPECT_EQ(0, kelStandinCloseSession(session));
    close(ends[0]);
    close(ends[1]);
}
