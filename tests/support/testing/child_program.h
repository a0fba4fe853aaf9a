#pragma once

#include <array>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/waiting.h"

namespace testing_support {

/// The program that the definition SIMULATOR_PROGRAM names, running, with pipes to its standard
/// input and output; killed with the test.
class ChildProgram {
public:
    explicit ChildProgram(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), SIMULATOR_PROGRAM);
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        EXPECT_EQ(::pipe2(input.data(), O_CLOEXEC) | ::pipe2(output.data(), O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        EXPECT_EQ(::posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        mInput = input[1];
        mOutput = output[0];
    }
    ~ChildProgram() {
        CloseInput();
        ::close(mOutput);
        if (mPid > 0) {
            Kill(SIGKILL);
            ::waitpid(mPid, nullptr, 0);
        }
    }
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    void Write(const std::string& text) const {
        EXPECT_EQ(::write(mInput, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void CloseInput() {
        if (mInput >= 0) {
            ::close(std::exchange(mInput, -1));
        }
    }

    std::string ReadLine() const { return ReadLineFrom(mOutput); }

    /// The next line, without its end; "<end>" behind what came last.
    static std::string ReadLineFrom(int fd) {
        const int limit = static_cast<int>(std::chrono::milliseconds(kHangGuard).count());
        std::string line;
        char c = 0;
        for (pollfd ready{fd, POLLIN, 0}; ::poll(&ready, 1, limit) == 1 && ::read(fd, &c, 1) == 1;
             line.push_back(c)) {
            if (c == '\n') {
                return line;
            }
        }
        return line + "<end>";
    }

    void Kill(int signal) const { ::kill(mPid, signal); }

    /// The exit status, or -1 if it did not exit by itself.
    int Wait() {
        // The end of its output comes before its exit, and can be waited for with a limit.
        while (ReadLine().find("<end>") == std::string::npos) {
        }
        int status = 0;
        ::waitpid(std::exchange(mPid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t mPid{-1};
    int mInput{-1};
    int mOutput{-1};
};

}  // namespace testing_support
