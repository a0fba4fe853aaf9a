#include "testing/stream.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "testing/waiting.h"

namespace testing_support {

namespace {

template <typename Address>
Stream Connect(const Address& address) {
    Stream stream(::socket(reinterpret_cast<const sockaddr&>(address).sa_family,
                           SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(stream.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    return stream;
}

}  // namespace

Stream::Stream(int socket) : mSocket(socket) {
    if (IsOpen()) {
        GuardReads(socket);
    }
}

Stream Stream::ToPort(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return Connect(address);
}

Stream Stream::ToPath(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return Connect(address);
}

const Stream& Stream::Send(std::string_view bytes) const {
    ssize_t count = 1;
    while (!bytes.empty() && count > 0) {
        count = ::send(Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return *this;
}

const Stream& Stream::EndSending() const {
    EXPECT_TRUE(::shutdown(Get(), SHUT_WR) == 0 || errno == ENOTCONN);
    return *this;
}

std::string Stream::Read(std::size_t size) const {
    std::string text;
    char chunk[65536];
    while (text.size() < size) {
        const ssize_t count = ::recv(Get(), chunk, std::min(sizeof(chunk), size - text.size()), 0);
        EXPECT_FALSE(count < 0 && errno == EAGAIN) << "nothing more came behind: " << text;
        if (count <= 0) {
            break;
        }
        text.append(chunk, static_cast<std::size_t>(count));
    }
    return text;
}

std::string Stream::ReadToEnd() const {
    return Read(std::numeric_limits<std::size_t>::max());
}

std::string Stream::ReadLine() const {
    std::string line;
    for (std::string c = Read(1); c != "\n"; c = Read(1)) {
        if (c.empty()) {
            return line + "<end>";
        }
        line += c;
    }
    return line;
}

}  // namespace testing_support
