#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <someip/wire/deserializer.h>

#include "platform/support/someip/hex.h"

namespace {

using someip::DeserializeError;
using someip::Deserializer;
using testing::ThrowsMessage;

TEST(DeserializerRules, LengthFieldsHaveOneTwoOrFourBytes) {
    const auto bytes = Hex("01 0002 00000003 0000000000000000");
    Deserializer in(bytes.data(), bytes.size());
    EXPECT_EQ(in.ReadLength(1), 1U);
    EXPECT_EQ(in.ReadLength(2), 2U);
    EXPECT_EQ(in.ReadLength(4), 3U);
    for (const std::size_t size : {std::size_t{0}, std::size_t{3}, std::size_t{8}}) {
        EXPECT_THAT([&] { in.ReadLength(size); },
                    ThrowsMessage<DeserializeError>("Invalid value for length field size."));
    }
}

TEST(DeserializerRules, EndPositionsDontWrapAround) {
    const auto bytes = Hex("00 00");
    Deserializer in(bytes.data(), bytes.size());
    in.ReadU8();
    EXPECT_THAT([&] { in.EndPosition(std::numeric_limits<std::size_t>::max()); },
                ThrowsMessage<DeserializeError>("Deserialization detected std::size_t overflow."));
    EXPECT_THAT(
        [&] { in.EndPosition(2); },
        ThrowsMessage<DeserializeError>("Deserialization calculated invalid end position."));
    EXPECT_EQ(in.EndPosition(1), 2U);
}

TEST(DeserializerRules, WireType4NeedsLengthFieldsOfOneSize) {
    const auto bytes = Hex("0001 41");
    EXPECT_EQ(Deserializer(bytes.data(), bytes.size(), {2, 2, 2})
                  .ReadByteArray(someip::WireType::kConfiguredLength),
              std::vector<std::uint8_t>{0x41});
    for (const auto& sizes : {someip::LengthFieldSizes{4, 2, 4}, someip::LengthFieldSizes{0, 0, 0},
                              someip::LengthFieldSizes{4, 4, 1}}) {
        Deserializer in(bytes.data(), bytes.size(), sizes);
        EXPECT_THAT(
            [&] { in.ReadByteArray(someip::WireType::kConfiguredLength); },
            ThrowsMessage<DeserializeError>(
                "Violation of COM.PRS_SOMEIP_00215: All length fields must have same size and"
                " not be 0 when wire type 4 is used (" +
                std::to_string(sizes.array) + ", " + std::to_string(sizes.string) + ", " +
                std::to_string(sizes.record) + ")"));
    }
}

}  // namespace
