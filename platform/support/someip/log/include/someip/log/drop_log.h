#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace someip {

/// Counts dropped messages and logs each, limited to kLinesPerWindow lines in kWindow. The lines
/// contain the count, so that messages dropped without a line of their own show, too.
class DropLog {
public:
    static constexpr unsigned kLinesPerWindow = 32;
    static constexpr std::chrono::seconds kWindow{10};

    /// `source` is what the lines name as the messages' origin, as in "of test::Service".
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
