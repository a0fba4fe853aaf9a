#pragma once

#include <posix/unique_fd.h>
#include <vonta_socket/stream_communicator_if.h>

namespace vonta_socket {

/// A connected Unix stream socket. Close only shuts it down; the descriptor stays open as long as
/// the object, so that its number can't be reused while another thread reads or writes.
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
