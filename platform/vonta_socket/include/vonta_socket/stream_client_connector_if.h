#pragma once

#include <memory>

#include <vonta_socket/stream_communicator_if.h>

namespace vonta_socket {

/// Makes connections to one server.
class StreamClientConnectorIf {
public:
    virtual ~StreamClientConnectorIf() = default;

    /// Returns null when no connection could be made. Called from one thread at a time.
    virtual std::shared_ptr<StreamCommunicatorIf> Connect() = 0;
};

}  // namespace vonta_socket
