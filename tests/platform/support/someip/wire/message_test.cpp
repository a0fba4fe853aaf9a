#include <gmock/gmock.h>

#include <someip/wire/message.h>
#include <someip/wire/sd_message.h>

#include "platform/support/someip/hex.h"

namespace {

using someip::SdEntry;
using testing::ElementsAre;
using testing::HasSubstr;

/// What comes of a datagram: the payloads' sizes, then the problem.
std::vector<std::string> Read(const someip::Bytes& datagram) {
    std::vector<std::string> seen;
    someip::DecodeAll(
        datagram.data(), datagram.size(),
        [&](const someip::Message& message) {
            seen.push_back(std::to_string(message.payload.size()));
        },
        [&](const std::string& problem) { seen.push_back(problem); });
    return seen;
}

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
    std::size_t size = bytes.size();
    const auto read = someip::Decode(bytes.data(), size, problem);
    ASSERT_TRUE(read) << problem;
    EXPECT_EQ(someip::Encode(*read), bytes);
}

TEST(SomeipMessage, DatagramIsReadUpToWhatBreaksTheHeader) {
    const struct {
        const char* hex;
        const char* problem;
    } kBroken[] = {
        {"4D01 8001 00000008 0000 0001 01 01 02", "shorter than a header"},
        {"4D01 8001 00000007 0000 0001 01 01 02 00", "length field 7 before 8 bytes"},
        {"4D01 8001 00000009 0000 0001 01 01 02 00", "length field 9 before 8 bytes"},
        {"4D01 8001 FFFFFFFF 0000 0001 01 01 02 00", "length field 4294967295 before 8 bytes"},
        {"4D01 8001 00000008 0000 0001 02 01 02 00", "protocol version 2"},
        {"4D01 8001 00000008 0000 0001 01 01 40 00", "message type 64"},
    };
    const std::string good = "4D01 8001 0000000A 0000 0001 01 01 02 00 AABB";
    EXPECT_THAT(Read(Hex(good + good)), ElementsAre("2", "2"));
    EXPECT_THAT(Read({}), ElementsAre("shorter than a header"));
    for (const auto& broken : kBroken) {
        EXPECT_THAT(Read(Hex(broken.hex)), ElementsAre(broken.problem));
        EXPECT_THAT(Read(Hex(good + broken.hex)), ElementsAre("2", broken.problem));
    }
}

someip::Message SdMessageOf(const std::string& payload) {
    someip::Message message = someip::ToMessage({}, 1);
    message.payload = Hex(payload);
    return message;
}

std::string ProblemOf(const someip::Message& message) {
    std::string problem = "none";
    EXPECT_FALSE(someip::ParseSdMessage(message, problem));
    return problem;
}

// Two entries that share an option; flags, lengths and layouts as in PRS_SOMEIPSD.
constexpr const char* kTwoSubscribes =
    "C0 000000 00000020"
    " 06 00 00 10 1234 0001 02 000003 0000 0001"
    " 06 00 00 10 1234 0001 02 000000 0005 0002"
    " 0000000C  0009 04 00 7F000003 00 11 1388";

TEST(SdMessage, HasTheLayoutOfThePublicProtocol) {
    SdEntry subscribe;
    subscribe.type = someip::SdEntryType::kSubscribe;
    subscribe.serviceId = 0x1234;
    subscribe.instanceId = 1;
    subscribe.majorVersion = 2;
    subscribe.ttl = 3;
    subscribe.eventgroupId = 1;
    subscribe.endpoints = {{0x7F000003, 5000}};
    SdEntry other = subscribe;
    other.ttl = 0;
    other.counter = 5;
    other.eventgroupId = 2;
    someip::SdMessage sd;
    sd.reboot = true;
    sd.entries = {subscribe, other};
    const someip::Message message = someip::ToMessage(sd, 0x0102);
    EXPECT_EQ(message.payload, Hex(kTwoSubscribes));
    const someip::Bytes header = someip::Encode(SdMessageOf(""));
    EXPECT_EQ(header, Hex("FFFF 8100 00000008 0000 0001 01 01 02 00"));

    std::string problem;
    const auto read = someip::ParseSdMessage(message, problem);
    ASSERT_TRUE(read) << problem;
    EXPECT_TRUE(read->reboot && read->unicast);
    EXPECT_EQ(read->entries, sd.entries);
}

TEST(SdMessage, TakesTheOptionsOfBothRunsAndPassesOverWhatItDoesNotKnow) {
    // A configuration option, a TCP endpoint, and two UDP endpoints; an unknown entry before the
    // Offer.
    std::string problem;
    const auto read = someip::ParseSdMessage(
        SdMessageOf("40 000000 00000020"
                    " 44 00 00 00 0000 0000 00 000000 00000000"
                    " 01 00 03 31 1234 0001 02 FFFFFF 00000007"
                    " 0000002A  0003 01 00 0000  0009 04 00 7F000002 00 06 0FA0"
                    "  0009 04 00 7F000002 00 11 0FA0  0009 04 00 7F000002 00 11 0FA1"),
        problem);
    ASSERT_TRUE(read) << problem;
    ASSERT_EQ(read->entries.size(), 1U);
    EXPECT_FALSE(read->reboot);
    EXPECT_EQ(read->entries[0].ttl, someip::kTtlUntilReboot);
    EXPECT_EQ(read->entries[0].minorVersion, 7U);
    EXPECT_THAT(read->entries[0].endpoints, ElementsAre(someip::Endpoint{0x7F000002, 4000},
                                                        someip::Endpoint{0x7F000002, 4001}));
    const auto astray = someip::ParseSdMessage(
        SdMessageOf("40 000000 00000010 01 01 00 10 1234 0001 02 000003 00000007 00000000"),
        problem);
    ASSERT_TRUE(astray);
    EXPECT_TRUE(astray->entries[0].refersToNothing);
}

TEST(SdMessage, ArraysThatDoNotFitAreRefused) {
    const std::string none = "C0 000000 00000000";
    const struct {
        std::string payload;
        const char* problem;
    } kBroken[] = {
        {"C0 000000", "Read beyond"},
        {"C0 000000 00000010 01", "Seek beyond"},
        {"C0 000000 00000001 01 00000000", "entries of 1 bytes"},
        {"C0 000000 00001000", "entries of 4096 bytes"},
        {none, "Read beyond"},
        {none + "00000001", "invalid end position"},
        {none + "00000000 00", "options of 0 bytes in 1"},
        {none + "00000003 0009 04", "invalid end position"},
        {none + "00000001 00", "Read beyond"},
    };
    for (const auto& broken : kBroken) {
        EXPECT_THAT(ProblemOf(SdMessageOf(broken.payload)), HasSubstr(broken.problem))
            << broken.payload;
    }
    const std::string options(std::size_t{256} * 6, '0');
    EXPECT_THAT(ProblemOf(SdMessageOf(none + "00000300" + options)), HasSubstr("too many options"));
}

TEST(SdMessage, OtherHeadersAreNoneOfServiceDiscovery) {
    std::vector<someip::Message> others(6, SdMessageOf(kTwoSubscribes));
    others[0].serviceId = 0xFFFE;
    others[1].methodId = 0x8101;
    others[2].interfaceVersion = 2;
    others[3].type = someip::MessageType::kRequest;
    others[4].returnCode = someip::ReturnCode::kNotOk;
    others[5].sessionId = 0;
    for (const auto& other : others) {
        EXPECT_THAT(ProblemOf(other), testing::Not("none"));
    }
}

}  // namespace
