#pragma once

#include <cstdint>
#include <string_view>

namespace timeline {

/// What one line of a log file is.
enum class LineKind : std::uint8_t {
    /// Begins an entry of the service.
    kEntry,
    /// Continues the entry before: a text of several lines.
    kContinuation,
    /// Begins like an entry of the service but is cut, or has bytes that no entry has.
    kTruncated,
    /// Two entries that were written into one line.
    kInterleaved,
    /// Neither of the service nor a remark of the journal.
    kForeign,
    /// The journal's own remark that the machine was restarted.
    kBoot
};

/// The scale of the log's severities; the numbers are those of `ara::log`.
enum class Severity : std::uint8_t {
    kFatal = 1,
    kError = 2,
    kWarn = 3,
    kInfo = 4,
    kDebug = 5,
    kVerbose = 6
};

/// What a line's time counts from.
enum class TimeBase : std::uint8_t {
    /// The line has no time.
    kNone,
    /// Milliseconds since 1970-01-01T00:00:00Z.
    kWall,
    /// Milliseconds since the machine was started.
    kBoot
};

/// A line that was read. All but `kind` have a meaning for `LineKind::kEntry` only.
struct LogLine {
    LineKind kind{LineKind::kForeign};
    TimeBase base{TimeBase::kNone};
    Severity severity{Severity::kInfo};
    /// Milliseconds on `base`.
    std::int64_t time{0};
    /// Of the process that wrote it; 0 if the line has none.
    std::uint32_t processId{0};
    /// The entry's text, in the bytes that were given to the parser.
    std::string_view text;
};

}  // namespace timeline
