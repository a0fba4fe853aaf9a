#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <ara/log/common.h>

namespace ara_log_host {

/// One entry in the format for stderr, with its line feed: time in UTC with milliseconds, level,
/// application id, text.
///
/// For the journal each line starts with the priority prefix of sd-daemon(3) in place of the time.
/// A line feed in the text continues the entry on an indented line, other control characters are
/// written as \xNN: a text can't forge a further entry.
std::string FormatEntry(bool forJournal, std::chrono::system_clock::time_point time,
                        ara::log::LogLevel level, const std::string& appId,
                        const std::string& text);

/// The text with each line feed replaced by `continuation`, other control characters as \xNN.
std::string EscapeText(std::string_view text, const std::string& continuation);

/// Whether `journalStream`, the value of JOURNAL_STREAM (may be null), names the file behind this
/// descriptor by device and inode.
bool IsJournalStream(const char* journalStream, int descriptor);

}  // namespace ara_log_host
