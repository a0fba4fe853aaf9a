#pragma once

#include <memory>

#include <vonta_socket/stream_communicator_if.h>

namespace vonta_socket {

/// Connects to one server.
class StreamClientConnectorIf {
public:
    virtual ~StreamClientConnectorIf() = default;

    /// Null on failure. One thread at a time.
    virtual std::shared_ptr<StreamCommunicatorIf> Connect() = 0;
};

}  // namespace vonta_socket
