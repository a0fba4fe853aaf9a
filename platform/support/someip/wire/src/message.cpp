#include <someip/wire/deserializer.h>
#include <someip/wire/message.h>
#include <someip/wire/serializer.h>

namespace someip {

namespace {

/// The length field counts what follows it: client id to the end of the payload.
constexpr std::size_t kUncountedHeaderBytes = 8;

bool IsKnown(MessageType type) {
    switch (type) {
        case MessageType::kRequest:
        case MessageType::kRequestNoReturn:
        case MessageType::kNotification:
        case MessageType::kResponse:
        case MessageType::kError:
            return true;
    }
    return false;
}

}  // namespace

Bytes Encode(const Message& message) {
    Serializer out;
    out.WriteU16(message.serviceId);
    out.WriteU16(message.methodId);
    out.WriteU32(
        static_cast<std::uint32_t>(kHeaderSize - kUncountedHeaderBytes + message.payload.size()));
    out.WriteU16(message.clientId);
    out.WriteU16(message.sessionId);
    out.WriteU8(kProtocolVersion);
    out.WriteU8(message.interfaceVersion);
    out.WriteU8(static_cast<std::uint8_t>(message.type));
    out.WriteU8(static_cast<std::uint8_t>(message.returnCode));
    out.WriteBytes(message.payload);
    return out.Take();
}

std::optional<Message> Decode(const std::uint8_t* data, std::size_t& size, std::string& problem) {
    if (size < kHeaderSize) {
        problem = "shorter than a header";
        return std::nullopt;
    }
    Deserializer in(data, size);
    Message message;
    message.serviceId = in.ReadU16();
    message.methodId = in.ReadU16();
    const std::size_t length = in.ReadU32();
    message.clientId = in.ReadU16();
    message.sessionId = in.ReadU16();
    const std::uint8_t protocolVersion = in.ReadU8();
    message.interfaceVersion = in.ReadU8();
    message.type = static_cast<MessageType>(in.ReadU8());
    message.returnCode = static_cast<ReturnCode>(in.ReadU8());
    if (length < kHeaderSize - kUncountedHeaderBytes || length > size - kUncountedHeaderBytes) {
        problem = "length field " + std::to_string(length) + " before " +
                  std::to_string(size - kUncountedHeaderBytes) + " bytes";
        return std::nullopt;
    }
    if (protocolVersion != kProtocolVersion) {
        problem = "protocol version " + std::to_string(protocolVersion);
        return std::nullopt;
    }
    if (!IsKnown(message.type)) {
        problem = "message type " + std::to_string(static_cast<unsigned>(message.type));
        return std::nullopt;
    }
    size = kUncountedHeaderBytes + length;
    message.payload = in.ReadBytes(size - kHeaderSize);
    return message;
}

void DecodeAll(const std::uint8_t* data, std::size_t size,
               const std::function<void(const Message&)>& take,
               const std::function<void(const std::string&)>& drop) {
    std::size_t position = 0;
    do {
        std::size_t taken = size - position;
        std::string problem;
        const auto message = Decode(data + position, taken, problem);
        if (!message) {
            drop(problem);
            return;
        }
        take(*message);
        position += taken;
    } while (position < size);
}

}  // namespace someip
