#pragma once

#include <vector>

#include "fsm/fsm_event_data.h"

namespace fsm {

/// What a stream communicator has received, or the `errno` value of what failed (0 for none).
class FsmEventDataStreamCommunicator : public FsmEventData {
public:
    std::vector<unsigned char> data;
    int error{0};
};

}  // namespace fsm
