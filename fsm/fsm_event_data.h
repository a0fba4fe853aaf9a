#pragma once

namespace fsm {

/// Base of all event payloads. A payload is always owned by a `std::unique_ptr`; ownership goes
/// from the raiser through the queue and the dispatcher to the state method that takes it.
///
/// A payload that nobody takes, that is refused or cleared is destroyed with no lock held, so its
/// destructor may call machines. It may run on any thread that raises or clears.
class FsmEventData {
public:
    FsmEventData() = default;
    FsmEventData(const FsmEventData&) = delete;
    FsmEventData& operator=(const FsmEventData&) = delete;
    virtual ~FsmEventData() = default;
};

}  // namespace fsm
