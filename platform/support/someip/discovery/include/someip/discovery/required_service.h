#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <someip/discovery/discovery_environment.h>

namespace someip {

/// Client side of the discovery of one service instance and of the subscription to its eventgroups
/// (PRS_SOMEIPSD). Independent of sockets and threads; the time is a parameter. Not to be shared
/// between threads.
///
/// It searches for the service by Find entries with initial delay and repetitions until an Offer
/// comes, and again when an Offer's time to live has run out; after a StopOffer it waits. Each
/// Offer renews the subscriptions; without one they are renewed before their time to live ends. A
/// Subscribe that is refused is sent again after a pause; one without an answer is sent again after
/// a StopSubscribe.
class RequiredService {
public:
    class Environment : public DiscoveryEnvironment {
    public:
        /// The endpoint that receives events from `provider`; nothing if none can be opened.
        virtual std::optional<Endpoint> EventEndpoint(const Endpoint& provider) = 0;

        virtual void AvailabilityChanged(bool available) = 0;

        /// The Offer has expired without a StopOffer; AvailabilityChanged follows.
        virtual void OfferLapsed() = 0;

        /// Called at the first of several consecutive refusals.
        virtual void SubscriptionRefused(std::uint16_t eventgroup) = 0;
    };

    /// `environment` must outlive the object.
    RequiredService(Environment& environment, ServiceDeployment service, SdTiming timing);

    /// Begins to search for the service.
    void Start(TimePoint now);

    /// Ends all subscriptions at the provider, if there is one. The object is idle afterwards;
    /// AvailabilityChanged is not called.
    void Stop();

    /// Subscribes. For an eventgroup that is subscribed already, the subscription is ended and made
    /// again, so that the provider sends the fields' current values again.
    void Subscribe(std::uint16_t eventgroup, TimePoint now);
    void Unsubscribe(std::uint16_t eventgroup);

    /// A message of service discovery has arrived.
    void Handle(const ReceivedSdMessage& message, TimePoint now);

    /// Does what is due.
    void Tick(TimePoint now);

    /// When Tick must be called next; nothing if only a message changes something.
    std::optional<TimePoint> NextDeadline() const;

    bool IsAvailable() const { return mOffer.has_value(); }

private:
    struct Offer {
        Endpoint sdPeer;
        Endpoint provider;
        std::optional<TimePoint> expiry;
    };

    struct Subscription {
        /// When the next Subscribe is due.
        std::optional<TimePoint> due;
        /// A Subscribe has been sent that the provider may hold.
        bool sent{false};
        bool acknowledged{false};
        /// Set after a Nack: no Subscribe is sent before then.
        std::optional<TimePoint> refusedUntil;
        bool refusalReported{false};
    };

    void Search(TimePoint now);
    void SendFind(TimePoint now);
    void HandleOffer(const SdEntry& entry, const ReceivedSdMessage& message, TimePoint now);
    void RejectOtherProvider(const Endpoint& sender);
    bool IsAcceptable(const SdEntry& entry, const Endpoint& sender);
    void HandleAnswer(const SdEntry& entry, TimePoint now);
    void DropOffer();
    void ResetSubscriptions();
    void SendSubscriptions(TimePoint now);
    std::uint32_t Ttl() const;
    SdEntry EntryFor(SdEntryType type) const;
    SdEntry SubscribeEntry(std::uint16_t eventgroup, const Endpoint& receiver,
                           std::uint32_t ttl) const;

    Environment& mEnvironment;
    const ServiceDeployment mService;
    const SdTiming mTiming;
    std::optional<TimePoint> mNextFind;
    unsigned mFinds{0};
    std::optional<Offer> mOffer;
    /// Another provider of the same instance, which was logged.
    std::optional<Endpoint> mOtherProvider;
    std::map<std::uint16_t, Subscription> mSubscriptions;
};

}  // namespace someip
