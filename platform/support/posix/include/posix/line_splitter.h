#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace posix {

/// Cuts a stream of bytes into lines, whatever the bytes are. Keeps what was fed and not taken yet,
/// and of an unfinished line no more than the limit. Belongs to one thread.
class LineSplitter {
public:
    struct Line {
        /// Without the line's end, "\n" or "\r\n"; valid until the next call of a member.
        std::string_view text;
        /// False for a line beyond the limit, of which `text` has the beginning, and for bytes that
        /// have no line end behind them.
        bool whole;
    };

    /// @param maxLineSize in bytes, without the "\n"
    explicit LineSplitter(std::size_t maxLineSize) : mMaxLineSize(maxLineSize) {}

    /// Takes the next bytes, as many or few as there are.
    void Feed(std::string_view bytes);

    /// The next line that has come to its end; nothing until more is fed.
    std::optional<Line> Next();

    /// The stream has ended: what stands behind the last line's end, never whole; nothing if
    /// nothing does. A new stream may be fed then. To be called when `Next` has no more.
    std::optional<Line> Finish();

    /// True if the line that `Next` waits for is beyond the limit already.
    bool IsTooLong() const { return mTooLong; }

private:
    Line Take(std::size_t end, bool whole);

    std::size_t mMaxLineSize;
    std::string mBuffer;
    /// Where in the buffer the current line begins, and up to where it has no end.
    std::size_t mBegin{0};
    std::size_t mSearched{0};
    bool mTooLong{false};
};

}  // namespace posix
