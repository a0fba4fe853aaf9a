#pragma once

#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>

#include "testing/stream.h"

namespace zem_connector {

/// A listening socket on an ephemeral port of the loopback.
class TcpListener {
public:
    explicit TcpListener(int backlog = 8, int family = AF_INET)
        : mSocket(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          mEndpoint(family == AF_INET6 ? Tcp::v6() : Tcp::v4(), 0) {
        using boost::asio::ip::address_v4;
        using boost::asio::ip::address_v6;
        mEndpoint.address(family == AF_INET6 ? boost::asio::ip::address(address_v6::loopback())
                                             : boost::asio::ip::address(address_v4::loopback()));
        EXPECT_EQ(bind(mSocket.Get(), mEndpoint.data(), static_cast<socklen_t>(mEndpoint.size())),
                  0);
        EXPECT_EQ(listen(mSocket.Get(), backlog), 0);
        auto size = static_cast<socklen_t>(mEndpoint.capacity());
        EXPECT_EQ(getsockname(mSocket.Get(), mEndpoint.data(), &size), 0);
    }

    /// From here on the port refuses.
    void Close() { mSocket = posix::UniqueFd(); }

    /// Ends an `Accept` on another thread, too.
    void Shutdown() { shutdown(mSocket.Get(), SHUT_RDWR); }

    /// Fills the queue, so that the kernel drops what comes after: a peer that never answers.
    void StopAnswering() {
        for (int i = 0; i < 4; ++i) {
            mFillers.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            static_cast<void>(connect(mFillers.back().Get(), mEndpoint.data(),
                                      static_cast<socklen_t>(mEndpoint.size())));
        }
    }

    testing_support::Stream Accept() {
        return testing_support::Stream(accept4(mSocket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    unsigned short Port() const { return mEndpoint.port(); }
    const boost::asio::ip::tcp::endpoint& Endpoint() const { return mEndpoint; }

private:
    using Tcp = boost::asio::ip::tcp;

    posix::UniqueFd mSocket;
    Tcp::endpoint mEndpoint;
    std::vector<posix::UniqueFd> mFillers;
};

}  // namespace zem_connector
