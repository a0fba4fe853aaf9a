#include "timeline/line_parser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace timeline {

namespace {

using std::string_view;

constexpr string_view kContinuationIndent = "    ";
constexpr string_view kBootRemark = "-- Boot ";
constexpr string_view kRebootRemark = "-- Reboot --";
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerMinute = 60;

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

bool StartsWith(string_view text, string_view start) {
    return text.substr(0, start.size()) == start;
}

bool Take(string_view& rest, string_view start) {
    if (!StartsWith(rest, start)) {
        return false;
    }
    rest.remove_prefix(start.size());
    return true;
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Takes exactly `width` digits.
bool TakeNumber(string_view& rest, std::size_t width, int& number) {
    if (rest.size() < width || !std::all_of(rest.begin(), rest.begin() + width, IsDigit)) {
        return false;
    }
    std::from_chars(rest.data(), rest.data() + width, number);
    rest.remove_prefix(width);
    return true;
}

/// Takes a word and the blanks behind it; empty at the end.
string_view TakeWord(string_view& rest) {
    const string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(word.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return word;
}

/// Takes "." and digits, if they stand there, as milliseconds.
int TakeFraction(string_view& rest) {
    if (rest.size() < 2 || rest[0] != '.' || !IsDigit(rest[1])) {
        return 0;
    }
    rest.remove_prefix(1);
    int milliseconds = 0;
    int weight = 100;
    while (!rest.empty() && IsDigit(rest.front())) {
        milliseconds += (rest.front() - '0') * weight;
        weight /= 10;
        rest.remove_prefix(1);
    }
    return milliseconds;
}

/// Days since 1970-01-01 of a date in the proleptic Gregorian calendar.
std::int64_t DaysSinceEpoch(std::int64_t year, int month, int day) {
    const std::int64_t shifted = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 399) / 400;
    const std::int64_t yearOfEra = shifted - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool IsDate(int month, int day) {
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

/// Takes "YYYY-MM-DD" with the given separator; days since the epoch.
bool TakeDate(string_view& rest, string_view separator, std::int64_t& days) {
    int year = 0;
    int month = 0;
    int day = 0;
    if (!TakeNumber(rest, 4, year) || !Take(rest, separator) || !TakeNumber(rest, 2, month) ||
        !Take(rest, separator) || !TakeNumber(rest, 2, day) || !IsDate(month, day)) {
        return false;
    }
    days = DaysSinceEpoch(year, month, day);
    return true;
}

/// Takes "HH:MM:SS"; seconds of the day.
bool TakeClock(string_view& rest, std::int64_t& seconds) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!TakeNumber(rest, 2, hour) || !Take(rest, ":") || !TakeNumber(rest, 2, minute) ||
        !Take(rest, ":") || !TakeNumber(rest, 2, second) || hour > 23 || minute > 59 ||
        second > 60) {
        return false;
    }
    seconds = hour * kSecondsPerHour + minute * kSecondsPerMinute + second;
    return true;
}

/// Takes "Z", "+hhmm" or "+hh:mm"; seconds to take off the wall clock for UTC.
bool TakeZone(string_view& rest, std::int64_t& offset) {
    if (Take(rest, "Z")) {
        offset = 0;
        return true;
    }
    const bool west = StartsWith(rest, "-");
    int hours = 0;
    int minutes = 0;
    if ((!Take(rest, "+") && !Take(rest, "-")) || !TakeNumber(rest, 2, hours)) {
        return false;
    }
    Take(rest, ":");
    if (!TakeNumber(rest, 2, minutes)) {
        return false;
    }
    offset = (hours * kSecondsPerHour + minutes * kSecondsPerMinute) * (west ? -1 : 1);
    return true;
}

int MonthByName(string_view name) {
    static constexpr string_view kNames = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t index = name.size() == 3 ? kNames.find(name) : string_view::npos;
    return index == string_view::npos || index % 3 != 0 ? 0 : static_cast<int>(index / 3) + 1;
}

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
    std::int64_t days = 0;
    std::int64_t seconds = 0;
    if (!TakeDate(rest, "/", days)) {
        rest = line;
        const string_view index = TakeWord(rest);
        if (!std::all_of(index.begin(), index.end(), IsDigit) || !TakeDate(rest, "/", days)) {
            return false;
        }
    }
    if (!Take(rest, " ") || !TakeClock(rest, seconds)) {
        return false;
    }
    const int milliseconds = TakeFraction(rest);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    TakeWord(rest);  // time since the start of the ECU
    TakeWord(rest);  // counter
    TakeWord(rest);  // ECU
    const string_view application = TakeWord(rest);
    TakeWord(rest);  // context
    const string_view type = TakeWord(rest);
    const string_view subtype = TakeWord(rest);
    if (application != mIdInDlt || type != "log") {
        entry.kind = StartsWith(mIdInDlt, application) && rest.empty() ? LineKind::kTruncated
                                                                       : LineKind::kForeign;
        return true;
    }
    const std::size_t bracket = rest.find('[');
    const auto* const name = std::find_if(kSeverities.begin(), kSeverities.end(),
                                          [&](const SeverityName& n) { return n.name == subtype; });
    if (bracket == string_view::npos || name == kSeverities.end()) {
        entry.kind = LineKind::kTruncated;
        return true;
    }
    entry.kind = LineKind::kEntry;
    entry.base = TimeBase::kWall;
    entry.time = ZonedToUtc(days * kSecondsPerDay + seconds) * 1000 + milliseconds;
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
