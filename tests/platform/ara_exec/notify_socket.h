#pragma once

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "testing/waiting.h"

/// Takes the service manager's place: while it lives, $NOTIFY_SOCKET names its datagram socket,
/// whose name is an abstract one of the kernel's choice, so that no file is left behind.
class NotifySocket {
public:
    NotifySocket() : mFd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof(address);
        if (mFd < 0 || ::bind(mFd, generic, sizeof(sa_family_t)) != 0 ||
            ::getsockname(mFd, generic, &size) != 0) {
            throw std::runtime_error("no notification socket");
        }
        testing_support::GuardReads(mFd);
        const std::size_t nameLength = size - offsetof(sockaddr_un, sun_path) - 1;
        mName = "@" + std::string(&address.sun_path[1], nameLength);
        ::setenv("NOTIFY_SOCKET", mName.c_str(), 1);
    }

    ~NotifySocket() {
        ::unsetenv("NOTIFY_SOCKET");
        ::close(mFd);
    }

    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /// The next notification; waits for it.
    std::string Receive() const {
        std::array<char, 512> buffer{};
        const ssize_t size = ::recv(mFd, buffer.data(), buffer.size(), 0);
        return size < 0 ? "nothing received" : std::string(buffer.data(), std::size_t(size));
    }

    bool IsEmpty() const {
        char c = '\0';
        return ::recv(mFd, &c, 1, MSG_PEEK | MSG_DONTWAIT) < 0;
    }

private:
    int mFd;
    std::string mName;
};
