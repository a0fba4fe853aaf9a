#include <cerrno>
#include <system_error>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <netinet/in.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>
#include <someip/network/datagram_socket.h>

namespace someip {

namespace {

using boost::asio::ip::udp;

/// Owner of a non-blocking socket's descriptor until it is released.
class RawSocket {
public:
    RawSocket() : mDescriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        if (!mDescriptor.IsValid()) {
            Fail("UDP socket");
        }
    }

    template <typename Value>
    void Set(int level, int option, const Value& value, const char* what) {
        if (::setsockopt(mDescriptor.Get(), level, option, &value, sizeof(value)) != 0) {
            Fail(what);
        }
    }

    void Bind(const Endpoint& local) {
        const sockaddr_in address = Raw(local);
        if (::bind(mDescriptor.Get(), reinterpret_cast<const sockaddr*>(&address),
                   sizeof(address)) != 0) {
            Fail("UDP address " + ToText(local));
        }
    }

    void Connect(const Endpoint& peer) {
        const sockaddr_in address = Raw(peer);
        if (::connect(mDescriptor.Get(), reinterpret_cast<const sockaddr*>(&address),
                      sizeof(address)) != 0) {
            Fail("UDP peer " + ToText(peer));
        }
    }

    int Release() { return mDescriptor.Release(); }

private:
    [[noreturn]] static void Fail(const std::string& what) {
        throw std::system_error(errno, std::system_category(), what);
    }

    static sockaddr_in Raw(const Endpoint& endpoint) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(endpoint.address);
        address.sin_port = htons(endpoint.port);
        return address;
    }

    posix::UniqueFd mDescriptor;
};

/// Holds several of the largest datagrams; the system may grant less.
constexpr int kReceiveBuffer = 1024 * 1024;

ip_mreqn GroupRequest(std::uint32_t group, int interfaceIndex) {
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(group);
    request.imr_ifindex = interfaceIndex;
    return request;
}

udp::endpoint ToAsio(const Endpoint& endpoint) {
    return {boost::asio::ip::address_v4(endpoint.address), endpoint.port};
}

Endpoint FromAsio(const udp::endpoint& endpoint) {
    return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

}  // namespace

std::shared_ptr<DatagramSocket> DatagramSocket::Open(const boost::asio::any_io_executor& executor,
                                                     const Settings& settings, Receiver receiver,
                                                     FailureHandler failed) {
    RawSocket raw;
    if (settings.multicastInterface) {
        raw.Set(SOL_SOCKET, SO_REUSEADDR, 1, "shared port");
        raw.Set(IPPROTO_IP, IP_MULTICAST_IF, GroupRequest(0, *settings.multicastInterface),
                "multicast interface");
        raw.Set(IPPROTO_IP, IP_MULTICAST_TTL, settings.multicastHops, "multicast hops");
        // The other end may be on this machine, too.
        raw.Set(IPPROTO_IP, IP_MULTICAST_LOOP, 1, "multicast loop");
    }
    raw.Set(SOL_SOCKET, SO_RCVBUF, kReceiveBuffer, "receive buffer");
    raw.Bind(settings.local);
    if (settings.peer) {
        raw.Connect(*settings.peer);
    }
    return Adopt(executor, raw.Release(), std::move(receiver), std::move(failed));
}

std::shared_ptr<DatagramSocket> DatagramSocket::JoinGroup(
    const boost::asio::any_io_executor& executor, const Endpoint& group, int interfaceIndex,
    Receiver receiver, FailureHandler failed) {
    RawSocket raw;
    raw.Set(SOL_SOCKET, SO_REUSEADDR, 1, "multicast group");
    // Without this the socket also receives what other sockets joined on other interfaces.
    raw.Set(IPPROTO_IP, IP_MULTICAST_ALL, 0, "multicast group");
    raw.Bind(group);
    raw.Set(IPPROTO_IP, IP_ADD_MEMBERSHIP, GroupRequest(group.address, interfaceIndex),
            "multicast group");
    return Adopt(executor, raw.Release(), std::move(receiver), std::move(failed));
}

std::shared_ptr<DatagramSocket> DatagramSocket::Adopt(const boost::asio::any_io_executor& executor,
                                                      int descriptor, Receiver receiver,
                                                      FailureHandler failed) {
    auto socket = std::make_shared<DatagramSocket>(executor);
    socket->mSocket.assign(udp::v4(), descriptor);
    socket->mLocal = FromAsio(socket->mSocket.local_endpoint());
    socket->mReceiver = std::move(receiver);
    socket->mFailed = std::move(failed);
    socket->Receive();
    return socket;
}

std::optional<std::string> DatagramSocket::SendTo(const Endpoint& peer, const Bytes& datagram) {
    boost::system::error_code error;
    mSocket.send_to(boost::asio::buffer(datagram), ToAsio(peer), 0, error);
    if (error) {
        return error.message();
    }
    return std::nullopt;
}

void DatagramSocket::Close() {
    mReceiver = nullptr;
    mFailed = nullptr;
    boost::system::error_code ignored;
    mSocket.close(ignored);
}

void DatagramSocket::Receive() {
    mSocket.async_receive_from(boost::asio::buffer(mBuffer), mSender,
                               [self = shared_from_this()](const auto& error, std::size_t size) {
                                   self->Received(error, size);
                               });
}

void DatagramSocket::Received(const boost::system::error_code& error, std::size_t size) {
    if (!mReceiver) {
        return;
    }
    // An ICMP answer of the peer's host. The layer above detects by itself that the peer is gone.
    const bool refused = error == boost::asio::error::connection_refused;
    if (error && !refused) {
        const FailureHandler failed = std::exchange(mFailed, nullptr);
        Close();
        failed(error.message());
        return;
    }
    if (!refused) {
        // A copy: the receiver may close the socket, which destroys mReceiver.
        const Receiver receiver = mReceiver;
        receiver(mBuffer.data(), size, FromAsio(mSender));
    }
    if (mReceiver) {
        Receive();
    }
}

}  // namespace someip
