#pragma once

#include <string>
#include <vector>

#include "testing/captured_log.h"

namespace testing_support {

/// The captured lines, each behind the first letter of its level: "E makeKeyId failed: 4".
inline std::vector<std::string> LogText(const CapturedLog& log) {
    std::vector<std::string> text;
    for (const auto& [level, line] : log.Lines()) {
        text.push_back(std::string(1, "?FEWIDV"[static_cast<int>(level)]) + " " + line);
    }
    return text;
}

}  // namespace testing_support
