#pragma once

#include <string>

#include <ara_log_host/library_log.h>

namespace someip {

/// The middleware's own lines.
inline const ara_log_host::LibraryLog& Log() {
    static const ara_log_host::LibraryLog log("COM", "Communication middleware");
    return log;
}

/// An incident, as one line of JSON text at error level: its type, the service and the event that
/// it concerns, and what happened.
void LogIncident(const std::string& type, const std::string& service, const std::string& event,
                 const std::string& text);

}  // namespace someip
