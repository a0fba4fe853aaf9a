#include "unix_socket.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace service_access {

using posix::UniqueFd;

namespace {

constexpr mode_t kSocketMode = S_IRUSR | S_IWUSR;

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un Address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

const sockaddr* Generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

void RemoveStaleSocket(const std::string& path, const sockaddr_un& address) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        return;
    }
    if (!S_ISSOCK(info.st_mode)) {
        throw std::system_error(EADDRINUSE, std::generic_category(), path + " is no socket");
    }
    const UniqueFd probe = MakeUnixSocket();
    if (connect(probe.Get(), Generic(address), sizeof(address)) == 0 || errno != ECONNREFUSED) {
        throw std::system_error(EADDRINUSE, std::generic_category(), path);
    }
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        ThrowErrno("unlink " + path);
    }
}

}  // namespace

bool IsUsableSocketPath(const std::string& path) {
    return !path.empty() && path.front() == '/' && path.find('\0') == std::string::npos &&
           path.size() < sizeof(sockaddr_un::sun_path);
}

UniqueFd MakeUnixSocket() {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.Get() < 0) {
        ThrowErrno("socket");
    }
    return fd;
}

UniqueFd ListenAtUnixSocket(const std::string& path) {
    if (!IsUsableSocketPath(path)) {
        throw std::system_error(EINVAL, std::generic_category(), "socket path " + path);
    }
    const auto address = Address(path);
    RemoveStaleSocket(path, address);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.Get() < 0) {
        ThrowErrno("socket");
    }
    // On Linux the file that bind makes has the mode of the socket; so it is never open to others.
    if (fchmod(fd.Get(), kSocketMode) != 0) {
        ThrowErrno("fchmod " + path);
    }
    if (bind(fd.Get(), Generic(address), sizeof(address)) != 0) {
        ThrowErrno("bind " + path);
    }
    if (listen(fd.Get(), SOMAXCONN) != 0) {
        const int error = errno;
        unlink(path.c_str());
        throw std::system_error(error, std::generic_category(), "listen " + path);
    }
    return fd;
}

UniqueFd AcceptUnixSocket(int listeningFd) {
    return UniqueFd(accept4(listeningFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace service_access
