// The built daemon on simulated chassis: what it prints, what its console answers, how it starts and ends.
#include "daemon_fixture.h"

#include <gmock/gmock.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{
using Daemon = DaemonFixture;
using DaemonRefuses = DaemonFixture;

constexpr const char *fourPorts = R"({"slots": [{"slot": 1, "ports": 4, "prefix": "ge"}]})";

// Four ports without link, and what happens to them later.
std::string fourPortsAnd(const std::string &events)
{
    return R"({"slots": [{"slot": 1, "ports": 4, "prefix": "ge"}], "events": [)" + events + "]}";
}
} // namespace

TEST_F(Daemon, PrintsTheColumnsAndThenOneLineAPort)
{
    startChassis(fourPorts);
    EXPECT_TRUE(daemon->waitForOutput("ge1/4"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(daemon->out(),
                testing::StartsWith("TIME          BATCH  PORT  IFINDEX  BRIDGE  INSTANCE    NAME      CHANGE\n"));
    EXPECT_THAT(changeLines(daemon->out()), ElementsAre("1 1 1001 1 0x00010001 ge1/1 added, link down",
                                                        "1 2 1002 2 0x00010002 ge1/2 added, link down",
                                                        "1 3 1003 3 0x00010003 ge1/3 added, link down",
                                                        "1 4 1004 4 0x00010004 ge1/4 added, link down"));
    EXPECT_EQ("", daemon->err());
}

// 60 seconds of delay are never waited for: the third change wakes the main task.
TEST_F(Daemon, ThresholdEndsTheDelay)
{
    startChassis(R"({"slots": [{"slot": 1, "ports": 3, "prefix": "ge"}], "events": [
        {"at": 2000, "do": "up", "port": "1/1"}, {"at": 2200, "do": "up", "port": "1/2"},
        {"at": 2400, "do": "up", "port": "1/3"}]})",
                 {"--max-delay", "6000", "--threshold", "3"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/3     link up"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(changeLines(daemon->out()), testing::Contains("2 3 1003 3 0x00010003 ge1/3 link up"));
}

TEST_F(Daemon, ChangesWithinTheDelayAreOneBatch)
{
    startChassis(fourPortsAnd(R"({"at": 1000, "do": "up", "port": "1/1"}, {"at": 1050, "do": "up", "port": "1/3"},
                                 {"at": 3000, "do": "up", "port": "1/4"})"),
                 {"--max-delay", "50", "--threshold", "100"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/4     link up"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(changeLines(daemon->out()),
                testing::IsSupersetOf({"2 1 1001 1 0x00010001 ge1/1 link up", "2 3 1003 3 0x00010003 ge1/3 link up",
                                       "3 4 1004 4 0x00010004 ge1/4 link up"}));
}

TEST_F(Daemon, PortThatFlapsWhileItsEventIsQueuedIsOneCoalescedLine)
{
    startChassis(fourPortsAnd(R"({"at": 1000, "do": "flap", "port": "1/2", "times": 3})"),
                 {"--max-delay", "50", "--threshold", "100"});
    EXPECT_TRUE(daemon->waitForOutput("coalesced"));
    EXPECT_EQ(0, stop());
    const auto lines = changeLines(daemon->out());
    ASSERT_EQ(5u, lines.size());
    EXPECT_THAT(lines[4], HasSubstr("2 2 1002 2 0x00010002 ge1/2 link "));
    EXPECT_THAT(lines[4], HasSubstr(" (coalesced)"));
}

TEST_F(Daemon, FreedSystemPortIsTakenByTheNextPortAndBothAreTold)
{
    startChassis(R"({"slots": [{"slot": 1, "prefix": "ge", "ports": [{"port": 1}, {"port": 2}, {"port": 3},
                     {"port": 9, "present": false}]}],
                     "events": [{"at": 1000, "do": "remove", "port": "1/2"}, {"at": 3000, "do": "add", "port": "1/9"}]})");
    EXPECT_TRUE(daemon->waitForOutput("ge1/9"));
    EXPECT_EQ(0, stop());
    const auto lines = changeLines(daemon->out());
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ("2 2 1002 2 0x00010002 ge1/2 removed", lines[3]);
    EXPECT_EQ("3 2 1009 9 0x00010009 ge1/9 added, link down", lines[4]);
}

