#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <posix/unique_fd.h>

namespace testing_support {

/// A test's end of a stream connection. Its reads wait until the hang guard, which fails the test.
class Stream {
public:
    /// Takes the socket over; none if it is negative.
    explicit Stream(int socket = -1);
    /// Connects to a port of the loopback.
    static Stream ToPort(std::uint16_t port);
    /// Connects to a Unix socket.
    static Stream ToPath(const std::string& path);

    int Get() const { return mSocket.Get(); }
    bool IsOpen() const { return mSocket.IsValid(); }
    void Close() { mSocket = posix::UniqueFd(); }

    /// Sends all of it, as long as the peer takes something.
    const Stream& Send(std::string_view bytes) const;
    /// A peer that has gone altogether is no failure.
    const Stream& EndSending() const;

    /// So many bytes, or those up to the peer's end.
    std::string Read(std::size_t size) const;
    std::string ReadToEnd() const;
    /// The next line without its end; "<end>" behind what came last.
    std::string ReadLine() const;

private:
    posix::UniqueFd mSocket;
};

}  // namespace testing_support
