#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace someip {

using Bytes = std::vector<std::uint8_t>;

/// Message types of PRS_SOMEIP that this transport uses.
enum class MessageType : std::uint8_t {
    kRequest = 0x00,
    kRequestNoReturn = 0x01,
    kNotification = 0x02,
    kResponse = 0x80,
    kError = 0x81,
};

/// Return codes of PRS_SOMEIP that this transport uses.
enum class ReturnCode : std::uint8_t {
    kOk = 0x00,
    kNotOk = 0x01,
    kUnknownService = 0x02,
    kUnknownMethod = 0x03,
    kNotReady = 0x04,
    kWrongInterfaceVersion = 0x08,
    kMalformedMessage = 0x09,
};

constexpr std::uint8_t kProtocolVersion = 1;
constexpr std::size_t kHeaderSize = 16;
/// Largest payload: one UDP datagram over IPv4 (65507 bytes) less the header.
constexpr std::size_t kMaxPayload = 65507 - kHeaderSize;

/// One SOME/IP message (PRS_SOMEIP, header of 16 bytes in network byte order and the payload).
struct Message {
    std::uint16_t serviceId{0};
    std::uint16_t methodId{0};
    std::uint16_t clientId{0};
    std::uint16_t sessionId{0};
    std::uint8_t interfaceVersion{1};
    MessageType type{MessageType::kRequest};
    ReturnCode returnCode{ReturnCode::kOk};
    Bytes payload;
};

/// The message as the bytes of one datagram. The payload must not exceed kMaxPayload.
Bytes Encode(const Message& message);

/// Reads the first message of a datagram, which may hold several (PRS_SOMEIP, UDP binding); `size`
/// becomes the number of bytes that it takes. Returns nothing if the rest of the datagram is
/// shorter than a header, the length field does not fit it, the protocol version is not 1 or the
/// message type is unknown; `problem` is then the reason.
std::optional<Message> Decode(const std::uint8_t* data, std::size_t& size, std::string& problem);

/// Reads a whole datagram: calls `take` with each message, and `drop` with the reason at the first
/// malformed one, where it ends.
void DecodeAll(const std::uint8_t* data, std::size_t size,
               const std::function<void(const Message&)>& take,
               const std::function<void(const std::string&)>& drop);

}  // namespace someip
