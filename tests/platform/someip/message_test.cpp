#include "someip/message.h"

#include <gtest/gtest.h>

#include "platform/someip/hex.h"
#include "someip/watch_protocol.h"

namespace {

TEST(SomeipMessage, HasTheHeaderOfThePublicProtocol) {
    someip::Message message;
    message.serviceId = 0x4D01;
    message.methodId = 0x8001;
    message.clientId = 0x0203;
    message.sessionId = 0x0405;
    message.interfaceVersion = 6;
    message.type = someip::MessageType::kNotification;
    message.payload = Hex("AABB");
    const auto bytes = someip::Encode(message);
    EXPECT_EQ(bytes, Hex("4D01 8001 0000000A 0203 0405 01 06 02 00 AABB"));

    std::string problem;
    const auto read = someip::Decode(bytes.data(), bytes.size(), problem);
    ASSERT_TRUE(read) << problem;
    EXPECT_EQ(someip::Encode(*read), bytes);
}

TEST(SomeipMessage, RefusesDatagramsThatBreakTheHeader) {
    const struct {
        const char* hex;
        const char* problem;
    } kBroken[] = {
        {"", "shorter than a header"},
        {"4D01 8001 00000008 0000 0001 01 01 02", "shorter than a header"},
        {"4D01 8001 00000007 0000 0001 01 01 02 00", "length field 7 in a datagram of 16 bytes"},
        {"4D01 8001 00000008 0000 0001 01 01 02 00 AA", "length field 8 in a datagram of 17 bytes"},
        {"4D01 8001 FFFFFFFF 0000 0001 01 01 02 00",
         "length field 4294967295 in a datagram of 16 bytes"},
        {"4D01 8001 00000008 0000 0001 02 01 02 00", "protocol version 2"},
        {"4D01 8001 00000008 0000 0001 01 01 40 00", "message type 64"},
    };
    for (const auto& broken : kBroken) {
        const auto bytes = Hex(broken.hex);
        std::string problem;
        EXPECT_FALSE(someip::Decode(bytes.data(), bytes.size(), problem)) << broken.hex;
        EXPECT_EQ(problem, broken.problem);
    }
}

TEST(WatchProtocol, RequestsOfAnotherSizeAreRefused) {
    const auto good = someip::EncodeWatchRequest(
        {1, std::chrono::milliseconds(3000), {{0x8001, true}, {0x8002, false}}});
    EXPECT_EQ(good, Hex("0001 00000BB8 0002 8001 01 8002 00"));
    const auto read = someip::DecodeWatchRequest(good);
    ASSERT_TRUE(read);
    EXPECT_EQ(someip::EncodeWatchRequest(*read), good);

    for (const char* hex : {"", "0001 00000BB8", "0001 00000BB8 0001 8001",
                            "0001 00000BB8 0001 8001 01 00", "0001 00000BB8 FFFF 8001 01"}) {
        EXPECT_FALSE(someip::DecodeWatchRequest(Hex(hex))) << hex;
    }
    EXPECT_FALSE(someip::DecodeAvailabilityNotice(Hex("0001 00000000 00")));
    EXPECT_FALSE(someip::DecodeAvailabilityNotice(Hex("0001 000000")));
}

}  // namespace
