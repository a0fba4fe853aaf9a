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

/// Carries bytes between a client, which holds the other end of a socket pair, and its peer behind
/// a protected connection.
///
/// Each direction has one buffer and reads on only when that is empty: whoever is slow slows the
/// other side down. Whoever sends much gets one buffer's turn at a time. A direction that ends is
/// ended on the other side, too, and the opposite one goes on. Once the client has closed its
/// socket, what it had sent still goes out, within a limit.
/// All happens on the thread that runs the context; destroying the relay closes both ends.
class TlsRelay : public std::enable_shared_from_this<TlsRelay> {
public:
    using Client = boost::asio::local::stream_protocol::socket;

    /// `peer` is its name in the log, `linger` the limit for what was sent before the close.
    /// `ended` is called once, when there is nothing more to do.
    TlsRelay(boost::asio::io_context& context, std::string peer, std::unique_ptr<TlsStream> stream,
             Client client, std::chrono::milliseconds linger, std::function<void()> ended);

    void Start();

private:
    using Step = void (TlsRelay::*)();
    using Result = TlsStream::Result;

    /// What one record can hold.
    static constexpr std::size_t kBufferSize = std::size_t{16} * 1024;

    /// One direction's bytes on their way.
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

    /// Each of them goes on with the step, unless the relay has ended or is no more.
    void Later(Step step);
    void WaitForClient(Client::wait_type what, Step step);
    void WaitForPeer(Result want, Step step);
    /// What a wait calls back.
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
