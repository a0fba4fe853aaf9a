#pragma once

#include <cstdint>
#include <string>

#include "fsm/fsm_event_data.h"

namespace vintrel {

/// How one exchange with the backend ended. The values 3, 4 and 5 are not in use.
enum class ReturnCode : std::uint8_t {
    /// A certificate response was received; the response holds its body.
    kSuccess = 0,
    /// An unknown event, or the communicator did not start.
    kInternalError = 1,
    /// The time limit of the exchange ran out.
    kTimeout = 2,
    /// The connector refused to connect.
    kConnectRefused = 6,
    /// The connector reported a failed socket.
    kConnectionFailed = 7,
    /// A write or a read failed.
    kTransferError = 8,
    /// Any other HTTP status than the expected one; the response holds the error body, if any.
    kHttpError = 9,
    /// Status 200 without a body.
    kEmptyResponse = 10,
    /// Status 200 with a body of another media type.
    kUnknownPayload = 11,
};

/// The one report that a backend exchange makes to its target.
class BackendResponseEventData : public fsm::FsmEventData {
public:
    std::string response;
    ReturnCode returnCode{ReturnCode::kInternalError};
};

}  // namespace vintrel
