#include <stdexcept>
#include <system_error>

#include <systemd/sd-daemon.h>

#include <ara/phm/health_channel.h>

namespace ara::phm {

HealthChannel::HealthChannel(const Phm_client_interface& client)
    : mInstanceId(client.GetInstanceId()) {}

void HealthChannel::ReportHealthStatus(unsigned int healthStatusId) const {
    const std::string message =
        "STATUS=" + mInstanceId + ": health status " + std::to_string(healthStatusId);
    const int result = sd_notify(0, message.c_str());
    if (result < 0) {
        throw std::runtime_error("cannot report the health status: " +
                                 std::generic_category().message(-result));
    }
}

}  // namespace ara::phm
