#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <someip/discovery/deployment.h>
#include <someip/wire/endpoint.h>
#include <someip/wire/sd_message.h>

namespace someip {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// One message of service discovery as it arrived.
struct ReceivedSdMessage {
    SdMessage content;
    Endpoint sender;
    bool multicast{false};
    /// The sender has restarted since its previous message.
    bool rebooted{false};
};

/// What the state machines of discovery need of their surroundings. Called from inside their
/// operations only, and must not call them back.
class DiscoveryEnvironment {
public:
    virtual ~DiscoveryEnvironment() = default;

    /// Sends one message of service discovery to the multicast group, or to a peer.
    virtual void Multicast(const std::vector<SdEntry>& entries) = 0;
    virtual void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) = 0;

    /// A duration at random from `min` to `max`.
    virtual std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                                    std::chrono::milliseconds max) = 0;

    /// An entry was rejected; `reason` is for the log, which counts them.
    virtual void EntryRejected(const std::string& reason) = 0;
};

/// The end of a time to live that begins now; nothing if it lasts until the sender's reboot.
inline std::optional<TimePoint> ExpiryOf(std::uint32_t ttl, TimePoint now) {
    if (ttl == kTtlUntilReboot) {
        return std::nullopt;
    }
    return now + std::chrono::seconds(ttl);
}

/// The earlier of the two; an empty one counts as never.
inline std::optional<TimePoint> Earlier(const std::optional<TimePoint>& a,
                                        const std::optional<TimePoint>& b) {
    if (!a || !b) {
        return a ? a : b;
    }
    return *a < *b ? a : b;
}

inline bool IsDue(const std::optional<TimePoint>& time, TimePoint now) {
    return time && *time <= now;
}

}  // namespace someip
