#include "someip/watch_protocol.h"

#include "someip/deserializer.h"
#include "someip/serializer.h"

namespace someip {

namespace {

constexpr std::size_t kNoticeSize = 6;
constexpr std::size_t kRequestHeadSize = 8;
constexpr std::size_t kWatchedEventSize = 3;

}  // namespace

std::vector<std::uint8_t> EncodeWatchRequest(const WatchRequest& request) {
    Serializer out;
    out.WriteU16(request.instanceId);
    out.WriteU32(static_cast<std::uint32_t>(request.ttl.count()));
    out.WriteU16(static_cast<std::uint16_t>(request.events.size()));
    for (const WatchedEvent& event : request.events) {
        out.WriteU16(event.eventId);
        out.WriteU8(event.initial ? 1 : 0);
    }
    return out.Take();
}

std::vector<std::uint8_t> EncodeAvailabilityNotice(const AvailabilityNotice& notice) {
    Serializer out;
    out.WriteU16(notice.instanceId);
    out.WriteU32(static_cast<std::uint32_t>(notice.ttl.count()));
    return out.Take();
}

std::optional<WatchRequest> DecodeWatchRequest(const std::vector<std::uint8_t>& payload) {
    if (payload.size() < kRequestHeadSize) {
        return std::nullopt;
    }
    Deserializer in(payload.data(), payload.size());
    WatchRequest request;
    request.instanceId = in.ReadU16();
    request.ttl = std::chrono::milliseconds(in.ReadU32());
    const std::size_t count = in.ReadU16();
    if (count > kMaxWatchedEvents ||
        payload.size() != kRequestHeadSize + count * kWatchedEventSize) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < count; ++i) {
        WatchedEvent event;
        event.eventId = in.ReadU16();
        event.initial = in.ReadU8() != 0;
        request.events.push_back(event);
    }
    return request;
}

std::optional<AvailabilityNotice> DecodeAvailabilityNotice(
    const std::vector<std::uint8_t>& payload) {
    if (payload.size() != kNoticeSize) {
        return std::nullopt;
    }
    Deserializer in(payload.data(), payload.size());
    AvailabilityNotice notice;
    notice.instanceId = in.ReadU16();
    notice.ttl = std::chrono::milliseconds(in.ReadU32());
    return notice;
}

}  // namespace someip
