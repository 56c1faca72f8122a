#include "vlan_matrix.h"

#include "sysport.h"

#include <gtest/gtest.h>

#include <kel_standin.h>

namespace
{
class VlanMatrixTest : public testing::Test
{
protected:
    VlanMatrixTest()
    {
        kelStandinReset();
        kelSysPortUtilInit();
    }
    ~VlanMatrixTest() override
    {
        delete kelSysPortUtil::localPtr;
        kelStandinReset();
    }
    // A bound port ge1/N; the first has system port 1.
    static portInstance_t addPort(unsigned port, const std::string &name = "")
    {
        const portInstance_t instance = kelStandinPortInstance(1, port);
        EXPECT_EQ(0, kelStandinAddPort(1, port, name.empty() ? ("ge1/" + std::to_string(port)).c_str() : name.c_str(),
                                       0, nullptr));
        EXPECT_EQ(1, kelSysPortUtilAddPifCB(instance));
        return instance;
    }
};
} // namespace

TEST(NameRanges, NamesWithNumbersThatFollowEachOtherAreDrawnTogether)
{
    EXPECT_EQ("", nameRanges({}));
    EXPECT_EQ("ge1/1", nameRanges({"ge1/1"}));
    EXPECT_EQ("ge1/1-3", nameRanges({"ge1/1", "ge1/2", "ge1/3"}));
    EXPECT_EQ("ge1/1-2, ge1/4, ge2/5", nameRanges({"ge1/1", "ge1/2", "ge1/4", "ge2/5"}));
    EXPECT_EQ("1-2", nameRanges({"1", "2"}));
}

// "swp09" and "swp10" are not neighbours in the way that "swp9" and "swp10" are: a range could not be read back.
TEST(NameRanges, NamesWithoutANumberOrWithLeadingZerosStandAlone)
{
    EXPECT_EQ("uplink, uplink", nameRanges({"uplink", "uplink"}));
    EXPECT_EQ("swp09, swp10", nameRanges({"swp09", "swp10"}));
    EXPECT_EQ("a, a1", nameRanges({"a", "a1"}));
    EXPECT_EQ("p4294967295, p4294967296, p0", nameRanges({"p4294967295", "p4294967296", "p0"}));
}

TEST_F(VlanMatrixTest, WithoutVlansOrPortsThereAreTheTitlesAlone)
{
    EXPECT_EQ("VLAN  PORTS  UNTAGGED  TAGGED\n", VlanMatrix().table());
    EXPECT_EQ("[]", VlanMatrix().json().dump());
    EXPECT_EQ("", VlanMatrix().ofPort(1));
}

TEST_F(VlanMatrixTest, ShowsWhoIsInWhichVlanAndHow)
{
    for (unsigned port = 1; port <= 40; ++port) {
        const portInstance_t instance = addPort(port);
        kelStandinSetVlan(instance, 4094, KEL_STANDIN_VLAN_UNTAGGED);
        if (port > 38)
            kelStandinSetVlan(instance, 7, KEL_STANDIN_VLAN_TAGGED);
    }
    const VlanMatrix vlans;
    EXPECT_EQ("VLAN  PORTS  UNTAGGED  TAGGED\n"
              "   7      2  -         ge1/39-40\n"
              "4094     40  ge1/1-40  -\n",
              vlans.table());
    EXPECT_EQ("4094", vlans.ofPort(1));
    EXPECT_EQ("7 (tagged), 4094", vlans.ofPort(40));
    EXPECT_EQ("", vlans.ofPort(41));
    EXPECT_EQ(R"({"vlan":7,"untagged":[],"tagged":["ge1/39","ge1/40"]})", vlans.json()[0].dump());
}

TEST_F(VlanMatrixTest, MemberThatThePortMapDoesNotKnowIsLeftOut)
{
    kelStandinAddPort(1, 5, "unbound", 0, nullptr);
    kelStandinSetVlan(kelStandinPortInstance(1, 5), 10, KEL_STANDIN_VLAN_TAGGED);
    EXPECT_EQ("VLAN  PORTS  UNTAGGED  TAGGED\n"
              "  10      0  -         -\n",
              VlanMatrix().table());
}

TEST_F(VlanMatrixTest, NamesThatATerminalWouldObeyOrThatAreEmptyAreShownSafely)
{
    kelStandinSetVlan(addPort(1, "\x1b[2J"), 1, KEL_STANDIN_VLAN_TAGGED);
    kelStandinSetVlan(addPort(2, "x"), 1, KEL_STANDIN_VLAN_TAGGED);
    kelStandinRename(kelStandinPortInstance(1, 2), nullptr);
    EXPECT_EQ("VLAN  PORTS  UNTAGGED  TAGGED\n"
              "   1      2  -         ?[2J, port 2\n",
              VlanMatrix().table());
}
