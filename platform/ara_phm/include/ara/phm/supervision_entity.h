#pragma once

#include <string>

#include <ara/phm/phm_client.h>

namespace ara::phm {

/// Reports the checkpoints that the process passes.
///
/// On the host platform the service manager supervises the process, through the protocol of
/// sd_notify(3): a checkpoint is "WATCHDOG=1", followed by the fields X_PHM_INSTANCE,
/// X_PHM_SUPERVISION_ENTITY and X_PHM_CHECKPOINT, which the service manager ignores and which tell
/// other listeners what has been reached.
class SupervisionEntity {
public:
    /// The client need not outlive the entity. From here on the service manager's watchdog, where
    /// there is one ($WATCHDOG_USEC), waits for checkpoints, each of which says so once more.
    explicit SupervisionEntity(const Phm_client_interface& client);

    /// May be called from any thread. A process that nobody supervises ($NOTIFY_SOCKET is not set)
    /// has nobody to report to; a report that fails throws std::runtime_error.
    void CheckpointReached(unsigned short supervisionEntityId, unsigned short checkpointId) const;

private:
    std::string mInstanceId;
    /// What takes up the watchdog; empty without one.
    std::string mWatchdog;
};

}  // namespace ara::phm
