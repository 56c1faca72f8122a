#include "change_line.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{
constexpr uint32_t up = statePresent | stateLinkUp;
constexpr uint32_t down = statePresent;

Reported saw(uint32_t generation, uint32_t flags)
{
    return {stateWord(generation, flags), "swp1"};
}

// Times of day are local; the tests' zone is UTC.
class ChangeLine : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};
} // namespace

TEST(WhatChanged, FirstSightOfAPortIsItsArrival)
{
    EXPECT_EQ("added, link up", whatChanged({}, stateWord(1, up), false));
    EXPECT_EQ("added, link down", whatChanged({}, stateWord(1, down), true));
    EXPECT_EQ("added and removed", whatChanged({}, stateWord(1, 0), true));
}

TEST(WhatChanged, LinkOfTheSamePort)
{
    EXPECT_EQ("link up", whatChanged(saw(1, down), stateWord(1, up), false));
    EXPECT_EQ("link down", whatChanged(saw(1, up), stateWord(1, down), false));
    EXPECT_EQ("link down", whatChanged(saw(1, up), stateWord(1, down), true));
    EXPECT_EQ("removed", whatChanged(saw(1, up), stateWord(1, 0), true));
}

// Down and up again while the event was queued: nothing differs, but it must be told.
TEST(WhatChanged, LinkThatCameBackWhileItsEventWasQueuedFlapped)
{
    EXPECT_EQ("link flapped, still up", whatChanged(saw(1, up), stateWord(1, up), true));
    EXPECT_EQ("link flapped, still down", whatChanged(saw(1, down), stateWord(1, down), true));
}

TEST(WhatChanged, HeldDownAndReleased)
{
    EXPECT_EQ("flapping, held down", whatChanged(saw(1, up), stateWord(1, up | stateHeldDown), false));
    EXPECT_EQ("still flapping, held down",
              whatChanged(saw(1, up | stateHeldDown), stateWord(1, down | stateHeldDown), true));
    EXPECT_EQ("released, link down", whatChanged(saw(1, up | stateHeldDown), stateWord(1, down), false));
    EXPECT_EQ("removed", whatChanged(saw(1, up | stateHeldDown), stateWord(1, 0), false));
}

TEST(WhatChanged, AnotherInterfaceOnAFreedSystemPortIsAdded)
{
    EXPECT_EQ("added, link up", whatChanged(saw(1, 0), stateWord(2, up), false));
    EXPECT_EQ("added and removed", whatChanged(saw(1, 0), stateWord(2, 0), true));
}

// The removal of the first one was coalesced away.
TEST(WhatChanged, AnotherInterfaceOnAPortThatWasLastSeenInUseReplacedIt)
{
    EXPECT_EQ("replaced swp1, link down", whatChanged(saw(1, up), stateWord(2, down), true));
    EXPECT_EQ("replaced swp1, then removed", whatChanged(saw(1, up), stateWord(2, 0), true));
    EXPECT_EQ("replaced swp1, held down", whatChanged(saw(1, up), stateWord(2, up | stateHeldDown), true));
}

TEST_F(ChangeLine, HasEveryNumberInItsColumn)
{
    ChangeRecord record = {{1234567890, 123'456'789}, 7, 3, 1003, 3, 0x10003, false, "swp3", "link down"};
    EXPECT_EQ("TIME          BATCH  PORT  IFINDEX  BRIDGE  INSTANCE    NAME      CHANGE\n"
              "23:31:30.123      7     3     1003       3  0x00010003  swp3      link down\n",
              changeTitleLine() + changeLine(record));
    record.coalesced = true;
    record.bridgePort = 0;
    EXPECT_EQ("23:31:30.123      7     3     1003       -  0x00010003  swp3      link down (coalesced)\n",
              changeLine(record));
}

TEST_F(ChangeLine, LongestFieldsFitAndControlBytesAreNotPrinted)
{
    ChangeRecord record = {{0, 0}, 1, 32767, 4294967295, 4294967295, 0xFFFFFFFF, true, "", ""};
    fillField(record.name, std::string(200, 'n'));
    fillField(record.what, std::string(200, '\x1b'));
    const std::string line = changeLine(record);
    EXPECT_NE(std::string::npos, line.find(std::string(63, 'n') + "  " + std::string(95, '?') + " (coalesced)\n"));
    EXPECT_EQ(std::string::npos, line.find('\x1b'));
}
