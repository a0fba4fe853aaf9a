#pragma once

#include <string>

#include <sys/un.h>

#include <posix/unique_fd.h>

namespace vonta_socket::host {

/// The path of a socket on this host: `path` itself, or its file name in $VONTA_SOCKET_DIR.
std::string ResolveSocketPath(const std::string& path);

/// False if `path` is empty, contains a null byte or exceeds 107 bytes, the size of an address.
bool MakeUnixAddress(const std::string& path, sockaddr_un& address);

/// A listening, non-blocking stream socket at `path` with mode 0600. A stale socket file is
/// replaced. Throws std::runtime_error if the path is in use, by a running server or another kind
/// of file, and on system errors.
posix::UniqueFd ListenOnPath(const std::string& path);

}  // namespace vonta_socket::host
