// Datagrams with one or more SOME/IP messages.

#include <algorithm>
#include <string>

#include <someip/wire/message.h>

#include "fuzz/check.h"

namespace {

using fuzz::Check;
using someip::Bytes;

struct Result {
    /// The messages, written again.
    Bytes written;
    std::size_t messages{0};
    unsigned problems{0};
};

/// Reads from a block of just this size, so that no byte behind it can be read unnoticed.
Result Read(const Bytes& datagram) {
    Result result;
    someip::DecodeAll(
        datagram.data(), datagram.size(),
        [&](const someip::Message& message) {
            Check(result.problems == 0, "nothing is read behind a problem");
            const Bytes bytes = someip::Encode(message);
            result.written.insert(result.written.end(), bytes.begin(), bytes.end());
            ++result.messages;
        },
        [&](const std::string& problem) {
            Check(!problem.empty(), "a problem has a text");
            ++result.problems;
        });
    return result;
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const Bytes datagram(input.begin(), input.end());
    const Result whole = Read(datagram);
    Check(whole.problems <= 1, "one problem ends a datagram");
    Check(whole.messages + whole.problems != 0, "no datagram passes in silence");
    Check(whole.written.size() <= input.size() &&
              std::equal(whole.written.begin(), whole.written.end(), datagram.begin()),
          "the messages are the datagram's bytes");
    Check(whole.problems == 1 || whole.written.size() == input.size(),
          "without a problem all is read");
    for (const auto cut : fuzz::Cuts(input.size())) {
        const Result part =
            Read(Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(cut)));
        Check(part.messages <= whole.messages, "what follows takes no message away");
        Check(part.written.size() <= cut, "a message ends within the datagram");
    }
}
