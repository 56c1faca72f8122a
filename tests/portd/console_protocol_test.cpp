#include "console_protocol.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/un.h>
#include <unistd.h>

TEST(FramedReply, SuccessEndsWithOkAndFailureWithItsReason)
{
    EXPECT_EQ("a\nb\nok\n", framed({"a\nb\n", ""}));
    EXPECT_EQ("ok\n", framed({"", ""}));
    EXPECT_EQ("error: no port 'x'\n", framed({"", "no port 'x'"}));
    EXPECT_EQ("a\nerror: then it broke\n", framed({"a\n", "then it broke"}));
}

// An interface may be called "ok"; its line must not end the answer.
TEST(FramedReply, LinesThatLookLikeTheLastLineAreIndented)
{
    EXPECT_EQ(" ok\n error: x\nokay\n\nok\n", framed({"ok\nerror: x\nokay\n\n", ""}));
}

TEST(FramedReply, TextWithoutALineEndGetsOne)
{
    EXPECT_EQ("a\nok\n", framed({"a", ""}));
    EXPECT_EQ(" ok\nok\n", framed({"ok", ""}));
}

TEST(UnixSocket, PathsThatDoNotFitTheAddressAreRefusedWithTheReason)
{
    sockaddr_un address;
    for (const std::string &path : {std::string(), std::string(108, 'x'), std::string("a\0b", 3)}) {
        std::string reason;
        EXPECT_EQ(-1, unixSocket(path, address, reason));
        EXPECT_EQ("the path must have 1 to 107 bytes", reason);
    }
}

TEST(UnixSocket, LongestPathFits)
{
    sockaddr_un address;
    std::string reason;
    const int fd = unixSocket(std::string(107, 'x'), address, reason);
    EXPECT_GE(fd, 0);
    EXPECT_EQ("", reason);
    EXPECT_EQ(std::string(107, 'x'), address.sun_path);
    close(fd);
}

TEST(DefaultSocketPath, IsAbsoluteAndNamesTheDaemon)
{
    const std::string path = defaultSocketPath();
    EXPECT_EQ('/', path.at(0));
    EXPECT_NE(std::string::npos, path.find("/kel-portd"));
    if (geteuid() == 0) {
        EXPECT_EQ("/run/kel-portd.sock", path);
    }
}
