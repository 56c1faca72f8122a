// Trouble on demand: every call of the platform can be made to fail, when and how a test wants it.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <thread>
#include <vector>

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);

kelStandinFault returning(std::uint32_t result)
{
    kelStandinFault fault{};
    fault.replaceResult = 1;
    fault.result = result;
    return fault;
}

kelStandinFault handingOut(kelStandinHandOut handOut)
{
    kelStandinFault fault{};
    fault.handOut = handOut;
    return fault;
}

class Faults : public EmptyStandin
{
protected:
    Faults()
    {
        kelStandinAddPort(1, 1, "swp1", 0, "");
    }

    pif_ marker{};
    pif_ *record = &marker;
    char name[33] = "old";
};
} // namespace

TEST_F(Faults, RecordVanishesBetweenTwoCalls)
{
    kelStandinFault vanished = returning(0);
    vanished.handOut = KEL_HAND_OUT_NULL;
    vanished.skip = 1;
    vanished.times = 1;
    ASSERT_EQ(0, kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &vanished));
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(0, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(nullptr, record);
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record)) << "once was wanted";
    EXPECT_EQ(3u, kelStandinCallCount(KEL_CALL_LIF_BY_INSTANCE));
}

TEST_F(Faults, HookRemovesThePortJustAskedFor)
{
    kelStandinFault fault{};
    fault.hook = [](void *user, uint32_t asked) {
        *static_cast<uint32_t *>(user) = asked;
        kelStandinRemovePort(asked);
    };
    std::uint32_t asked = 0;
    fault.user = &asked;
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &fault);
    EXPECT_EQ(0, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(port11, asked);
}

TEST_F(Faults, ResultIsReplacedWhileTheRecordIsTrue)
{
    const kelStandinFault two = returning(2);
    kelStandinSetFault(KEL_CALL_LIF_BY_SLOT_PORT, &two);
    EXPECT_EQ(2, vlanLibGetLifBySlotPort(1, 1, &record));
    EXPECT_EQ(port11, record->portInstance);
    kelStandinSetFault(KEL_CALL_TRUNK_BY_INSTANCE, &two);
    EXPECT_EQ(2, getPifByPortInstance(port11, &record));
    kelStandinSetFault(KEL_CALL_IS_MASTER, &two);
    EXPECT_EQ(2, isPortMasterOfTrunk(record));
    kelStandinSetFault(KEL_CALL_PIF_BY_INSTANCE, &two);
    EXPECT_EQ(2, vlanLibGetPifByPortInstance(port11, &record));
}

TEST_F(Faults, RecordIsNullOrUntouchedThoughTheCallSucceeds)
{
    const kelStandinFault null = handingOut(KEL_HAND_OUT_NULL);
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &null);
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(nullptr, record);
    const kelStandinFault untouched = handingOut(KEL_HAND_OUT_EMPTY);
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &untouched);
    record = &marker;
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
    EXPECT_EQ(&marker, record);
}

TEST_F(Faults, CallsThatReturnARecordReturnNone)
{
    const kelStandinFault null = handingOut(KEL_HAND_OUT_NULL);
    kelStandinSetFault(KEL_CALL_LIF_BY_IFINDEX, &null);
    kelStandinSetFault(KEL_CALL_NEXT_PIF, &null);
    EXPECT_EQ(nullptr, vlanLibGetLifFromIfIndex(1001));
    EXPECT_EQ(nullptr, vlanLibGetNextPifByType(0, 0));
}

TEST_F(Faults, NameIsEmptyOrNull)
{
    const kelStandinFault empty = handingOut(KEL_HAND_OUT_EMPTY);
    kelStandinSetFault(KEL_CALL_NAME, &empty);
    EXPECT_EQ(name, vlanGetNameForPif(recordOf(port11), name, sizeof name));
    EXPECT_STREQ("", name);
    const kelStandinFault null = handingOut(KEL_HAND_OUT_NULL);
    kelStandinSetFault(KEL_CALL_NAME, &null);
    EXPECT_EQ(nullptr, vlanGetNameForPif(recordOf(port11), name, sizeof name));
}

