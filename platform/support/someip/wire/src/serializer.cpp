#include <utility>

#include <someip/wire/serializer.h>

namespace someip {

void Serializer::WriteU8(std::uint8_t value) {
    mBytes.push_back(value);
}

void Serializer::WriteU16(std::uint16_t value) {
    WriteU8(static_cast<std::uint8_t>(value >> 8U));
    WriteU8(static_cast<std::uint8_t>(value & 0xFFU));
}

void Serializer::WriteU32(std::uint32_t value) {
    WriteU16(static_cast<std::uint16_t>(value >> 16U));
    WriteU16(static_cast<std::uint16_t>(value & 0xFFFFU));
}

void Serializer::WriteBytes(const std::vector<std::uint8_t>& bytes) {
    mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
}

void Serializer::WriteTag(WireType wireType, std::uint16_t dataId) {
    WriteU16(
        static_cast<std::uint16_t>((static_cast<unsigned>(wireType) << 12U) | (dataId & 0x0FFFU)));
}

void Serializer::WriteByteArrayMember(std::uint16_t dataId,
                                      const std::vector<std::uint8_t>& bytes) {
    WriteTag(WireType::kLength32, dataId);
    WriteU32(static_cast<std::uint32_t>(bytes.size()));
    WriteBytes(bytes);
}

std::size_t Serializer::BeginLength() {
    const std::size_t begin = mBytes.size();
    WriteU32(0);
    return begin;
}

void Serializer::EndLength(std::size_t begin) {
    const auto length = static_cast<std::uint32_t>(mBytes.size() - begin - sizeof(std::uint32_t));
    for (std::size_t i = 0; i < sizeof(length); ++i) {
        mBytes[begin + i] = static_cast<std::uint8_t>((length >> (24U - 8U * i)) & 0xFFU);
    }
}

std::vector<std::uint8_t> Serializer::Take() {
    return std::exchange(mBytes, {});
}

}  // namespace someip
