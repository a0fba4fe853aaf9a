#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include <someip/wire/endpoint.h>

namespace someip {

/// Peers that are remembered at a time; the one that was silent for longest is replaced.
constexpr std::size_t kMaxSdPeers = 256;

/// Session id and reboot flag of one message of service discovery.
struct SdStamp {
    std::uint16_t sessionId{0};
    bool reboot{true};

    bool operator==(const SdStamp& other) const {
        return sessionId == other.sessionId && reboot == other.reboot;
    }
};

/// Stamps outgoing messages (PRS_SOMEIPSD, session handling) with one counter for the multicast
/// group and one for each peer, from 1 to 0xFFFF and from 1 again; the first wrap clears the reboot
/// flag. Not to be shared between threads.
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

/// Detects from the stamps of incoming messages that a peer has restarted (PRS_SOMEIPSD, reboot
/// detection), separately for multicast and unicast. Not to be shared between threads.
class RebootDetector {
public:
    /// Records a message's stamp; true if its sender has rebooted since its previous message.
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
