#pragma once

#include <string>

#include <ara/phm/phm_client.h>

namespace ara::phm {

/// Reports health states of the process that are no checkpoints.
class HealthChannel {
public:
    /// The client need not outlive the channel.
    explicit HealthChannel(const Phm_client_interface& client);

    /// On the host platform the state becomes the status text of the service. May be called from
    /// any thread; throws std::runtime_error as SupervisionEntity::CheckpointReached does.
    void ReportHealthStatus(unsigned int healthStatusId) const;

private:
    std::string mInstanceId;
};

}  // namespace ara::phm