// The first port's end is never seen by itself; the line must still say who was there.
TEST_F(Daemon, SystemPortThatPassesOnWhileItsEventIsQueuedSaysWhoWasReplaced)
{
    startChassis(R"({"slots": [{"slot": 1, "prefix": "ge", "ports": [{"port": 1}, {"port": 2, "present": false}]}],
                     "events": [{"at": 1000, "do": "remove", "port": "1/1"}, {"at": 1000, "do": "add", "port": "1/2"}]})",
                 {"--max-delay", "50", "--threshold", "100"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/2"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(changeLines(daemon->out()),
                ElementsAre("1 1 1001 1 0x00010001 ge1/1 added, link down",
                            "2 1 1002 2 0x00010002 ge1/2 replaced ge1/1, link down (coalesced)"));
}

TEST_F(Daemon, PortThatComesAndGoesWhileItsEventIsQueuedIsStillNamed)
{
    startChassis(R"({"slots": [{"slot": 1, "prefix": "ge", "ports": [{"port": 1}, {"port": 2, "present": false}]}],
                     "events": [{"at": 1000, "do": "add", "port": "1/2"}, {"at": 1000, "do": "remove", "port": "1/2"}]})",
                 {"--max-delay", "50", "--threshold", "100"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/2"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(changeLines(daemon->out()), ElementsAre("1 1 1001 1 0x00010001 ge1/1 added, link down",
                                                        "2 2 1002 2 0x00010002 ge1/2 added and removed (coalesced)"));
}

TEST_F(Daemon, QuietPrintsNothing)
{
    startChassis(fourPorts, {"--quiet"});
    EXPECT_TRUE(statReaches("eventsReceived", 4));
    EXPECT_EQ(0, stop());
    EXPECT_EQ("", daemon->out());
    EXPECT_EQ("", daemon->err());
}

TEST_F(Daemon, EndsByItselfAfterItsTime)
{
    start({"--topology", topology(fourPorts), "--for", "0.5"});
    EXPECT_GE(timeOf([&] { EXPECT_EQ(0, daemon->wait()); }), 0ms);
    EXPECT_EQ(4u, changeLines(daemon->out()).size());
}

TEST_F(Daemon, RunsForItsTimeAndNotShorter)
{
    EXPECT_GE(timeOf([&] {
                  const Finished finished =
                      run(KEL_PORTD, {"--topology", topology(fourPorts), "--socket", socket, "--for", "0.5"});
                  EXPECT_EQ(0, finished.status) << finished.err;
              }),
              490ms);
}

TEST_F(Daemon, EachOfBothSignalsEndsItWithStatusZeroAndNoSocketLeft)
{
    for (const int number : {SIGINT, SIGTERM}) {
        startChassis(fourPorts);
        ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
        daemon->signal(number);
        EXPECT_EQ(0, daemon->wait()) << daemon->err();
        EXPECT_FALSE(std::filesystem::exists(socket));
    }
}

// Nothing may be printed to a reader that is gone, and that is no reason to end.
TEST_F(Daemon, GoesOnWhenNobodyReadsItsOutput)
{
    startChassis(fourPortsAnd(R"({"at": 500, "do": "flap", "port": "1/1", "times": 5, "every": 100})"),
                 {"--max-delay", "0"});
    daemon->closeOutput();
    EXPECT_TRUE(statReaches("linkChanges", 9));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, SlowOutputHoldsUpNothing)
{
    // The pipe is not read until the end. 9,000 lines are far more than it holds.
    startChassis(R"({"slots": [{"slot": 1, "ports": 128}], "events": [
                     {"at": 100, "do": "cycle", "port": "1/1", "times": 6000, "every": 0}]})",
                 {"--max-delay", "0", "--threshold", "1"});
    EXPECT_TRUE(statReaches("portsRemoved", 6000));
    EXPECT_TRUE(eventually("show ports", "128 +1/128"));
    EXPECT_EQ(0, stop());
}

// ---- The console

