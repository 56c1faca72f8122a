// daemon_fixture.h: the built kel-portd with a console of its own, for tests from outside.
#pragma once

#include "console_client.h"
#include "process.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

class DaemonFixture : public testing::Test
{
protected:
    DaemonFixture()
    {
        char name[] = "/tmp/kel-portd-test-XXXXXX";
        folder = mkdtemp(name);
        socket = folder + "/console";
    }
    ~DaemonFixture() override
    {
        daemon.reset();
        std::filesystem::remove_all(folder);
    }

    // Writes a topology file and returns its path.
    std::string topology(const std::string &text) const
    {
        const std::string path = folder + "/chassis.json";
        std::ofstream(path) << text;
        return path;
    }

    // Starts the daemon; it answers on the console when this returns.
    void start(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"--socket", socket});
        daemon = std::make_unique<Process>(KEL_PORTD, arguments);
        const auto deadline = std::chrono::steady_clock::now() + Process::hang;
        while (!std::filesystem::exists(socket) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }
    void startChassis(const std::string &text, const std::vector<std::string> &more = {})
    {
        std::vector<std::string> arguments = {"--topology", topology(text)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        start(arguments);
    }

    // What the console answers, its last line included.
    std::string ask(const std::string &request) const
    {
        const ConsoleClient client(socket);
        client.say(request + '\n');
        client.finish();
        return client.hearAll();
    }
    nlohmann::json askJson(const std::string &request) const
    {
        const std::string answer = ask(request + " --json");
        EXPECT_TRUE(answer.ends_with("\nok\n")) << answer;
        return nlohmann::json::parse(answer.substr(0, answer.size() - 3), nullptr, false);
    }
    uint64_t stat(const std::string &name) const
    {
        return askJson("show stats").value(name, uint64_t{0});
    }

    // Asks until the answer matches.
    testing::AssertionResult eventually(const std::string &request, const std::string &pattern) const
    {
        const auto deadline = std::chrono::steady_clock::now() + Process::hang;
        std::string answer;
        do {
            answer = ask(request);
            if (std::regex_search(answer, std::regex(pattern)))
                return testing::AssertionSuccess();
            std::this_thread::yield();
        } while (std::chrono::steady_clock::now() < deadline);
        return testing::AssertionFailure() << pattern << " never came in\n" << answer;
    }
    testing::AssertionResult statReaches(const std::string &name, uint64_t value) const
    {
        const auto deadline = std::chrono::steady_clock::now() + 4 * Process::hang;
        uint64_t last = 0;
        do {
            last = stat(name);
            if (last >= value)
                return testing::AssertionSuccess();
            std::this_thread::yield();
        } while (std::chrono::steady_clock::now() < deadline);
        return testing::AssertionFailure() << name << " is " << last << ", not " << value;
    }

    // SIGTERM, and the exit status.
    int stop() const
    {
        daemon->signal(SIGTERM);
        return daemon->wait();
    }

    std::string folder;
    std::string socket;
    std::unique_ptr<Process> daemon;
};

// A change line's columns behind the time, blanks squeezed: "1 3 1003 3 0x00010003 ge1/3 link down".
inline std::vector<std::string> changeLines(const std::string &output)
{
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        static const std::regex time("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} +");
        if (std::regex_search(line, time))
            lines.push_back(std::regex_replace(std::regex_replace(line, time, ""), std::regex(" +"), " "));
    }
    return lines;
}
