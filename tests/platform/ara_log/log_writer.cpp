// An application with one logger, for tests that look at the outputs from outside: it obeys the
// lines of its standard input and answers each with one line.

#include <iostream>
#include <string>

#include <ara/log/logging.h>

/// Commands: `LEVEL COUNT TEXT`, the level as its number, writes lines, and 0 of them is only the
/// question whether the level is enabled, which every answer says.
int main() {
    ara::log::InitLogging("VT", "Client certificate service", ara::log::LogLevel::kDebug);
    const auto& logger = ara::log::CreateLogger("MAIN", "Main context");
    int number = 0;
    int count = 0;
    while (std::cin >> number >> count) {
        const auto level = static_cast<ara::log::LogLevel>(number);
        std::string text;
        std::getline(std::cin >> std::ws, text);
        for (int i = 0; i < count; ++i) {
            logger.WithLevel(level) << text;
        }
        std::cout << (logger.IsLogEnabled(level) ? "enabled" : "disabled") << std::endl;
    }
}
