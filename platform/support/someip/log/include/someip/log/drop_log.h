#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace someip {

/// Counts what is dropped, and has a line in the log for each. Of a flood, no more than
/// kLinesPerWindow lines in kWindow; the lines bear the count, so none is lost unseen.
class DropLog {
public:
    static constexpr unsigned kLinesPerWindow = 32;
    static constexpr std::chrono::seconds kWindow{10};

    /// `source` names where the dropped messages come from, as in "of test::Service".
    explicit DropLog(std::string source);

    /// One thread at a time.
    void Dropped(const std::string& problem, std::chrono::steady_clock::time_point now);

    /// Any thread.
    std::uint64_t Count() const { return mCount.load(); }

private:
    const std::string mSource;
    std::atomic<std::uint64_t> mCount{0};
    std::chrono::steady_clock::time_point mWindowEnd;
    unsigned mLines{0};
};

}  // namespace someip
