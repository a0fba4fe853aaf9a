#include <cstdint>
#include <stdexcept>
#include <system_error>

#include <systemd/sd-daemon.h>

#include <ara/phm/supervision_entity.h>

namespace ara::phm {

SupervisionEntity::SupervisionEntity(const Phm_client_interface& client)
    : mInstanceId(client.GetInstanceId()) {
    std::uint64_t timeout = 0;
    if (sd_watchdog_enabled(0, &timeout) > 0) {
        mWatchdog = "WATCHDOG_USEC=" + std::to_string(timeout);
        sd_notify(0, mWatchdog.c_str());
    }
}

void SupervisionEntity::CheckpointReached(unsigned short supervisionEntityId,
                                          unsigned short checkpointId) const {
    const std::string message =
        (mWatchdog.empty() ? "" : mWatchdog + "\n") + "WATCHDOG=1\nX_PHM_INSTANCE=" + mInstanceId +
        "\nX_PHM_SUPERVISION_ENTITY=" + std::to_string(supervisionEntityId) +
        "\nX_PHM_CHECKPOINT=" + std::to_string(checkpointId);
    const int result = sd_notify(0, message.c_str());
    if (result < 0) {
        throw std::runtime_error("cannot report the checkpoint: " +
                                 std::generic_category().message(-result));
    }
}

}  // namespace ara::phm
