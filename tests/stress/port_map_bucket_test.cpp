// port_map_bucket_test.cpp: all ports in one hash bucket, the worst that a platform's numbering can do to the map.
#include "harness/instrumented.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"

#include "bitset.h"
#include "sysport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace
{
constexpr uint32_t Failed = 0xFFFFFFFF;
constexpr uint32_t Most = 32767; // system ports 1 to 32767

// The nth of the port instances whose key is the same: the high half cancels itself out of the low one.
uint32_t nthInOneBucket(uint32_t n)
{
    constexpr uint32_t key = 0x1234;
    const uint32_t high = n + 1;
    return high << 16 | ((key ^ high << 8 ^ high) & 0x7FFF);
}

class OneBucket : public testing::Test
{
protected:
    OneBucket()
    {
        kelSysPortUtilInit();
    }
    ~OneBucket() override
    {
        delete kelSysPortUtil::localPtr;
        semDelete(kelSysPortUtil::mSem);
        kelSysPortUtil::mSem = nullptr;
    }
    static kelSysPortUtil &table()
    {
        return *kelSysPortUtil::localPtr;
    }
};

// Steps from the bucket's head to the record of `portInst`, that one included; at most `limit`.
uint32_t stepsTo(uint32_t portInst, uint32_t limit) KEL_UNCHECKED_LOCKING
{
    for (const kelSysPortUtil::portRecord *head : kelSysPortUtil::localPtr->hashBuckets) {
        uint32_t steps = 0;
        for (const auto *record = head; record != nullptr && steps < limit; record = record->next) {
            ++steps;
            if (record->portInst == portInst)
                return steps;
        }
        if (steps != 0)
            return limit; // there is one bucket
    }
    return 0;
}
} // namespace

// A lookup walks past each port once at most: as many steps as there are ports, whatever their order.
TEST_F(OneBucket, WorstLookupWalksPastEveryPortOnceAndFindsIt)
{
    const auto ports = static_cast<uint32_t>(scaled(static_cast<int>(Most)));
    for (uint32_t n = 0; n < ports; ++n)
        ASSERT_EQ(n + 1, table().addPortInst(nthInOneBucket(n)));
    EXPECT_EQ(ports, stepsTo(nthInOneBucket(0), ports + 1)); // the oldest is last
    EXPECT_EQ(1U, stepsTo(nthInOneBucket(ports - 1), ports + 1));
    if (ports == Most) {
        printedBy([&] { EXPECT_EQ(Failed, table().addPortInst(nthInOneBucket(ports))); }); // no system port is left
    }

    auto worst = std::chrono::steady_clock::duration::max(); // the quickest of several tries: the rest is the machine
    for (int tries = 0; tries < 20; ++tries) {
        const auto start = std::chrono::steady_clock::now();
        const uint32_t systemPort = table().portInst2SystemPort(nthInOneBucket(0));
        worst = std::min(worst, std::chrono::steady_clock::now() - start);
        ASSERT_EQ(1U, systemPort);
    }
    EXPECT_EQ(0U, table().portInst2SystemPort(nthInOneBucket(Most + 1))); // unknown: past all of them as well
    EXPECT_LT(worst, 10ms); // one walk is far below; one that begins again at each port takes half a second
    if (ports == Most) {
        printf("trust: worst lookup, 32,767 ports in one bucket | %.1f us\n",
               std::chrono::duration<double, std::micro>(worst).count());
    }

    for (uint32_t n = 0; n < ports; ++n)
        ASSERT_EQ(n + 1, table().delPortInst(nthInOneBucket(n)));
    EXPECT_EQ(0U, table().usedSystemPort->numBitsSet());
}
