#pragma once

#include <functional>
#include <string>

#include <posix/unique_fd.h>

namespace simulator::vehicle {

/// What the program's main thread does: waits for SIGTERM, SIGINT, commands on standard input and
/// the word to end.
class MainLoop {
public:
    /// Blocks the two signals for this thread and all that it makes from now on. Throws
    /// std::system_error.
    MainLoop();

    /// Makes Run return. Any thread.
    void Quit();

    /// Hands each line of standard input to `execute` and prints what it answers. Returns after a
    /// signal or Quit; at the end of input only if `endWithInput` says so.
    void Run(const std::function<std::string(const std::string& line)>& execute, bool endWithInput);

private:
    posix::UniqueFd mSignalFd;
    posix::UniqueFd mQuitFd;
};

}  // namespace simulator::vehicle
