#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace posix {

/// Owns one file descriptor, or none: a negative value, so that it can wrap the result of a system
/// call directly. Closing preserves `errno`, so that an earlier error can still be reported.
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

    /// Transfers the ownership to the caller.
    int Release() noexcept { return std::exchange(mFd, -1); }

private:
    int mFd = -1;
};

}  // namespace posix
