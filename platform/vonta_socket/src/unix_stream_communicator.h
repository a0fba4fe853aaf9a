#pragma once

#include <posix/unique_fd.h>
#include <vonta_socket/stream_communicator_if.h>

namespace vonta_socket {

/// A connected Unix stream socket. The descriptor lives as long as the object, so that a Close on
/// one thread can never hit a descriptor that another thread has got meanwhile.
class UnixStreamCommunicator : public StreamCommunicatorIf {
public:
    explicit UnixStreamCommunicator(posix::UniqueFd fd);

    void Close() override;
    std::size_t Write(const std::vector<std::uint8_t>& data) override;
    bool Read(std::vector<std::uint8_t>& data) override;

private:
    posix::UniqueFd mFd;
};

}  // namespace vonta_socket
