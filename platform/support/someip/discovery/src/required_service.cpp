#include <algorithm>
#include <utility>

#include <someip/discovery/required_service.h>

namespace someip {

namespace {

/// How often a subscription is renewed within its time to live.
constexpr int kRenewals = 2;
/// The wait for an answer is at most the time to live divided by this, so that a subscription
/// survives a lost message.
constexpr int kAnswerWaits = 4;

}  // namespace

RequiredService::RequiredService(Environment& environment, ServiceDeployment service,
                                 SdTiming timing)
    : mEnvironment(environment), mService(std::move(service)), mTiming(timing) {}

void RequiredService::Start(TimePoint now) {
    Search(now);
}

void RequiredService::Search(TimePoint now) {
    mFinds = 0;
    mNextFind = now + mEnvironment.RandomBetween(mTiming.initialDelayMin, mTiming.initialDelayMax);
}

void RequiredService::SendFind(TimePoint now) {
    SdEntry find = EntryFor(SdEntryType::kFindService);
    find.minorVersion = kAnyMinorVersion;
    find.ttl = Ttl();
    mEnvironment.Multicast({find});
    mNextFind.reset();
    if (mFinds < mTiming.repetitionsMax) {
        mNextFind = now + mTiming.repetitionsBaseDelay * (1U << mFinds);
        ++mFinds;
    }
}

void RequiredService::Stop() {
    while (!mSubscriptions.empty()) {
        Unsubscribe(mSubscriptions.begin()->first);
    }
    mNextFind.reset();
    mOffer.reset();
}

void RequiredService::Subscribe(std::uint16_t eventgroup, TimePoint now) {
    Subscription& subscription = mSubscriptions[eventgroup];
    subscription.acknowledged = false;
    if (mOffer && !subscription.refusedUntil) {
        subscription.due = now;
        SendSubscriptions(now);
    }
}

void RequiredService::Unsubscribe(std::uint16_t eventgroup) {
    const auto subscription = mSubscriptions.find(eventgroup);
    if (subscription == mSubscriptions.end()) {
        return;
    }
    if (mOffer && subscription->second.sent) {
        if (const auto receiver = mEnvironment.EventEndpoint(mOffer->provider)) {
            mEnvironment.Send(mOffer->sdPeer, {SubscribeEntry(eventgroup, *receiver, 0)});
        }
    }
    mSubscriptions.erase(subscription);
}

void RequiredService::Handle(const ReceivedSdMessage& message, TimePoint now) {
    const bool fromProvider = mOffer && mOffer->sdPeer.address == message.sender.address;
    if (message.rebooted && fromProvider) {
        ResetSubscriptions();
        // The Offer ends unless this message renews it.
        mOffer->expiry = now;
    }
    for (const SdEntry& entry : message.content.entries) {
        if (entry.serviceId != mService.serviceId || entry.instanceId != mService.instanceId ||
            entry.majorVersion != mService.interfaceVersion) {
            continue;
        }
        if (entry.type == SdEntryType::kOfferService) {
            HandleOffer(entry, message, now);
        } else if (entry.type == SdEntryType::kSubscribeAck && fromProvider) {
            HandleAnswer(entry, now);
        }
    }
    Tick(now);
}

void RequiredService::HandleOffer(const SdEntry& entry, const ReceivedSdMessage& message,
                                  TimePoint now) {
    const bool otherSender = mOffer && mOffer->sdPeer.address != message.sender.address;
    if (entry.ttl == 0) {
        if (mOffer && !otherSender) {
            DropOffer();
        }
        return;
    }
    if (!IsAcceptable(entry, message.sender)) {
        return;
    }
    if (otherSender) {
        RejectOtherProvider(message.sender);
        return;
    }
    const bool isNew = !mOffer;
    if (mOffer && mOffer->provider != entry.endpoints.front()) {
        ResetSubscriptions();
    }
    mOffer = Offer{message.sender, entry.endpoints.front(), ExpiryOf(entry.ttl, now)};
    mNextFind.reset();
    if (isNew) {
        mEnvironment.AvailabilityChanged(true);
    }
    auto answerAt = now;
    if (message.multicast) {
        answerAt += mEnvironment.RandomBetween(mTiming.requestResponseDelayMin,
                                               mTiming.requestResponseDelayMax);
    }
    for (auto& [eventgroup, subscription] : mSubscriptions) {
        if (!subscription.refusedUntil) {
            subscription.due = Earlier(subscription.due, answerAt);
        }
    }
}

void RequiredService::RejectOtherProvider(const Endpoint& sender) {
    if (mOtherProvider != sender) {
        mOtherProvider = sender;
        mEnvironment.EntryRejected("the Offer of " + ToText(sender) + " stands beside that of " +
                                   ToText(mOffer->sdPeer));
    }
}

bool RequiredService::IsAcceptable(const SdEntry& entry, const Endpoint& sender) {
    const char* problem = nullptr;
    if (entry.refersToNothing) {
        problem = "refers to options that are not there";
    } else if (entry.endpoints.empty()) {
        problem = "has no UDP endpoint";
    } else if (entry.endpoints.size() > 1) {
        problem = "has several UDP endpoints";
    } else if (entry.endpoints.front().address != sender.address) {
        problem = "leads to another host";
    } else if (entry.endpoints.front().port == 0) {
        problem = "leads to port 0";
    }
    if (problem != nullptr) {
        mEnvironment.EntryRejected("the Offer of " + ToText(sender) + " " + problem);
        return false;
    }
    return true;
}

void RequiredService::HandleAnswer(const SdEntry& entry, TimePoint now) {
    const auto found = mSubscriptions.find(entry.eventgroupId);
    if (found == mSubscriptions.end() || !found->second.sent) {
        return;
    }
    Subscription& subscription = found->second;
    if (entry.ttl == 0) {
        if (!std::exchange(subscription.refusalReported, true)) {
            mEnvironment.SubscriptionRefused(entry.eventgroupId);
        }
        subscription.sent = false;
        subscription.acknowledged = false;
        subscription.refusedUntil = now + mTiming.subscribeRetry;
        subscription.due = subscription.refusedUntil;
        return;
    }
    if (subscription.acknowledged) {
        return;
    }
    subscription.acknowledged = true;
    subscription.refusalReported = false;
    subscription.due.reset();
    if (Ttl() != kTtlUntilReboot) {
        subscription.due = now + std::chrono::milliseconds(mTiming.ttl) / kRenewals;
    }
}

void RequiredService::DropOffer() {
    mOffer.reset();
    ResetSubscriptions();
    mEnvironment.AvailabilityChanged(false);
}

void RequiredService::ResetSubscriptions() {
    for (auto& [eventgroup, subscription] : mSubscriptions) {
        subscription = Subscription();
    }
}

void RequiredService::Tick(TimePoint now) {
    if (mOffer && IsDue(mOffer->expiry, now)) {
        mEnvironment.OfferLapsed();
        DropOffer();
        Search(now);
    }
    if (IsDue(mNextFind, now)) {
        SendFind(now);
    }
    SendSubscriptions(now);
}

void RequiredService::SendSubscriptions(TimePoint now) {
    if (!mOffer) {
        return;
    }
    const auto answerWait = std::min<std::chrono::milliseconds>(
        mTiming.subscribeRetry, std::chrono::milliseconds(mTiming.ttl) / kAnswerWaits);
    std::vector<SdEntry> entries;
    for (auto& [eventgroup, subscription] : mSubscriptions) {
        if (!IsDue(subscription.due, now)) {
            continue;
        }
        subscription.due = now + answerWait;
        subscription.refusedUntil.reset();
        const auto receiver = mEnvironment.EventEndpoint(mOffer->provider);
        if (!receiver) {
            continue;
        }
        if (subscription.sent && !subscription.acknowledged) {
            entries.push_back(SubscribeEntry(eventgroup, *receiver, 0));
        }
        entries.push_back(SubscribeEntry(eventgroup, *receiver, Ttl()));
        subscription.sent = true;
        subscription.acknowledged = false;
    }
    if (!entries.empty()) {
        mEnvironment.Send(mOffer->sdPeer, entries);
    }
}

std::optional<TimePoint> RequiredService::NextDeadline() const {
    std::optional<TimePoint> next = mNextFind;
    if (!mOffer) {
        return next;
    }
    next = Earlier(next, mOffer->expiry);
    for (const auto& [eventgroup, subscription] : mSubscriptions) {
        next = Earlier(next, subscription.due);
    }
    return next;
}

std::uint32_t RequiredService::Ttl() const {
    return static_cast<std::uint32_t>(mTiming.ttl.count());
}

SdEntry RequiredService::EntryFor(SdEntryType type) const {
    SdEntry entry;
    entry.type = type;
    entry.serviceId = mService.serviceId;
    entry.instanceId = mService.instanceId;
    entry.majorVersion = mService.interfaceVersion;
    return entry;
}

SdEntry RequiredService::SubscribeEntry(std::uint16_t eventgroup, const Endpoint& receiver,
                                        std::uint32_t ttl) const {
    SdEntry entry = EntryFor(SdEntryType::kSubscribe);
    entry.eventgroupId = eventgroup;
    entry.ttl = ttl;
    entry.endpoints = {receiver};
    return entry;
}

}  // namespace someip
