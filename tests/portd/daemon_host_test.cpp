// The built daemon over real interfaces: veth pairs in a network namespace that belongs to this test alone.
#include "daemon_fixture.h"

#include <gmock/gmock.h>

#include <sched.h>

using testing::HasSubstr;

namespace
{
class HostPorts : public DaemonFixture
{
protected:
    void SetUp() override
    {
        if (*KEL_EMULATOR)
            GTEST_SKIP() << "rtnetlink does not work in an emulated program";
        // One namespace a test; the earlier one and all in it end with the last process in it.
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            GTEST_SKIP() << "network namespaces are not allowed here: " << strerror(errno);
        if (system("ip link add probe type veth peer name probed && ip link delete probe") != 0)
            GTEST_SKIP() << "veth pairs are not allowed here";
    }

    static void ip(const std::string &command)
    {
        EXPECT_EQ(0, system(("ip " + command).c_str())) << command;
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
