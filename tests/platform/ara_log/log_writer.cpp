// An application with one logger, for tests that look at the outputs from outside: it obeys the
// lines of its standard input and answers each with one line.

#include <array>
#include <iostream>
#include <string>

#include <ara/log/logging.h>

namespace {

constexpr std::array<const char*, 7> kLevels{"off",  "fatal", "error",  "warn",
                                             "info", "debug", "verbose"};

ara::log::LogLevel LevelOf(const std::string& name) {
    std::size_t index = 0;
    while (kLevels.at(index) != name) {
        ++index;
    }
    return static_cast<ara::log::LogLevel>(index);
}

}  // namespace

/// Commands: `LEVEL COUNT TEXT` writes lines, and 0 of them is only the question whether the level
/// is enabled, which every answer says.
int main() {
    ara::log::InitLogging("VT", "Client certificate service", ara::log::LogLevel::kDebug);
    const auto& logger = ara::log::CreateLogger("MAIN", "Main context");
    std::string level;
    int count = 0;
    while (std::cin >> level >> count) {
        std::string text;
        std::getline(std::cin >> std::ws, text);
        for (int i = 0; i < count; ++i) {
            logger.WithLevel(LevelOf(level)) << text;
        }
        std::cout << (logger.IsLogEnabled(LevelOf(level)) ? "enabled" : "disabled") << std::endl;
    }
}
