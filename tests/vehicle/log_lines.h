#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testing/captured_log.h"

namespace vehicle_test {

/// The captured lines, each as its level, a blank and its text.
inline std::vector<std::string> Lines(const testing_support::CapturedLog& log) {
    static constexpr std::array<const char*, 7> kLevels{"none", "fatal", "error",  "warning",
                                                        "info", "debug", "verbose"};
    std::vector<std::string> lines;
    for (const auto& line : log.Lines()) {
        lines.push_back(kLevels.at(static_cast<std::size_t>(line.level)) + (" " + line.text));
    }
    return lines;
}

/// Waits for such a line.
inline void WaitForLine(const testing_support::CapturedLog& log, const std::string& line) {
    EXPECT_TRUE(log.WaitFor(line.substr(line.find(' ') + 1))) << line;
    const auto lines = Lines(log);
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), line)) << line;
}

}  // namespace vehicle_test
