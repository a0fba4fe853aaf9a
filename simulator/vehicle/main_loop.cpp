#include "simulator/vehicle/main_loop.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <posix/line_splitter.h>

#include "simulator/control/control_server.h"

namespace simulator::vehicle {

namespace {

using Execute = std::function<std::string(const std::string& line)>;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void Answer(const Execute& execute, std::string_view line) {
    const std::string answer = execute(std::string(line));
    if (!answer.empty()) {
        std::cout << answer << std::endl;
    }
}

bool RefuseLine() {
    std::cout << "error: line too long" << std::endl;
    return false;
}

/// False at the end of the input.
bool ReadInput(posix::LineSplitter& lines, const Execute& execute) {
    std::array<char, 1024> buffer{};
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return true;
    }
    if (count <= 0) {
        if (const auto rest = lines.Finish()) {
            Answer(execute, rest->text);
        }
        return false;
    }
    lines.Feed({buffer.data(), static_cast<std::size_t>(count)});
    while (const auto line = lines.Next()) {
        if (!line->whole) {
            return RefuseLine();
        }
        Answer(execute, line->text);
    }
    return !lines.IsTooLong() || RefuseLine();
}

}  // namespace

MainLoop::MainLoop() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    errno = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    if (errno != 0) {
        Fail("pthread_sigmask");
    }
    // A closed output or being in the background of a terminal must not stop the vehicle.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGTTIN, SIG_IGN);
    mSignalFd = posix::UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC));
    if (!mSignalFd.IsValid()) {
        Fail("signalfd");
    }
    mQuitFd = posix::UniqueFd(::eventfd(0, EFD_CLOEXEC));
    if (!mQuitFd.IsValid()) {
        Fail("eventfd");
    }
}

void MainLoop::Quit() {
    const std::uint64_t one = 1;
    if (::write(mQuitFd.Get(), &one, sizeof(one)) < 0) {
        Fail("eventfd");
    }
}

void MainLoop::Run(const Execute& execute, bool endWithInput) {
    posix::LineSplitter lines(kMaxCommandSize);
    std::array<pollfd, 3> descriptors{
        {{mSignalFd.Get(), POLLIN, 0}, {mQuitFd.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    auto& input = descriptors[2];
    while (true) {
        if (::poll(descriptors.data(), descriptors.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail("poll");
        }
        if (descriptors[0].revents != 0 || descriptors[1].revents != 0) {
            return;
        }
        if (input.revents != 0 && !ReadInput(lines, execute)) {
            if (endWithInput) {
                return;
            }
            input.fd = -1;
        }
    }
}

}  // namespace simulator::vehicle
