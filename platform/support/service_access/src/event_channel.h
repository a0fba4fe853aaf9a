#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <service_access/backoff.h>
#include <service_access/client_config.h>

#include "unix_asio.h"

namespace service_access {

/// Receiver of what happens on an event channel.
class EventChannelListener {
public:
    virtual ~EventChannelListener() = default;

    virtual void ChannelOpened() = 0;
    virtual void MessageReceived(const std::string& text) = 0;
    /// The server has sent a malformed message, or one that is too long. ChannelLost follows.
    virtual void MessageUnreadable(const std::string& reason) = 0;
    /// Also called after a failed attempt to connect.
    virtual void ChannelLost() = 0;
    /// False while no further message is wanted.
    virtual bool MayRead() const = 0;
};

/// The event channel to a server: a WebSocket that connects by itself, and again when it is lost,
/// after waits that double up to a bound. It pings a silent server and closes the connection when
/// no answer comes.
///
/// All operations and the listener are called on the thread that runs `io`.
class EventChannel {
public:
    /// All three must outlive this object and what it has posted to `io`.
    EventChannel(boost::asio::io_context& io, const ClientConfig& config,
                 EventChannelListener& listener);

    EventChannel(const EventChannel&) = delete;
    EventChannel& operator=(const EventChannel&) = delete;

    /// Begins to connect.
    void Open();

    /// Discards the text without notice when the channel is not open or 256 messages wait.
    void Send(std::string text);

    /// Sends what waits, closes the WebSocket and calls `closed`, after 250 ms at the latest. The
    /// listener is not called any more.
    void Close(std::function<void()> closed);

private:
    struct Stream;
    using StreamPtr = std::shared_ptr<Stream>;

    void Handshake(const StreamPtr& stream);
    void Opened(const StreamPtr& stream);
    void WaitUntilSteady(const StreamPtr& stream);
    void Failed(const StreamPtr& stream, const ErrorCode& error);
    void Read(const StreamPtr& stream);
    void ReadWhenWanted(const StreamPtr& stream);
    void SendNext(const StreamPtr& stream);
    void SayGoodbye(const StreamPtr& stream);

    boost::asio::io_context& mIo;
    const ClientConfig& mConfig;
    EventChannelListener& mListener;
    boost::asio::steady_timer mReconnectTimer;
    boost::asio::steady_timer mCloseTimer;
    boost::asio::steady_timer mReadTimer;
    boost::asio::steady_timer mSteadyTimer;
    Backoff mBackoff;
    StreamPtr mStream;
    std::function<void()> mClosed;
    bool mClosing = false;
    bool mOutageLogged = false;
    /// The current stream, or the last one, has not yet been open for long enough to count as a
    /// success.
    bool mUnsteady = false;
};

}  // namespace service_access
