#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "timeline/log_line.h"

namespace timeline {

/// Recognises the service's entries in the lines of a log, in each form that a log comes in:
/// - console: "2026-11-21T17:02:03.009Z info    VT text"
/// - `journalctl -o short`, `short-precise`, `short-iso`, `short-iso-precise`, `short-monotonic`
/// - `journalctl -o cat`, which has no times
/// - DLT as `dlt-convert -a` and `dlt-receive -a` print it
///
/// The forms may change from line to line. Has neither a clock nor a time zone of its own, and
/// no line makes it fail. Belongs to one thread.
class LineParser {
public:
    /// Bytes of a line that are looked at; the longest line of the service is far shorter.
    static constexpr std::size_t kMaxLineSize = std::size_t{64} * 1024;

    struct Options {
        /// Turns a wall clock's seconds, counted as if it showed UTC, into seconds since the epoch,
        /// for the forms that do not name their zone. Empty: they are UTC.
        std::function<std::int64_t(std::int64_t wallSeconds)> toUtc;
        /// Seconds since the epoch that the log ends at or before; decides on the year where the
        /// lines have none. A log of that form is taken to be no longer than a year.
        std::int64_t notAfter{0};
        /// The application id of the service in the log; DLT shows four characters of it.
        std::string applicationId{"VT"};
    };

    explicit LineParser(Options options);

    /// What the line is; `whole` as from `posix::LineSplitter`. The result refers to the line's
    /// bytes.
    LogLine Parse(std::string_view line, bool whole);

private:
    bool TakeEntryStart(std::string_view& rest, Severity& severity) const;
    bool IsPartOfEntryStart(std::string_view text) const;
    bool HoldsEntryStart(std::string_view text) const;
    LogLine ParseComplete(std::string_view line);
    bool TakeTime(std::string_view& rest, LogLine& entry);
    bool TakeIsoTime(std::string_view& rest, LogLine& entry) const;
    bool TakeShortTime(std::string_view& rest, LogLine& entry);
    bool ParseDlt(std::string_view line, LogLine& entry);
    std::int64_t ZonedToUtc(std::int64_t wallSeconds);
    /// The latest year that does not put the date behind the log's end. Asked for each line, since
    /// a clock that was not set yet shows January in the middle of a log.
    std::int64_t YearOf(int month, int day) const;

    Options mOptions;
    /// The application id as the console writes it, and as DLT does.
    std::string mIdInLine;
    std::string mIdInDlt;
    /// The time zone's answer for the hour that was asked last; lines of one hour share it.
    std::optional<std::int64_t> mZoneHour;
    std::int64_t mZoneOffset{0};
    bool mInEntry{false};
    bool mInDltText{false};
};

}  // namespace timeline
