#include "simulator/page/child_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <posix/unique_fd.h>

namespace simulator::page {

namespace {

using posix::UniqueFd;

constexpr std::size_t kMaxOutput = std::size_t{1} << 20U;
constexpr int kSignalBase = 128;

void Check(int error, const char* what) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

/// What the new process inherits: the two outputs, and nothing else.
class SpawnSettings {
public:
    SpawnSettings(int output, int errors) {
        Check(::posix_spawnattr_init(&mAttributes), "posix_spawnattr_init");
        Check(::posix_spawn_file_actions_init(&mActions), "posix_spawn_file_actions_init");
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&mAttributes, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&mAttributes, &signals);
        ::posix_spawnattr_setpgroup(&mAttributes, 0);
        ::posix_spawnattr_setflags(
            &mAttributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        Check(::posix_spawn_file_actions_addopen(&mActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
              "standard input");
        Check(::posix_spawn_file_actions_adddup2(&mActions, output, STDOUT_FILENO),
              "standard output");
        Check(::posix_spawn_file_actions_adddup2(&mActions, errors, STDERR_FILENO),
              "standard error");
        Check(::posix_spawn_file_actions_addclosefrom_np(&mActions, STDERR_FILENO + 1),
              "descriptors");
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&mActions);
        ::posix_spawnattr_destroy(&mAttributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawnattr_t* Attributes() const { return &mAttributes; }
    const posix_spawn_file_actions_t* Actions() const { return &mActions; }

private:
    posix_spawnattr_t mAttributes{};
    posix_spawn_file_actions_t mActions{};
};

UniqueFd MakeMemoryFile() {
    UniqueFd file(::memfd_create("output", MFD_CLOEXEC));
    Check(file.IsValid() ? 0 : errno, "memfd_create");
    return file;
}

std::string Content(const UniqueFd& file) {
    std::string text;
    std::array<char, 8192> buffer{};
    while (text.size() < kMaxOutput) {
        const ssize_t count =
            ::pread(file.Get(), buffer.data(), buffer.size(), static_cast<off_t>(text.size()));
        if (count <= 0) {
            break;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace

pid_t Spawn(const std::vector<std::string>& argv, int output, int errors) {
    std::vector<char*> arguments;
    arguments.reserve(argv.size() + 1);
    for (const std::string& argument : argv) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const SpawnSettings settings(output, errors);
    pid_t pid = 0;
    Check(::posix_spawn(&pid, arguments.front(), settings.Actions(), settings.Attributes(),
                        arguments.data(), environ),
          arguments.front());
    return pid;
}

int ExitStatus(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? kSignalBase + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

int OpenPidFd(pid_t pid) {
    // Debian 12's C library has no function for it.
    const long descriptor = ::syscall(SYS_pidfd_open, pid, 0);
    Check(descriptor < 0 ? errno : 0, "pidfd_open");
    return static_cast<int>(descriptor);
}

ProgramResult RunToEnd(const std::vector<std::string>& argv, std::chrono::milliseconds limit) {
    const UniqueFd output = MakeMemoryFile();
    const UniqueFd errors = MakeMemoryFile();
    const pid_t pid = Spawn(argv, output.Get(), errors.Get());
    const UniqueFd ended(OpenPidFd(pid));
    pollfd descriptor{ended.Get(), POLLIN, 0};
    if (::poll(&descriptor, 1, static_cast<int>(limit.count())) != 1) {
        ::kill(-pid, SIGKILL);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return {ExitStatus(status), Content(output), Content(errors)};
}

}  // namespace simulator::page
