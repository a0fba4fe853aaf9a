#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vonta_socket {

/// One connection. Reading and writing block; one thread reads and one writes at a time.
class StreamCommunicatorIf {
public:
    virtual ~StreamCommunicatorIf() = default;

    /// Ends the connection: reads and writes that are blocked in it, and later ones, fail. May be
    /// called from any thread and more than once.
    virtual void Close() = 0;

    /// Returns the number of bytes written, which is less than the size only on failure.
    virtual std::size_t Write(const std::vector<std::uint8_t>& data) = 0;

    /// Blocks until `data` is filled with as many bytes as it has room for. Returns false on
    /// failure and at the end of the stream; what `data` then holds is unspecified.
    virtual bool Read(std::vector<std::uint8_t>& data) = 0;
};

}  // namespace vonta_socket
