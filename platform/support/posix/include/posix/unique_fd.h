#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace posix {

/// Owns one file descriptor, or none. A negative value stands for none, so that the result of a
/// system call can be put in as it is. Closing leaves `errno` alone, for whoever still reports why
/// another call failed.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        const UniqueFd former(std::exchange(mFd, other.Release()));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (mFd >= 0) {
            const int error = errno;
            ::close(mFd);
            errno = error;
        }
    }

    int Get() const { return mFd; }
    bool IsValid() const { return mFd >= 0; }

    /// Hands the descriptor to the caller, who has to close it.
    int Release() noexcept { return std::exchange(mFd, -1); }

private:
    int mFd = -1;
};

}  // namespace posix
