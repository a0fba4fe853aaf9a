#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vonta_socket {

/// One connection. Reads and writes block; at most one thread reads and one writes at a time.
class StreamCommunicatorIf {
public:
    virtual ~StreamCommunicatorIf() = default;

    /// Shuts the connection down: pending and later reads and writes fail. Any thread; may be
    /// called repeatedly.
    virtual void Close() = 0;

    /// Returns the number of bytes written, which is less than the size only on failure.
    virtual std::size_t Write(const std::vector<std::uint8_t>& data) = 0;

    /// Blocks until `data.size()` bytes are read. Returns false on failure and at the end of the
    /// stream; the content of `data` is then unspecified.
    virtual bool Read(std::vector<std::uint8_t>& data) = 0;
};

}  // namespace vonta_socket
