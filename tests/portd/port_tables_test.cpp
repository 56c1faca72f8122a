#include "port_tables.h"

#include "sysport.h"

#include <gtest/gtest.h>

#include <kel_standin.h>
#include <string>
#include <vector>

namespace
{
SuOID identifier(const std::string &text)
{
    SuOID value;
    value = text.c_str();
    return value;
}

std::string textOf(const SuOID &value)
{
    std::vector<char> text(static_cast<size_t>(value.getStrLen()) + 1);
    value.getStr(text.data());
    return text.data();
}

std::string textOf(const MibValue &value)
{
    if (const auto *integer = std::get_if<MibInteger>(&value))
        return "integer " + std::to_string(integer->value);
    if (const auto *number = std::get_if<MibUnsigned>(&value))
        return "unsigned " + std::to_string(number->value);
    if (const auto *counter = std::get_if<MibCounter>(&value))
        return "counter " + std::to_string(counter->value);
    if (const auto *name = std::get_if<SuOID>(&value))
        return "oid " + textOf(*name);
    const auto &octets = std::get<SuOctetString>(value);
    std::string text = "octets";
    for (int i = 0; i < octets.os.len; ++i)
        text += ' ' + std::to_string(octets.os.ptr[i]);
    return text;
}

// All objects from `start` on, "name = value" with the last two parts of the name.
std::vector<std::string> walk(const MibTable &table)
{
    std::vector<std::string> lines;
    SuOID at = table.entry;
    while (const auto object = objectAfter(table, at)) {
        const auto parts = partsOf(object->name);
        lines.push_back(std::to_string(parts[parts.size() - 2]) + '.' + std::to_string(parts.back()) + " = " +
                        textOf(object->value));
        at = object->name;
    }
    return lines;
}

std::string get(const MibTable &table, const std::string &name)
{
    const auto object = objectNamed(table, identifier(name));
    return object ? textOf(object->value) : "none";
}

class PortTables : public testing::Test
{
protected:
    PortTables()
    {
        kelStandinReset();
        kelSysPortUtilInit();
    }
    ~PortTables() override
    {
        delete kelSysPortUtil::localPtr;
    }

    void appear(portInstance_t instance)
    {
        ASSERT_EQ(1, kelSysPortUtilAddPifCB(instance));
        kelSysPortUtil &map = *kelSysPortUtil::localPtr;
        kelStandinPort port;
        kelStandinGetPort(instance, &port);
        board.appeared({map.portInst2SystemPort(instance), port.ifIndex, 0, instance, port.name}, port.linkUp != 0);
    }

    PortBoard board;
};
} // namespace

TEST_F(PortTables, BridgePortsAreThoseOfTheMapsWalkInItsOrder)
{
    for (const unsigned slot : {2u, 1u})
        for (const unsigned port : {1u, 128u}) {
            kelStandinAddPort(slot, port, "p", 0, "");
            appear(kelStandinPortInstance(slot, port));
        }
    kelStandinAddPort(3, 1, "unbound", 0, "");
    const std::vector<std::string> expected = {
        "1.1 = integer 1",    "1.128 = integer 128",  "1.129 = integer 129",  "1.256 = integer 256",
        "2.1 = integer 1001", "2.128 = integer 1128", "2.129 = integer 2001", "2.256 = integer 2128",
        "3.1 = oid 0.0",      "3.128 = oid 0.0",      "3.129 = oid 0.0",      "3.256 = oid 0.0",
    };
    EXPECT_EQ(expected, walk(bridgePortTable()));
}

TEST_F(PortTables, OfATrunkItsMasterAloneIsABridgePortInWalksAndInGets)
{
    for (const unsigned port : {1u, 2u, 3u}) {
        kelStandinAddPort(1, port, "p", 0, "");
        appear(kelStandinPortInstance(1, port));
    }
    kelStandinAddTrunk(1, "bond0", 0, "");
    appear(kelStandinTrunkInstance(1));
    kelStandinJoinTrunk(kelStandinTrunkInstance(1), kelStandinPortInstance(1, 2));
    kelStandinJoinTrunk(kelStandinTrunkInstance(1), kelStandinPortInstance(1, 3));
    const MibTable table = bridgePortTable();
    const std::string column = "1.3.6.1.2.1.17.1.4.1.2.";
    EXPECT_EQ("integer 1001", get(table, column + "1"));
    EXPECT_EQ("integer 1002", get(table, column + "2"));
    EXPECT_EQ("none", get(table, column + "3"));
    EXPECT_EQ("none", get(table, column + std::to_string(254 * 128 + 1))) << "the trunk's own number";
    EXPECT_EQ(6u, walk(table).size());
}

