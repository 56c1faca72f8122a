// The built daemon over real interfaces: veth pairs in a network namespace that belongs to this test alone.
#include "daemon_fixture.h"
#include "private_network.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <netinet/in.h>

using testing::HasSubstr;

namespace
{
class HostPorts : public DaemonFixture
{
protected:
    void SetUp() override
    {
        if (const std::string reason = enterPrivateNetwork(); !reason.empty())
            GTEST_SKIP() << reason;
    }

    // A port and the other end of its cable, which is a port too.
    static void addPair(int number)
    {
        const std::string n = std::to_string(number);
        ip("link add swp" + n + " type veth peer name end" + n);
    }
};
} // namespace

TEST_F(HostPorts, InterfacesThatAreThereAtTheStartArePortsAndTheLoopbackIsNot)
{
    addPair(1);
    start({});
    ASSERT_TRUE(eventually("show stats", "portsPresent +2"));
    const std::string ports = ask("show ports");
    EXPECT_THAT(ports, HasSubstr("swp1"));
    EXPECT_THAT(ports, HasSubstr("end1"));
    EXPECT_THAT(ports, testing::Not(HasSubstr(" lo ")));
    EXPECT_EQ(0, stop());
}

TEST_F(HostPorts, LinksOfRealInterfacesGoUpAndDown)
{
    addPair(1);
    start({"--max-delay", "0"});
    ASSERT_TRUE(eventually("show stats", "portsPresent +2"));
    ip("link set swp1 up");
    ip("link set end1 up");
    ASSERT_TRUE(eventually("show ports", "swp1 +up"));
    ip("link set end1 down");
    ASSERT_TRUE(eventually("show ports", "swp1 +down"));
    EXPECT_EQ(0, stop());
    const auto lines = changeLines(daemon->out());
    size_t ups = 0, downs = 0;
    for (const std::string &line : lines) {
        ups += line.find("swp1 link up") != std::string::npos ? 1 : 0;
        downs += line.find("swp1 link down") != std::string::npos ? 1 : 0;
    }
    EXPECT_GE(ups, 1u) << daemon->out();
    EXPECT_GE(downs, 1u) << daemon->out();
}

TEST_F(HostPorts, DeletedInterfaceFreesItsSystemPortForTheNextOne)
{
    for (const int pair : {1, 2, 3})
        addPair(pair);
    start({});
    ASSERT_TRUE(eventually("show stats", "portsPresent +6"));
    const uint32_t freed = askJson("show port swp2")["systemPort"];
    const uint32_t other = askJson("show port end2")["systemPort"];
    ip("link delete swp2");
    ASSERT_TRUE(eventually("show stats", "portsPresent +4"));
    EXPECT_EQ("error: no port 'swp2'\n", ask("show port swp2"));
    addPair(9);
    ASSERT_TRUE(eventually("show stats", "portsPresent +6"));
    const uint32_t first = askJson("show port swp9")["systemPort"];
    const uint32_t second = askJson("show port end9")["systemPort"];
    EXPECT_EQ(std::minmax(freed, other), std::minmax(first, second));
    EXPECT_THAT(ask("show map"), HasSubstr("Number System Ports In Use:       6\n"));
    EXPECT_THAT(ask("show map"), testing::Not(HasSubstr("BAD")));
    EXPECT_EQ(0, stop());
}

TEST_F(HostPorts, RenameIsNotAnAddAndTheNextChangeHasTheNewName)
{
    addPair(1);
    start({"--max-delay", "0"});
    ASSERT_TRUE(eventually("show stats", "portsPresent +2"));
    ip("link set swp1 name uplink");
    ASSERT_TRUE(eventually("show ports", " uplink "));
    EXPECT_EQ(2u, stat("portsAdded"));
    ip("link set uplink up");
    ip("link set end1 up");
    EXPECT_TRUE(daemon->waitForOutput("uplink    link up"));
    EXPECT_EQ(0, stop());
}

TEST_F(HostPorts, StatusIsAnsweredOverUdp)
{
    ip("link set lo up");
    start({"--udp", "127.0.0.1:9161"});
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(9161);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    ASSERT_TRUE(eventually("show stats", "uptimeSeconds")) << "it is up";
    ASSERT_EQ(6, send(client, "status", 6, 0));
    const timeval limit = {60, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char bytes[512];
    const ssize_t count = recv(client, bytes, sizeof bytes, 0);
    ASSERT_GT(count, 0);
    const auto status = nlohmann::json::parse(std::string(bytes, size_t(count)), nullptr, false);
    EXPECT_EQ("kel-portd", status["name"]);
    EXPECT_EQ(0, status["portsPresent"]);
    close(client);
    EXPECT_TRUE(statReaches("statusAnswered", 1));
    EXPECT_EQ(0, stop());
}

TEST_F(HostPorts, StatusAddressThatCannotBeBoundIsSaid)
{
    ip("link set lo up"); // a network that has no address at all lets any be bound
    const Finished finished = run(KEL_PORTD, {"--socket", socket, "--udp", "192.0.2.1:9161"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("kel-portd: status responder 192.0.2.1:9161: Cannot assign requested address\n", finished.err);
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST_F(HostPorts, HundredsOfInterfacesThatComeAndGoLeaveNothing)
{
    start({"--quiet"});
    std::string adds, deletes;
    for (int pair = 0; pair < 100; ++pair) {
        adds += "link add t" + std::to_string(pair) + " type veth peer name u" + std::to_string(pair) + "\n";
        deletes += "link delete t" + std::to_string(pair) + "\n";
    }
    std::ofstream(folder + "/adds") << adds;
    std::ofstream(folder + "/deletes") << deletes;
    ip("-batch " + folder + "/adds");
    ASSERT_TRUE(eventually("show stats", "portsPresent +128")) << "a slot has 128 ports";
    ip("-batch " + folder + "/deletes");
    ASSERT_TRUE(eventually("show stats", "portsPresent +0"));
    EXPECT_THAT(ask("show map"), HasSubstr("Number System Ports In Use:       0\n"));
    EXPECT_EQ(0, stop()) << daemon->err();
}
