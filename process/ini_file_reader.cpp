#include "process/ini_file_reader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

#include "logging/qel_logging.h"

namespace ini_file_reader {

using qel_logging::QELLogging;

namespace {

constexpr const char* kLogName = "IniFileReader: ";
constexpr std::size_t kMaxLineLength = 2000;
constexpr int kFailed = -1;

/// Reads up to the next line feed, which is dropped, or to the end of the file. A line that is too
/// long is given up one character past the limit, however much of it there is. Returns false if
/// there was no further line.
bool ReadLine(std::FILE* file, std::string& line) {
    line.clear();
    while (line.size() <= kMaxLineLength) {
        const int c = std::getc(file);
        if (c == '\n') {
            return true;
        }
        if (c == EOF) {
            break;
        }
        line.push_back(static_cast<char>(c));
    }
    return !line.empty();
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

bool IsAscii(const std::string& line) {
    return std::all_of(line.begin(), line.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void RemoveWhitespace(std::string& line) {
    line.erase(
        std::remove_if(line.begin(), line.end(),
                       [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }),
        line.end());
}

}  // namespace

int IniFileReader::ReadIniFile(
    std::string path, std::shared_ptr<std::unordered_map<std::string, std::string>> settings) {
    return ReadIniFile(std::move(path), std::move(settings), true);
}

int IniFileReader::ReadIniFile(
    std::string path, std::shared_ptr<std::unordered_map<std::string, std::string>> settings,
    bool removeWhitespace) {
    return settings ? ParseIniFile(path, *settings, removeWhitespace) : kFailed;
}

int IniFileReader::ParseIniFile(const std::string& path, Settings& settings,
                                bool removeWhitespace) {
    // "e" is close-on-exec, which a std::ifstream cannot be asked for.
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "re"));
    if (!file) {
        const std::string reason = std::generic_category().message(errno);
        QELLogging::LogError(kLogName, "Reading file ", path, " failed: ", reason);
        return kFailed;
    }
    const bool isFilter = !settings.empty();
    Settings wanted;
    const int lineCount = ParseLines(file.get(), isFilter ? wanted : settings, removeWhitespace);
    if (lineCount == kFailed) {
        QELLogging::LogError(kLogName, "Error reading file ", path);
        return kFailed;
    }
    QELLogging::LogDebug(kLogName, "Settings read from file ", path);
    if (isFilter) {
        for (auto& [key, value] : settings) {
            const auto found = wanted.find(key);
            if (found != wanted.end()) {
                value = found->second;
            }
        }
    }
    return lineCount;
}

int IniFileReader::ParseLines(std::FILE* file, Settings& pairs, bool removeWhitespace) {
    int lineCount = 0;
    std::string line;
    while (ReadLine(file, line)) {
        ++lineCount;
        if (line.size() > kMaxLineLength) {
            QELLogging::LogError(kLogName, "Incorrect format. Line too long.");
            return kFailed;
        }
        if (!IsAscii(line)) {
            QELLogging::LogError(kLogName, "Incorrect format. Non-ASCII character in file.");
            return kFailed;
        }
        if (removeWhitespace) {
            RemoveWhitespace(line);
        }
        if (line.empty() || line.front() == '#' || line.front() == '[') {
            continue;
        }
        const std::size_t separator = line.find('=');
        const std::size_t valueStart = separator == std::string::npos ? 0 : separator + 1;
        pairs.emplace(line.substr(0, separator), line.substr(valueStart));
    }
    return lineCount;
}

}  // namespace ini_file_reader
