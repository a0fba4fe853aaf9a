#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include <someip/wire/endpoint.h>

namespace someip {

/// Peers that are remembered at a time; the one that was silent for longest goes first.
constexpr std::size_t kMaxSdPeers = 256;

/// Session id and reboot flag of one message of service discovery.
struct SdStamp {
    std::uint16_t sessionId{0};
    bool reboot{true};

    bool operator==(const SdStamp& other) const {
        return sessionId == other.sessionId && reboot == other.reboot;
    }
};

/// Stamps what leaves (PRS_SOMEIPSD, session handling): one row of numbers for the multicast group
/// and one for each peer; from 1 to 0xFFFF, where the reboot flag ends, and from 1 again.
class SdSessions {
public:
    SdStamp NextMulticast();
    SdStamp NextUnicast(const Endpoint& peer);

private:
    struct Row {
        SdStamp last;
        std::uint64_t used{0};
    };
    static SdStamp Advance(SdStamp& last);

    SdStamp mMulticast;
    std::map<Endpoint, Row> mPeers;
    std::uint64_t mUses{0};
};

/// Finds out from the stamps of what arrives that a peer has started anew (PRS_SOMEIPSD, reboot
/// detection), separately for multicast and unicast.
class RebootDetector {
public:
    /// Takes note of a message; true if its sender has rebooted since the one before.
    bool HasRebooted(const Endpoint& sender, bool multicast, const SdStamp& stamp);

private:
    struct Peer {
        std::optional<SdStamp> multicast;
        std::optional<SdStamp> unicast;
        std::uint64_t heard{0};
    };
    std::map<Endpoint, Peer> mPeers;
    std::uint64_t mMessages{0};
};

}  // namespace someip
