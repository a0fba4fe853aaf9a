#pragma once

#include <string>

namespace simulation {

/// One connection between the exchange and the backend, as both ends must see it.
struct Wire {
    std::string toBackend;  ///< what the exchange has to have written
    bool cut{false};        ///< the last of it did not fit into the socket's buffer
    std::string toMachine;  ///< what the backend has written and the exchange has not yet read
    bool backendGone{false};
    bool backendHalfClosed{false};
    bool reset{false};  ///< the backend went with bytes unread; the exchange is yet to see it
};

}  // namespace simulation
