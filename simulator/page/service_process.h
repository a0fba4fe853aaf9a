#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <sys/types.h>

namespace simulator::page {

/// The unit's service as a process of this one's: started and ended on request, at most one at a
/// time. Lives on its loop's thread.
class ServiceProcess {
public:
    /// @param argv the program, by its path, and its arguments
    /// @param logFile where the service's output is appended
    /// @param onChange called after each change of `State`, on the loop's thread
    ServiceProcess(boost::asio::io_context& loop, std::vector<std::string> argv,
                   std::string logFile, std::function<void()> onChange);
    /// Kills what runs.
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// Starts it. Throws std::runtime_error if it runs already or cannot be started.
    void Start();
    /// Starts it with `-reset`; one that runs is ended first. Throws as `Start`.
    void StartWithReset();
    /// Asks it to end by SIGTERM; by SIGKILL if it does not in 15 seconds. No effect if none runs.
    void Stop();

    bool IsRunning() const { return mPid != 0; }
    /// "running", "stopping", "stopped", "ended with status 1", "ended by signal 11".
    const std::string& State() const { return mState; }

private:
    void Launch(bool reset);
    void OnEnd();
    void SetState(std::string state);

    std::vector<std::string> mArgv;
    std::string mLogFile;
    std::function<void()> mOnChange;
    pid_t mPid{0};
    bool mResets{false};
    std::string mState{"stopped"};
    boost::asio::posix::stream_descriptor mEnd;
    boost::asio::steady_timer mLimit;
};

}  // namespace simulator::page
