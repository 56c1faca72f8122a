// snmp_master.h: a real SNMP agent of this host for one test alone, as the master of AgentX subagents, and the tools
// that ask it. Needs no rights: its own configuration, folders and ports.
#pragma once

#include "process.h"

#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <vector>

// A UDP socket on a port of the loopback that nobody else has.
struct LoopbackSocket {
    LoopbackSocket() : fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&address), length));
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
        port = ntohs(address.sin_port);
    }
    ~LoopbackSocket()
    {
        if (fd >= 0)
            close(fd);
    }
    LoopbackSocket(const LoopbackSocket &) = delete;
    LoopbackSocket &operator=(const LoopbackSocket &) = delete;

    int fd;
    int port = 0;
};

class SnmpMaster
{
public:
    static constexpr const char *program = "/usr/sbin/snmpd";

    // Why this machine cannot run one; empty when it can.
    static std::string missing()
    {
        for (const char *needed :
             {program, "/usr/bin/snmpwalk", "/usr/bin/snmpbulkwalk", "/usr/bin/snmpget", "/usr/bin/snmptable"})
            if (!std::filesystem::exists(needed))
                return std::string(needed) + " is not installed";
        return "";
    }

    explicit SnmpMaster(const std::string &testFolder) : folder(testFolder)
    {
        setenv("MIBS", "", 1); // of the tools, unless a test names modules
        setenv("SNMPCONFPATH", folder.c_str(), 1);
        setenv("SNMP_PERSISTENT_DIR", (folder + "/kept").c_str(), 1);
        std::filesystem::create_directory(folder + "/kept");
    }

    std::string agentxSocket() const
    {
        return folder + "/master";
    }

    // Starts it; notifications go to that port unless it is 0.
    void start(int notificationPort = 0)
    {
        if (port == 0)
            port = LoopbackSocket().port;
        std::ofstream settings(folder + "/agent.conf");
        settings << "dontLogTCPWrappersConnects yes\nmaster agentx\nagentXSocket unix:" << agentxSocket()
                 << "\nrocommunity public 127.0.0.1\n";
        if (notificationPort != 0)
            settings << "trap2sink 127.0.0.1:" << notificationPort << " public\n";
        settings.close();
        process =
            std::make_unique<Process>(program, std::vector<std::string>{"-f", "-C", "-c", folder + "/agent.conf", "-Lf",
                                                                        folder + "/agent.log", endpoint()});
    }
    void stop()
    {
        process->signal(SIGKILL); // the subagent hears no farewell
        process->wait();
        process.reset();
    }

    // What a tool of net-snmp prints: snmpwalk, snmpget, snmptable.
    std::string ask(const std::string &tool, const std::vector<std::string> &arguments) const
    {
        std::vector<std::string> words = {"-v2c", "-c", "public", "-t", "0.5", "-r", "20", "-On"};
        const auto firstObject = arguments.end() - 1;
        words.insert(words.end(), arguments.begin(), firstObject);
        words.push_back(endpoint());
        words.push_back(*firstObject);
        return run("/usr/bin/" + tool, words).out;
    }

    // Asks until the answer holds the text.
    testing::AssertionResult eventually(const std::string &tool, const std::vector<std::string> &arguments,
                                        const std::string &text) const
    {
        const auto deadline = std::chrono::steady_clock::now() + Process::hang;
        std::string answer;
        do {
            answer = ask(tool, arguments);
            if (answer.find(text) != std::string::npos)
                return testing::AssertionSuccess();
        } while (std::chrono::steady_clock::now() < deadline);
        return testing::AssertionFailure() << text << " never came in\n" << answer;
    }

private:
    std::string endpoint() const
    {
        return "127.0.0.1:" + std::to_string(port);
    }

    std::string folder;
    int port = 0;
    std::unique_ptr<Process> process;
};
