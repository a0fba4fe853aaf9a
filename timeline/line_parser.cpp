#include "timeline/line_parser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "timeline/text_fields.h"

namespace timeline {

namespace {

using std::string_view;

constexpr string_view kContinuationIndent = "    ";
constexpr string_view kBootRemark = "-- Boot ";
constexpr string_view kRebootRemark = "-- Reboot --";

struct SeverityName {
    /// As wide as the console writes it.
    string_view padded;
    string_view name;
    Severity severity;
};

constexpr std::array<SeverityName, 6> kSeverities{{{"info   ", "info", Severity::kInfo},
                                                   {"debug  ", "debug", Severity::kDebug},
                                                   {"error  ", "error", Severity::kError},
                                                   {"warn   ", "warn", Severity::kWarn},
                                                   {"verbose", "verbose", Severity::kVerbose},
                                                   {"fatal  ", "fatal", Severity::kFatal}}};
constexpr std::size_t kSeverityWidth = 7;
constexpr std::size_t kDltIdWidth = 4;

/// Takes "[  123.456789] ".
bool TakeMonotonicTime(string_view& rest, LogLine& entry) {
    string_view probe = rest;
    if (!Take(probe, "[")) {
        return false;
    }
    probe.remove_prefix(std::min(probe.find_first_not_of(' '), probe.size()));
    std::uint32_t seconds = 0;
    const auto [end, error] = std::from_chars(probe.data(), probe.data() + probe.size(), seconds);
    if (error != std::errc()) {
        return false;
    }
    probe.remove_prefix(static_cast<std::size_t>(end - probe.data()));
    const int milliseconds = TakeFraction(probe);
    if (!Take(probe, "] ")) {
        return false;
    }
    entry.base = TimeBase::kBoot;
    entry.time = std::int64_t{seconds} * 1000 + milliseconds;
    rest = probe;
    return true;
}

/// Takes "host name[123]: ", which the journal writes before a message.
void TakeJournalOrigin(string_view& rest, LogLine& entry) {
    string_view probe = rest;
    if (TakeWord(probe).empty()) {
        return;
    }
    const std::size_t colon = probe.find(": ");
    const string_view name = probe.substr(0, colon);
    if (colon == string_view::npos || name.find(' ') != string_view::npos) {
        return;
    }
    const std::size_t bracket = name.find('[');
    if (bracket != string_view::npos) {
        std::from_chars(name.data() + bracket + 1, name.data() + name.size(), entry.processId);
    }
    rest = probe.substr(colon + 2);
}

bool TakeSeverity(string_view& rest, Severity& severity) {
    for (const SeverityName& name : kSeverities) {
        if (Take(rest, name.padded)) {
            severity = name.severity;
            return true;
        }
    }
    return false;
}

/// What stands before a DLT entry's text.
struct DltHeader {
    std::int64_t wallSeconds{0};
    int milliseconds{0};
    string_view application;
    string_view type;
    string_view subtype;
};

/// Takes "74 2026/11/21 17:02:03.009000 100074 074 ECU1 VT-- MAIN log info ", where the first
/// number may be missing.
bool TakeDltHeader(string_view& rest, DltHeader& header) {
    string_view probe = rest;
    std::int64_t days = 0;
    std::int64_t seconds = 0;
    if (!TakeDate(probe, "/", days)) {
        probe = rest;
        const string_view index = TakeWord(probe);
        if (!std::all_of(index.begin(), index.end(), IsDigit) || !TakeDate(probe, "/", days)) {
            return false;
        }
    }
    if (!Take(probe, " ") || !TakeClock(probe, seconds)) {
        return false;
    }
    header.wallSeconds = days * kSecondsPerDay + seconds;
    header.milliseconds = TakeFraction(probe);
    probe.remove_prefix(std::min(probe.find_first_not_of(' '), probe.size()));
    TakeWord(probe);  // time since the start of the ECU
    TakeWord(probe);  // counter
    TakeWord(probe);  // ECU
    header.application = TakeWord(probe);
    TakeWord(probe);  // context
    header.type = TakeWord(probe);
    header.subtype = TakeWord(probe);
    rest = probe;
    return true;
}

/// True for what a cut leaves of a console line's time: digits and separators where they belong.
bool IsPartOfConsoleTime(string_view line) {
    static constexpr string_view kShape = "dddd-dd-ddTdd:dd:dd.dddZ ";
    if (line.size() < 3 || line.size() > kShape.size()) {
        return false;
    }
    return std::equal(line.begin(), line.end(), kShape.begin(), [](char seen, char wanted) {
        return wanted == 'd' ? IsDigit(seen) : seen == wanted;
    });
}

/// No entry holds control characters, which the log writes as "\x0d"; a cut file does.
bool HoldsControl(string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte < 0x20 && byte != '\t') || byte == 0x7f;
    });
}

}  // namespace

