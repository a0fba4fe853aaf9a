#include <algorithm>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <posix/unique_fd.h>
#include <vonta_socket/unix_stream_client_connector.h>

#include "unix_stream_communicator.h"
#include "vonta_socket_host/socket_path.h"

namespace vonta_socket {

namespace {

/// The pause between two attempts is not interruptible: joining a thread in Connect may take as
/// long.
constexpr std::chrono::milliseconds kMinInterval{100};

bool MakeBlocking(int fd, int readTimeout) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        return false;
    }
    if (readTimeout < 0) {
        return true;
    }
    // For the option, zero means no limit.
    const int limit = std::max(readTimeout, 1);
    const timeval timeout{limit / 1000, (limit % 1000) * 1000L};
    return ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) == 0;
}

}  // namespace

UnixStreamClientConnector::UnixStreamClientConnector(const std::string& path, int readTimeout,
                                                     const std::string& /*name*/)
    : mPath(host::ResolveSocketPath(path)),
      mReadTimeout(readTimeout),
      mLastAttempt(std::chrono::steady_clock::now() - kMinInterval) {}

std::shared_ptr<StreamCommunicatorIf> UnixStreamClientConnector::Connect() {
    PaceAttempts();
    sockaddr_un address{};
    if (!host::MakeUnixAddress(mPath, address)) {
        return nullptr;
    }
    // Non-blocking connect: a full backlog fails at once.
    posix::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.IsValid() ||
        ::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        !MakeBlocking(fd.Get(), mReadTimeout)) {
        return nullptr;
    }
    return std::make_shared<UnixStreamCommunicator>(std::move(fd));
}

void UnixStreamClientConnector::PaceAttempts() {
    std::this_thread::sleep_until(mLastAttempt + kMinInterval);
    mLastAttempt = std::chrono::steady_clock::now();
}

}  // namespace vonta_socket
