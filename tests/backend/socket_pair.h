#pragma once

#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>

namespace vintrel {

/// Two connected stream sockets: one to give away, and the peer's, which stays here.
class SocketPair {
public:
    SocketPair() {
        std::array<int, 2> sockets{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
        mOwn = posix::UniqueFd(sockets[0]);
        mPeer = posix::UniqueFd(sockets[1]);
    }

    int Give() { return mOwn.Release(); }

    /// All that has arrived at the peer.
    std::string Read() {
        std::string text;
        std::array<char, 4096> buffer{};
        ssize_t size = 0;
        while ((size = recv(mPeer.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        mOtherEndClosed = size == 0 || errno == ECONNRESET;
        return text;
    }

    /// Writes as much as there is room for.
    std::size_t Write(const std::string& text) {
        const ssize_t size =
            send(mPeer.Get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return size < 0 ? 0 : static_cast<std::size_t>(size);
    }

    /// Reads first: with bytes unread, the other end would see a reset.
    void ClosePeer() {
        Read();
        mPeer = posix::UniqueFd();
    }

    /// Whether the end that was given away is closed and nothing is left to read.
    bool OtherEndClosed() {
        Read();
        return mOtherEndClosed;
    }

private:
    posix::UniqueFd mOwn;
    posix::UniqueFd mPeer;
    bool mOtherEndClosed{false};
};

}  // namespace vintrel
