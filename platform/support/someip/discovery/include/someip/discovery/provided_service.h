#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include <someip/discovery/discovery_environment.h>

namespace someip {

/// Server side of the discovery of one service instance, with the subscriptions of its clients
/// (PRS_SOMEIPSD). Independent of sockets and threads; the time is a parameter. Not to be shared
/// between threads.
///
/// It offers the service with initial delay, repetitions and then cyclically, answers Find entries
/// after the response delay, and answers each Subscribe with Ack or Nack. The service is the only
/// one at its endpoint, so a Subscribe for any other service is refused.
class ProvidedService {
public:
    class Environment : public DiscoveryEnvironment {
    public:
        /// The subscription of the client at `receiver` was acknowledged: its first values are due.
        virtual void Subscribed(const Endpoint& receiver, std::uint16_t eventgroup) = 0;
    };

    static constexpr std::size_t kMaxSubscriptions = 64;

    /// `endpoint` is where the service itself is. `environment` must outlive the object.
    ProvidedService(Environment& environment, ServiceDeployment service, SdTiming timing,
                    Endpoint endpoint);

    /// Begins to offer the service; no effect if it is offered already.
    void Offer(TimePoint now);
    /// Sends StopOffer and ends all subscriptions.
    void StopOffer();

    /// A message of service discovery has arrived.
    void Handle(const ReceivedSdMessage& message, TimePoint now);

    /// Does what is due.
    void Tick(TimePoint now);

    /// When Tick must be called next; nothing if only a call changes something. A subscription
    /// expires without a call.
    std::optional<TimePoint> NextDeadline() const;

    /// The endpoints that are subscribed to an eventgroup.
    std::set<Endpoint> Receivers(std::uint16_t eventgroup, TimePoint now);

private:
    struct Subscription {
        Endpoint sdPeer;
        Endpoint receiver;
        std::uint16_t eventgroup;
        std::uint8_t counter;
        std::optional<TimePoint> expiry;
    };

    struct PendingAnswer {
        /// Empty for a peer that cannot receive unicast, which is answered by multicast.
        std::optional<Endpoint> peer;
        TimePoint due;
    };

    /// Makes or ends a subscription. Gives the answer, if there is one to give; `isNew` says
    /// whether the first values are due.
    std::optional<SdEntry> HandleSubscribe(const SdEntry& entry, const Endpoint& sender,
                                           TimePoint now, bool& isNew);
    void HandleFind(const SdEntry& entry, const ReceivedSdMessage& message, TimePoint now);
    const char* ReasonToRefuse(const SdEntry& entry, const Endpoint& sender) const;
    std::vector<Subscription>::iterator Find(const SdEntry& entry);
    void DropExpired(TimePoint now);
    void SendOffer(const std::optional<Endpoint>& peer);
    SdEntry OfferEntry(std::uint32_t ttl) const;

    Environment& mEnvironment;
    const ServiceDeployment mService;
    const SdTiming mTiming;
    const Endpoint mEndpoint;
    std::set<std::uint16_t> mEventgroups;
    /// When the next Offer is due; empty while the service is not offered.
    std::optional<TimePoint> mNextOffer;
    /// Offers sent by multicast since Offer was called, up to one beyond the repetitions.
    unsigned mOffers{0};
    std::vector<PendingAnswer> mAnswers;
    std::vector<Subscription> mSubscriptions;
};

}  // namespace someip
