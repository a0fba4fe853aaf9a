#pragma once

#include <chrono>
#include <string>

#include <vonta_socket/stream_client_connector_if.h>

namespace vonta_socket {

/// Connects to a Unix stream socket by its path.
///
/// If the environment variable VONTA_SOCKET_DIR is set, the socket's file name in that directory is
/// used instead.
class UnixStreamClientConnector : public StreamClientConnectorIf {
public:
    /// `readTimeout` is the time limit of one read of a connection, in milliseconds; negative for
    /// none. `name` is the subscriber's name, unused on this platform.
    UnixStreamClientConnector(const std::string& path, int readTimeout, const std::string& name);

    /// Fails at once if the server's backlog is full.
    ///
    /// Attempts are rate-limited against busy reconnecting: each blocks until 100 ms have passed
    /// since the previous one.
    std::shared_ptr<StreamCommunicatorIf> Connect() override;

private:
    void PaceAttempts();

    std::string mPath;
    int mReadTimeout;
    std::chrono::steady_clock::time_point mLastAttempt;
};

}  // namespace vonta_socket
