#include "timeline/text_fields.h"

#include <algorithm>
#include <charconv>

namespace timeline {

using std::string_view;

bool Take(string_view& rest, string_view start) {
    if (!StartsWith(rest, start)) {
        return false;
    }
    rest.remove_prefix(start.size());
    return true;
}

bool TakeNumber(string_view& rest, std::size_t width, int& number) {
    if (rest.size() < width || !std::all_of(rest.begin(), rest.begin() + width, IsDigit)) {
        return false;
    }
    std::from_chars(rest.data(), rest.data() + width, number);
    rest.remove_prefix(width);
    return true;
}

string_view TakeWord(string_view& rest) {
    const string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(word.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return word;
}

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

}  // namespace timeline
