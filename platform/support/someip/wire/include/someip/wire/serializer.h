#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <someip/wire/wire_type.h>

namespace someip {

/// Writes SOME/IP payloads (PRS_SOMEIP, serialization of parameters and of structured data types
/// with identifier), all numbers in network byte order. Not to be shared between threads.
class Serializer {
public:
    void WriteU8(std::uint8_t value);
    void WriteU16(std::uint16_t value);
    void WriteU32(std::uint32_t value);
    void WriteBytes(const std::vector<std::uint8_t>& bytes);

    /// Tag of a record member: wire type in bits 14 to 12, data id (0 to 4095) in bits 11 to 0.
    void WriteTag(WireType wireType, std::uint16_t dataId);

    /// Member of wire type 7: tag, length in 4 bytes, the raw bytes.
    void WriteByteArrayMember(std::uint16_t dataId, const std::vector<std::uint8_t>& bytes);

    /// Reserves a length field of 4 bytes; `EndLength` with the result of this call sets it to the
    /// number of bytes written in between.
    std::size_t BeginLength();
    void EndLength(std::size_t begin);

    /// Returns the bytes and clears the serializer.
    std::vector<std::uint8_t> Take();

private:
    std::vector<std::uint8_t> mBytes;
};

}  // namespace someip
