#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include <someip/wire/deserializer.h>
#include <someip/wire/sd_message.h>
#include <someip/wire/serializer.h>

namespace someip {

namespace {

constexpr unsigned kRebootFlag = 0x80;
constexpr unsigned kUnicastFlag = 0x40;
constexpr std::size_t kEntrySize = 16;
constexpr std::uint8_t kIpv4EndpointOption = 0x04;
constexpr std::uint16_t kIpv4EndpointLength = 9;
constexpr std::uint8_t kUdp = 0x11;
/// An entry has two runs of options; each has at most 15.
constexpr std::size_t kMaxRun = 15;

bool IsServiceEntry(SdEntryType type) {
    return type == SdEntryType::kFindService || type == SdEntryType::kOfferService;
}

bool IsKnown(SdEntryType type) {
    return IsServiceEntry(type) || type == SdEntryType::kSubscribe ||
           type == SdEntryType::kSubscribeAck;
}

void WriteEntry(Serializer& out, const SdEntry& entry, std::size_t firstOption) {
    const std::size_t options = std::min(entry.endpoints.size(), kMaxRun);
    out.WriteU8(static_cast<std::uint8_t>(entry.type));
    out.WriteU8(static_cast<std::uint8_t>(options == 0 ? 0 : firstOption));
    out.WriteU8(0);
    out.WriteU8(static_cast<std::uint8_t>(options << 4U));
    out.WriteU16(entry.serviceId);
    out.WriteU16(entry.instanceId);
    out.WriteU32((std::uint32_t{entry.majorVersion} << 24U) | (entry.ttl & kTtlUntilReboot));
    if (IsServiceEntry(entry.type)) {
        out.WriteU32(entry.minorVersion);
        return;
    }
    out.WriteU16(entry.counter & 0x0FU);
    out.WriteU16(entry.eventgroupId);
}

void WriteEndpoint(Serializer& out, const Endpoint& endpoint) {
    out.WriteU16(kIpv4EndpointLength);
    out.WriteU8(kIpv4EndpointOption);
    out.WriteU8(0);
    out.WriteU32(endpoint.address);
    out.WriteU8(0);
    out.WriteU8(kUdp);
    out.WriteU16(endpoint.port);
}

/// Returns nothing for an option of another kind.
std::optional<Endpoint> ReadOption(Deserializer& in, std::size_t size) {
    const std::size_t end = in.EndPosition(size);
    std::optional<Endpoint> endpoint;
    if (in.ReadU8() == kIpv4EndpointOption && size == kIpv4EndpointLength + 1U) {
        in.Skip(1);
        Endpoint read;
        read.address = in.ReadU32();
        in.Skip(1);
        const bool udp = in.ReadU8() == kUdp;
        read.port = in.ReadU16();
        if (udp) {
            endpoint = read;
        }
    }
    in.FinishAt(end);
    return endpoint;
}

using Options = std::vector<std::optional<Endpoint>>;

Options ReadOptions(Deserializer& in, std::size_t end) {
    Options options;
    while (in.Position() < end) {
        // The length field does not count the option's type.
        const std::size_t size = in.ReadU16() + std::size_t{1};
        if (options.size() == kMaxSdItems) {
            throw DeserializeError("too many options");
        }
        if (in.EndPosition(size) > end) {
            throw DeserializeError("an option reaches beyond the options");
        }
        options.push_back(ReadOption(in, size));
    }
    return options;
}

void Resolve(SdEntry& entry, const Options& options, std::size_t first, std::size_t count) {
    if (count == 0) {
        return;
    }
    if (first + count > options.size()) {
        entry.refersToNothing = true;
        return;
    }
    for (std::size_t i = first; i < first + count; ++i) {
        if (options[i]) {
            entry.endpoints.push_back(*options[i]);
        }
    }
}

SdEntry ReadEntry(Deserializer& in, const Options& options) {
    SdEntry entry;
    entry.type = static_cast<SdEntryType>(in.ReadU8());
    const std::size_t firstRun = in.ReadU8();
    const std::size_t secondRun = in.ReadU8();
    const unsigned counts = in.ReadU8();
    entry.serviceId = in.ReadU16();
    entry.instanceId = in.ReadU16();
    const std::uint32_t versionAndTtl = in.ReadU32();
    entry.majorVersion = static_cast<std::uint8_t>(versionAndTtl >> 24U);
    entry.ttl = versionAndTtl & kTtlUntilReboot;
    if (IsServiceEntry(entry.type)) {
        entry.minorVersion = in.ReadU32();
    } else {
        entry.counter = static_cast<std::uint8_t>(in.ReadU16() & 0x0FU);
        entry.eventgroupId = in.ReadU16();
    }
    Resolve(entry, options, firstRun, counts >> 4U);
    Resolve(entry, options, secondRun, counts & 0x0FU);
    return entry;
}

SdMessage ReadPayload(const Bytes& payload) {
    Deserializer in(payload.data(), payload.size());
    SdMessage sd;
    const unsigned flags = in.ReadU8();
    sd.reboot = (flags & kRebootFlag) != 0;
    sd.unicast = (flags & kUnicastFlag) != 0;
    in.Skip(3);
    const std::size_t entriesSize = in.ReadU32();
    const std::size_t entriesBegin = in.Position();
    if (entriesSize % kEntrySize != 0 || entriesSize / kEntrySize > kMaxSdItems) {
        throw DeserializeError("entries of " + std::to_string(entriesSize) + " bytes");
    }
    in.Skip(entriesSize);
    const std::size_t optionsSize = in.ReadU32();
    if (in.EndPosition(optionsSize) != payload.size()) {
        throw DeserializeError("options of " + std::to_string(optionsSize) + " bytes in " +
                               std::to_string(payload.size() - in.Position()));
    }
    const Options options = ReadOptions(in, payload.size());
    Deserializer entries(payload.data(), entriesBegin + entriesSize);
    entries.Skip(entriesBegin);
    while (entries.Position() < entriesBegin + entriesSize) {
        SdEntry entry = ReadEntry(entries, options);
        if (IsKnown(entry.type)) {
            sd.entries.push_back(std::move(entry));
        }
    }
    return sd;
}

}  // namespace

bool SdEntry::operator==(const SdEntry& other) const {
    const auto all = [](const SdEntry& e) {
        return std::tie(e.type, e.serviceId, e.instanceId, e.majorVersion, e.ttl, e.minorVersion,
                        e.counter, e.eventgroupId, e.endpoints, e.refersToNothing);
    };
    return all(*this) == all(other);
}

Message ToMessage(const SdMessage& sd, std::uint16_t sessionId) {
    Serializer out;
    const unsigned flags = (sd.reboot ? kRebootFlag : 0U) | (sd.unicast ? kUnicastFlag : 0U);
    out.WriteU32(flags << 24U);
    // Entries with the same options share them.
    std::vector<Endpoint> options;
    std::map<std::vector<Endpoint>, std::size_t> known;
    const std::size_t entries = out.BeginLength();
    for (const SdEntry& entry : sd.entries) {
        const auto [run, isNew] = known.emplace(entry.endpoints, options.size());
        if (isNew) {
            options.insert(options.end(), entry.endpoints.begin(), entry.endpoints.end());
        }
        WriteEntry(out, entry, run->second);
    }
    out.EndLength(entries);
    const std::size_t begin = out.BeginLength();
    for (const Endpoint& option : options) {
        WriteEndpoint(out, option);
    }
    out.EndLength(begin);

    Message message;
    message.serviceId = kSdServiceId;
    message.methodId = kSdMethodId;
    message.sessionId = sessionId;
    message.interfaceVersion = kSdInterfaceVersion;
    message.type = MessageType::kNotification;
    message.payload = out.Take();
    return message;
}

std::optional<SdMessage> ParseSdMessage(const Message& message, std::string& problem) {
    if (message.serviceId != kSdServiceId || message.methodId != kSdMethodId ||
        message.interfaceVersion != kSdInterfaceVersion ||
        message.type != MessageType::kNotification || message.returnCode != ReturnCode::kOk) {
        problem = "no message of service discovery";
        return std::nullopt;
    }
    if (message.sessionId == 0) {
        problem = "session id 0";
        return std::nullopt;
    }
    try {
        return ReadPayload(message.payload);
    } catch (const DeserializeError& error) {
        problem = error.what();
        return std::nullopt;
    }
}

}  // namespace someip
