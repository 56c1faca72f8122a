// Copies of what is kept about ports.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

using testing::ElementsAre;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);

using Snapshot = EmptyStandin;
} // namespace

TEST_F(Snapshot, PortIsFoundByNameTheLowestFirstAndNeverByNoName)
{
    kelStandinAddPort(1, 2, "twin", 0, "");
    kelStandinAddPort(1, 1, "twin", 0, "");
    kelStandinAddPort(2, 1, "", 0, "");
    EXPECT_EQ(port11, kelStandinFindPort("twin"));
    EXPECT_EQ(0u, kelStandinFindPort(""));
    EXPECT_EQ(0u, kelStandinFindPort(nullptr));
    EXPECT_EQ(0u, kelStandinFindPort("other"));
}

TEST_F(Snapshot, SnapshotIsInPortInstanceOrderAndSaysHowManyThereAre)
{
    kelStandinAddTrunk(1, "trunk", 0, "");
    kelStandinAddPort(2, 1, "c", 0, "");
    kelStandinAddPort(1, 2, "b", 0, "");
    kelStandinAddPort(1, 1, "a", 0, "");
    EXPECT_THAT(allNames(), ElementsAre("a", "b", "c", "trunk"));
    kelStandinPort two[3];
    std::memset(two, 0x55, sizeof two);
    EXPECT_EQ(4u, kelStandinSnapshot(two, 2));
    EXPECT_STREQ("b", two[1].name);
    EXPECT_EQ(0x55555555u, two[2].portInstance) << "written beyond the room";
}
