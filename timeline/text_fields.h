#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace timeline {

// Fields at the front of a text, times above all. Each `Take` function takes its field off the text
// and reports whether it was there; where it was not, the rest of the text is undefined, but never
// more than before.

inline constexpr std::int64_t kSecondsPerMinute = 60;
inline constexpr std::int64_t kSecondsPerHour = 3600;
inline constexpr std::int64_t kSecondsPerDay = 86400;

inline bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

inline bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool Take(std::string_view& rest, std::string_view start);

/// Takes exactly `width` digits, nine at most.
bool TakeNumber(std::string_view& rest, std::size_t width, int& number);

/// Takes a word, which may be empty, and the blanks behind it.
std::string_view TakeWord(std::string_view& rest);

/// Takes "." and digits, if they are there, as milliseconds; 0 if they are not.
int TakeFraction(std::string_view& rest);

/// Takes "YYYY-MM-DD" with the given separator, as days since 1970-01-01.
bool TakeDate(std::string_view& rest, std::string_view separator, std::int64_t& days);

/// Takes "HH:MM:SS", as seconds of the day.
bool TakeClock(std::string_view& rest, std::int64_t& seconds);

/// Takes "Z", "+hhmm" or "+hh:mm"; `offset` is the seconds that the wall clock is ahead of UTC.
bool TakeZone(std::string_view& rest, std::int64_t& offset);

/// Days since 1970-01-01 of a date in the proleptic Gregorian calendar.
std::int64_t DaysSinceEpoch(std::int64_t year, int month, int day);

/// True for month 1 to 12 and day 1 to 31, whatever the month.
bool IsDate(int month, int day);

/// 1 to 12 for "Jan" to "Dec"; 0 for anything else.
int MonthByName(std::string_view name);

}  // namespace timeline
