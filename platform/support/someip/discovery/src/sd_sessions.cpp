#include <algorithm>

#include <someip/discovery/sd_sessions.h>

namespace someip {

namespace {

/// Entry of `peer`; a new one replaces the one with the smallest `age` when the table is full.
template <typename Peers, typename Age>
auto& EntryOf(Peers& peers, const Endpoint& peer, Age age) {
    if (peers.size() >= kMaxSdPeers && peers.count(peer) == 0) {
        peers.erase(std::min_element(
            peers.begin(), peers.end(),
            [age](const auto& a, const auto& b) { return a.second.*age < b.second.*age; }));
    }
    return peers[peer];
}

}  // namespace

SdStamp SdSessions::Advance(SdStamp& last) {
    if (last.sessionId == 0xFFFF) {
        last = {1, false};
    } else {
        ++last.sessionId;
    }
    return last;
}

SdStamp SdSessions::NextMulticast() {
    return Advance(mMulticast);
}

SdStamp SdSessions::NextUnicast(const Endpoint& peer) {
    Row& row = EntryOf(mPeers, peer, &Row::used);
    row.used = ++mUses;
    return Advance(row.last);
}

bool RebootDetector::HasRebooted(const Endpoint& sender, bool multicast, const SdStamp& stamp) {
    Peer& peer = EntryOf(mPeers, sender, &Peer::heard);
    peer.heard = ++mMessages;
    std::optional<SdStamp>& last = multicast ? peer.multicast : peer.unicast;
    const bool rebooted =
        last && stamp.reboot && (!last->reboot || last->sessionId >= stamp.sessionId);
    if (rebooted) {
        // The counters of both ways have restarted.
        peer.multicast.reset();
        peer.unicast.reset();
    }
    last = stamp;
    return rebooted;
}

}  // namespace someip
