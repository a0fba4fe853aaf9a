#pragma once

#include <string>

#include <posix/unique_fd.h>

namespace service_access {

/// Absolute, and short enough for a socket address.
bool IsUsableSocketPath(const std::string& path);

/// A stream socket, close-on-exec. Throws std::system_error.
posix::UniqueFd MakeUnixSocket();

/// A listening socket at `path` with mode 0600, close-on-exec and non-blocking. A socket file that
/// nobody listens on is replaced. Throws std::system_error, with EADDRINUSE if somebody listens
/// there or the file is no socket.
posix::UniqueFd ListenAtUnixSocket(const std::string& path);

/// The next connection of a listening socket, close-on-exec; empty, with errno set, if there is
/// none.
posix::UniqueFd AcceptUnixSocket(int listeningFd);

}  // namespace service_access