TEST_F(PortTables, DiscardCountersAreNotMadeUp)
{
    kelStandinAddPort(1, 1, "p", 0, "");
    appear(kelStandinPortInstance(1, 1));
    EXPECT_EQ("none", get(bridgePortTable(), "1.3.6.1.2.1.17.1.4.1.4.1"));
    EXPECT_EQ("none", get(bridgePortTable(), "1.3.6.1.2.1.17.1.4.1.5.1"));
    EXPECT_EQ("none", get(bridgePortTable(), "1.3.6.1.2.1.17.1.4.1.1.0"));
    EXPECT_EQ("none", get(bridgePortTable(), "1.3.6.1.2.1.17.1.4.1.1.4294967295"));
}

TEST_F(PortTables, SystemPortHasAllItsNumbersAndItsState)
{
    setenv("TZ", "UTC-1", 1);
    tzset();
    kelStandinAddPort(2, 3, "swp9", 4711, "");
    kelStandinSetLink(kelStandinPortInstance(2, 3), 1);
    appear(kelStandinPortInstance(2, 3));
    board.heldDown(1, true);
    const std::vector<std::string> lines = walk(systemPortTable(board));
    ASSERT_EQ(9u, lines.size());
    EXPECT_EQ("2.1 = unsigned 131075", lines[0]);
    EXPECT_EQ("3.1 = integer 4711", lines[1]);
    EXPECT_EQ("4.1 = integer 131", lines[2]);
    EXPECT_EQ("5.1 = unsigned 131075", lines[3]);
    EXPECT_EQ("6.1 = octets 115 119 112 57", lines[4]);
    EXPECT_EQ("7.1 = octets 224", lines[5]) << "present, up, held down";
    EXPECT_EQ("8.1 = counter 1", lines[6]);
    EXPECT_EQ("9.1 = octets 7 ", lines[7].substr(0, 15)) << "year 7 * 256 + ...";
    EXPECT_EQ(" 43 1 0", lines[7].substr(lines[7].size() - 7)) << "one hour east";
    EXPECT_EQ("10.1 = oid 1.3.6.1.2.1.2.2.1.1.4711", lines[8]);
}

TEST_F(PortTables, TrunkIsASystemPortAndSaysSo)
{
    kelStandinAddTrunk(5, "bond5", 0, "");
    appear(kelStandinTrunkInstance(5));
    EXPECT_EQ("octets 144", get(systemPortTable(board), "1.3.6.1.4.1.32473.1.1.1.1.7.1"));
}

TEST_F(PortTables, PortThatIsGoneIsInNoTable)
{
    for (const unsigned port : {1u, 2u}) {
        kelStandinAddPort(1, port, "p", 0, "");
        appear(kelStandinPortInstance(1, port));
    }
    ASSERT_EQ(1, kelSysPortUtilDelPifCB(kelStandinPortInstance(1, 1)));
    EXPECT_EQ(3u, walk(bridgePortTable()).size());
    EXPECT_EQ(9u, walk(systemPortTable(board)).size());
    EXPECT_EQ("none", get(systemPortTable(board), "1.3.6.1.4.1.32473.1.1.1.1.6.1"));
    EXPECT_EQ("octets 112", get(systemPortTable(board), "1.3.6.1.4.1.32473.1.1.1.1.6.2"));
}

// The map's own get-next starts over from there.
TEST_F(PortTables, WalkDoesNotStartOverBehindTheLargestIndex)
{
    kelStandinAddPort(1, 1, "p", 0, "");
    appear(kelStandinPortInstance(1, 1));
    const auto object = objectAfter(systemPortTable(board), identifier("1.3.6.1.4.1.32473.1.1.1.1.2.4294967295"));
    ASSERT_TRUE(object);
    EXPECT_EQ("1.3.6.1.4.1.32473.1.1.1.1.3.1", textOf(object->name)) << "the next column";
}

TEST_F(PortTables, NotificationNamesObjectsOfTheTable)
{
    EXPECT_EQ("1.3.6.1.4.1.32473.1.0.1", textOf(kelSysPortMib::portChanged()));
    EXPECT_EQ("1.3.6.1.4.1.32473.1.1.1.1.6.12", textOf(kelSysPortMib::name(12)));
    EXPECT_EQ("1.3.6.1.4.1.32473.1.1.1.1.7.12", textOf(kelSysPortMib::state(12)));
    const MibValue gone = kelSysPortMib::stateBits(0, 0x10001);
    EXPECT_EQ("octets 0", textOf(gone));
}
