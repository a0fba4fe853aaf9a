#pragma once

#include <string_view>

namespace timeline {

// The files of report/, compiled in. Constant-initialised.
extern const std::string_view kReportTemplate;
extern const std::string_view kLanesStyle;
extern const std::string_view kLanesScript;

}  // namespace timeline
