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
/// A connection that does not take what is sent to it is dropped rather than waited for.
class UnixServer {
public:
    using ConnectionId = std::uint64_t;
    /// Called on the server's thread with what has arrived, in pieces as they come; false drops
    /// the connection. May call every operation but Start, Stop and the destructor.
    using DataHandler = std::function<bool(ConnectionId, const std::vector<std::uint8_t>&)>;
    /// Called on the server's thread once a connection is gone.
    using ClosedHandler = std::function<void(ConnectionId)>;

    /// Listens from here on, but serves nobody before Start. Connections above `maxConnections`
    /// are turned away. Throws std::runtime_error if it cannot listen.
    UnixServer(std::string path, std::size_t maxConnections, DataHandler onData,
               ClosedHandler onClosed);
    /// Stops and removes the socket.
    ~UnixServer();

    UnixServer(const UnixServer&) = delete;
    UnixServer& operator=(const UnixServer&) = delete;

    void Start();
    /// Waits until no handler runs any more. There is no new start after it.
    void Stop();

    /// Any thread. False if the connection is gone or did not take the bytes.
    bool Send(ConnectionId id, const std::vector<std::uint8_t>& data);
    /// Any thread. Returns how many connections took the bytes.
    std::size_t SendToAll(const std::vector<std::uint8_t>& data);
    /// Any thread. Ends all connections.
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
    /// Guards mConnections. Descriptors are closed on the server's thread only.
    std::mutex mMutex;
    std::map<ConnectionId, Connection> mConnections;
    std::thread mThread;
};

}  // namespace vonta_socket::host
