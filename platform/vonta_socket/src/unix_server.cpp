#include "vonta_socket_host/unix_server.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "vonta_socket_host/socket_path.h"

namespace vonta_socket::host {

namespace {

constexpr std::size_t kReceiveSize = 1024;
constexpr int kAcceptPauseMs = 100;

}  // namespace

UnixServer::UnixServer(std::string path, std::size_t maxConnections, DataHandler onData,
                       ClosedHandler onClosed)
    : mPath(std::move(path)),
      mMaxConnections(maxConnections),
      mOnData(std::move(onData)),
      mOnClosed(std::move(onClosed)),
      mWakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mWakeUp.IsValid()) {
        throw std::runtime_error("cannot serve " + mPath + ": no event descriptor");
    }
    mListener = ListenOnPath(mPath);
}

UnixServer::~UnixServer() {
    Stop();
    ::unlink(mPath.c_str());
}

void UnixServer::Start() {
    mThread = std::thread(&UnixServer::Run, this);
}

void UnixServer::Stop() {
    mStopping = true;
    // Fails only if the counter is at its maximum, and then the thread is awake already.
    static_cast<void>(::eventfd_write(mWakeUp.Get(), 1));
    if (mThread.joinable()) {
        mThread.join();
    }
}

bool UnixServer::Send(ConnectionId id, const std::vector<std::uint8_t>& data) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mConnections.find(id);
    return found != mConnections.end() && SendOn(found->second, data);
}

std::size_t UnixServer::SendToAll(const std::vector<std::uint8_t>& data) {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::size_t count = 0;
    for (auto& [id, connection] : mConnections) {
        count += SendOn(connection, data) ? 1U : 0U;
    }
    return count;
}

void UnixServer::DropAll() {
    const std::lock_guard<std::mutex> lock(mMutex);
    for (auto& [id, connection] : mConnections) {
        Drop(connection);
    }
}

void UnixServer::Drop(Connection& connection) {
    // The server's thread reads the end of the stream and removes the connection.
    connection.dropped = true;
    ::shutdown(connection.fd.Get(), SHUT_RDWR);
}

bool UnixServer::SendOn(Connection& connection, const std::vector<std::uint8_t>& data) {
    if (connection.dropped) {
        return false;
    }
    const ssize_t sent =
        ::send(connection.fd.Get(), data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 || static_cast<std::size_t>(sent) != data.size()) {
        Drop(connection);
        return false;
    }
    return true;
}

void UnixServer::Run() {
    while (!mStopping) {
        std::vector<pollfd> descriptors{{mWakeUp.Get(), POLLIN, 0}};
        // After a failed accept the listener stays readable: pause polling it.
        const int listener = mAcceptFailed ? -1 : mListener.Get();
        const int timeout = mAcceptFailed ? kAcceptPauseMs : -1;
        descriptors.push_back({listener, POLLIN, 0});
        std::vector<ConnectionId> ids;
        for (const auto& [id, connection] : mConnections) {
            descriptors.push_back({connection.fd.Get(), POLLIN, 0});
            ids.push_back(id);
        }
        mAcceptFailed = false;
        if (::poll(descriptors.data(), descriptors.size(), timeout) <= 0) {
            continue;
        }
        if (descriptors[1].revents != 0) {
            Accept();
        }
        for (std::size_t i = 0; i < ids.size() && !mStopping; ++i) {
            if (descriptors[i + 2].revents != 0) {
                Receive(ids[i]);
            }
        }
    }
}

void UnixServer::Accept() {
    posix::UniqueFd fd(::accept4(mListener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd.IsValid()) {
        mAcceptFailed = errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mConnections.size() < mMaxConnections) {
        mConnections[mNextId++].fd = std::move(fd);
    }
}

void UnixServer::Receive(ConnectionId id) {
    std::array<std::uint8_t, kReceiveSize> buffer{};
    const ssize_t received =
        ::recv(mConnections.at(id).fd.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (received <= 0 ||
        !mOnData(id, std::vector<std::uint8_t>(buffer.begin(), buffer.begin() + received))) {
        Remove(id);
    }
}

void UnixServer::Remove(ConnectionId id) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mConnections.erase(id);
    }
    mOnClosed(id);
}

}  // namespace vonta_socket::host
