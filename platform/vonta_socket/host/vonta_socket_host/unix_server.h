#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <posix/unique_fd.h>

namespace vonta_socket::host {

/// Serves several connections on one Unix socket path, on one thread of its own.
///
/// Sending never blocks: a connection whose buffer is full is dropped.
class UnixServer {
public:
    using ConnectionId = std::uint64_t;
    /// Called on the server's thread with received data, in chunks of any size; false drops the
    /// connection. May call every operation but Start, Stop and the destructor.
    using DataHandler = std::function<bool(ConnectionId, const std::vector<std::uint8_t>&)>;
    /// Called on the server's thread after a connection was closed.
    using ClosedHandler = std::function<void(ConnectionId)>;

    /// Listens at once, but accepts connections only after Start. Those above `maxConnections` are
    /// closed. Throws std::runtime_error if it cannot listen.
    UnixServer(std::string path, std::size_t maxConnections, DataHandler onData,
               ClosedHandler onClosed);
    /// Stops and removes the socket file.
    ~UnixServer();

    UnixServer(const UnixServer&) = delete;
    UnixServer& operator=(const UnixServer&) = delete;

    void Start();
    /// Ends the thread; no handler runs afterwards. Can't be started again.
    void Stop();

    /// Any thread. False if the connection is closed or was dropped for a full buffer.
    bool Send(ConnectionId id, const std::vector<std::uint8_t>& data);
    /// Any thread. Returns the number of connections that accepted the bytes.
    std::size_t SendToAll(const std::vector<std::uint8_t>& data);
    /// Any thread. Closes all connections.
    void DropAll();

private:
    struct Connection {
        posix::UniqueFd fd;
        bool dropped = false;
    };

    void Run();
    void Accept();
    void Receive(ConnectionId id);
    void Remove(ConnectionId id);
    static void Drop(Connection& connection);
    static bool SendOn(Connection& connection, const std::vector<std::uint8_t>& data);

    std::string mPath;
    std::size_t mMaxConnections;
    DataHandler mOnData;
    ClosedHandler mOnClosed;
    posix::UniqueFd mListener;
    posix::UniqueFd mWakeUp;
    std::atomic<bool> mStopping{false};
    bool mAcceptFailed = false;
    ConnectionId mNextId = 1;
    /// Guards mConnections. Descriptors are closed only on the server's thread.
    std::mutex mMutex;
    std::map<ConnectionId, Connection> mConnections;
    std::thread mThread;
};

}  // namespace vonta_socket::host
