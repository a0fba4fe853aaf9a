#include <array>
#include <cerrno>
#include <utility>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <someip/network/network_watch.h>

namespace someip {

std::shared_ptr<NetworkWatch> NetworkWatch::Open(const boost::asio::any_io_executor& executor,
                                                 std::function<void()> changed) {
    const int descriptor =
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (descriptor < 0) {
        return nullptr;
    }
    auto watch = std::make_shared<NetworkWatch>(executor, descriptor, std::move(changed));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return nullptr;
    }
    watch->Wait();
    return watch;
}

NetworkWatch::NetworkWatch(const boost::asio::any_io_executor& executor, int descriptor,
                           std::function<void()> changed)
    : mSocket(executor, descriptor), mChanged(std::move(changed)) {}

void NetworkWatch::Close() {
    mChanged = nullptr;
    boost::system::error_code ignored;
    mSocket.close(ignored);
}

void NetworkWatch::Wait() {
    mSocket.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                       [self = shared_from_this()](const auto& error) {
                           if (error || !self->mChanged) {
                               return;
                           }
                           // The handler looks up the current state itself, so lost messages
                           // (ENOBUFS) count as a change, too.
                           std::array<char, 8192> ignored{};
                           const int socket = self->mSocket.native_handle();
                           while (::recv(socket, ignored.data(), ignored.size(), 0) >= 0 ||
                                  errno == ENOBUFS || errno == EINTR) {
                           }
                           const auto changed = self->mChanged;
                           self->Wait();
                           changed();
                       });
}

}  // namespace someip