TEST_F(Daemon, ShowPortsIsOneAlignedTable)
{
    startChassis(R"({"slots": [{"slot": 2, "link": "up", "ports": [
                        {"port": 7, "name": "a-long-name", "description": "to the core"}, {"port": 100, "name": "b"}]}],
                     "trunks": [{"trunk": 1, "name": "po1", "members": ["2/100"]}]})");
    ASSERT_TRUE(eventually("show stats", "linkChanges +3"));
    const std::string table = ask("show ports");
    EXPECT_THAT(
        std::regex_replace(table, std::regex("[0-9:]{8}\\.[0-9]{3}"), "HH:MM:SS.mmm"),
        "PORT  NAME         LINK  IFINDEX  BRIDGE  INSTANCE    SLOT/PORT  TRUNK  CHANGES  LAST CHANGE   DESCRIPTION\n"
        "   1  a-long-name  up       2007     135  0x00020007  2/7        -            1  HH:MM:SS.mmm  to the core\n"
        "   2  b            up       2100     228  0x00020064  2/100      po1          1  HH:MM:SS.mmm\n"
        "   3  po1          up     255001   32513  0x01000001  trunk 1    -            1  HH:MM:SS.mmm\n"
        "ok\n");
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, ShowPortsForProgramsIsJson)
{
    startChassis(fourPorts);
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    const nlohmann::json ports = askJson("show ports");
    ASSERT_EQ(4u, ports.size());
    EXPECT_EQ(3, ports[2]["systemPort"]);
    EXPECT_EQ("ge1/3", ports[2]["name"]);
    EXPECT_EQ(1003, ports[2]["ifIndex"]);
    EXPECT_EQ(3, ports[2]["bridgePort"]);
    EXPECT_EQ(0x10003, ports[2]["portInstance"]);
    EXPECT_EQ("down", ports[2]["link"]);
    EXPECT_EQ(ports[2], askJson("show port 3"));
    EXPECT_EQ(ports[2], askJson("show port ge1/3"));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, ShowMapOnTheWholeChassisFindsNoErrorInAllSixPasses)
{
    start({"--topology", KEL_CHASSIS48});
    ASSERT_TRUE(eventually("show stats", "portsPresent +54"));
    const std::string map = ask("show map");
    EXPECT_THAT(map, HasSubstr("Number System Ports In Use:       54\n"));
    int passes = 0;
    const std::regex done("\\.\\.\\. Done\\. ([0-9]+) errors found\\. ([0-9]+) ports checked\\.\n");
    for (std::sregex_iterator pass(map.begin(), map.end(), done), end; pass != end; ++pass, ++passes) {
        EXPECT_EQ("0", (*pass)[1]) << map;
        EXPECT_GE(std::stoi((*pass)[2]), 48) << map;
    }
    EXPECT_EQ(6, passes) << map;
    EXPECT_THAT(map, HasSubstr("54 ports dumped\nok\n"));
    EXPECT_THAT(ask("show map brief"), testing::Not(HasSubstr("ports dumped")));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, ShowPortTellsEverythingAboutOne)
{
    start({"--topology", KEL_CHASSIS48});
    ASSERT_TRUE(eventually("show stats", "portsUp +54"));
    const std::string port = ask("show port xe3/1");
    for (const char *line :
         {"SYSTEM PORT     49\n", "name            xe3/1\n", "description     to core-1\n", "link            up\n",
          "place           3/1\n", "ifIndex         3001\n", "bridge port     257\n", "port instance   0x00030001\n",
          "trunk           po1\n", "MTU             9216\n", "MAC address     02:00:00:00:03:01\n",
          "ifTable object  1.3.6.1.2.1.2.2.1.1.3001\n", "addresses       192.0.2.1/30\n",
          "                2001:db8:3:1::1/64\n"})
        EXPECT_THAT(port, HasSubstr(line));
    EXPECT_THAT(port, testing::ContainsRegex("last change     20[0-9][0-9]-[0-9]+-[0-9]+,[0-9]+:[0-9]+:[0-9]+\\.0,"));
    EXPECT_EQ(port, ask("show port 49"));
    const std::string trunk = ask("show port po1");
    EXPECT_THAT(trunk, HasSubstr("master          xe3/1\n"));
    EXPECT_THAT(trunk, HasSubstr("VLANs           1, 10 (tagged), 20 (tagged)\n"));
    EXPECT_THAT(askJson("show port xe3/1")["addresses"], ElementsAre("192.0.2.1/30", "2001:db8:3:1::1/64"));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, ShowVlansHasTheirMembers)
{
    start({"--topology", KEL_CHASSIS48});
    ASSERT_TRUE(eventually("show stats", "portsPresent +54"));
    EXPECT_EQ("VLAN  PORTS  UNTAGGED          TAGGED\n"
              "   1     14  ge2/13-24, po1-2  -\n"
              "  10     25  ge1/1-24          po1\n"
              "  20     14  ge2/1-12          po1-2\n"
              "ok\n",
              ask("show vlans"));
    EXPECT_THAT(askJson("show vlans")[1]["tagged"], ElementsAre("po1"));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, ShowQueuesTimersAndPoolAreTheLibrarysOwnWords)
{
    startChassis(fourPortsAnd(R"({"at": 0, "do": "flap", "port": "1/1", "times": 3},
                                 {"at": 0, "do": "flap", "port": "1/2", "times": 1})"),
                 {"--flap-limit", "2", "--flap-window", "100000", "--flap-hold", "100000"});
    ASSERT_TRUE(eventually("show timers", "1  ge1/1  held down +1 "));
    EXPECT_THAT(ask("show timers"),
                testing::AllOf(HasSubstr("name           : flap windows\n"), HasSubstr("name           : hold-downs\n"),
                               testing::Not(HasSubstr("ge1/3"))));
    EXPECT_THAT(ask("show queues"),
                testing::AllOf(HasSubstr("Queue Size      = 32768"), HasSubstr("RxThreshold     = 8"),
                               HasSubstr("inUse           = "), HasSubstr("Max Msg Length  = 8")));
    EXPECT_THAT(ask("show pool"), testing::ContainsRegex("blocks +2048\n"));
    for (const char *command : {"show queues", "show timers", "show pool", "show vlans"})
        EXPECT_EQ("error: unexpected argument 'x'; try help\n", ask(std::string(command) + " x"));
    EXPECT_EQ(0, stop());
    EXPECT_THAT(daemon->out(), testing::Not(HasSubstr("Queue Size"))) << "what is shown goes to the console alone";
}

