#include "ara_log_host/log_config.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace ara_log_host {

namespace {

using ara::log::LogLevel;
using nlohmann::json;

constexpr const char* kDefaultPath = "/var/run/qel/config/ara-log/Logging.json";
constexpr std::size_t kMaxFileSize = 65536;
constexpr std::size_t kMaxIdSize = 4;
constexpr std::size_t kMaxDescriptionSize = 255;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what);
}

LogLevel LevelByName(const std::string& name) {
    static constexpr std::array<std::string_view, 7> kNames{"off",  "fatal", "error",  "warn",
                                                            "info", "debug", "verbose"};
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    if (found == kNames.end()) {
        Fail("unknown level '" + name + "'");
    }
    return static_cast<LogLevel>(found - kNames.begin());
}

void ChooseOutputs(LogConfig& config, const std::vector<std::string>& names) {
    bool console = false;
    bool dlt = false;
    for (const std::string& name : names) {
        if (name != "console" && name != "dlt") {
            Fail("unknown output '" + name + "'");
        }
        (name == "dlt" ? dlt : console) = true;
    }
    if (names.empty()) {
        Fail("no output is named");
    }
    config.console = console;
    config.dlt = dlt;
}

std::string TextOf(const std::string& key, const json& value, std::size_t maxSize) {
    const auto isPrintable = [](char byte) { return byte >= ' ' && byte != '\x7f'; };
    auto text = value.get<std::string>();
    if (text.empty() || text.size() > maxSize ||
        !std::all_of(text.begin(), text.end(), isPrintable)) {
        Fail("'" + key + "' is not 1 to " + std::to_string(maxSize) + " printable characters");
    }
    return text;
}

void SetKey(LogConfig& config, const std::string& key, const json& value) {
    if (key == "outputs") {
        ChooseOutputs(config, value.get<std::vector<std::string>>());
    } else if (key == "level") {
        config.level = LevelByName(value.get<std::string>());
    } else if (key == "applicationId") {
        config.applicationId = TextOf(key, value, kMaxIdSize);
    } else if (key == "applicationDescription") {
        config.applicationDescription = TextOf(key, value, kMaxDescriptionSize);
    } else {
        Fail("unknown key '" + key + "'");
    }
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t comma = 0; comma != std::string::npos; start = comma + 1) {
        comma = text.find(',', start);
        parts.push_back(text.substr(start, comma == std::string::npos ? comma : comma - start));
    }
    return parts;
}

/// Empty if the variable isn't set.
std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        Fail("can't be opened");
    }
    std::string text(kMaxFileSize + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad()) {
        Fail("can't be read");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > kMaxFileSize) {
        Fail("is too long");
    }
    return text;
}

/// A missing file is an error only if the environment names it.
LogConfig ReadConfigFile() {
    const std::string named = Environment("ARA_LOG_CONFIG");
    const std::string path = named.empty() ? kDefaultPath : named;
    if (named.empty() && !std::ifstream(path)) {
        return {};
    }
    try {
        return ParseLogConfig(ReadFile(path));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

template <typename Step>
void Attempt(std::vector<std::string>& complaints, const std::string& where, const Step& step) {
    try {
        step();
    } catch (const std::runtime_error& error) {
        complaints.push_back("Log configuration, " + where + error.what());
    }
}

}  // namespace

LogConfig ParseLogConfig(const std::string& text) {
    const json document = json::parse(text, nullptr, false);
    if (!document.is_object()) {
        Fail("no JSON object");
    }
    LogConfig config;
    for (const auto& [key, value] : document.items()) {
        try {
            SetKey(config, key, value);
        } catch (const json::type_error&) {
            Fail("'" + key + "' is of the wrong type");
        }
    }
    return config;
}

LogConfig ReadLogConfig(std::vector<std::string>& complaints) {
    LogConfig config;
    Attempt(complaints, "", [&] { config = ReadConfigFile(); });
    const std::string outputs = Environment("ARA_LOG_OUTPUT");
    const std::string level = Environment("ARA_LOG_LEVEL");
    if (!outputs.empty()) {
        Attempt(complaints,
                "ARA_LOG_OUTPUT: ", [&] { ChooseOutputs(config, SplitAtCommas(outputs)); });
    }
    if (!level.empty()) {
        Attempt(complaints, "ARA_LOG_LEVEL: ", [&] { config.level = LevelByName(level); });
    }
    return config;
}

}  // namespace ara_log_host
