#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace someip {

/// The host platform's own exchange in place of service discovery: a client asks the endpoint of
/// its deployment file cyclically by a request of kWatchMethod. The answer means that the service
/// is there, and registers the sender for the listed events until the time to live runs out. A
/// time to live of 0 ends the registration (as in SOME/IP-SD's stop entries).
constexpr std::uint16_t kWatchMethod = 0x7F00;
/// Notification of a service that comes (time to live above 0) or goes (0).
constexpr std::uint16_t kAvailabilityEvent = 0xFF00;

/// Most events that one request may list.
constexpr std::size_t kMaxWatchedEvents = 32;

struct WatchedEvent {
    std::uint16_t eventId{0};
    /// The client has no value yet and asks for the current one.
    bool initial{false};
};

struct WatchRequest {
    std::uint16_t instanceId{0};
    std::chrono::milliseconds ttl{0};
    std::vector<WatchedEvent> events;
};

struct AvailabilityNotice {
    std::uint16_t instanceId{0};
    std::chrono::milliseconds ttl{0};
};

std::vector<std::uint8_t> EncodeWatchRequest(const WatchRequest& request);
std::vector<std::uint8_t> EncodeAvailabilityNotice(const AvailabilityNotice& notice);

/// Nothing comes back for a payload of another form.
std::optional<WatchRequest> DecodeWatchRequest(const std::vector<std::uint8_t>& payload);
std::optional<AvailabilityNotice> DecodeAvailabilityNotice(
    const std::vector<std::uint8_t>& payload);

}  // namespace someip
