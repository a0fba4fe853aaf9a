#include <systemd/sd-daemon.h>

#include <ara/exec/application_client.h>

namespace ara::exec {

bool ApplicationClient::ReportApplicationState(ApplicationState state) const {
    const char* message = state == ApplicationState::kRunning ? "READY=1" : "STOPPING=1";
    return sd_notify(0, message) < 0;
}

}  // namespace ara::exec
