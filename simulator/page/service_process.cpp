#include "simulator/page/service_process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>

#include <posix/unique_fd.h>

#include "simulator/page/child_process.h"

namespace simulator::page {

namespace {

using Error = boost::system::error_code;

constexpr std::chrono::seconds kEndLimit(15);
constexpr int kSignalBase = 128;
constexpr mode_t kLogMode = 0644;

std::string EndText(int status, bool wasAsked) {
    if (status == 0 && wasAsked) {
        return "stopped";
    }
    return status > kSignalBase ? "ended by signal " + std::to_string(status - kSignalBase)
                                : "ended with status " + std::to_string(status);
}

posix::UniqueFd OpenLog(const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    posix::UniqueFd log(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kLogMode));
    if (!log.IsValid()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return log;
}

}  // namespace

ServiceProcess::ServiceProcess(boost::asio::io_context& loop, std::vector<std::string> argv,
                               std::string logFile, std::function<void()> onChange)
    : mArgv(std::move(argv)),
      mLogFile(std::move(logFile)),
      mOnChange(std::move(onChange)),
      mEnd(loop),
      mLimit(loop) {}

ServiceProcess::~ServiceProcess() {
    if (mPid != 0) {
        ::kill(-mPid, SIGKILL);
        ::waitpid(mPid, nullptr, 0);
    }
}

void ServiceProcess::Start() {
    if (IsRunning()) {
        throw std::runtime_error("the service runs already");
    }
    Launch(false);
}

void ServiceProcess::StartWithReset() {
    if (!IsRunning()) {
        Launch(true);
        return;
    }
    Stop();
    mResets = true;
}

void ServiceProcess::Stop() {
    mResets = false;
    if (!IsRunning()) {
        return;
    }
    ::kill(mPid, SIGTERM);
    mLimit.expires_after(kEndLimit);
    mLimit.async_wait([this](const Error& error) {
        if (!error && IsRunning()) {
            ::kill(-mPid, SIGKILL);
        }
    });
    SetState("stopping");
}

void ServiceProcess::Launch(bool reset) {
    const auto log = OpenLog(mLogFile);
    std::vector<std::string> argv = mArgv;
    if (reset) {
        argv.emplace_back("-reset");
    }
    const pid_t pid = Spawn(argv, log.Get(), log.Get());
    mEnd.assign(OpenPidFd(pid));
    mPid = pid;
    mEnd.async_wait(boost::asio::posix::stream_descriptor::wait_read, [this](const Error& error) {
        if (!error) {
            OnEnd();
        }
    });
    SetState("running");
}

void ServiceProcess::OnEnd() {
    int status = 0;
    ::waitpid(mPid, &status, 0);
    mPid = 0;
    mEnd.close();
    mLimit.cancel();
    SetState(EndText(ExitStatus(status), mState == "stopping"));
    if (std::exchange(mResets, false)) {
        try {
            Launch(true);
        } catch (const std::exception& error) {
            SetState(error.what());
        }
    }
}

void ServiceProcess::SetState(std::string state) {
    mState = std::move(state);
    mOnChange();
}

}  // namespace simulator::page
