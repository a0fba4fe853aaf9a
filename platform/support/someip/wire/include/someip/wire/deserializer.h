#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include <someip/wire/wire_type.h>

namespace someip {

/// Thrown for a payload that violates the rules of its serialization; `what()` names the rule.
class DeserializeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Sizes in bytes of the length fields that a service's deployment sets.
struct LengthFieldSizes {
    std::size_t array{4};
    std::size_t string{4};
    std::size_t record{4};
};

/// A member of a record, as the receiver's data model has it.
struct RecordMember {
    std::uint16_t dataId;
    WireType wireType;
};

/// Reads SOME/IP payloads, with record members in TLV form (PRS_SOMEIP, structured data types and
/// arguments with identifier and optional members). Every operation may throw DeserializeError; the
/// position is then unspecified. Does not own the bytes, which must outlive it. Not to be shared
/// between threads.
class Deserializer {
public:
    Deserializer(const std::uint8_t* data, std::size_t size, LengthFieldSizes sizes = {});

    /// Numbers in network byte order.
    std::uint8_t ReadU8();
    std::uint16_t ReadU16();
    std::uint32_t ReadU32();
    std::vector<std::uint8_t> ReadBytes(std::size_t count);

    std::size_t Position() const { return mPosition; }
    void Skip(std::size_t count);

    /// Reads a length field of 1, 2 or 4 bytes.
    std::size_t ReadLength(std::size_t fieldSize);

    /// The position `length` bytes ahead, which must lie within the data.
    std::size_t EndPosition(std::size_t length) const;

    /// Call after reading what had a length field: a position beyond `end` violates
    /// PRS_SOMEIP_00900, one before it is moved there.
    void FinishAt(std::size_t end);

    /// Reads the length field of an array or of a record, and returns its end position.
    std::size_t BeginArray();
    std::size_t BeginRecord();

    /// Looks for `member` in a record that ends at `recordEnd`, and skips members that are not in
    /// `model`. Returns the wire type that the sender used, with the position after the tag;
    /// nothing if the member is absent.
    std::optional<WireType> FindMember(const RecordMember& member,
                                       const std::vector<RecordMember>& model,
                                       std::size_t recordEnd);

    /// Reads the byte array that follows a tag with a wire type that has a length field.
    std::vector<std::uint8_t> ReadByteArray(WireType wireType);

private:
    std::size_t LengthFieldSize(WireType wireType) const;
    void SkipValue(WireType wireType);

    const std::uint8_t* mData;
    std::size_t mSize;
    std::size_t mPosition{0};
    LengthFieldSizes mSizes;
};

}  // namespace someip
