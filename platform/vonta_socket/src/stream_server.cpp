#include "vonta_socket_host/stream_server.h"

#include <vonta_socket/stream_protocol.h>

#include "vonta_socket_host/socket_path.h"

namespace vonta_socket::host {

namespace {

constexpr std::uint8_t kStartListening = 1;
constexpr std::uint8_t kAlert = 2;

}  // namespace

StreamServer::StreamServer(const std::string& path)
    : mServer(
          ResolveSocketPath(path), kMaxConnections,
          [this](UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data) {
              return HandleData(id, data);
          },
          [this](UnixServer::ConnectionId id) { HandleClosed(id); }) {
    mServer.Start();
}

std::size_t StreamServer::BroadcastAlert(const std::string& operationId, std::uint8_t code) {
    const StreamProtocol protocol;
    std::vector<std::uint8_t> message;
    protocol.InsertUint8(message, kAlert);
    if (!protocol.InsertString(message, operationId)) {
        return 0;
    }
    protocol.InsertUint8(message, code);
    return Broadcast(message);
}

std::size_t StreamServer::Broadcast(const std::vector<std::uint8_t>& data) {
    std::set<UnixServer::ConnectionId> subscribers;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        subscribers = mSubscribers;
    }
    std::size_t count = 0;
    for (const UnixServer::ConnectionId id : subscribers) {
        count += mServer.Send(id, data) ? 1U : 0U;
    }
    return count;
}

void StreamServer::DropConnections() {
    mServer.DropAll();
}

std::size_t StreamServer::GetSubscriberCount() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mSubscribers.size();
}

bool StreamServer::WaitForSubscriptions(std::size_t total, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mSubscribed.wait_for(lock, timeout, [&] { return mSubscriptions >= total; });
}

bool StreamServer::HandleData(UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (data.size() != 1 || data.front() != kStartListening || !mSubscribers.insert(id).second) {
        return false;
    }
    ++mSubscriptions;
    mSubscribed.notify_all();
    return true;
}

void StreamServer::HandleClosed(UnixServer::ConnectionId id) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mSubscribers.erase(id);
}

}  // namespace vonta_socket::host
