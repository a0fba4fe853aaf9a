#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vonta_socket/stream_communicator_if.h>

namespace vonta_socket {

/// Serialization of values on a stream: a byte as it is; a string as its length in four bytes, big
/// endian, followed by its bytes.
///
/// Stateless, so every operation may be called from any thread.
class StreamProtocol {
public:
    /// Longest string in bytes; a longer one is refused before memory is allocated for it.
    static constexpr std::size_t kMaxStringLength = 4096;

    /// Appends `value` to `data`.
    void InsertUint8(std::vector<std::uint8_t>& data, const std::uint8_t& value) const;

    /// Appends `value` to `data`. Returns false, with `data` untouched, if it is too long.
    bool InsertString(std::vector<std::uint8_t>& data, const std::string& value) const;

    /// Blocks until a byte has arrived. Returns false on failure and at the end of the stream.
    bool ReadUint8(std::shared_ptr<StreamCommunicatorIf> communicator, std::uint8_t& value) const;

    /// Blocks until the string has arrived. Returns false on failure, at the end of the stream and
    /// for a string that is too long; the stream is then out of step and to be closed.
    bool ReadString(std::shared_ptr<StreamCommunicatorIf> communicator, std::string& value) const;
};

}  // namespace vonta_socket
