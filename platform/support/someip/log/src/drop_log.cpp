#include <utility>

#include <someip/log/drop_log.h>
#include <someip/log/incident.h>

namespace someip {

DropLog::DropLog(std::string source) : mSource(std::move(source)) {}

void DropLog::Dropped(const std::string& problem, std::chrono::steady_clock::time_point now) {
    const std::uint64_t count = mCount.fetch_add(1) + 1;
    if (now >= mWindowEnd) {
        mWindowEnd = now + kWindow;
        mLines = 0;
    }
    if (mLines < kLinesPerWindow) {
        ++mLines;
        Log().Warn("message " + mSource + " dropped: " + problem + " (" + std::to_string(count) +
                   " so far)");
    }
}

}  // namespace someip
