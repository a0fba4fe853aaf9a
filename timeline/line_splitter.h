#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace timeline {

/// Cuts a stream of bytes into lines, with bounded memory whatever the bytes are.
class LineSplitter {
public:
    /// More of a line is never kept; the longest line of the service is far shorter.
    static constexpr std::size_t kMaxLineSize = std::size_t{64} * 1024;

    /// Gets each line without its end ("\n" or "\r\n"), valid during the call. `whole` is false for
    /// a line that was longer than `kMaxLineSize`, and for a last one without an end.
    using Receiver = std::function<void(std::string_view line, bool whole)>;

    explicit LineSplitter(Receiver receiver) : mReceiver(std::move(receiver)) {}

    /// Takes the next bytes, as many or few as there are.
    void Feed(std::string_view bytes);
    /// Nothing follows: delivers what stands behind the last line's end, if anything.
    void Finish();

private:
    void Keep(std::string_view bytes);
    void Deliver(std::string_view line, bool whole);

    Receiver mReceiver;
    std::string mPart;
    bool mTooLong{false};
};

}  // namespace timeline