TEST_F(Faults, PortListHasNoWordsLeftOrEndsEarly)
{
    portlist_t list{};
    const kelStandinFault none = returning(0);
    kelStandinSetFault(KEL_CALL_PORTLIST_RESERVE, &none);
    EXPECT_EQ(0u, plRsrvSlotBitOffset(&list, 1, recordOf(port11)));
    EXPECT_EQ(0, list.slotOffset[1]);
    const kelStandinFault end = returning(0xFFFFFFFF);
    kelStandinSetFault(KEL_CALL_PORTLIST_NEXT, &end);
    list.slotOffset[1] = 1;
    list.words[0] = 0x80000000;
    EXPECT_EQ(0xFFFFFFFFu, PORTLIST_GETNEXTPORT(&list, 0xFFFFFFFF));
}

TEST_F(Faults, TraceBufferIsNullAndTakesNothing)
{
    const kelStandinFault null = handingOut(KEL_HAND_OUT_NULL);
    kelStandinSetFault(KEL_CALL_TRACE_INIT, &null);
    EXPECT_EQ(nullptr, emsInitTraceBuffer("faulty", 1000, 0));
    emsTraceLogf(nullptr, 0, "into %s", "nothing");
}

TEST_F(Faults, SessionTakesNothing)
{
    const int session = kelStandinOpenSink(
        [](void *, const char *, size_t) {
            ADD_FAILURE() << "a text came through";
            return 0;
        },
        nullptr);
    const kelStandinFault busy = returning(static_cast<uint32_t>(-5));
    kelStandinSetFault(KEL_CALL_NOTIFY_CLI, &busy);
    EXPECT_EQ(-5, cmNotifyCLI(session, "text"));
}

TEST_F(Faults, WithoutEndAllCallsAreTroubledUntilItIsTakenBack)
{
    const kelStandinFault fault = returning(0);
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &fault);
    for (int call = 0; call < 100; ++call)
        EXPECT_EQ(0, vlanLibGetLifByPortInstance(port11, &record));
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, nullptr);
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
}

TEST_F(Faults, ResetTakesThemAllBackAndStartsCountingAnew)
{
    const kelStandinFault fault = returning(0);
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &fault);
    vlanLibGetLifByPortInstance(port11, &record);
    kelStandinReset();
    EXPECT_EQ(0u, kelStandinCallCount(KEL_CALL_LIF_BY_INSTANCE));
    kelStandinAddPort(1, 1, "", 0, "");
    EXPECT_EQ(1, vlanLibGetLifByPortInstance(port11, &record));
}

TEST_F(Faults, UnknownCallIsRefused)
{
    const kelStandinFault fault{};
    EXPECT_EQ(EINVAL, kelStandinSetFault(KEL_CALL_COUNT, &fault));
    EXPECT_EQ(EINVAL, kelStandinSetFault(static_cast<kelStandinCall>(KEL_CALL_COUNT + 1), &fault));
    EXPECT_EQ(0u, kelStandinCallCount(KEL_CALL_COUNT));
}

// However the threads interleave, exactly the wanted number of calls is troubled.
TEST_F(Faults, TroubleIsCountedExactlyAcrossThreads)
{
    kelStandinFault fault = returning(7);
    fault.skip = 100;
    fault.times = 500;
    kelStandinSetFault(KEL_CALL_LIF_BY_INSTANCE, &fault);
    constexpr int threadCount = 4;
    constexpr int callsEach = 500;
    std::atomic<int> troubled{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&troubled] {
            for (int call = 0; call < callsEach; ++call) {
                pif_ *found = nullptr;
                troubled += vlanLibGetLifByPortInstance(port11, &found) == 7;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(500, troubled.load());
    EXPECT_EQ(2000u, kelStandinCallCount(KEL_CALL_LIF_BY_INSTANCE));
}