LineParser::LineParser(Options options)
    : mOptions(std::move(options)),
      mIdInLine(" " + mOptions.applicationId + " "),
      mIdInDlt(mOptions.applicationId.substr(0, kDltIdWidth)) {
    mIdInDlt.resize(kDltIdWidth, '-');
}

/// Takes "info    VT ".
bool LineParser::TakeEntryStart(string_view& rest, Severity& severity) const {
    string_view probe = rest;
    if (!TakeSeverity(probe, severity) || !Take(probe, mIdInLine)) {
        return false;
    }
    rest = probe;
    return true;
}

/// True for "", "in", "info    V": what a cut leaves of an entry's start.
bool LineParser::IsPartOfEntryStart(string_view text) const {
    return std::any_of(kSeverities.begin(), kSeverities.end(), [&](const SeverityName& name) {
        string_view rest = text;
        return StartsWith(name.padded, rest) ||
               (Take(rest, name.padded) && StartsWith(mIdInLine, rest));
    });
}

/// True if another entry begins inside the text.
bool LineParser::HoldsEntryStart(string_view text) const {
    for (std::size_t at = text.find(mIdInLine); at != string_view::npos;
         at = text.find(mIdInLine, at + 1)) {
        string_view before = text.substr(0, at);
        before.remove_prefix(before.size() - std::min(before.size(), kSeverityWidth));
        Severity severity{};
        if (TakeSeverity(before, severity)) {
            return true;
        }
    }
    const std::size_t dlt = text.find(mIdInDlt + " ");
    return dlt != string_view::npos && text.find(" log ", dlt) != string_view::npos &&
           text.find('[', dlt) != string_view::npos;
}

LogLine LineParser::Parse(string_view line, bool whole) {
    LogLine result = ParseComplete(line);
    if (result.kind == LineKind::kEntry) {
        if (HoldsEntryStart(result.text)) {
            result.kind = LineKind::kInterleaved;
        } else if (!whole || HoldsControl(result.text)) {
            result.kind = LineKind::kTruncated;
        }
    }
    mInEntry = result.kind == LineKind::kEntry || result.kind == LineKind::kContinuation;
    mInDltText = mInDltText && mInEntry;
    return result;
}

LogLine LineParser::ParseComplete(string_view line) {
    LogLine entry;
    if (StartsWith(line, kBootRemark) || line == kRebootRemark) {
        entry.kind = LineKind::kBoot;
        return entry;
    }
    if (mInEntry && (line.empty() || StartsWith(line, kContinuationIndent))) {
        entry.kind = LineKind::kContinuation;
        return entry;
    }
    string_view rest = line;
    if (!TakeTime(rest, entry)) {
        if (ParseDlt(line, entry)) {
            return entry;
        }
        if (mInDltText) {
            mInDltText = line.empty() || line.back() != ']';
            entry.kind = LineKind::kContinuation;
            return entry;
        }
    }
    if (TakeEntryStart(rest, entry.severity)) {
        entry.kind = LineKind::kEntry;
        entry.text = rest;
    } else if (mInEntry && StartsWith(rest, kContinuationIndent)) {
        entry.kind = LineKind::kContinuation;
    } else if (IsPartOfConsoleTime(line) ||
               (entry.base != TimeBase::kNone && IsPartOfEntryStart(rest))) {
        entry.kind = LineKind::kTruncated;
    }
    return entry;
}

