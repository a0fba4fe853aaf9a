#include "vonta_socket_host/socket_path.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <sys/stat.h>

namespace vonta_socket::host {

using posix::UniqueFd;

namespace {

constexpr int kBacklog = 16;

[[noreturn]] void Fail(const std::string& path, int error) {
    throw std::runtime_error("cannot listen on " + path + ": " +
                             std::generic_category().message(error));
}

const sockaddr* AsGeneric(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

void RemoveStaleSocket(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        Fail(path, EEXIST);
    }
    const UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe.IsValid()) {
        Fail(path, errno);
    }
    if (::connect(probe.Get(), AsGeneric(address), sizeof(address)) == 0 || errno != ECONNREFUSED) {
        Fail(path, EADDRINUSE);
    }
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        Fail(path, errno);
    }
}

}  // namespace

std::string ResolveSocketPath(const std::string& path) {
    const char* directory = std::getenv("VONTA_SOCKET_DIR");
    if (directory == nullptr || *directory == '\0') {
        return path;
    }
    return std::string(directory) + "/" + path.substr(path.rfind('/') + 1);
}

bool MakeUnixAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path) ||
        path.find('\0') != std::string::npos) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    return true;
}

UniqueFd ListenOnPath(const std::string& path) {
    sockaddr_un address{};
    if (!MakeUnixAddress(path, address)) {
        Fail(path, ENAMETOOLONG);
    }
    RemoveStaleSocket(path, address);
    UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Set before bind, so that the file never has another mode.
    if (!listener.IsValid() || ::fchmod(listener.Get(), S_IRUSR | S_IWUSR) != 0 ||
        ::bind(listener.Get(), AsGeneric(address), sizeof(address)) != 0 ||
        ::listen(listener.Get(), kBacklog) != 0) {
        Fail(path, errno);
    }
    return listener;
}

}  // namespace vonta_socket::host
