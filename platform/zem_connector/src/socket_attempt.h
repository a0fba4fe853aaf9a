#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <zem_connector_host/socket_status.h>

#include <zem_connector/zem_socket_callback_if.h>

#include "name_lookup.h"

namespace zem_connector {

/// Connects one TCP socket within a time limit, trying a host's addresses in turn.
///
/// An address gets an equal share of the time that is left, so that one that swallows packets does
/// not keep the others from their turn. All happens on the thread that runs the context; a socket
/// that nobody took over is closed.
class SocketAttempt : public std::enable_shared_from_this<SocketAttempt> {
public:
    /// Called once, with the result and, on failure, its cause for the log. The socket is
    /// connected, blocking, close-on-exec and has TCP_NODELAY set; it belongs to the callee.
    using Done = std::function<void(SocketResult, const std::string& detail)>;

    SocketAttempt(boost::asio::io_context& context, Done done);

    /// The limit runs from here on; the look-up counts.
    void Start(std::chrono::milliseconds limit);

    /// The look-up has ended. Does nothing if the limit has.
    void UseAddresses(const NameLookupResult& lookup);

private:
    using Clock = std::chrono::steady_clock;

    void TryNextAddress();
    void AwaitConnected(int descriptor);
    void OnWritable();
    void OnFailed(int error);
    void OnTimeout();
    void StartTimer(Clock::time_point end);
    void Succeed(int descriptor);
    void Finish(host::SocketStatus status, int descriptor);

    Done mDone;
    boost::asio::posix::stream_descriptor mSocket;
    boost::asio::steady_timer mTimer;
    Clock::time_point mDeadline;
    std::vector<SocketAddress> mAddresses;
    std::size_t mNextAddress{0};
    /// Tells the wait under way from those that were given up but are queued already.
    unsigned int mWaitId{0};
    host::SocketStatus mLastStatus{host::kSocketTimeout};
    std::string mLastDetail{"name look-up not ended in time"};
};

}  // namespace zem_connector
