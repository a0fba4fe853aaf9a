#pragma once

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vintrel {

/// Two connected stream sockets: one to give away, and the peer's, which stays here.
class SocketPair {
public:
    SocketPair() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mSockets.data()), 0);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    ~SocketPair() {
        Close(mSockets[0]);
        Close(mSockets[1]);
    }

    int Give() { return std::exchange(mSockets[0], -1); }

    /// All that has arrived at the peer.
    std::string Read() {
        std::string text;
        std::array<char, 4096> buffer{};
        ssize_t size = 0;
        while ((size = recv(mSockets[1], buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        mOtherEndClosed = size == 0 || errno == ECONNRESET;
        return text;
    }

    /// Writes as much as there is room for.
    std::size_t Write(const std::string& text) {
        const ssize_t size =
            send(mSockets[1], text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return size < 0 ? 0 : static_cast<std::size_t>(size);
    }

    /// Reads first: with bytes unread, the other end would see a reset.
    void ClosePeer() {
        Read();
        Close(mSockets[1]);
    }

    /// Whether the end that was given away is closed and nothing is left to read.
    bool OtherEndClosed() {
        Read();
        return mOtherEndClosed;
    }

private:
    static void Close(int& socket) {
        if (socket >= 0) {
            close(socket);
        }
        socket = -1;
    }

    std::array<int, 2> mSockets{-1, -1};
    bool mOtherEndClosed{false};
};

}  // namespace vintrel
