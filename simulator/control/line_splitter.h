#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace simulator {

/// Cuts a stream of bytes into lines.
class LineSplitter {
public:
    /// A longer line is no command.
    static constexpr std::size_t kMaxLine = 4096;

    void Add(const char* data, std::size_t size) { mPending.append(data, size); }

    /// The next whole line without its end.
    std::optional<std::string> Next();

    /// What has no line end yet; to be asked at the end of the stream.
    std::string Rest() const { return mPending; }

    /// True once a line is longer than kMaxLine; the stream then is of no use any more.
    bool IsTooLong() const { return mPending.size() > kMaxLine; }

private:
    std::string mPending;
};

}  // namespace simulator
