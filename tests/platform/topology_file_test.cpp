// Topology files: what they mean, and how each wrong field is refused with file, place and reason.
#include "topology.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sys/socket.h>

using kel::Topology;
using kel::TopologyError;
using kel::TopologyEvent;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{
const portInstance_t port11 = kelStandinPortInstance(1, 1);
const portInstance_t port12 = kelStandinPortInstance(1, 2);

Topology parse(const std::string &text)
{
    return kel::parseTopology(text, "test.json");
}

std::string errorOf(const std::string &text)
{
    try {
        parse(text);
    } catch (const TopologyError &error) {
        return error.what();
    }
    return "no error";
}

// A file of two ports, and more fields.
std::string with(const std::string &fields)
{
    return R"({"slots": [{"slot": 1, "ports": 2}], )" + fields + "}";
}

// A file with one port that has these fields.
std::string withPort(const std::string &fields)
{
    return R"({"slots": [{"slot": 1, "ports": [{"port": 1, )" + fields + "}]}]}";
}
} // namespace

// ---- What files mean

TEST(TopologyFile, CountGivesPortsWithNamesAndIfIndexes)
{
    const Topology topology =
        parse(R"({"name": "small", "slots": [{"slot": 3, "ports": 2, "prefix": "ge", "link": "up", "mtu": 9000,
                                             "description": "access"}]})");
    EXPECT_EQ("small", topology.name);
    ASSERT_EQ(2u, topology.ports.size());
    const kel::TopologyPort &port = topology.ports.at(kelStandinPortInstance(3, 2));
    EXPECT_EQ("ge3/2", port.name);
    EXPECT_EQ("access", port.description);
    EXPECT_EQ(3002u, port.ifIndex);
    EXPECT_EQ(9000u, port.mtu);
    EXPECT_TRUE(port.linkUp);
    EXPECT_TRUE(port.present);
}

TEST(TopologyFile, PortsMayDifferFromTheirSlot)
{
    const Topology topology = parse(R"({"slots": [{"slot": 1, "link": "up", "description": "access", "ports": [
        {"port": 7, "name": "uplink", "description": "to core", "link": "down", "mtu": 1400, "ifIndex": 99,
         "mac": "02:00:5e:00:00:Ff", "present": false, "addresses": ["192.0.2.1/24", "2001:db8::1/64"]},
        {"port": 2}]}]})");
    const kel::TopologyPort &uplink = topology.ports.at(kelStandinPortInstance(1, 7));
    EXPECT_EQ("uplink", uplink.name);
    EXPECT_EQ("to core", uplink.description);
    EXPECT_FALSE(uplink.linkUp);
    EXPECT_FALSE(uplink.present);
    EXPECT_EQ(1400u, uplink.mtu);
    EXPECT_EQ(99u, uplink.ifIndex);
    EXPECT_THAT(uplink.mac, ElementsAre(2, 0, 0x5e, 0, 0, 0xff));
    ASSERT_EQ(2u, uplink.addresses.size());
    EXPECT_EQ(AF_INET, uplink.addresses[0].family);
    EXPECT_EQ(24, uplink.addresses[0].prefixLength);
    EXPECT_EQ(AF_INET6, uplink.addresses[1].family);
    EXPECT_EQ(1, uplink.addresses[1].bytes[15]);
    const kel::TopologyPort &other = topology.ports.at(port12);
    EXPECT_EQ("1/2", other.name);
    EXPECT_EQ("access", other.description);
    EXPECT_TRUE(other.linkUp);
    EXPECT_EQ(1500u, other.mtu);
}

