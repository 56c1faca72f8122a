// The built daemon as a subagent of a real SNMP agent, asked with net-snmp's own tools.
#include "daemon_fixture.h"
#include "private_network.h"
#include "snmp_master.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

namespace
{
const std::string bridgeTable = ".1.3.6.1.2.1.17.1.4";
const std::string systemPorts = ".1.3.6.1.4.1.32473.1.1.1";
const std::string bridgeIfIndex = bridgeTable + ".1.2";
const std::string portName = systemPorts + ".1.6";

class Agentx : public DaemonFixture
{
protected:
    void SetUp() override
    {
        if (const std::string reason = SnmpMaster::missing(); !reason.empty())
            GTEST_SKIP() << reason;
        setenv("TZ", "UTC0", 1);
        master = std::make_unique<SnmpMaster>(folder);
    }

    std::vector<std::string> agentx() const
    {
        return {"--agentx", master->agentxSocket(), "--max-delay", "0"};
    }

    std::unique_ptr<SnmpMaster> master;
};

constexpr const char *threePorts = R"({"slots": [{"slot": 1, "ports": 2, "prefix": "ge", "link": "up"},
                                                 {"slot": 2, "ports": [{"port": 5, "name": "uplink"}]}],
                                       "trunks": [{"trunk": 1, "members": ["1/2"]}]})";
} // namespace

TEST_F(Agentx, BridgePortTableIsWalked)
{
    master->start();
    startChassis(threePorts, agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {bridgeTable}, ".3.133 = "));
    EXPECT_EQ(".1.3.6.1.2.1.17.1.4.1.1.1 = INTEGER: 1\n"
              ".1.3.6.1.2.1.17.1.4.1.1.2 = INTEGER: 2\n"
              ".1.3.6.1.2.1.17.1.4.1.1.133 = INTEGER: 133\n"
              ".1.3.6.1.2.1.17.1.4.1.2.1 = INTEGER: 1001\n"
              ".1.3.6.1.2.1.17.1.4.1.2.2 = INTEGER: 1002\n"
              ".1.3.6.1.2.1.17.1.4.1.2.133 = INTEGER: 2005\n"
              ".1.3.6.1.2.1.17.1.4.1.3.1 = OID: .0.0\n"
              ".1.3.6.1.2.1.17.1.4.1.3.2 = OID: .0.0\n"
              ".1.3.6.1.2.1.17.1.4.1.3.133 = OID: .0.0\n",
              master->ask("snmpwalk", {bridgeTable}));
    EXPECT_EQ(master->ask("snmpwalk", {bridgeTable}), master->ask("snmpbulkwalk", {"-Cr4", bridgeTable}));
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, SystemPortIsReadByGetsOfEveryType)
{
    master->start();
    startChassis(threePorts, agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {systemPorts}, ".10.4 = "));
    const auto get = [&](const std::string &column, int systemPort = 1) {
        const std::string name = systemPorts + ".1." + column + "." + std::to_string(systemPort);
        const std::string answer = master->ask("snmpget", {name});
        EXPECT_EQ(0u, answer.find(name + " = ")) << answer;
        return answer.substr(name.size() + 3);
    };
    EXPECT_EQ("Gauge32: 65537\n", get("2"));
    EXPECT_EQ("INTEGER: 1001\n", get("3"));
    EXPECT_EQ("INTEGER: 1\n", get("4"));
    EXPECT_EQ("Gauge32: 65537\n", get("5"));
    EXPECT_EQ("STRING: \"ge1/1\"\n", get("6"));
    EXPECT_EQ("Hex-STRING: C0 \n", get("7"));
    EXPECT_EQ("Hex-STRING: D0 \n", get("7", 4)) << "the trunk";
    EXPECT_THAT(get("8"), HasSubstr("Counter32: "));
    EXPECT_THAT(get("9"), testing::MatchesRegex("Hex-STRING: 07 [0-9A-F ]* 00 2B 00 00 \n")) << "at UTC";
    EXPECT_EQ("OID: .1.3.6.1.2.1.2.2.1.1.1001\n", get("10"));
    EXPECT_EQ("No Such Instance currently exists at this OID\n", get("6", 99));
    EXPECT_GT(stat("agentRequests"), 40u);
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, TablesAreShownByTheirModules)
{
    master->start();
    startChassis(threePorts, agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {systemPorts}, ".10.4 = "));
    const std::string modules = std::string(KEL_MIBS) + ":" + KEL_TEST_MIBS;
    const std::string ports = master->ask("snmptable", {"-M", modules, "-m", "KEL-SYSPORT-MIB", "-Ci", "-Cf", "|",
                                                        "-Os", "KEL-SYSPORT-MIB::kelSysPortTable"});
    EXPECT_THAT(ports, HasSubstr("index|kelSysPortInstance|kelSysPortIfIndex|kelSysPortBridgePort|kelSysPortDmPortMask|"
                                 "kelSysPortName|kelSysPortState|kelSysPortLinkChanges|kelSysPortLastChange|"
                                 "kelSysPortIfObject\n"));
    EXPECT_THAT(ports, HasSubstr("\n1|65537|1001|1|65537|ge1/1|"));
    EXPECT_THAT(ports, HasSubstr("\n3|131077|2005|133|131077|uplink|"));
    EXPECT_THAT(ports, HasSubstr(",+0:0|")) << "a DateAndTime";
    const std::string bridge = master->ask(
        "snmptable", {"-M", modules, "-m", "BRIDGE-MIB", "-Cf", "|", "-Os", "BRIDGE-MIB::dot1dBasePortTable"});
    EXPECT_THAT(bridge, HasSubstr("dot1dBasePort|dot1dBasePortIfIndex|dot1dBasePortCircuit\n1|1001|"));
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, RealPortsComeAndGo)
{
    if (const std::string reason = enterPrivateNetwork(); !reason.empty())
        GTEST_SKIP() << reason;
    ip("link set lo up");
    ip("link add swp1 type veth peer name end1");
    master->start();
    start(agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {portName}, "\"swp1\""));
    ASSERT_TRUE(master->eventually("snmpwalk", {portName}, "\"end1\""));
    const uint32_t systemPort = askJson("show port swp1")["systemPort"];
    const uint32_t ifIndex = askJson("show port swp1")["ifIndex"];
    const uint32_t bridgePort = askJson("show port swp1")["bridgePort"];
    const std::string row = "." + std::to_string(systemPort);
    EXPECT_EQ(bridgeIfIndex + "." + std::to_string(bridgePort) + " = INTEGER: " + std::to_string(ifIndex) + "\n",
              master->ask("snmpget", {bridgeIfIndex + "." + std::to_string(bridgePort)}));

    ip("link set swp1 up");
    ip("link set end1 up");
    EXPECT_TRUE(master->eventually("snmpget", {systemPorts + ".1.7" + row}, "C0 "));
    ip("link set end1 down");
    EXPECT_TRUE(master->eventually("snmpget", {systemPorts + ".1.7" + row}, "80 "));

    ip("link delete swp1");
    EXPECT_TRUE(master->eventually("snmpget", {portName + row}, "No Such Instance"));
    EXPECT_TRUE(master->eventually("snmpwalk", {bridgeTable}, "No Such"));
    ip("link add swp2 type veth peer name end2");
    EXPECT_TRUE(master->eventually("snmpwalk", {portName}, "\"swp2\""));
    EXPECT_TRUE(master->eventually("snmpget", {portName + ".1"}, "STRING")) << "the lowest number is given again";
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, RestartedMasterGetsTheTablesAgain)
{
    master->start();
    startChassis(threePorts, agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {portName}, "uplink"));
    master->stop();
    ASSERT_TRUE(eventually("show stats", "agentConnected +0"));
    EXPECT_THAT(ask("show ports"), HasSubstr("uplink")) << "everything else goes on";
    master->start();
    ASSERT_TRUE(master->eventually("snmpwalk", {portName}, "uplink"));
    EXPECT_EQ(2u, stat("agentSessions"));
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, MasterThatComesLaterIsFound)
{
    startChassis(threePorts, agentx());
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    EXPECT_EQ(0u, stat("agentConnected"));
    master->start();
    EXPECT_TRUE(master->eventually("snmpwalk", {portName}, "uplink"));
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, DaemonEndsWhenThereNeverWasAMaster)
{
    startChassis(threePorts, agentx());
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    EXPECT_EQ(0, stop());
    EXPECT_EQ("", daemon->err());
}

