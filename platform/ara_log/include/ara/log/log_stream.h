#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include <ara/log/common.h>

namespace ara::log {

class Logger;

/// One line under construction; it is written when the stream is destroyed or flushed.
///
/// A stream whose level is not enabled ignores its input. For one thread. Failures of the output
/// are not reported.
class LogStream {
public:
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;
    LogStream(LogStream&&) = delete;
    LogStream& operator=(LogStream&&) = delete;
    ~LogStream();

    LogStream& operator<<(std::string_view text);
    /// Null is written as an empty text.
    LogStream& operator<<(const char* text);
    LogStream& operator<<(bool value);

    /// Integers are written as plain decimal numbers, characters included.
    template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    LogStream& operator<<(Integer value) {
        return mEnabled ? *this << std::string_view(std::to_string(value)) : *this;
    }

    /// Writes what has been collected as one line and starts an empty one.
    void Flush() noexcept;

private:
    friend class Logger;
    LogStream(const Logger& logger, LogLevel level, bool enabled)
        : mLogger(logger), mLevel(level), mEnabled(enabled) {}

    const Logger& mLogger;
    LogLevel mLevel;
    bool mEnabled;
    bool mPending{true};
    std::string mText;
};

}  // namespace ara::log
