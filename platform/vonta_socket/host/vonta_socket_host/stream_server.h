#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "vonta_socket_host/unix_server.h"

namespace vonta_socket::host {

/// The daemon's side of the TLS alert socket.
///
/// A subscriber connects and sends one byte, 1; anything else, then or later, ends its connection.
/// An alert is one byte, 2, the operation id as a string of StreamProtocol, and one byte, the alert
/// code. All operations may be called from any thread.
class StreamServer {
public:
    static constexpr std::size_t kMaxConnections = 16;

    /// Serves `path`, or its file name in $VONTA_SOCKET_DIR, at once. Throws std::runtime_error if
    /// it cannot, above all when another server is there.
    explicit StreamServer(const std::string& path);

    /// Returns how many subscribers were sent the alert; 0 also for an operation id that is longer
    /// than StreamProtocol::kMaxStringLength.
    std::size_t BroadcastAlert(const std::string& operationId, std::uint8_t code);

    /// Sends bytes as they are to all subscribers, returns how many took them.
    std::size_t Broadcast(const std::vector<std::uint8_t>& data);

    /// Ends all connections; subscribers may come again.
    void DropConnections();

    std::size_t GetSubscriberCount() const;

    /// Waits until `total` subscriptions have been made since the start, those that have ended
    /// since included. False if that takes longer than `timeout`.
    bool WaitForSubscriptions(std::size_t total, std::chrono::milliseconds timeout);

private:
    bool HandleData(UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data);
    void HandleClosed(UnixServer::ConnectionId id);

    mutable std::mutex mMutex;
    std::condition_variable mSubscribed;
    std::set<UnixServer::ConnectionId> mSubscribers;
    std::size_t mSubscriptions = 0;
    UnixServer mServer;  ///< last, so that its thread ends before what it uses
};

}  // namespace vonta_socket::host
