#include <algorithm>
#include <utility>

#include <someip/discovery/provided_service.h>

namespace someip {

namespace {

/// Peers that may wait for a unicast Offer; the next multicast one reaches the others.
constexpr std::size_t kMaxAnswers = 64;

}  // namespace

ProvidedService::ProvidedService(Environment& environment, ServiceDeployment service,
                                 SdTiming timing, Endpoint endpoint)
    : mEnvironment(environment),
      mService(std::move(service)),
      mTiming(timing),
      mEndpoint(endpoint) {
    for (const auto& [name, event] : mService.events) {
        mEventgroups.insert(event.eventgroup);
    }
}

void ProvidedService::Offer(TimePoint now) {
    if (mNextOffer) {
        return;
    }
    mOffers = 0;
    mNextOffer = now + mEnvironment.RandomBetween(mTiming.initialDelayMin, mTiming.initialDelayMax);
}

void ProvidedService::StopOffer() {
    mNextOffer.reset();
    mAnswers.clear();
    mSubscriptions.clear();
    if (std::exchange(mOffers, 0) != 0) {
        mEnvironment.Multicast({OfferEntry(0)});
    }
}

void ProvidedService::Handle(const ReceivedSdMessage& message, TimePoint now) {
    if (message.rebooted) {
        mSubscriptions.erase(std::remove_if(mSubscriptions.begin(), mSubscriptions.end(),
                                            [&message](const Subscription& subscription) {
                                                return subscription.sdPeer.address ==
                                                       message.sender.address;
                                            }),
                             mSubscriptions.end());
    }
    std::vector<SdEntry> answers;
    std::vector<std::pair<Endpoint, std::uint16_t>> subscribed;
    for (const SdEntry& entry : message.content.entries) {
        if (entry.type == SdEntryType::kFindService) {
            HandleFind(entry, message, now);
        } else if (entry.type == SdEntryType::kSubscribe && !message.multicast) {
            bool isNew = false;
            if (auto answer = HandleSubscribe(entry, message.sender, now, isNew)) {
                answers.push_back(std::move(*answer));
            }
            // The values are sent once per message, however many Subscribe entries it has.
            if (isNew && std::find(subscribed.begin(), subscribed.end(),
                                   std::make_pair(entry.endpoints.front(), entry.eventgroupId)) ==
                             subscribed.end()) {
                subscribed.emplace_back(entry.endpoints.front(), entry.eventgroupId);
            }
        }
    }
    if (!answers.empty()) {
        mEnvironment.Send(message.sender, answers);
    }
    for (const auto& [receiver, eventgroup] : subscribed) {
        mEnvironment.Subscribed(receiver, eventgroup);
    }
    Tick(now);
}

void ProvidedService::HandleFind(const SdEntry& entry, const ReceivedSdMessage& message,
                                 TimePoint now) {
    const bool meansThis =
        entry.serviceId == mService.serviceId &&
        (entry.instanceId == mService.instanceId || entry.instanceId == kAnyInstanceId) &&
        (entry.majorVersion == mService.interfaceVersion ||
         entry.majorVersion == kAnyMajorVersion) &&
        (entry.minorVersion == mService.minorVersion || entry.minorVersion == kAnyMinorVersion);
    // Within the initial delay the first Offer is due soon.
    if (!meansThis || mOffers == 0 || mAnswers.size() >= kMaxAnswers) {
        return;
    }
    std::optional<Endpoint> peer;
    if (message.content.unicast) {
        peer = message.sender;
    }
    const bool waits =
        std::any_of(mAnswers.begin(), mAnswers.end(),
                    [&peer](const PendingAnswer& answer) { return answer.peer == peer; });
    if (waits) {
        return;
    }
    auto due = now;
    if (message.multicast) {
        due += mEnvironment.RandomBetween(mTiming.requestResponseDelayMin,
                                          mTiming.requestResponseDelayMax);
    }
    mAnswers.push_back({peer, due});
}

std::optional<SdEntry> ProvidedService::HandleSubscribe(const SdEntry& entry,
                                                        const Endpoint& sender, TimePoint now,
                                                        bool& isNew) {
    SdEntry answer = entry;
    answer.type = SdEntryType::kSubscribeAck;
    answer.endpoints.clear();
    DropExpired(now);
    const char* const reason = ReasonToRefuse(entry, sender);
    if (entry.ttl == 0) {
        if (reason == nullptr) {
            const auto subscription = Find(entry);
            if (subscription != mSubscriptions.end()) {
                mSubscriptions.erase(subscription);
            }
        }
        return std::nullopt;
    }
    if (reason != nullptr) {
        mEnvironment.EntryRejected("a Subscribe of " + ToText(sender) + " is refused: " + reason);
        answer.ttl = 0;
        return answer;
    }
    auto subscription = Find(entry);
    if (subscription == mSubscriptions.end()) {
        if (mSubscriptions.size() >= kMaxSubscriptions) {
            mEnvironment.EntryRejected("a Subscribe of " + ToText(sender) +
                                       " is refused: too many subscriptions");
            answer.ttl = 0;
            return answer;
        }
        isNew = true;
        subscription = mSubscriptions.insert(
            subscription,
            {sender, entry.endpoints.front(), entry.eventgroupId, entry.counter, std::nullopt});
    }
    subscription->expiry = ExpiryOf(entry.ttl, now);
    return answer;
}

const char* ProvidedService::ReasonToRefuse(const SdEntry& entry, const Endpoint& sender) const {
    if (mOffers == 0) {
        return "nothing is offered";
    }
    if (entry.serviceId != mService.serviceId || entry.instanceId != mService.instanceId ||
        entry.majorVersion != mService.interfaceVersion) {
        return "unknown service, instance or version";
    }
    if (mEventgroups.count(entry.eventgroupId) == 0) {
        return "unknown eventgroup";
    }
    if (entry.refersToNothing || entry.endpoints.size() != 1) {
        return "not one UDP endpoint";
    }
    const Endpoint& receiver = entry.endpoints.front();
    if (receiver.address != sender.address || receiver.port == 0) {
        return "its endpoint is on another host";
    }
    return nullptr;
}

std::vector<ProvidedService::Subscription>::iterator ProvidedService::Find(const SdEntry& entry) {
    return std::find_if(mSubscriptions.begin(), mSubscriptions.end(),
                        [&entry](const Subscription& subscription) {
                            return subscription.receiver == entry.endpoints.front() &&
                                   subscription.eventgroup == entry.eventgroupId &&
                                   subscription.counter == entry.counter;
                        });
}

void ProvidedService::DropExpired(TimePoint now) {
    mSubscriptions.erase(std::remove_if(mSubscriptions.begin(), mSubscriptions.end(),
                                        [now](const Subscription& subscription) {
                                            return IsDue(subscription.expiry, now);
                                        }),
                         mSubscriptions.end());
}

void ProvidedService::Tick(TimePoint now) {
    if (IsDue(mNextOffer, now)) {
        SendOffer(std::nullopt);
        mNextOffer =
            now + (mOffers < mTiming.repetitionsMax ? mTiming.repetitionsBaseDelay * (1U << mOffers)
                                                    : mTiming.cyclicOfferDelay);
        mOffers = std::min(mOffers + 1, mTiming.repetitionsMax + 1);
    }
    for (auto answer = mAnswers.begin(); answer != mAnswers.end();) {
        if (answer->due > now) {
            ++answer;
            continue;
        }
        SendOffer(answer->peer);
        answer = mAnswers.erase(answer);
    }
}

void ProvidedService::SendOffer(const std::optional<Endpoint>& peer) {
    const SdEntry offer = OfferEntry(static_cast<std::uint32_t>(mTiming.ttl.count()));
    if (peer) {
        mEnvironment.Send(*peer, {offer});
    } else {
        mEnvironment.Multicast({offer});
    }
}

std::optional<TimePoint> ProvidedService::NextDeadline() const {
    std::optional<TimePoint> next = mNextOffer;
    for (const PendingAnswer& answer : mAnswers) {
        next = Earlier(next, answer.due);
    }
    return next;
}

std::set<Endpoint> ProvidedService::Receivers(std::uint16_t eventgroup, TimePoint now) {
    DropExpired(now);
    std::set<Endpoint> receivers;
    for (const Subscription& subscription : mSubscriptions) {
        if (subscription.eventgroup == eventgroup) {
            receivers.insert(subscription.receiver);
        }
    }
    return receivers;
}

SdEntry ProvidedService::OfferEntry(std::uint32_t ttl) const {
    SdEntry entry;
    entry.type = SdEntryType::kOfferService;
    entry.serviceId = mService.serviceId;
    entry.instanceId = mService.instanceId;
    entry.majorVersion = mService.interfaceVersion;
    entry.minorVersion = mService.minorVersion;
    entry.ttl = ttl;
    entry.endpoints = {mEndpoint};
    return entry;
}

}  // namespace someip
