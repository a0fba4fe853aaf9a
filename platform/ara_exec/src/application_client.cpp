#include <systemd/sd-daemon.h>

#include <ara/exec/application_client.h>

namespace ara::exec {

bool ApplicationClient::ReportApplicationState(ApplicationState state) const {
    if (state != ApplicationState::kRunning) {
        return sd_notify(0, "STOPPING=1") < 0;
    }
    const bool hasWatchdog = sd_watchdog_enabled(0, nullptr) > 0;
    return sd_notify(0, hasWatchdog ? "READY=1\nWATCHDOG_USEC=0" : "READY=1") < 0;
}

}  // namespace ara::exec
