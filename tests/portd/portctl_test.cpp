// The built client against the built daemon, and against nothing.
#include "daemon_fixture.h"

#include <gmock/gmock.h>

#include <sys/un.h>

using testing::HasSubstr;

namespace
{
class Portctl : public DaemonFixture
{
protected:
    Finished ctl(std::vector<std::string> arguments, const std::string &input = "") const
    {
        arguments.insert(arguments.begin(), {"--socket", socket});
        return run(KEL_PORTCTL, arguments, input);
    }
    void startTwoPorts()
    {
        startChassis(R"({"slots": [{"slot": 1, "ports": 2, "prefix": "ge"}]})");
        ASSERT_TRUE(eventually("show stats", "portsPresent +2"));
    }
};
} // namespace

TEST_F(Portctl, CommandIsItsArguments)
{
    startTwoPorts();
    const Finished finished = ctl({"show", "ports"});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ("", finished.err);
    EXPECT_EQ(finished.out + "ok\n", ask("show ports"));
    EXPECT_EQ(finished.out, ctl({"show ports"}).out) << "one argument or several";
}

TEST_F(Portctl, OptionsBehindTheCommandAreTheCommands)
{
    startTwoPorts();
    const Finished finished = ctl({"show", "ports", "--json"});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(2u, nlohmann::json::parse(finished.out).size());
}

TEST_F(Portctl, CommandsAreReadFromStandardInputOneALine)
{
    startTwoPorts();
    const Finished finished = ctl({}, "show port 1\n\n  \nshow port 2"); // the last line has no end
    EXPECT_EQ(0, finished.status);
    EXPECT_THAT(finished.out, HasSubstr("ge1/1"));
    EXPECT_THAT(finished.out, HasSubstr("ge1/2"));
}

TEST_F(Portctl, ShowMapThroughStandardInputHasAllSixPasses)
{
    start({"--topology", KEL_CHASSIS48});
    ASSERT_TRUE(eventually("show stats", "portsPresent +54"));
    const Finished finished = ctl({}, "show map\n");
    EXPECT_EQ(0, finished.status);
    size_t clean = 0;
    for (size_t at = finished.out.find("Done. 0 errors found. "); at != std::string::npos;
         at = finished.out.find("Done. 0 errors found. ", at + 1))
        ++clean;
    EXPECT_EQ(6u, clean);
}

TEST_F(Portctl, FailedCommandIsStatusOneAndTheOthersAreStillRun)
{
    startTwoPorts();
    Finished finished = ctl({"show", "port", "9"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_EQ("kel-portctl: no port '9'\n", finished.err);
    finished = ctl({}, "nonsense\nshow port 1\n");
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("kel-portctl: unknown command 'nonsense'; try help\n", finished.err);
    EXPECT_THAT(finished.out, HasSubstr("ge1/1"));
}

TEST_F(Portctl, WithoutADaemonItSaysSo)
{
    const Finished finished = ctl({"help"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("kel-portctl: cannot reach " + socket + ": No such file or directory (is kel-portd running?)\n",
              finished.err);
}

TEST_F(Portctl, OverlongCommandIsAnErrorNotAHang)
{
    startTwoPorts();
    const Finished finished = ctl({std::string(2000, 'x')});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("kel-portctl: line longer than 512 bytes, ignored\n", finished.err);
}

TEST_F(Portctl, CommandOfTwoLinesIsWrongUsage)
{
    EXPECT_EQ(2, ctl({"show\nports"}).status);
    EXPECT_EQ(2, run(KEL_PORTCTL, {"--nonsense"}).status);
    EXPECT_EQ(0, run(KEL_PORTCTL, {"--help"}).status);
    EXPECT_EQ(0, run(KEL_PORTCTL, {"--version"}).status);
}

// Something else listens there and closes at once.
TEST_F(Portctl, ConnectionThatIsClosedWithoutAnAnswerIsAnError)
{
    sockaddr_un address;
    std::string reason;
    const int listener = unixSocket(socket, address, reason);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    ASSERT_EQ(0, listen(listener, 1));
    Process process(KEL_PORTCTL, {"--socket", socket, "help"});
    const int accepted = accept(listener, nullptr, nullptr);
    char byte;
    EXPECT_EQ(1, recv(accepted, &byte, 1, 0));
    close(accepted);
    EXPECT_EQ(1, process.wait());
    EXPECT_THAT(process.err(), testing::StartsWith("kel-portctl: "));
    close(listener);
}

// As in `kel-portctl show map | head -1`: the ordinary end of a program that writes to a closed pipe, without a word,
// also when whoever started it ignores the signal.
TEST_F(Portctl, ReaderOfItsOutputThatGoesAwayEndsItQuietly)
{
    startTwoPorts();
    for (const auto handler : {SIG_DFL, SIG_IGN}) {
        Process process(KEL_PORTCTL, {"--socket", socket, "show", "map"}, [handler] {
            int ends[2];
            if (pipe(ends) == 0 && dup2(ends[1], STDOUT_FILENO) == STDOUT_FILENO)
                close(ends[0]);
            signal(SIGPIPE, handler);
        });
        EXPECT_EQ(128 + SIGPIPE, process.wait());
        EXPECT_EQ("", process.err());
    }
    EXPECT_THAT(ctl({"show", "ports"}).out, HasSubstr("ge1/2")) << "the daemon is not touched by it";
}

TEST_F(Portctl, AnswerThatCannotBeWrittenIsAnError)
{
    startTwoPorts();
    Process process(KEL_PORTCTL, {"--socket", socket, "show", "ports"},
                    [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    EXPECT_EQ(1, process.wait());
    EXPECT_EQ("kel-portctl: cannot write to standard output\n", process.err());
    Process lines(KEL_PORTCTL, {"--socket", socket}, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    lines.write("show ports\nshow port none\n");
    lines.closeInput();
    EXPECT_EQ(1, lines.wait());
    EXPECT_EQ("kel-portctl: cannot write to standard output\n", lines.err()) << "nothing is asked any more";
}

// The connection would take the number of standard output, and answers would be sent to the daemon as requests.
TEST_F(Portctl, ClosedStandardOutputIsNotTheConnection)
{
    startTwoPorts();
    const uint64_t before = stat("consoleRequests");
    Process process(KEL_PORTCTL, {"--socket", socket, "help"}, [] { close(STDOUT_FILENO); });
    EXPECT_EQ(0, process.wait()) << process.err();
    EXPECT_EQ(before + 2, stat("consoleRequests")) << "the command, and this question";
    EXPECT_EQ(0u, stat("consoleErrors"));
}
