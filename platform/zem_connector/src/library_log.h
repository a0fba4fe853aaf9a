#pragma once

#include <string>

namespace zem_connector {

/// One line each, led by the library's name, in its own context of the process's log. Any thread.
void LogInfo(const std::string& text);
void LogWarning(const std::string& text);
void LogError(const std::string& text);

}  // namespace zem_connector
