#include "unix_stream_communicator.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

namespace vonta_socket {

UnixStreamCommunicator::UnixStreamCommunicator(posix::UniqueFd fd) : mFd(std::move(fd)) {}

void UnixStreamCommunicator::Close() {
    ::shutdown(mFd.Get(), SHUT_RDWR);
}

std::size_t UnixStreamCommunicator::Write(const std::vector<std::uint8_t>& data) {
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t sent =
            ::send(mFd.Get(), data.data() + written, data.size() - written, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            break;
        }
        written += static_cast<std::size_t>(sent);
    }
    return written;
}

bool UnixStreamCommunicator::Read(std::vector<std::uint8_t>& data) {
    std::size_t read = 0;
    while (read < data.size()) {
        const ssize_t received = ::recv(mFd.Get(), data.data() + read, data.size() - read, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return false;
        }
        read += static_cast<std::size_t>(received);
    }
    return true;
}

}  // namespace vonta_socket
