#include <algorithm>
#include <limits>
#include <string>

#include <someip/wire/deserializer.h>

namespace someip {

namespace {

bool HasLengthField(WireType wireType) {
    return wireType >= WireType::kConfiguredLength;
}

}  // namespace

Deserializer::Deserializer(const std::uint8_t* data, std::size_t size, LengthFieldSizes sizes)
    : mData(data), mSize(size), mSizes(sizes) {}

std::uint8_t Deserializer::ReadU8() {
    if (mPosition >= mSize) {
        throw DeserializeError("Read beyond the end of the data buffer");
    }
    return mData[mPosition++];
}

std::uint16_t Deserializer::ReadU16() {
    const unsigned high = ReadU8();
    return static_cast<std::uint16_t>((high << 8U) | ReadU8());
}

std::uint32_t Deserializer::ReadU32() {
    const std::uint32_t high = ReadU16();
    return (high << 16U) | ReadU16();
}

std::vector<std::uint8_t> Deserializer::ReadBytes(std::size_t count) {
    if (count > mSize - mPosition) {
        throw DeserializeError("Read beyond the end of the data buffer");
    }
    const std::uint8_t* begin = mData + mPosition;
    mPosition += count;
    return {begin, begin + count};
}

void Deserializer::Skip(std::size_t count) {
    if (count > mSize - mPosition) {
        throw DeserializeError("Seek beyond the end of the data buffer");
    }
    mPosition += count;
}

std::size_t Deserializer::ReadLength(std::size_t fieldSize) {
    switch (fieldSize) {
        case 1:
            return ReadU8();
        case 2:
            return ReadU16();
        case 4:
            return ReadU32();
        default:
            throw DeserializeError("Invalid value for length field size.");
    }
}

std::size_t Deserializer::EndPosition(std::size_t length) const {
    if (length > std::numeric_limits<std::size_t>::max() - mPosition) {
        throw DeserializeError("Deserialization detected std::size_t overflow.");
    }
    const std::size_t end = mPosition + length;
    if (end > mSize) {
        throw DeserializeError("Deserialization calculated invalid end position.");
    }
    return end;
}

void Deserializer::FinishAt(std::size_t end) {
    if (mPosition > end) {
        throw DeserializeError(
            "Violation of [PRS_SOMEIP_00900]: Record length given by sender is too small. This is "
            "possibly due to a mismatch between the data models of sender and receiver.");
    }
    mPosition = end;
}

std::size_t Deserializer::BeginArray() {
    return EndPosition(ReadLength(mSizes.array));
}

std::size_t Deserializer::BeginRecord() {
    return EndPosition(ReadLength(mSizes.record));
}

std::optional<WireType> Deserializer::FindMember(const RecordMember& member,
                                                 const std::vector<RecordMember>& model,
                                                 std::size_t recordEnd) {
    while (mPosition < mSize && mPosition < recordEnd) {
        const std::size_t tagPosition = mPosition;
        const unsigned tag = ReadU16();
        const auto wireType = static_cast<WireType>((tag >> 12U) & 0x7U);
        const unsigned dataId = tag & 0x0FFFU;
        if (dataId == member.dataId) {
            const bool bothHaveLength = HasLengthField(wireType) && HasLengthField(member.wireType);
            if (wireType != member.wireType && !bothHaveLength) {
                throw DeserializeError("Invalid source tag wire type");
            }
            return wireType;
        }
        const bool known = std::any_of(model.begin(), model.end(), [dataId](const auto& other) {
            return other.dataId == dataId;
        });
        if (known) {
            mPosition = tagPosition;
            return std::nullopt;
        }
        SkipValue(wireType);
    }
    return std::nullopt;
}

std::vector<std::uint8_t> Deserializer::ReadByteArray(WireType wireType) {
    return ReadBytes(ReadLength(LengthFieldSize(wireType)));
}

std::size_t Deserializer::LengthFieldSize(WireType wireType) const {
    switch (wireType) {
        case WireType::kLength8:
            return 1;
        case WireType::kLength16:
            return 2;
        case WireType::kLength32:
            return 4;
        default:
            break;
    }
    if (mSizes.array == 0 || mSizes.array != mSizes.string || mSizes.array != mSizes.record) {
        throw DeserializeError(
            "Violation of COM.PRS_SOMEIP_00215: All length fields must have same size and not be "
            "0 when wire type 4 is used (" +
            std::to_string(mSizes.array) + ", " + std::to_string(mSizes.string) + ", " +
            std::to_string(mSizes.record) + ")");
    }
    return mSizes.array;
}

void Deserializer::SkipValue(WireType wireType) {
    if (HasLengthField(wireType)) {
        Skip(ReadLength(LengthFieldSize(wireType)));
        return;
    }
    Skip(std::size_t{1} << static_cast<unsigned>(wireType));
}

}  // namespace someip
