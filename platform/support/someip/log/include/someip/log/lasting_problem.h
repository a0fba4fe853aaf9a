#pragma once

#include <string>

#include <someip/log/incident.h>

namespace someip {

/// A problem that may last: logs each text once, however often it is reported. Not to be shared
/// between threads.
class LastingProblem {
public:
    /// Logs `text` as a warning unless it is the one reported last.
    void Report(const std::string& text) {
        if (text != mText) {
            mText = text;
            Log().Warn(text);
        }
    }

    /// The problem is over; the next report is logged again.
    void End() { mText.clear(); }

private:
    std::string mText;
};

}  // namespace someip
