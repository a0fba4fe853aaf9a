#pragma once

#include <string>

namespace someip {

/// Lines of the middleware's own log (context id "COM"). Any thread.
void LogError(const std::string& text);
void LogWarn(const std::string& text);

/// An incident, as one line of JSON text at error level: its type, the service and the event that
/// it concerns, and what happened.
void LogIncident(const std::string& type, const std::string& service, const std::string& event,
                 const std::string& text);

}  // namespace someip
