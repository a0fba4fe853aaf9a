#pragma once

#include <stdexcept>
#include <string>

namespace simulator::backend {

/// The error response to a request: HTTP status and reason.
class Refusal : public std::runtime_error {
public:
    Refusal(unsigned status, const std::string& reason)
        : std::runtime_error(reason), mStatus(status) {}

    unsigned Status() const { return mStatus; }

private:
    unsigned mStatus;
};

}  // namespace simulator::backend
