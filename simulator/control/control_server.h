#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <posix/line_splitter.h>

#include "vonta_socket_host/unix_server.h"

namespace simulator {

/// Bytes of the longest command, without its line end.
inline constexpr std::size_t kMaxCommandSize = 4096;

/// Takes commands on a Unix stream socket (mode 0600) from up to eight clients, line by line, and
/// answers each non-empty line with one line. A client whose line is too long is disconnected.
/// Serves on a thread of its own until it is destroyed.
class ControlServer {
public:
    /// Executes one command and returns its answer, empty for none. Called on the server's thread.
    using Execute = std::function<std::string(const std::string& line)>;

    /// Throws std::runtime_error if it cannot listen.
    ControlServer(const std::string& path, Execute execute);

private:
    using ConnectionId = vonta_socket::host::UnixServer::ConnectionId;

    bool Take(ConnectionId id, const std::vector<std::uint8_t>& data);

    Execute mExecute;
    std::map<ConnectionId, posix::LineSplitter> mClients;
    vonta_socket::host::UnixServer mServer;  ///< last, so that its thread ends before the rest
};

}  // namespace simulator