TEST_F(Agentx, ChangedPortIsNotified)
{
    if (const std::string reason = enterPrivateNetwork(); !reason.empty())
        GTEST_SKIP() << reason;
    ip("link set lo up");
    const LoopbackSocket sink;
    const timeval limit = {60, 0};
    setsockopt(sink.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    master->start(sink.port);
    start(agentx());
    ASSERT_TRUE(eventually("show stats", "agentConnected +1"));
    ip("link add swp1 type veth peer name end1");

    // The master's own notifications come as well. In BER 1.3 is 2B, and 32473 is 81 FD 59.
    const std::string portChanged("\x2B\x06\x01\x04\x01\x81\xFD\x59\x01\x00\x01", 11);
    const std::string nameOfPort("\x2B\x06\x01\x04\x01\x81\xFD\x59\x01\x01\x01\x01\x06", 13);
    bool toldSwp1 = false;
    for (int datagrams = 0; datagrams < 20 && !toldSwp1; ++datagrams) {
        char bytes[2048];
        const ssize_t count = recv(sink.fd, bytes, sizeof bytes, 0);
        ASSERT_GT(count, 0) << "no notification about swp1";
        const std::string text(bytes, size_t(count));
        toldSwp1 = text.find(portChanged) != std::string::npos && text.find(nameOfPort) != std::string::npos &&
                   text.find("swp1") != std::string::npos;
    }
    EXPECT_TRUE(toldSwp1);
    EXPECT_GE(stat("agentNotifications"), 1u);
    EXPECT_EQ(0, stop());
}

TEST_F(Agentx, HundredsOfPortsAreWalkedWhileTheyComeAndGo)
{
    master->start();
    startChassis(R"({"slots": [{"slot": 1, "ports": 128}, {"slot": 2, "ports": 128}],
                     "events": [{"at": 0, "do": "cycle", "port": "1/7", "times": 2000, "every": 2},
                                {"at": 1, "do": "cycle", "port": "2/9", "times": 2000, "every": 3}]})",
                 agentx());
    ASSERT_TRUE(master->eventually("snmpwalk", {bridgeIfIndex}, ".256 = "));
    for (int walk = 0; walk < 10; ++walk) {
        const std::string answer = master->ask("snmpwalk", {bridgeIfIndex});
        const auto lines = std::count(answer.begin(), answer.end(), '\n');
        EXPECT_GE(lines, 254) << "two ports at most are away";
        EXPECT_LE(lines, 256);
    }
    EXPECT_EQ(0, stop());
}
