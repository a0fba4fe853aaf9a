#pragma once

#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

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
        EXPECT_EQ(bind(mSocket, mEndpoint.data(), static_cast<socklen_t>(mEndpoint.size())), 0);
        EXPECT_EQ(listen(mSocket, backlog), 0);
        auto size = static_cast<socklen_t>(mEndpoint.capacity());
        EXPECT_EQ(getsockname(mSocket, mEndpoint.data(), &size), 0);
    }
    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;
    ~TcpListener() {
        Close();
        for (const int filler : mFillers) {
            close(filler);
        }
    }

    /// From here on the port refuses.
    void Close() {
        if (mSocket >= 0) {
            close(mSocket);
        }
        mSocket = -1;
    }

    /// Ends an `Accept` on another thread, too.
    void Shutdown() { shutdown(mSocket, SHUT_RDWR); }

    /// Fills the queue, so that the kernel drops what comes after: a peer that never answers.
    void StopAnswering() {
        for (int i = 0; i < 4; ++i) {
            mFillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            static_cast<void>(connect(mFillers.back(), mEndpoint.data(),
                                      static_cast<socklen_t>(mEndpoint.size())));
        }
    }

    int Accept() { return accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC); }
    unsigned short Port() const { return mEndpoint.port(); }
    const boost::asio::ip::tcp::endpoint& Endpoint() const { return mEndpoint; }

private:
    using Tcp = boost::asio::ip::tcp;

    int mSocket;
    Tcp::endpoint mEndpoint;
    std::vector<int> mFillers;
};

}  // namespace zem_connector
