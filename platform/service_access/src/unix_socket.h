#pragma once

#include <string>

namespace service_access {

/// Owner of a file descriptor.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : mFd(fd) {}
    ~UniqueFd();
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;

    int Get() const { return mFd; }
    int Release() noexcept;

private:
    int mFd;
};

/// Absolute, and short enough for a socket address.
bool IsUsableSocketPath(const std::string& path);

/// A stream socket, close-on-exec. Throws std::system_error.
UniqueFd MakeUnixSocket();

/// A listening socket at `path` with mode 0600, close-on-exec and non-blocking. A socket file that
/// nobody listens on is replaced. Throws std::system_error, with EADDRINUSE if somebody listens
/// there or the file is no socket.
UniqueFd ListenAtUnixSocket(const std::string& path);

/// The next connection of a listening socket, close-on-exec; empty, with errno set, if there is
/// none.
UniqueFd AcceptUnixSocket(int listeningFd);

}  // namespace service_access
