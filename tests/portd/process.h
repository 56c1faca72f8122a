// process.h: a program under test: started with its outputs in pipes, read while it runs, ended and waited for.
#pragma once

#include "harness/time_of.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

class Process
{
public:
    static constexpr std::chrono::seconds hang{60}; // longer than any of the waits takes on the slowest machine

    // `program` is run by the emulator when the tests are. `prepare` runs in the child before the program.
    explicit Process(const std::string &program, const std::vector<std::string> &arguments = {},
                     const std::function<void()> &prepare = nullptr)
    {
        std::vector<std::string> words;
        if (const std::string emulator = KEL_EMULATOR; !emulator.empty())
            words.push_back(emulator);
        words.push_back(program);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        int out[2], err[2], in[2];
        EXPECT_EQ(0, pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC) | pipe2(in, O_CLOEXEC));
        child = fork();
        if (child == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            if (prepare)
                prepare();
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        close(err[1]);
        input = in[1];
        outputs[0].fd = out[0];
        outputs[1].fd = err[0];
    }

    ~Process()
    {
        if (child > 0 && !ended) {
            ::kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        closeInput();
        closeOutput();
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t id() const
    {
        return child;
    }
    const std::string &out() const
    {
        return outputs[0].text;
    }
    const std::string &err() const
    {
        return outputs[1].text;
    }
    void signal(int number) const
    {
        ::kill(child, number);
    }

    void write(const std::string &text) const
    {
        EXPECT_EQ(ssize_t(text.size()), ::write(input, text.data(), text.size()));
    }
    void closeInput()
    {
        if (input >= 0)
            close(input);
        input = -1;
    }

    // The reader of its outputs goes away.
    void closeOutput()
    {
        for (Output &output : outputs) {
            if (output.fd >= 0)
                close(output.fd);
            output.fd = -1;
        }
    }

    // Reads on until standard output holds the text. False when the program ended, or hangs.
    bool waitForOutput(const std::string &text)
    {
        return readUntil([&] { return out().find(text) != std::string::npos; });
    }

    // Waits for the end: the exit status, or 128 and the signal that ended it; -1 when it hangs.
    int wait()
    {
        if (!readUntil([] { return false; }) && (outputs[0].fd >= 0 || outputs[1].fd >= 0))
            return -1;
        int status = 0;
        waitpid(child, &status, 0);
        ended = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    struct Output {
        int fd = -1;
        std::string text;
    };

    template <class Done>
    bool readUntil(Done done)
    {
        const auto deadline = std::chrono::steady_clock::now() + hang;
        while (!done()) {
            if (outputs[0].fd < 0 && outputs[1].fd < 0)
                return false;
            pollfd polled[2] = {{outputs[0].fd, POLLIN, 0}, {outputs[1].fd, POLLIN, 0}};
            if (std::chrono::steady_clock::now() > deadline || (poll(polled, 2, 1000) < 0 && errno != EINTR))
                return false;
            for (size_t i = 0; i < 2; ++i)
                if (polled[i].revents != 0)
                    readSome(outputs[i]);
        }
        return true;
    }

    static void readSome(Output &output)
    {
        char bytes[65536];
        const ssize_t count = read(output.fd, bytes, sizeof bytes);
        if (count > 0) {
            output.text.append(bytes, size_t(count));
            return;
        }
        close(output.fd);
        output.fd = -1;
    }

    pid_t child = -1;
    bool ended = false;
    int input = -1;
    Output outputs[2];
};

// A program that is run to its end.
struct Finished {
    int status;
    std::string out;
    std::string err;
};

inline Finished run(const std::string &program, const std::vector<std::string> &arguments = {},
                    const std::string &input = "")
{
    Process process(program, arguments);
    if (!input.empty())
        process.write(input);
    process.closeInput();
    const int status = process.wait();
    return {status, process.out(), process.err()};
}
