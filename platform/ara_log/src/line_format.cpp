#include "ara_log_host/line_format.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <system_error>

#include <sys/stat.h>

namespace ara_log_host {

namespace {

using ara::log::LogLevel;

struct LevelText {
    const char* name;
    const char* journalPrefix;
};

const LevelText& TextOf(LogLevel level) {
    static constexpr std::array<LevelText, 7> kTexts{{{"off    ", "<7>"},
                                                      {"fatal  ", "<2>"},
                                                      {"error  ", "<3>"},
                                                      {"warn   ", "<4>"},
                                                      {"info   ", "<6>"},
                                                      {"debug  ", "<7>"},
                                                      {"verbose", "<7>"}}};
    return kTexts.at(static_cast<std::size_t>(level));
}

std::string DateText(std::time_t seconds) {
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    const std::size_t length =
        std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S.", &parts);
    return {date.data(), length};
}

std::string TimeText(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    // Cached, since many lines fall into the same second.
    thread_local std::time_t lastSeconds = 0;
    thread_local std::string date = DateText(0);
    if (seconds.count() != lastSeconds) {
        lastSeconds = seconds.count();
        date = DateText(lastSeconds);
    }
    const std::string millis = std::to_string((sinceEpoch - seconds).count());
    return date + std::string(3 - millis.size(), '0') + millis + "Z ";
}

bool IsControl(unsigned char byte) {
    return (byte < 0x20 && byte != '\t') || byte == 0x7f;
}

/// U+0080 to U+009F in UTF-8: control characters for terminals, too.
bool IsC1Control(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]) == 0xc2 && index + 1 < text.size() &&
           (static_cast<unsigned char>(text[index + 1]) & 0xe0U) == 0x80;
}

void AppendEscaped(std::string& line, unsigned char byte) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    line += "\\x";
    line += kDigits[byte >> 4U];
    line += kDigits[byte & 0xfU];
}

bool IsPlain(char byte) {
    return byte >= ' ' && byte < '\x7f';
}

void AppendText(std::string& line, std::string_view text, const std::string& continuation) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t start = i;
        while (i < text.size() && IsPlain(text[i])) {
            ++i;
        }
        line.append(text, start, i - start);
        if (i == text.size()) {
            return;
        }
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n') {
            line += continuation;
        } else if (IsControl(byte)) {
            AppendEscaped(line, byte);
        } else if (IsC1Control(text, i)) {
            AppendEscaped(line, byte);
            AppendEscaped(line, static_cast<unsigned char>(text[++i]));
        } else {
            line += text[i];
        }
    }
}

bool ReadNumber(std::string_view text, std::uintmax_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string EscapeText(std::string_view text, const std::string& continuation) {
    std::string escaped;
    escaped.reserve(text.size());
    AppendText(escaped, text, continuation);
    return escaped;
}

std::string FormatEntry(bool forJournal, std::chrono::system_clock::time_point time, LogLevel level,
                        const std::string& appId, const std::string& text) {
    const std::string start = forJournal ? TextOf(level).journalPrefix : TimeText(time);
    const std::string continuation = forJournal ? "\n" + start + "    " : "\n    ";
    std::string entry;
    entry.reserve(start.size() + appId.size() + text.size() + 16);
    entry.append(start).append(TextOf(level).name).append(" ");
    AppendText(entry, appId, " ");
    entry += ' ';
    AppendText(entry, text, continuation);
    entry += '\n';
    return entry;
}

bool IsJournalStream(const char* journalStream, int descriptor) {
    if (journalStream == nullptr) {
        return false;
    }
    const std::string_view value(journalStream);
    const std::size_t colon = value.find(':');
    std::uintmax_t device = 0;
    std::uintmax_t inode = 0;
    if (colon == std::string_view::npos || !ReadNumber(value.substr(0, colon), device) ||
        !ReadNumber(value.substr(colon + 1), inode)) {
        return false;
    }
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

}  // namespace ara_log_host
