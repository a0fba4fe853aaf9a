#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <someip/wire/endpoint.h>
#include <someip/wire/message.h>

namespace someip {

/// Service and method id of every message of service discovery (PRS_SOMEIPSD).
constexpr std::uint16_t kSdServiceId = 0xFFFF;
constexpr std::uint16_t kSdMethodId = 0x8100;
constexpr std::uint8_t kSdInterfaceVersion = 1;

constexpr std::uint16_t kAnyInstanceId = 0xFFFF;
constexpr std::uint8_t kAnyMajorVersion = 0xFF;
constexpr std::uint32_t kAnyMinorVersion = 0xFFFFFFFF;

/// Time to live for "until the sender's next reboot".
constexpr std::uint32_t kTtlUntilReboot = 0xFFFFFF;

/// Most entries, and most options, that one message may have; an option's index has eight bits.
constexpr std::size_t kMaxSdItems = 255;

enum class SdEntryType : std::uint8_t {
    kFindService = 0x00,
    /// With a time to live of 0: StopOffer.
    kOfferService = 0x01,
    /// With a time to live of 0: StopSubscribe.
    kSubscribe = 0x06,
    /// With a time to live of 0: Nack.
    kSubscribeAck = 0x07,
};

/// One entry together with those of its options that this library uses.
struct SdEntry {
    SdEntryType type{SdEntryType::kFindService};
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{0};
    std::uint8_t majorVersion{0};
    /// Seconds, 24 bits.
    std::uint32_t ttl{0};
    /// Of Find and Offer.
    std::uint32_t minorVersion{0};
    /// Of Subscribe and its answer: distinguishes subscriptions of one subscriber; 4 bits.
    std::uint8_t counter{0};
    std::uint16_t eventgroupId{0};
    /// IPv4 endpoint options with UDP, in the entry's order. Other kinds of options are left out.
    std::vector<Endpoint> endpoints;
    /// The entry refers to options that are not in the message. Not written.
    bool refersToNothing{false};

    bool operator==(const SdEntry& other) const;
};

/// Payload of one message of service discovery, without entries of unknown types.
struct SdMessage {
    /// The sender has not yet used all session ids since it started.
    bool reboot{false};
    /// The sender can receive unicast.
    bool unicast{true};
    std::vector<SdEntry> entries;
};

/// One SOME/IP message with `sd` as its payload. At most kMaxSdItems entries.
Message ToMessage(const SdMessage& sd, std::uint16_t sessionId);

/// Returns nothing if the message does not belong to service discovery, or if its arrays do not fit
/// its payload or have more than kMaxSdItems items; `problem` is then the reason.
std::optional<SdMessage> ParseSdMessage(const Message& message, std::string& problem);

}  // namespace someip
