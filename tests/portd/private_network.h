// private_network.h: a network namespace for one test alone, in which it and all it starts may make interfaces.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <string>

// An empty text when the test is in a new, empty namespace from now on, otherwise why that cannot be. The earlier
// namespace, and everything in it, ends with its last process.
inline std::string enterPrivateNetwork()
{
    if (*KEL_EMULATOR)
        return "rtnetlink and packet information do not work in an emulated program";
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return std::string("network namespaces are not allowed here: ") + strerror(errno);
    if (system("ip link add probe type veth peer name probed && ip link delete probe") != 0)
        return "veth pairs are not allowed here";
    return "";
}

inline void ip(const std::string &command)
{
    EXPECT_EQ(0, system(("ip " + command).c_str())) << command;
}