TEST_F(Daemon, FlappingPortIsHeldDownToldOnceAndReleased)
{
    startChassis(fourPortsAnd(R"({"at": 500, "do": "flap", "port": "1/1", "times": 10})"),
                 {"--flap-limit", "3", "--flap-hold", "50", "--max-delay", "0"});
    EXPECT_TRUE(daemon->waitForOutput("ge1/1     flapping, held down"));
    EXPECT_TRUE(daemon->waitForOutput("ge1/1     released, link up"));
    EXPECT_EQ(0, stop());
    size_t lines = 0;
    for (const std::string &line : changeLines(daemon->out()))
        lines += line.find(" ge1/1 ") != std::string::npos ? 1 : 0;
    EXPECT_LE(lines, 8u) << daemon->out(); // the arrival, four changes at most, held down, released
}

TEST_F(Daemon, ShowTraceHasTheMapsLatestLines)
{
    startChassis(fourPorts);
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    EXPECT_THAT(ask("show trace"), testing::ContainsRegex("kelSysPortUtilAddPifCB\\(10001\\);Added ifIndex=1001;"
                                                          "bridgePort=1;systemPort=1;ifName=ge1/1\n"));
    const std::string last = ask("show trace 1");
    EXPECT_THAT(last, HasSubstr("systemPort=4;ifName=ge1/4\nok\n"));
    EXPECT_EQ(2, std::count(last.begin(), last.end(), '\n'));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, CommandsThatAreWrongSayWhy)
{
    startChassis(fourPorts);
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    const std::pair<const char *, const char *> wrong[] = {
        {"reboot", "unknown command 'reboot'; try help"},
        {"show", "unknown command 'show'; try help"},
        {"show everything now", "unknown command 'show everything'; try help"},
        {"SHOW PORTS", "unknown command 'SHOW'; try help"},
        {"show ports all", "unexpected argument 'all'; try help"},
        {"show port", "which port? usage: show port N|NAME [--json]"},
        {"show port 5", "no port '5'"},
        {"show port 0", "no port '0'"},
        {"show port -1", "no port '-1'"},
        {"show port 99999999999999999999", "no port '99999999999999999999'"},
        {"show port ge1/1 2", "unexpected argument '2'; try help"},
        {"show trace many", "not a number of lines: 'many'"},
        {"show trace 0", "not a number of lines: '0'"},
        {"show map verbose", "unexpected argument 'verbose'; try help"},
        {"\x1b[2J\x01", "unknown command '?[2J?'; try help"},
    };
    for (const auto &[request, reason] : wrong)
        EXPECT_EQ("error: " + std::string(reason) + "\n", ask(request));
    EXPECT_EQ("error: unknown command '" + std::string(40, 'x') + "...'; try help\n", ask(std::string(512, 'x')));
    EXPECT_EQ("ok\n", ask(""));
    EXPECT_EQ("ok\n", ask("   \t "));
    EXPECT_EQ(ask("help"), ask("  help  "));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, HelpListsEveryCommandThatThereIs)
{
    startChassis(fourPorts);
    const std::string help = ask("help");
    for (const char *command : {"show ports", "show port", "show map", "show trace", "show stats", "show queues",
                                "show timers", "show pool", "show vlans", "help"})
        EXPECT_THAT(help, HasSubstr(command));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, HundredClientsAskingAtOnceAreAllAnsweredWhilePortsComeAndGo)
{
    startChassis(R"({"slots": [{"slot": 1, "ports": 48, "link": "up"}], "events": [
                     {"at": 0, "do": "cycle", "port": "1/7", "times": 100000, "every": 1}]})",
                 {"--quiet"});
    ASSERT_TRUE(eventually("show stats", "portsPresent +4[78]"));
    std::vector<std::unique_ptr<ConsoleClient>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        clients.back()->say("show ports\nshow map\nshow port 7\nnonsense\n");
        clients.back()->finish();
    }
    for (const auto &client : clients) {
        const std::string answers = client->hearAll();
        EXPECT_THAT(answers, HasSubstr("1/48"));
        EXPECT_THAT(answers, HasSubstr("ports dumped\nok\n"));
        EXPECT_TRUE(answers.ends_with("error: unknown command 'nonsense'; try help\n"));
    }
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, HostileClientsLeaveItWorking)
{
    startChassis(fourPorts, {"--quiet"});
    std::vector<std::unique_ptr<ConsoleClient>> clients;
    const std::string noise("\0\xff\xfe show \n\n\r\n\0\n", 15);
    for (int i = 0; i < 20; ++i) {
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        clients.back()->say(noise);
        clients.back()->say(std::string(100'000, 'x'));
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        clients.back()->say("show por");
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        for (int j = 0; j < 500; ++j) // and never reads an answer
            if (!clients.back()->say("show map\n"))
                break;
        if (i % 2)
            clients.clear(); // vanishes in the middle of everything
    }
    EXPECT_THAT(ask("show ports"), HasSubstr("ge1/4"));
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, SigtermInTheMiddleOfEverythingStillEndsCleanly)
{
    startChassis(R"({"slots": [{"slot": 1, "ports": 48}], "events": [
                     {"at": 0, "do": "cycle", "port": "1/7", "times": 1000000, "every": 0},
                     {"at": 0, "do": "flap", "port": "1/8", "times": 1000000, "every": 0}]})",
                 {"--max-delay", "1"});
    ASSERT_TRUE(statReaches("portsRemoved", 100));
    std::vector<std::unique_ptr<ConsoleClient>> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(std::make_unique<ConsoleClient>(socket));
        clients.back()->say("show map\nshow ports\nshow trace 1000\n");
    }
    EXPECT_EQ(0, stop()) << daemon->err();
    EXPECT_FALSE(std::filesystem::exists(socket));
}

