#pragma once

#include <cstdint>

namespace ara::exec {

/// States that an application reports of itself.
enum class ApplicationState : std::uint8_t {
    kRunning = 0,
    kTerminating = 1,
};

/// The application's side of execution management.
///
/// On the host platform the service manager takes that place: a state goes to it through the
/// protocol of sd_notify(3), kRunning as "READY=1" and kTerminating as "STOPPING=1". A watchdog
/// ($WATCHDOG_USEC) is put off with kRunning ("WATCHDOG_USEC=0"): a process that is not configured
/// for supervision runs without; ara::phm::SupervisionEntity takes it up.
class ApplicationClient {
public:
    /// Returns true on failure. A process that nobody supervises ($NOTIFY_SOCKET is not set) has
    /// nobody to report to, which is no failure. May be called from any thread.
    bool ReportApplicationState(ApplicationState state) const;
};

}  // namespace ara::exec
