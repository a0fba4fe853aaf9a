#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>

#include "tls_stream.h"

namespace zem_connector {

/// Relays bytes between a client, which holds the other end of a socket pair, and its peer behind a
/// TLS connection.
///
/// Each direction has one buffer and reads only when that is empty, which gives back pressure. The
/// directions and relays take turns of one buffer. An end of stream is passed on, and the opposite
/// direction continues (half-close). After the client has closed its socket, the bytes that it had
/// sent are still flushed, within a time limit.
/// Runs on the thread of the context; destroying the relay closes both ends.
class TlsRelay : public std::enable_shared_from_this<TlsRelay> {
public:
    using Client = boost::asio::local::stream_protocol::socket;

    /// `peer` is its name in the log, `linger` the time limit for flushing after the client's
    /// close. `ended` is called once, when both directions have ended.
    TlsRelay(boost::asio::io_context& context, std::string peer, std::unique_ptr<TlsStream> stream,
             Client client, std::chrono::milliseconds linger, std::function<void()> ended);

    void Start();

private:
    using Step = void (TlsRelay::*)();
    using Result = TlsStream::Result;

    /// The largest payload of one TLS record.
    static constexpr std::size_t kBufferSize = std::size_t{16} * 1024;

    /// The buffer of one direction.
    struct Direction {
        std::array<char, kBufferSize> bytes{};
        std::size_t begin{0};
        std::size_t end{0};
        bool ended{false};
    };

    void ReadClient();
    void WritePeer();
    void EndPeer();
    void PeerTakesNoMore();

    void ReadPeer();
    void WriteClient();

    void OnClientGone();
    void EndDirection(Direction& direction);
    void End();

    /// Each continues with the step, unless the relay has ended or was destroyed.
    void Later(Step step);
    void WaitForClient(Client::wait_type what, Step step);
    void WaitForPeer(Result want, Step step);
    /// The completion handler of a wait.
    auto Resume(Step step);

    boost::asio::io_context& mContext;
    std::string mPeer;
    std::unique_ptr<TlsStream> mStream;
    Client mClient;
    std::function<void()> mEnded;
    std::chrono::milliseconds mLinger;
    boost::asio::steady_timer mLingerTimer;
    Direction mUp;
    Direction mDown;
    bool mClientGone{false};
};

}  // namespace zem_connector
