#include "port_board.h"

#include <gtest/gtest.h>

namespace
{
PortIdentity swp(uint32_t systemPort, uint32_t number)
{
    return {systemPort, 1000 + number, number, 0x10000 + number, "swp" + std::to_string(number)};
}
} // namespace

TEST(PortBoard, SystemPortThatWasNeverInUseHasNoRow)
{
    PortBoard board;
    EXPECT_FALSE(board.row(1));
    board.appeared(swp(3, 1), false);
    EXPECT_FALSE(board.row(0));
    EXPECT_FALSE(board.row(2));
    EXPECT_FALSE(board.row(4));
    ASSERT_TRUE(board.row(3));
    EXPECT_EQ("swp1", board.row(3)->identity.name);
}

TEST(PortBoard, LinkChangeIsToldOnceAndCounted)
{
    PortBoard board;
    board.appeared(swp(1, 1), false);
    EXPECT_FALSE(board.linkChanged(1, false, "swp1"));
    EXPECT_EQ(stateWord(1, statePresent | stateLinkUp), board.linkChanged(1, true, "swp1"));
    EXPECT_FALSE(board.linkChanged(1, true, "swp1"));
    EXPECT_EQ(stateWord(1, statePresent), board.linkChanged(1, false, "swp1"));
    EXPECT_EQ(2u, board.row(1)->linkChanges);
}

// A rename is not told by itself; the next change carries the new name.
TEST(PortBoard, ChangeBringsTheLatestName)
{
    PortBoard board;
    board.appeared(swp(1, 1), false);
    board.linkChanged(1, true, "uplink");
    EXPECT_EQ("uplink", board.row(1)->identity.name);
    board.linkChanged(1, false, "");
    EXPECT_EQ("uplink", board.row(1)->identity.name);
    board.disappeared(1, "gone0");
    EXPECT_EQ("gone0", board.row(1)->identity.name);
}

TEST(PortBoard, FreedSystemPortKeepsTheIdentityOfItsLastInterface)
{
    PortBoard board;
    board.appeared(swp(1, 7), true);
    EXPECT_EQ(stateWord(1, 0), board.disappeared(1, ""));
    EXPECT_EQ(1007u, board.row(1)->identity.ifIndex);
    EXPECT_FALSE(board.disappeared(1, ""));
    EXPECT_FALSE(board.linkChanged(1, true, ""));
    EXPECT_FALSE(board.heldDown(1, true));
}

TEST(PortBoard, NextInterfaceOfASystemPortIsAnotherGenerationAndKnowsItsPredecessor)
{
    PortBoard board;
    board.appeared(swp(1, 7), true);
    board.disappeared(1, "");
    EXPECT_EQ(stateWord(2, statePresent), board.appeared(swp(1, 8), false));
    const PortRow row = *board.row(1);
    EXPECT_EQ("swp8", row.identity.name);
    EXPECT_EQ("swp7", row.before.name);
    EXPECT_EQ(1u, row.beforeGeneration);
    EXPECT_EQ(0u, row.linkChanges);
}

TEST(PortBoard, HeldDownIsAFlagBesideTheLink)
{
    PortBoard board;
    board.appeared(swp(1, 1), true);
    EXPECT_EQ(stateWord(1, statePresent | stateLinkUp | stateHeldDown), board.heldDown(1, true));
    EXPECT_EQ(stateWord(1, statePresent | stateHeldDown), board.linkChanged(1, false, ""));
    EXPECT_EQ(stateWord(1, statePresent), board.heldDown(1, false));
}

TEST(PortBoard, PresentAndUpAreCounted)
{
    PortBoard board;
    EXPECT_EQ(0u, board.portsPresent());
    board.appeared(swp(1, 1), true);
    board.appeared(swp(2, 2), false);
    board.appeared(swp(3, 3), true);
    board.disappeared(3, "");
    EXPECT_EQ(2u, board.portsPresent());
    EXPECT_EQ(1u, board.portsUp());
}

TEST(PortBoard, NumberThatIsNoSystemPortIsIgnored)
{
    PortBoard board;
    EXPECT_EQ(0u, board.appeared(swp(32768, 1), true));
    EXPECT_EQ(0u, board.appeared(swp(0xFFFFFFFF, 1), true));
    EXPECT_FALSE(board.row(0xFFFFFFFF));
}

TEST(StateWord, GenerationWrapsInItsOwnBits)
{
    EXPECT_EQ(0xFFFFFFu, generationOf(stateWord(0xFFFFFF, 0)));
    EXPECT_EQ(0u, generationOf(stateWord(0x1000000, statePresent)));
    EXPECT_EQ(statePresent, stateWord(0x1000000, statePresent));
}
