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

/// The server side of the TLS alert socket.
///
/// A subscriber connects and sends one byte, 1; any other data closes its connection. An alert is
/// one byte, 2, the operation id as a string of StreamProtocol, and one byte, the alert code. All
/// operations may be called from any thread.
class StreamServer {
public:
    static constexpr std::size_t kMaxConnections = 16;

    /// Serves `path`, or its file name in $VONTA_SOCKET_DIR, until destroyed. Throws
    /// std::runtime_error if that fails, e.g. because another server is running there.
    explicit StreamServer(const std::string& path);

    /// Returns the number of subscribers that were sent the alert; 0 also for an operation id
    /// longer than StreamProtocol::kMaxStringLength.
    std::size_t BroadcastAlert(const std::string& operationId, std::uint8_t code);

    /// Sends raw bytes to all subscribers; returns the number of those that accepted them.
    std::size_t Broadcast(const std::vector<std::uint8_t>& data);

    /// Closes all connections; subscribers may reconnect.
    void DropConnections();

    std::size_t GetSubscriberCount() const;

    /// Waits until the number of subscriptions since the start, ended ones included, has reached
    /// `total`. False after `timeout`.
    bool WaitForSubscriptions(std::size_t total, std::chrono::milliseconds timeout);

private:
    bool HandleData(UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data);
    void HandleClosed(UnixServer::ConnectionId id);

    mutable std::mutex mMutex;
    std::condition_variable mSubscribed;
    std::set<UnixServer::ConnectionId> mSubscribers;
    std::size_t mSubscriptions = 0;
    UnixServer mServer;  ///< last: its thread uses the members above
};

}  // namespace vonta_socket::host