bool LineParser::TakeTime(string_view& rest, LogLine& entry) {
    if (!TakeIsoTime(rest, entry) && !TakeShortTime(rest, entry) &&
        !TakeMonotonicTime(rest, entry)) {
        return false;
    }
    Take(rest, " ");
    Severity severity{};
    string_view probe = rest;
    if (!TakeSeverity(probe, severity)) {
        TakeJournalOrigin(rest, entry);
    }
    return true;
}

bool LineParser::TakeIsoTime(string_view& rest, LogLine& entry) const {
    string_view probe = rest;
    std::int64_t days = 0;
    std::int64_t seconds = 0;
    if (!TakeDate(probe, "-", days) || !Take(probe, "T") || !TakeClock(probe, seconds)) {
        return false;
    }
    const int milliseconds = TakeFraction(probe);
    std::int64_t offset = 0;
    if (!TakeZone(probe, offset)) {
        return false;
    }
    entry.base = TimeBase::kWall;
    entry.time = (days * kSecondsPerDay + seconds - offset) * 1000 + milliseconds;
    rest = probe;
    return true;
}

bool LineParser::TakeShortTime(string_view& rest, LogLine& entry) {
    const int month = MonthByName(rest.substr(0, 3));
    if (month == 0 || rest.size() < 15) {
        return false;
    }
    string_view probe = rest.substr(3);
    int day = 0;
    std::int64_t seconds = 0;
    if (!Take(probe, " ") ||
        (!TakeNumber(probe, 2, day) && (!Take(probe, " ") || !TakeNumber(probe, 1, day)))) {
        return false;
    }
    if (!IsDate(month, day) || !Take(probe, " ") || !TakeClock(probe, seconds)) {
        return false;
    }
    entry.base = TimeBase::kWall;
    const std::int64_t days = DaysSinceEpoch(YearOf(month, day), month, day);
    entry.time = ZonedToUtc(days * kSecondsPerDay + seconds) * 1000 + TakeFraction(probe);
    rest = probe;
    return true;
}

bool LineParser::ParseDlt(string_view line, LogLine& entry) {
    string_view rest = line;
    DltHeader header;
    if (!TakeDltHeader(rest, header)) {
        return false;
    }
    if (header.application != mIdInDlt || header.type != "log") {
        const bool cut = StartsWith(mIdInDlt, header.application) && rest.empty();
        entry.kind = cut ? LineKind::kTruncated : LineKind::kForeign;
        return true;
    }
    const std::size_t bracket = rest.find('[');
    const auto* const name =
        std::find_if(kSeverities.begin(), kSeverities.end(),
                     [&](const SeverityName& n) { return n.name == header.subtype; });
    if (bracket == string_view::npos || name == kSeverities.end()) {
        entry.kind = LineKind::kTruncated;
        return true;
    }
    entry.kind = LineKind::kEntry;
    entry.base = TimeBase::kWall;
    entry.time = ZonedToUtc(header.wallSeconds) * 1000 + header.milliseconds;
    entry.severity = name->severity;
    entry.text = rest.substr(bracket + 1);
    mInDltText = entry.text.empty() || entry.text.back() != ']';
    if (!mInDltText) {
        entry.text.remove_suffix(1);
    }
    return true;
}

std::int64_t LineParser::ZonedToUtc(std::int64_t wallSeconds) {
    if (!mOptions.toUtc) {
        return wallSeconds;
    }
    const std::int64_t hour = wallSeconds / kSecondsPerHour;
    if (mZoneHour != hour) {
        mZoneHour = hour;
        mZoneOffset = mOptions.toUtc(wallSeconds) - wallSeconds;
    }
    return wallSeconds + mZoneOffset;
}

std::int64_t LineParser::YearOf(int month, int day) const {
    // A day's grace for the time zones.
    const std::int64_t lastDay = mOptions.notAfter / kSecondsPerDay + 1;
    std::int64_t year = 1970 + mOptions.notAfter / (kSecondsPerDay * 365) + 1;
    while (year > 1970 && DaysSinceEpoch(year, month, day) > lastDay) {
        --year;
    }
    return year;
}

}  // namespace timeline
