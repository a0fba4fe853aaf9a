#pragma once

#include <chrono>
#include <string>

#include <vonta_socket/stream_client_connector_if.h>

namespace vonta_socket {

/// Connects to a Unix stream socket by its path.
///
/// With the environment variable VONTA_SOCKET_DIR set, the socket is looked for under its file name
/// in that directory instead.
class UnixStreamClientConnector : public StreamClientConnectorIf {
public:
    /// `readTimeout` is the longest that one read of a connection waits for data, in milliseconds;
    /// a negative value waits without limit. `name` is the subscriber's name, which nothing on this
    /// platform asks for.
    UnixStreamClientConnector(const std::string& path, int readTimeout, const std::string& name);

    /// Does not wait for a server that is too busy to take connections.
    ///
    /// Attempts are paced, so that a server which takes connections only to drop them keeps nobody
    /// busy: an attempt waits until 100 ms have passed since the one before.
    std::shared_ptr<StreamCommunicatorIf> Connect() override;

private:
    void PaceAttempts();

    std::string mPath;
    int mReadTimeout;
    std::chrono::steady_clock::time_point mLastAttempt;
};

}  // namespace vonta_socket
