#pragma once

#include <string>

#include <sys/un.h>

#include <posix/unique_fd.h>

namespace vonta_socket::host {

/// The path that a socket has here: `path` itself, or its file name in $VONTA_SOCKET_DIR.
std::string ResolveSocketPath(const std::string& path);

/// False if `path` is empty, holds a null byte or does not fit an address (107 bytes).
bool MakeUnixAddress(const std::string& path, sockaddr_un& address);

/// Listens on `path`, with mode 0600 and without blocking. A socket that nobody serves any more is
/// replaced. Throws std::runtime_error if something else is in the way, above all a server that
/// still runs, and if the system refuses.
posix::UniqueFd ListenOnPath(const std::string& path);

}  // namespace vonta_socket::host