TEST(TopologyFile, TrunkHasMembersAndAMaster)
{
    const Topology topology = parse(R"({"slots": [{"slot": 1, "ports": 6}], "trunks": [
        {"trunk": 1, "members": ["1/2", "1/3-4"]},
        {"trunk": 2, "name": "po2", "description": "two", "ifIndex": 7, "members": ["1/5-6"], "master": "1/6"},
        {"trunk": 3, "members": []}]})");
    const kel::TopologyTrunk &first = topology.trunks.at(kelStandinTrunkInstance(1));
    EXPECT_EQ("trunk1", first.name);
    EXPECT_EQ(255001u, first.ifIndex);
    EXPECT_THAT(first.members, ElementsAre(0x00010002, 0x00010003, 0x00010004));
    EXPECT_EQ(port12, first.master);
    const kel::TopologyTrunk &second = topology.trunks.at(kelStandinTrunkInstance(2));
    EXPECT_EQ("po2", second.name);
    EXPECT_EQ(7u, second.ifIndex);
    EXPECT_EQ(0x00010006u, second.master);
    EXPECT_EQ(0u, topology.trunks.at(kelStandinTrunkInstance(3)).master);
}

TEST(TopologyFile, VlansHavePortsAndTrunks)
{
    const Topology topology = parse(with(R"("trunks": [{"trunk": 1, "members": []}],
                      "vlans": [{"vlan": 10, "tagged": ["1/1-2"], "untagged": ["trunk/1"]}, {"vlan": 4094}])"));
    ASSERT_EQ(2u, topology.vlans.size());
    EXPECT_EQ(10u, topology.vlans[0].vlan);
    EXPECT_THAT(topology.vlans[0].tagged, ElementsAre(port11, port12));
    EXPECT_THAT(topology.vlans[0].untagged, ElementsAre(kelStandinTrunkInstance(1)));
}

TEST(TopologyFile, EventsKeepTheOrderOfTheFile)
{
    const Topology topology = parse(with(R"("events": [
        {"at": 500, "do": "flap", "port": "1/2", "times": 10, "every": 20},
        {"at": 0, "do": "add", "port": "1/1"}, {"at": 0, "do": "remove", "port": "1/1"},
        {"at": 0, "do": "up", "port": "1/1"}, {"at": 0, "do": "down", "port": "1/1"},
        {"at": 0, "do": "cycle", "port": "1/1"}])"));
    using Action = TopologyEvent::Action;
    std::vector<Action> actions;
    for (const TopologyEvent &event : topology.events)
        actions.push_back(event.action);
    EXPECT_THAT(actions,
                ElementsAre(Action::flap, Action::add, Action::remove, Action::up, Action::down, Action::cycle));
    EXPECT_EQ(500, topology.events[0].at.count());
    EXPECT_EQ(port12, topology.events[0].port);
    EXPECT_EQ(10u, topology.events[0].times);
    EXPECT_EQ(20, topology.events[0].every.count());
    EXPECT_EQ(1u, topology.events[1].times);
    EXPECT_EQ(0, topology.events[1].every.count());
}

TEST(TopologyFile, ChassisThatComesWithTheDaemonIsRead)
{
    const Topology topology = kel::readTopology(KEL_CHASSIS48);
    EXPECT_EQ(52u, topology.ports.size());
    EXPECT_EQ(2u, topology.trunks.size());
    EXPECT_FALSE(topology.events.empty());
}

// ---- Files that cannot be read, or are no JSON

TEST(TopologyFile, FileThatCannotBeReadIsNamedWithTheReason)
{
    const auto reasonOf = [](const std::string &path) -> std::string {
        try {
            kel::readTopology(path);
        } catch (const TopologyError &error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_EQ("/nowhere/chassis.json: cannot be read: No such file or directory", reasonOf("/nowhere/chassis.json"));
    EXPECT_EQ("/: cannot be read: Is a directory", reasonOf("/"));
    EXPECT_EQ("/dev/zero: cannot be read: it has more than 4 MiB", reasonOf("/dev/zero"));
    EXPECT_THAT(reasonOf("/dev/null"), StartsWith("/dev/null: not JSON: parse error at line 1, column 1: "));
}

TEST(TopologyFile, NoJsonIsRefusedWithLineAndColumn)
{
    EXPECT_THAT(errorOf(""), StartsWith("test.json: not JSON: parse error at line 1, column 1: "));
    EXPECT_THAT(errorOf("{\"slots\":\n  [1,,2]}"),
                StartsWith("test.json: not JSON: parse error at line 2, column 6: "));
    EXPECT_THAT(errorOf("{} x"), StartsWith("test.json: not JSON: parse error at line 1, column 4: "));
    EXPECT_THAT(errorOf("{\"slots\": []"), StartsWith("test.json: not JSON: parse error at line 1, "));
    EXPECT_THAT(errorOf("{\"name\": \"\xC3\"}"), StartsWith("test.json: not JSON: parse error at line 1, "));
    EXPECT_THAT(errorOf("{\"a\": 1e999}"), StartsWith("test.json: not JSON: "));
    EXPECT_THAT(errorOf(std::string("{\0}", 3)), StartsWith("test.json: not JSON: "));
    EXPECT_THAT(errorOf(std::string(100000, '[')), StartsWith("test.json: not JSON: "));
}

TEST(TopologyFile, FieldThatIsGivenTwiceIsRefused)
{
    EXPECT_EQ("test.json: the field \"slot\" is given twice", errorOf(R"({"slots": [{"slot": 1, "slot": 2}]})"));
    EXPECT_EQ("no error", errorOf(R"({"slots": [{"slot": 1, "ports": 1}, {"slot": 2, "ports": 1}]})"));
}

// ---- Each field wrong

TEST(TopologyFile, WholeFileMustBeAnObjectWithSlots)
{
    EXPECT_EQ("test.json: the whole file: must be an object, is an array", errorOf("[]"));
    EXPECT_EQ("test.json: the whole file: must be an object, is 7", errorOf("7"));
    EXPECT_EQ("test.json: the whole file: lacks the field \"slots\"", errorOf("{}"));
    EXPECT_EQ("test.json: /slots: must be an array, is an object", errorOf(R"({"slots": {}})"));
    EXPECT_EQ("test.json: /slots/0: must be an object, is null", errorOf(R"({"slots": [null]})"));
    EXPECT_EQ("no error", errorOf(R"({"slots": []})"));
}

TEST(TopologyFile, UnknownFieldsAreRefusedEverywhere)
{
    EXPECT_THAT(errorOf(R"({"slots": [], "slot": 1})"),
                StartsWith("test.json: /slot: is no field of this object; it has \"name\", \"slots\""));
    EXPECT_THAT(errorOf(R"({"slots": [{"slot": 1, "prots": 1}]})"), StartsWith("test.json: /slots/0/prots: is no"));
    EXPECT_THAT(errorOf(withPort(R"("a/b~c": 1)")), StartsWith("test.json: /slots/0/ports/0/a~1b~0c: is no"));
    EXPECT_THAT(errorOf(with(R"("trunks": [{"x": 1}])")), StartsWith("test.json: /trunks/0/x: is no"));
    EXPECT_THAT(errorOf(with(R"("vlans": [{"x": 1}])")), StartsWith("test.json: /vlans/0/x: is no"));
    EXPECT_THAT(errorOf(with(R"("events": [{"x": 1}])")), StartsWith("test.json: /events/0/x: is no"));
}

// Complaints go to terminals and logs, whoever wrote the file.
TEST(TopologyFile, ControlCharactersInFieldNamesAreShownEscaped)
{
    EXPECT_THAT(errorOf(withPort(R"("a\nb\u001b": 1)")),
                StartsWith(R"(test.json: /slots/0/ports/0/a\nb\u001b: is no field of this object)"));
    EXPECT_EQ(R"(test.json: the field "\u001b[2J" is given twice)", errorOf(R"({"\u001b[2J": 1, "\u001b[2J": 2})"));
}

TEST(TopologyFile, SlotFieldsAreChecked)
{
    const auto slotError = [](const std::string &fields) { return errorOf("{\"slots\": [{" + fields + "}]}"); };
    EXPECT_EQ("test.json: /slots/0: lacks the field \"slot\"", slotError(R"("ports": 1)"));
    EXPECT_EQ("test.json: /slots/0: lacks the field \"ports\"", slotError(R"("slot": 1)"));
    EXPECT_EQ("test.json: /slots/0/slot: must be a whole number from 1 to 254, is 255",
              slotError(R"("slot": 255, "ports": 1)"));
    EXPECT_EQ("test.json: /slots/0/slot: must be a whole number from 1 to 254, is 0",
              slotError(R"("slot": 0, "ports": 1)"));
    EXPECT_EQ("test.json: /slots/0/slot: must be a whole number from 1 to 254, is 1.0",
              slotError(R"("slot": 1.0, "ports": 1)"));
    EXPECT_EQ("test.json: /slots/0/slot: must be a whole number from 1 to 254, is \"1\"",
              slotError(R"("slot": "1", "ports": 1)"));
    EXPECT_EQ("test.json: /slots/0/slot: must be a whole number from 1 to 254, is true",
              slotError(R"("slot": true, "ports": 1)"));
    EXPECT_EQ("test.json: /slots/0/ports: must be a whole number from 1 to 128, is 129",
              slotError(R"("slot": 1, "ports": 129)"));
    EXPECT_EQ("test.json: /slots/0/ports: must be a whole number from 1 to 128, is -1",
              slotError(R"("slot": 1, "ports": -1)"));
    EXPECT_EQ("test.json: /slots/0/ports: must be a whole number from 1 to 128, is 18446744073709551615",
              slotError(R"("slot": 1, "ports": 18446744073709551615)"));
    EXPECT_EQ("test.json: /slots/0/ports: must be an array, is \"2\"", slotError(R"("slot": 1, "ports": "2")"));
    EXPECT_EQ("test.json: /slots/0/prefix: must be a string, is 1", slotError(R"("slot": 1, "ports": 1, "prefix": 1)"));
    EXPECT_EQ("test.json: /slots/0/prefix: must have at most 56 bytes, has 57",
              slotError(R"("slot": 1, "ports": 1, "prefix": ")" + std::string(57, 'x') + "\""));
    EXPECT_EQ("test.json: /slots/0/link: must be one of \"down\", \"up\", is \"on\"",
              slotError(R"("slot": 1, "ports": 1, "link": "on")"));
    EXPECT_EQ("test.json: /slots/0/mtu: must be a whole number from 64 to 65535, is 63",
              slotError(R"("slot": 1, "ports": 1, "mtu": 63)"));
    EXPECT_EQ("test.json: /slots/0/description: must be a string, is an array",
              slotError(R"("slot": 1, "ports": 1, "description": [])"));
    EXPECT_EQ("test.json: /slots/1/slot: slot 1 is described twice",
              errorOf(R"({"slots": [{"slot": 1, "ports": 1}, {"slot": 1, "ports": 1}]})"));
}

TEST(TopologyFile, PortFieldsAreChecked)
{
    const std::string at = "test.json: /slots/0/ports/0";
    EXPECT_EQ(at + ": lacks the field \"port\"", errorOf(R"({"slots": [{"slot": 1, "ports": [{}]}]})"));
    EXPECT_EQ(at + ": must be an object, is 1", errorOf(R"({"slots": [{"slot": 1, "ports": [1]}]})"));
    EXPECT_EQ(at + "/port: must be a whole number from 1 to 128, is 0",
              errorOf(R"({"slots": [{"slot": 1, "ports": [{"port": 0}]}]})"));
    EXPECT_EQ(at + "/name: must be a string, is 1", errorOf(withPort(R"("name": 1)")));
    EXPECT_EQ(at + "/name: must have at most 63 bytes, has 64",
              errorOf(withPort(R"("name": ")" + std::string(64, 'x') + "\"")));
    EXPECT_EQ(at + "/name: must not have control characters", errorOf(withPort(R"("name": "a\nb")")));
    EXPECT_EQ(at + "/name: must not have control characters", errorOf(withPort(R"("name": "a\u0000b")")));
    EXPECT_EQ(at + "/name: must not have control characters", errorOf(withPort(R"("name": "a\u007f")")));
    EXPECT_EQ(at + "/description: must have at most 255 bytes, has 256",
              errorOf(withPort(R"("description": ")" + std::string(256, 'x') + "\"")));
    EXPECT_EQ(at + "/link: must be one of \"down\", \"up\", is true", errorOf(withPort(R"("link": true)")));
    EXPECT_EQ(at + "/mtu: must be a whole number from 64 to 65535, is 65536", errorOf(withPort(R"("mtu": 65536)")));
    EXPECT_EQ(at + "/ifIndex: must be a whole number from 1 to 2147483647, is 0", errorOf(withPort(R"("ifIndex": 0)")));
    EXPECT_EQ(at + "/ifIndex: must be a whole number from 1 to 2147483647, is 2147483648",
              errorOf(withPort(R"("ifIndex": 2147483648)")));
    EXPECT_EQ(at + "/present: must be true or false, is 1", errorOf(withPort(R"("present": 1)")));
    EXPECT_EQ(at + "/link: must be one of \"down\", \"up\", is \"" + std::string(39, 'x') + "...",
              errorOf(withPort(R"("link": ")" + std::string(5000, 'x') + "\"")))
        << "a complaint stays readable";
}

TEST(TopologyFile, StationAddressesAreChecked)
{
    for (const char *mac : {"", "02", "02:00:00:00:00", "02:00:00:00:00:01:02", "02:00:00:00:00:1", "02:00:00:00:00:g1",
                            "02-00-00-00-00-01", "02:00:00:00:00:01 ", "+2:00:00:00:00:01", "02:00:00:00:00:"})
        EXPECT_EQ("test.json: /slots/0/ports/0/mac: must be a station address like 02:00:00:00:01:2f, is \"" +
                      std::string(mac) + "\"",
                  errorOf(withPort(std::string(R"("mac": ")") + mac + "\"")));
    EXPECT_EQ("test.json: /slots/0/ports/0/mac: must be a string, is 2", errorOf(withPort(R"("mac": 2)")));
}

TEST(TopologyFile, IpAddressesAreChecked)
{
    for (const char *address : {"", "192.0.2.1", "192.0.2.1/", "192.0.2.1/33", "192.0.2.1/-1", "192.0.2.1/24x",
                                "192.0.2/24", "2001:db8::1/129", "x/24", "/24", "192.0.2.1/24/24", "192.0.2.1/ 24"})
        EXPECT_EQ("test.json: /slots/0/ports/0/addresses/0: must be an address like 192.0.2.1/24 or 2001:db8::1/64, "
                  "is \"" +
                      std::string(address) + "\"",
                  errorOf(withPort(std::string(R"("addresses": [")") + address + "\"]")));
    EXPECT_EQ("test.json: /slots/0/ports/0/addresses: must be an array, is \"192.0.2.1/24\"",
              errorOf(withPort(R"("addresses": "192.0.2.1/24")")));
    std::string many;
    for (int last = 0; last <= KEL_STANDIN_MAX_ADDRESSES; ++last)
        many += (last == 0 ? "\"192.0.2." : ", \"192.0.2.") + std::to_string(last) + "/24\"";
    EXPECT_EQ("test.json: /slots/0/ports/0/addresses: must have at most 16 addresses, has 17",
              errorOf(withPort("\"addresses\": [" + many + "]")));
}

TEST(TopologyFile, NamesPortsAndIfIndexesAreGivenOnce)
{
    const auto twoPorts = [](const std::string &first, const std::string &second) {
        return errorOf(R"({"slots": [{"slot": 1, "ports": [{)" + first + "}, {" + second + "}]}]}");
    };
    EXPECT_EQ("test.json: /slots/0/ports/1: port 1/1 is described twice", twoPorts(R"("port": 1)", R"("port": 1)"));
    EXPECT_EQ("test.json: /slots/0/ports/1: the name \"a\" is given twice",
              twoPorts(R"("port": 1, "name": "a")", R"("port": 2, "name": "a")"));
    EXPECT_EQ("test.json: /slots/0/ports/1: the ifIndex 1002 is given twice",
              twoPorts(R"("port": 1, "ifIndex": 1002)", R"("port": 2)"));
    EXPECT_EQ("no error", twoPorts(R"("port": 1, "name": "")", R"("port": 2, "name": "")"));
    EXPECT_EQ("test.json: /trunks/0: the name \"1/1\" is given twice",
              errorOf(with(R"("trunks": [{"trunk": 1, "name": "1/1", "members": []}])")));
    EXPECT_EQ("test.json: /trunks/0: the ifIndex 1001 is given twice",
              errorOf(with(R"("trunks": [{"trunk": 1, "ifIndex": 1001, "members": []}])")));
}

TEST(TopologyFile, TrunkFieldsAreChecked)
{
    const auto trunkError = [](const std::string &fields) { return errorOf(with("\"trunks\": [{" + fields + "}]")); };
    EXPECT_EQ("test.json: /trunks: must be an array, is 1", errorOf(with(R"("trunks": 1)")));
    EXPECT_EQ("test.json: /trunks/0: lacks the field \"trunk\"", trunkError(R"("members": [])"));
    EXPECT_EQ("test.json: /trunks/0: lacks the field \"members\"", trunkError(R"("trunk": 1)"));
    EXPECT_EQ("test.json: /trunks/0/trunk: must be a whole number from 1 to 128, is 129",
              trunkError(R"("trunk": 129, "members": [])"));
    EXPECT_EQ("test.json: /trunks/0/name: must be a string, is null",
              trunkError(R"("trunk": 1, "name": null, "members": [])"));
    EXPECT_EQ("test.json: /trunks/0/description: must be a string, is 5",
              trunkError(R"("trunk": 1, "description": 5, "members": [])"));
    EXPECT_EQ("test.json: /trunks/0/ifIndex: must be a whole number from 1 to 2147483647, is 0",
              trunkError(R"("trunk": 1, "ifIndex": 0, "members": [])"));
    EXPECT_EQ("test.json: /trunks/0/members: must be an array, is \"1/1\"",
              trunkError(R"("trunk": 1, "members": "1/1")"));
    EXPECT_EQ("test.json: /trunks/0/members/0: there is no port 1/3", trunkError(R"("trunk": 1, "members": ["1/3"])"));
    EXPECT_EQ("test.json: /trunks/0/members/0: there is no port 1/3",
              trunkError(R"("trunk": 1, "members": ["1/1-4000000000"])"));
    EXPECT_EQ("test.json: /trunks/0/members/1: a port can be a member once, of one trunk",
              trunkError(R"("trunk": 1, "members": ["1/1-2", "1/2"])"));
    EXPECT_EQ("test.json: /trunks/0/master: must be one of the trunk's members",
              trunkError(R"("trunk": 1, "members": ["1/1"], "master": "1/2")"));
    EXPECT_EQ("test.json: /trunks/0/master: must be one of the trunk's members",
              trunkError(R"("trunk": 1, "members": [], "master": "1/2")"));
    EXPECT_EQ("test.json: /trunks/1/trunk: trunk 1 is described twice",
              errorOf(with(R"("trunks": [{"trunk": 1, "members": []}, {"trunk": 1, "members": []}])")));
    EXPECT_EQ("test.json: /trunks/1/members/0: a trunk cannot be a member",
              errorOf(with(R"("trunks": [{"trunk": 1, "members": []}, {"trunk": 2, "members": ["trunk/1"]}])")));
    EXPECT_EQ("test.json: /trunks/0/members/0: there is no trunk 1",
              trunkError(R"("trunk": 1, "members": ["trunk/1"])"));
}

TEST(TopologyFile, ReferencesAreChecked)
{
    for (const char *port : {"", "1", "1/", "/1", "1/1-", "1/2-1", "1/1 ", " 1/1", "a/1", "1/x", "1/1-2-3", "trunk",
                             "trunk/", "trunk/x", "-1/1", "1/-1"})
        EXPECT_EQ("test.json: /events/0/port: must be a port like \"1/24\", ports like \"1/1-24\", or a trunk like "
                  "\"trunk/1\", is \"" +
                      std::string(port) + "\"",
                  errorOf(with(std::string(R"("events": [{"at": 0, "do": "up", "port": ")") + port + "\"}]")));
    const auto eventPort = [](const std::string &port) {
        return errorOf(with(R"("events": [{"at": 0, "do": "up", "port": )" + port + "}]"));
    };
    EXPECT_EQ("test.json: /events/0/port: must be a string, is 1", eventPort("1"));
    EXPECT_EQ("test.json: /events/0/port: must be one port", eventPort("\"1/1-2\""));
    EXPECT_EQ("test.json: /events/0/port: there is no port 2/1", eventPort("\"2/1\""));
    EXPECT_EQ("test.json: /events/0/port: there is no port 65537/1", eventPort("\"65537/1\""));
    EXPECT_EQ("test.json: /events/0/port: there is no trunk 1", eventPort("\"trunk/1\""));
}

TEST(TopologyFile, VlanFieldsAreChecked)
{
    const auto vlanError = [](const std::string &fields) { return errorOf(with("\"vlans\": [{" + fields + "}]")); };
    EXPECT_EQ("test.json: /vlans: must be an array, is \"\"", errorOf(with(R"("vlans": "")")));
    EXPECT_EQ("test.json: /vlans/0: lacks the field \"vlan\"", vlanError(R"("tagged": [])"));
    EXPECT_EQ("test.json: /vlans/0/vlan: must be a whole number from 1 to 4094, is 4095", vlanError(R"("vlan": 4095)"));
    EXPECT_EQ("test.json: /vlans/0/tagged: must be an array, is 1", vlanError(R"("vlan": 1, "tagged": 1)"));
    EXPECT_EQ("test.json: /vlans/0/untagged/0: there is no port 9/1", vlanError(R"("vlan": 1, "untagged": ["9/1"])"));
    EXPECT_EQ("test.json: /vlans/0/untagged/0: a port can be in a VLAN once",
              vlanError(R"("vlan": 1, "tagged": ["1/1"], "untagged": ["1/1"])"));
    EXPECT_EQ("test.json: /vlans/1/vlan: VLAN 1 is described twice",
              errorOf(with(R"("vlans": [{"vlan": 1}, {"vlan": 1}])")));
}

TEST(TopologyFile, EventFieldsAreChecked)
{
    const auto eventError = [](const std::string &fields) { return errorOf(with("\"events\": [{" + fields + "}]")); };
    EXPECT_EQ("test.json: /events: must be an array, is an object", errorOf(with(R"("events": {})")));
    EXPECT_EQ("test.json: /events/0: lacks the field \"at\"", eventError(R"("do": "up", "port": "1/1")"));
    EXPECT_EQ("test.json: /events/0: lacks the field \"do\"", eventError(R"("at": 0, "port": "1/1")"));
    EXPECT_EQ("test.json: /events/0: lacks the field \"port\"", eventError(R"("at": 0, "do": "up")"));
    EXPECT_EQ("test.json: /events/0/at: must be a whole number from 0 to 86400000, is -1",
              eventError(R"("at": -1, "do": "up", "port": "1/1")"));
    EXPECT_EQ("test.json: /events/0/do: must be one of \"add\", \"remove\", \"up\", \"down\", \"flap\", \"cycle\", is "
              "\"explode\"",
              eventError(R"("at": 0, "do": "explode", "port": "1/1")"));
    EXPECT_EQ("test.json: /events/0/times: must be a whole number from 1 to 1000000, is 0",
              eventError(R"("at": 0, "do": "up", "port": "1/1", "times": 0)"));
    EXPECT_EQ("test.json: /events/0/every: must be a whole number from 0 to 86400000, is 0.5",
              eventError(R"("at": 0, "do": "up", "port": "1/1", "every": 0.5)"));
    for (const char *action : {"up", "down", "flap"})
        EXPECT_EQ("test.json: /events/0/port: a trunk's link follows its members",
                  errorOf(with(std::string(R"("trunks": [{"trunk": 1, "members": []}], "events": [{"at": 0, "do": ")") +
                               action + R"(", "port": "trunk/1"}])")));
}
