// The simulated chassis: how it is built, and what each event does to it, without a clock.
#include "failing_removal.h"
#include "standin_fixture.h"

#include "small_chassis.h"

#include "chassis.h"
#include "provider_error.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);
const portInstance_t port13 = kelStandinPortInstance(1, 3);
const portInstance_t trunk1 = kelStandinTrunkInstance(1);

class Chassis : public EmptyStandin
{
protected:
    Chassis()
    {
        chassis.build();
    }

    void play(kel::TopologyEvent::Action action, portInstance_t port)
    {
        kel::TopologyEvent event;
        event.action = action;
        event.port = port;
        chassis.play(event);
    }

    using Action = kel::TopologyEvent::Action;
    kel::Topology topology = chassisWith("");
    kel::Chassis chassis{topology};
};
} // namespace

TEST_F(Chassis, IsBuiltAsDescribed)
{
    EXPECT_THAT(allNames(), ElementsAre("a", "b", "po1"));
    const kelStandinPort port = portOf(port11);
    EXPECT_EQ(9000u, port.mtu);
    EXPECT_EQ(1, port.mac[5]);
    EXPECT_EQ(1, port.linkUp);
    EXPECT_STREQ("first", port.description);
    EXPECT_EQ(1u, kelStandinGetAddresses(port11, nullptr, 0));
    EXPECT_EQ(trunk1, port.trunk);
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_EQ(0, kelStandinGetLink(port12));
    EXPECT_EQ(1, kelStandinGetLink(trunk1)) << "one member is up";
    EXPECT_THAT(vlanMembers(10), ElementsAre(port11, trunk1));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port11, 10));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(trunk1, 10));
}

TEST_F(Chassis, PortThatWasNotPresentIsAddedByAnEvent)
{
    Heard heard;
    play(Action::add, port13);
    play(Action::add, port13);
    EXPECT_THAT(heard.take(), ElementsAre("+1/3", "1/3 up"));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port13, 10));
}

TEST_F(Chassis, PortComesBackToItsTrunkVlansAndLink)
{
    Heard heard;
    play(Action::remove, port12);
    EXPECT_EQ(port11, portOf(trunk1).master);
    play(Action::remove, port12);
    play(Action::add, port12);
    EXPECT_EQ(port12, portOf(trunk1).master) << "the described master stands for the trunk again";
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_THAT(heard.take(), ElementsAre("-1/2", "+1/2"));
    play(Action::cycle, port11);
    EXPECT_EQ(1, kelStandinGetLink(port11));
    EXPECT_EQ(KEL_STANDIN_VLAN_UNTAGGED, kelStandinGetVlan(port11, 10));
    EXPECT_EQ(1u, kelStandinGetAddresses(port11, nullptr, 0));
}

TEST_F(Chassis, TrunkLinkFollowsItsMembers)
{
    Heard heard;
    play(Action::down, port11);
    play(Action::up, port12);
    play(Action::up, port11);
    play(Action::remove, port12);
    play(Action::remove, port11);
    EXPECT_THAT(heard.take(),
                ElementsAre("1/1 down", "256/1 down", "1/2 up", "256/1 up", "1/1 up", "-1/2", "-1/1", "256/1 down"));
}

TEST_F(Chassis, TrunkComesBackWithItsMembers)
{
    play(Action::cycle, trunk1);
    EXPECT_THAT(membersOf(trunk1), ElementsAre(port11, port12));
    EXPECT_EQ(port12, portOf(trunk1).master);
    EXPECT_EQ(1, kelStandinGetLink(trunk1));
    EXPECT_EQ(KEL_STANDIN_VLAN_TAGGED, kelStandinGetVlan(trunk1, 10));
}

TEST_F(Chassis, FlapIsDownAndUp)
{
    Heard heard;
    play(Action::flap, port13);
    EXPECT_THAT(heard.take(), IsEmpty()) << "a port that is not there has no link";
    play(Action::add, port13);
    play(Action::flap, port13);
    EXPECT_THAT(heard.take(), ElementsAre("+1/3", "1/3 up", "1/3 down", "1/3 up"));
}

TEST_F(Chassis, PortThatCannotBeRemovedIsSaidAndStays)
{
    Heard heard;
    for (const Action action : {Action::remove, Action::cycle}) {
        removalsThatFail = 1;
        try {
            play(action, port12);
            ADD_FAILURE() << "nobody hears of it";
        } catch (const kel::ProviderError &error) {
            EXPECT_STREQ("topology: cannot remove b: Cannot allocate memory", error.what());
        }
    }
    EXPECT_THAT(heard.take(), IsEmpty());
    EXPECT_EQ(port12, portOf(trunk1).master);
    play(Action::remove, port12);
    EXPECT_THAT(heard.take(), ElementsAre("-1/2"));
}
