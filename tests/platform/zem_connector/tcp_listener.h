#pragma once

#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zem_connector {

/// A listening socket on an ephemeral port of the loopback.
class TcpListener {
public:
    explicit TcpListener(int backlog = 8)
        : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        mAddress.sin_family = AF_INET;
        mAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(mSocket, Address(), sizeof(mAddress)), 0);
        EXPECT_EQ(listen(mSocket, backlog), 0);
        socklen_t size = sizeof(mAddress);
        EXPECT_EQ(getsockname(mSocket, Address(), &size), 0);
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

    /// Fills the queue, so that the kernel drops what comes after: a peer that never answers.
    void StopAnswering() {
        for (int i = 0; i < 4; ++i) {
            mFillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            static_cast<void>(connect(mFillers.back(), Address(), sizeof(mAddress)));
        }
    }

    int Accept() { return accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC); }
    unsigned short Port() const { return ntohs(mAddress.sin_port); }
    const sockaddr_in& SocketAddress() const { return mAddress; }

private:
    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&mAddress); }

    int mSocket;
    sockaddr_in mAddress{};
    std::vector<int> mFillers;
};

}  // namespace zem_connector