// ---- Many ports

TEST_F(Daemon, TenThousandAddsAndDeletesLeaveAnEmptyConsistentMap)
{
    startChassis(R"({"slots": [{"slot": 1, "ports": 2}], "events": [
                     {"at": 0, "do": "cycle", "port": "1/1", "times": 10000, "every": 0},
                     {"at": 1, "do": "remove", "port": "1/1"}, {"at": 1, "do": "remove", "port": "1/2"}]})",
                 {"--quiet"});
    EXPECT_TRUE(statReaches("portsRemoved", 10002));
    EXPECT_EQ(10002u, stat("portsAdded"));
    EXPECT_EQ(0u, stat("portsPresent"));
    const std::string map = ask("show map");
    EXPECT_THAT(map, HasSubstr("Number System Ports In Use:       0\n"));
    EXPECT_THAT(map, HasSubstr("Total Bucket Count:      0\n"));
    size_t clean = 0;
    const std::string done = "Done. 0 errors found. 0 ports checked.\n";
    for (size_t at = map.find(done); at != std::string::npos; at = map.find(done, at + 1))
        ++clean;
    EXPECT_EQ(6u, clean) << map;
    EXPECT_EQ(0, stop()) << daemon->err();
}

// ---- Starts that are refused

TEST_F(DaemonRefuses, TopologyFileThatIsMissing)
{
    const Finished finished = run(KEL_PORTD, {"--topology", folder + "/none.json", "--socket", socket});
    EXPECT_EQ(2, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_EQ("kel-portd: " + folder + "/none.json: cannot be read: No such file or directory\n", finished.err);
}

TEST_F(DaemonRefuses, TopologyFileThatIsNoJsonOrWrongInOneFieldNamingThePlace)
{
    const std::pair<const char *, const char *> wrong[] = {
        {"{\"slots\": [", "not JSON: "},
        {R"({"slots": [{"slot": 1, "ports": 0}]})", "/slots/0/ports: "},
        {R"({"slots": [{"slot": 1, "ports": [{"port": 1, "link": "on"}]}]})", "/slots/0/ports/0/link: "},
        {R"({"slots": [], "colour": "red"})", "colour"},
    };
    for (const auto &[text, place] : wrong) {
        const std::string path = topology(text);
        const Finished finished = run(KEL_PORTD, {"--topology", path, "--socket", socket});
        EXPECT_EQ(2, finished.status) << text;
        EXPECT_THAT(finished.err, testing::StartsWith("kel-portd: " + path + ": "));
        EXPECT_THAT(finished.err, HasSubstr(place));
        EXPECT_EQ("", finished.out);
        EXPECT_FALSE(std::filesystem::exists(socket)) << "nothing may be started";
    }
}

TEST_F(DaemonRefuses, WrongUsage)
{
    EXPECT_EQ(2, run(KEL_PORTD, {"--nonsense"}).status);
    EXPECT_EQ(2, run(KEL_PORTD, {"--for", "never"}).status);
}

TEST_F(DaemonRefuses, SocketPathThatAnotherOneUses)
{
    startChassis(fourPorts);
    const Finished finished = run(KEL_PORTD, {"--topology", topology(fourPorts), "--socket", socket});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("kel-portd: console socket " + socket + ": in use by another process, or not a socket\n", finished.err);
    EXPECT_THAT(ask("show ports"), HasSubstr("ge1/4")) << "the first one goes on";
    EXPECT_EQ(0, stop());
}

TEST_F(Daemon, SocketOfOneThatWasKilledIsReplaced)
{
    startChassis(fourPorts);
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    daemon->signal(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, daemon->wait());
    ASSERT_TRUE(std::filesystem::exists(socket));
    Process second(KEL_PORTD, {"--topology", topology(fourPorts), "--socket", socket});
    EXPECT_TRUE(second.waitForOutput("ge1/4"));
    EXPECT_THAT(ask("show ports"), HasSubstr("ge1/4"));
    second.signal(SIGTERM);
    EXPECT_EQ(0, second.wait());
}

TEST_F(DaemonRefuses, SocketPathThatCannotBe)
{
    Finished finished = run(KEL_PORTD, {"--topology", topology(fourPorts), "--socket", folder + "/no/where"});
    EXPECT_EQ(1, finished.status);
    EXPECT_THAT(finished.err, HasSubstr(folder + "/no/where: No such file or directory\n"));
    finished = run(KEL_PORTD, {"--topology", topology(fourPorts), "--socket", std::string(200, 'x')});
    EXPECT_EQ(1, finished.status);
    EXPECT_THAT(finished.err, HasSubstr("the path must have 1 to 107 bytes\n"));
}

// Netlink sockets are refused to the child by a system-call filter, as a container may do it.
TEST_F(DaemonRefuses, HostWithoutNetlink)
{
    if (*KEL_EMULATOR)
        GTEST_SKIP() << "system-call filters do not reach an emulated program";
    const uint32_t allow = SECCOMP_RET_ALLOW;
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0), // the system call's number
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 16), // its first argument
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
        BPF_STMT(BPF_RET | BPF_K, allow),
    };
    const sock_fprog filter = {std::size(code), code};
    Process process(KEL_PORTD, {"--socket", socket}, [&] {
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
    });
    EXPECT_EQ(1, process.wait());
    EXPECT_THAT(process.err(), testing::MatchesRegex("kel-portd: .*[Nn]etlink.*\n"));
    EXPECT_FALSE(std::filesystem::exists(socket));
}
