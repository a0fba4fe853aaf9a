#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/udp.hpp>

#include <someip/wire/endpoint.h>
#include <someip/wire/message.h>

namespace someip {

/// A UDP socket that receives from its construction until it is closed. All calls, and the
/// handlers, on the executor that it was made with.
class DatagramSocket : public std::enable_shared_from_this<DatagramSocket> {
public:
    using Receiver =
        std::function<void(const std::uint8_t* data, std::size_t size, const Endpoint& sender)>;
    /// Called at most once; the socket receives nothing afterwards.
    using FailureHandler = std::function<void(const std::string& problem)>;

    struct Settings {
        Endpoint local;
        /// If set, only datagrams from there are received.
        std::optional<Endpoint> peer;
        /// Interface for outgoing multicasts. The port is then shared with the sockets that have it
        /// for the multicast group.
        std::optional<int> multicastInterface;
        int multicastHops{1};
    };

    /// Throws std::system_error, which names the address, if it is unavailable.
    static std::shared_ptr<DatagramSocket> Open(const boost::asio::any_io_executor& executor,
                                                const Settings& settings, Receiver receiver,
                                                FailureHandler failed);

    /// Receives what arrives for `group` on the interface, and nothing else. The group may be
    /// shared with other sockets of this machine. Throws as Open does.
    static std::shared_ptr<DatagramSocket> JoinGroup(const boost::asio::any_io_executor& executor,
                                                     const Endpoint& group, int interfaceIndex,
                                                     Receiver receiver, FailureHandler failed);

    explicit DatagramSocket(const boost::asio::any_io_executor& executor) : mSocket(executor) {}

    Endpoint Local() const { return mLocal; }

    /// Returns the reason if the datagram could not be sent. Does not block.
    std::optional<std::string> SendTo(const Endpoint& peer, const Bytes& datagram);

    /// No handler is called afterwards.
    void Close();

private:
    static std::shared_ptr<DatagramSocket> Adopt(const boost::asio::any_io_executor& executor,
                                                 int descriptor, Receiver receiver,
                                                 FailureHandler failed);
    void Receive();
    void Received(const boost::system::error_code& error, std::size_t size);

    boost::asio::ip::udp::socket mSocket;
    Endpoint mLocal;
    boost::asio::ip::udp::endpoint mSender;
    Receiver mReceiver;
    FailureHandler mFailed;
    std::array<std::uint8_t, 65536> mBuffer{};
};

}  // namespace someip
