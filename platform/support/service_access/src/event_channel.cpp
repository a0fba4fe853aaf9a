#include "event_channel.h"

#include <deque>
#include <utility>

#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <service_access/log.h>

namespace service_access {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using std::chrono::milliseconds;

constexpr char kHost[] = "localhost";
constexpr char kTarget[] = "/events";
constexpr std::size_t kMaxMessagesToSend = 256;
constexpr milliseconds kReadRecheck{10};
constexpr milliseconds kCloseTimeLimit{250};

bool IsUnreadable(const ErrorCode& error) {
    return error == websocket::condition::protocol_violation ||
           error == websocket::error::message_too_big || error == websocket::error::buffer_overflow;
}

}  // namespace

/// One WebSocket, from connecting to its loss.
struct EventChannel::Stream {
    explicit Stream(net::io_context& io) : socket(io) {}

    websocket::stream<UnixProtocol::socket> socket;
    beast::flat_buffer buffer;
    std::deque<std::string> toSend;
    bool open = false;
    bool announced = false;
    bool sending = false;
};

EventChannel::EventChannel(net::io_context& io, const ClientConfig& config,
                           EventChannelListener& listener)
    : mIo(io),
      mConfig(config),
      mListener(listener),
      mReconnectTimer(io),
      mCloseTimer(io),
      mReadTimer(io),
      mSteadyTimer(io),
      mBackoff(config.reconnectInitial, config.reconnectMax) {}

void EventChannel::Open() {
    if (mClosing) {
        return;
    }
    const auto stream = std::make_shared<Stream>(mIo);
    mStream = stream;
    if (const auto error = OpenUnixSocket(stream->socket.next_layer())) {
        Failed(stream, error);
        return;
    }
    stream->socket.next_layer().async_connect(UnixProtocol::endpoint(mConfig.socketPath),
                                              [this, stream](const ErrorCode& error) {
                                                  error ? Failed(stream, error) : Handshake(stream);
                                              });
}

void EventChannel::Handshake(const StreamPtr& stream) {
    websocket::stream_base::timeout limits{};
    limits.handshake_timeout = mConfig.connectTimeLimit;
    limits.idle_timeout = 2 * mConfig.pingInterval;
    limits.keep_alive_pings = true;
    stream->socket.set_option(limits);
    stream->socket.read_message_max(mConfig.maxMessageBytes);
    stream->socket.async_handshake(kHost, kTarget, [this, stream](const ErrorCode& error) {
        error ? Failed(stream, error) : Opened(stream);
    });
}

void EventChannel::Opened(const StreamPtr& stream) {
    if (mClosing) {
        return;
    }
    stream->announced = !mUnsteady;
    if (stream->announced) {
        Log().Info("connected to " + mConfig.socketPath);
    }
    stream->open = true;
    mListener.ChannelOpened();
    WaitUntilSteady(stream);
    Read(stream);
}

/// Only a stream that has lasted counts as a success. Otherwise a server that accepts and closes at
/// once would be tried at the shortest interval, with a line in the log for each attempt.
void EventChannel::WaitUntilSteady(const StreamPtr& stream) {
    mUnsteady = true;
    mSteadyTimer.expires_after(mBackoff.Upcoming());
    mSteadyTimer.async_wait([this, stream](const ErrorCode& cancelled) {
        if (cancelled || stream != mStream || mClosing) {
            return;
        }
        if (!stream->announced) {
            Log().Info("connected to " + mConfig.socketPath);
        }
        mUnsteady = false;
        mOutageLogged = false;
        mBackoff.Reset();
    });
}

void EventChannel::Failed(const StreamPtr& stream, const ErrorCode& error) {
    if (stream != mStream) {
        return;
    }
    mStream.reset();
    mSteadyTimer.cancel();
    ErrorCode ignored;
    stream->socket.next_layer().close(ignored);
    if (mClosing) {
        return;
    }
    if (!mOutageLogged) {
        Log().Warn("no connection to " + mConfig.socketPath + ": " + error.message());
        mOutageLogged = true;
    }
    if (IsUnreadable(error)) {
        mListener.MessageUnreadable(error.message());
    }
    mListener.ChannelLost();
    mReconnectTimer.expires_after(mBackoff.Next());
    mReconnectTimer.async_wait([this](const ErrorCode& cancelled) {
        if (!cancelled) {
            Open();
        }
    });
}

void EventChannel::Read(const StreamPtr& stream) {
    stream->socket.async_read(stream->buffer, [this, stream](const ErrorCode& error, std::size_t) {
        if (error) {
            Failed(stream, error);
            return;
        }
        const auto text = beast::buffers_to_string(stream->buffer.data());
        stream->buffer.consume(stream->buffer.size());
        if (!mClosing) {
            mListener.MessageReceived(text);
        }
        ReadWhenWanted(stream);
    });
}

void EventChannel::ReadWhenWanted(const StreamPtr& stream) {
    if (mClosing || mListener.MayRead()) {
        Read(stream);
        return;
    }
    mReadTimer.expires_after(kReadRecheck);
    mReadTimer.async_wait([this, stream](const ErrorCode& cancelled) {
        if (!cancelled && stream == mStream) {
            ReadWhenWanted(stream);
        }
    });
}

void EventChannel::Send(std::string text) {
    if (!mStream || !mStream->open || mClosing || mStream->toSend.size() >= kMaxMessagesToSend) {
        return;
    }
    mStream->toSend.push_back(std::move(text));
    if (!mStream->sending) {
        SendNext(mStream);
    }
}

void EventChannel::SendNext(const StreamPtr& stream) {
    if (stream->toSend.empty()) {
        stream->sending = false;
        if (mClosing) {
            SayGoodbye(stream);
        }
        return;
    }
    stream->sending = true;
    stream->socket.async_write(net::buffer(stream->toSend.front()),
                               [this, stream](const ErrorCode& error, std::size_t) {
                                   if (!error) {
                                       stream->toSend.pop_front();
                                       SendNext(stream);
                                   }
                               });
}

void EventChannel::Close(std::function<void()> closed) {
    mClosing = true;
    mClosed = std::move(closed);
    mReconnectTimer.cancel();
    mReadTimer.cancel();
    mSteadyTimer.cancel();
    if (!mStream || !mStream->open) {
        mClosed();
        return;
    }
    mCloseTimer.expires_after(kCloseTimeLimit);
    mCloseTimer.async_wait([this](const ErrorCode& cancelled) {
        if (!cancelled) {
            mClosed();
        }
    });
    if (!mStream->sending) {
        SayGoodbye(mStream);
    }
}

void EventChannel::SayGoodbye(const StreamPtr& stream) {
    stream->socket.async_close(websocket::close_code::normal, [this](const ErrorCode&) {
        if (mCloseTimer.cancel() != 0) {
            mClosed();
        }
    });
}

}  // namespace service_access
