#include "options.h"

#include "snmp_agent.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
// The status to exit with, or -1 to go on.
int parsed(std::vector<const char *> arguments, Options &options)
{
    arguments.insert(arguments.begin(), "kel-portd");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data(), options).value_or(-1);
}

int parsed(std::vector<const char *> arguments)
{
    Options options;
    testing::internal::CaptureStderr();
    const int status = parsed(std::move(arguments), options);
    testing::internal::GetCapturedStderr();
    return status;
}
} // namespace

TEST(Options, DefaultsWatchThisHostWithoutEnd)
{
    Options options;
    ASSERT_EQ(-1, parsed({}, options));
    EXPECT_EQ("", options.topology);
    EXPECT_FALSE(options.runSeconds);
    EXPECT_EQ(20u, options.maxDelay_ticks);
    EXPECT_EQ(8u, options.threshold);
    EXPECT_NE("", options.socketPath);
    EXPECT_FALSE(options.quiet);
    EXPECT_FALSE(options.statusEndpoint);
    EXPECT_FALSE(options.agentMaster);
}

TEST(Options, EachIsTaken)
{
    Options options;
    ASSERT_EQ(-1, parsed({"--topology", "chassis.json", "--for", "2.5", "--max-delay", "0", "--threshold", "32767",
                          "--socket", "/tmp/s", "--quiet", "--udp", "[::1]:9161", "--flap-limit", "0", "--flap-window",
                          "1", "--flap-hold", "360000"},
                         options));
    EXPECT_EQ("chassis.json", options.topology);
    EXPECT_EQ(2.5, options.runSeconds);
    EXPECT_EQ(0u, options.maxDelay_ticks);
    EXPECT_EQ(32767u, options.threshold);
    EXPECT_EQ("/tmp/s", options.socketPath);
    EXPECT_TRUE(options.quiet);
    ASSERT_TRUE(options.statusEndpoint);
    EXPECT_EQ(9161, options.statusEndpoint->port);
    EXPECT_EQ(0u, options.flapLimit);
    EXPECT_EQ(1u, options.flapWindow_ticks);
    EXPECT_EQ(360000u, options.flapHold_ticks);
}

TEST(Options, HelpAndVersionSucceed)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, parsed({"--help"}));
    EXPECT_EQ(0, parsed({"--version"}));
    const std::string text = testing::internal::GetCapturedStdout();
    for (const char *option : {"--topology", "--for", "--max-delay", "--threshold", "--socket", "--quiet", "--udp"})
        EXPECT_NE(std::string::npos, text.find(option)) << option;
    EXPECT_NE(std::string::npos, text.find("kel-portd " KEL_VERSION "\n"));
}

TEST(Options, WrongUsageIsStatusTwo)
{
    EXPECT_EQ(2, parsed({"--nonsense"}));
    EXPECT_EQ(2, parsed({"extra"}));
    EXPECT_EQ(2, parsed({"--for"}));
    EXPECT_EQ(2, parsed({"--for", "-1"}));
    EXPECT_EQ(2, parsed({"--for", "nan"}));
    EXPECT_EQ(2, parsed({"--for", "soon"}));
    EXPECT_EQ(2, parsed({"--max-delay", "6001"}));
    EXPECT_EQ(2, parsed({"--max-delay", "-1"}));
    EXPECT_EQ(2, parsed({"--threshold", "0"}));
    EXPECT_EQ(2, parsed({"--threshold", "32768"}));
    EXPECT_EQ(2, parsed({"--udp", "somewhere"}));
}

TEST(Options, AgentxHasAUsualSocketOrTheOneThatIsGiven)
{
    Options options;
    if (!SnmpAgent::isAvailable()) {
        EXPECT_EQ(2, parsed({"--agentx"}));
        return;
    }
    ASSERT_EQ(-1, parsed({"--agentx"}, options));
    EXPECT_EQ("/var/agentx/master", options.agentMaster);
    Options given;
    ASSERT_EQ(-1, parsed({"--agentx", "tcp:127.0.0.1:705", "--quiet"}, given));
    EXPECT_EQ("tcp:127.0.0.1:705", given.agentMaster);
    EXPECT_TRUE(given.quiet);
    Options before;
    ASSERT_EQ(-1, parsed({"--agentx", "--quiet"}, before));
    EXPECT_EQ("/var/agentx/master", before.agentMaster);
    EXPECT_TRUE(before.quiet);
}
