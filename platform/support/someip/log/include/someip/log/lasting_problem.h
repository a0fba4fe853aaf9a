#pragma once

#include <string>

#include <someip/log/incident.h>

namespace someip {

/// Something that is wrong for a while: one line in the log, however often it is met.
class LastingProblem {
public:
    void Report(const std::string& text) {
        if (text != mText) {
            mText = text;
            Log().Warn(text);
        }
    }

    /// It is over; its return has a line again.
    void End() { mText.clear(); }

private:
    std::string mText;
};

}  // namespace someip
