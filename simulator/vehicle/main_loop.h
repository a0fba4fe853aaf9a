#pragma once

#include <functional>
#include <string>

#include <posix/unique_fd.h>

namespace simulator::vehicle {

/// The loop of the program's main thread: waits for SIGTERM, SIGINT, commands on standard input and
/// `Quit`.
class MainLoop {
public:
    /// Blocks the two signals in this thread and those that it starts later. Throws
    /// std::system_error.
    MainLoop();

    /// Makes Run return. Any thread.
    void Quit();

    /// Passes each line of standard input to `execute` and prints the answer. Returns after a
    /// signal or `Quit`, and at the end of input if `endWithInput`.
    void Run(const std::function<std::string(const std::string& line)>& execute, bool endWithInput);

private:
    posix::UniqueFd mSignalFd;
    posix::UniqueFd mQuitFd;
};

}  // namespace simulator::vehicle
