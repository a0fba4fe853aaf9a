#pragma once

#include <array>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/stream.h"

namespace testing_support {

/// The program that the definition SIMULATOR_PROGRAM names, running, with its standard input and
/// output in the test's hands; killed with the test.
class ChildProgram {
public:
    explicit ChildProgram(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), SIMULATOR_PROGRAM);
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        mStream = Stream(ends[0]);
        const posix::UniqueFd theirs(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, theirs.Get(), STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, theirs.Get(), STDOUT_FILENO);
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        EXPECT_EQ(::posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ChildProgram() {
        if (mPid > 0) {
            Kill(SIGKILL);
            ::waitpid(mPid, nullptr, 0);
        }
    }
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    void Write(const std::string& text) const { mStream.Send(text); }
    void CloseInput() const { mStream.EndSending(); }
    /// "<end>" stands behind what came last.
    std::string ReadLine() const { return mStream.ReadLine(); }

    void Kill(int signal) const { ::kill(mPid, signal); }

    /// The exit status, or -1 if it did not exit by itself.
    int Wait() {
        // The end of its output comes before its exit, and can be waited for with a limit.
        mStream.ReadToEnd();
        int status = 0;
        ::waitpid(std::exchange(mPid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t mPid{-1};
    Stream mStream;
};

}  // namespace testing_support
