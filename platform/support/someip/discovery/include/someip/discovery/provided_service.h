#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include <someip/discovery/discovery_environment.h>

namespace someip {

/// Server side of the discovery of one service instance, with the subscriptions of its clients
/// (PRS_SOMEIPSD). Knows neither sockets nor threads; time is handed in.
///
/// It offers the service with initial delay, repetitions and then cyclically, answers Find entries
/// after the response delay, and answers each Subscribe with Ack or Nack. The service is the only
/// one at its endpoint, so a Subscribe for another one is refused, too.
class ProvidedService {
public:
    class Environment : public DiscoveryEnvironment {
    public:
        /// The client at `receiver` has been told that it is subscribed: its first values are due.
        virtual void Subscribed(const Endpoint& receiver, std::uint16_t eventgroup) = 0;
    };

    static constexpr std::size_t kMaxSubscriptions = 64;

    /// `endpoint` is where the service itself is. `environment` must outlive the object.
    ProvidedService(Environment& environment, ServiceDeployment service, SdTiming timing,
                    Endpoint endpoint);

    void Offer(TimePoint now);
    /// Tells all clients and ends their subscriptions.
    void StopOffer();

    void Handle(const ReceivedSdMessage& message, TimePoint now);

    /// Does what is due.
    void Tick(TimePoint now);

    /// When Tick is to be called next. The end of a subscription needs no call.
    std::optional<TimePoint> NextDeadline() const;

    /// Where an eventgroup's events are to go.
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
        /// Nothing: a peer that can't receive unicast, so all are told.
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
    /// There while the service is to be offered.
    std::optional<TimePoint> mNextOffer;
    /// Offers that were sent by multicast since the service is to be offered.
    unsigned mOffers{0};
    std::vector<PendingAnswer> mAnswers;
    std::vector<Subscription> mSubscriptions;
};

}  // namespace someip
