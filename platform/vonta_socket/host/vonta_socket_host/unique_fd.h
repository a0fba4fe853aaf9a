#pragma once

#include <utility>

#include <unistd.h>

namespace vonta_socket::host {

/// Owns one file descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (mFd >= 0) {
            ::close(mFd);
        }
    }

    int Get() const { return mFd; }
    bool IsValid() const { return mFd >= 0; }

private:
    int mFd = -1;
};

}  // namespace vonta_socket::host
