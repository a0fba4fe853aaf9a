#include "client_service.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <someip/log/incident.h>

namespace someip {

namespace {

/// After this a watcher that was too slow for a change is notified of the current state.
constexpr std::chrono::milliseconds kLaggingWait{500};

template <typename T>
void Remove(std::vector<std::shared_ptr<T>>& handlers,
            const std::shared_ptr<RegisteredHandler>& handler) {
    handlers.erase(std::remove(handlers.begin(), handlers.end(), handler), handlers.end());
}

}  // namespace

ClientService::ClientService(Node& node, std::string name, std::string instance)
    : mNode(node), mName(std::move(name)), mInstance(std::move(instance)), mDrops("of " + mName) {}

void ClientService::Deploy(const ServiceDeployment& service, const SdTiming& timing,
                           TimePoint now) {
    mProblem.End();
    if (mRequired && mDeployment == service && mTiming == timing) {
        return;
    }
    if (mRequired) {
        mRequired->Stop();
        AvailabilityChanged(false);
    }
    mDeployment = service;
    mTiming = timing;
    mRequired.emplace(static_cast<RequiredService::Environment&>(*this), service, timing);
    for (const std::uint16_t eventgroup : WantedEventgroups()) {
        mRequired->Subscribe(eventgroup, now);
    }
    mRequired->Start(now);
}

void ClientService::Undeploy(const std::string& problem) {
    if (!problem.empty()) {
        mProblem.Report(problem);
    }
    if (mRequired) {
        mRequired->Stop();
        mRequired.reset();
        AvailabilityChanged(false);
    }
}

void ClientService::Add(const std::shared_ptr<AvailabilityWatcher>& watcher) {
    mWatchers.push_back(watcher);
    NotifyWatchers();
}

void ClientService::Add(const std::shared_ptr<EventSubscriber>& subscriber, TimePoint now) {
    mSubscribers.push_back(subscriber);
    if (!mRequired) {
        return;
    }
    if (const auto eventgroup = EventgroupOf(subscriber->event)) {
        mRequired->Subscribe(*eventgroup, now);
    } else {
        Log().Warn("event " + subscriber->event + " of " + mName + " is not deployed");
    }
}

void ClientService::Drop(const std::shared_ptr<RegisteredHandler>& registered) {
    const std::set<std::uint16_t> before = WantedEventgroups();
    Remove(mWatchers, registered);
    Remove(mSubscribers, registered);
    const std::set<std::uint16_t> after = WantedEventgroups();
    for (const std::uint16_t eventgroup : before) {
        if (mRequired && after.count(eventgroup) == 0) {
            mRequired->Unsubscribe(eventgroup);
        }
    }
}

void ClientService::Handle(const ReceivedSdMessage& message, TimePoint now) {
    if (mRequired) {
        mRequired->Handle(message, now);
    }
}

void ClientService::Tick(TimePoint now) {
    if (mRequired) {
        mRequired->Tick(now);
    }
    NotifyWatchers();
}

std::optional<TimePoint> ClientService::NextDeadline(TimePoint now) const {
    const auto next = mRequired ? mRequired->NextDeadline() : std::nullopt;
    const bool pending =
        std::any_of(mWatchers.begin(), mWatchers.end(),
                    [this](const auto& watcher) { return watcher->notified != mAvailable; });
    return pending ? Earlier(next, now + kLaggingWait) : next;
}

void ClientService::Multicast(const std::vector<SdEntry>& entries) {
    mNode.Multicast(entries);
}

void ClientService::Send(const Endpoint& peer, const std::vector<SdEntry>& entries) {
    mNode.Send(peer, entries);
}

std::chrono::milliseconds ClientService::RandomBetween(std::chrono::milliseconds min,
                                                       std::chrono::milliseconds max) {
    return mNode.RandomBetween(min, max);
}

void ClientService::EntryRejected(const std::string& reason) {
    mDrops.Dropped(reason, Clock::now());
}

std::optional<Endpoint> ClientService::EventEndpoint(const Endpoint& provider) {
    if (mEventSocket && mEventPeer == provider) {
        return mEventSocket->Local();
    }
    CloseEventSocket();
    try {
        const auto weak = weak_from_this();
        mEventSocket = mNode.OpenEventSocket(
            provider,
            [weak](const std::uint8_t* data, std::size_t size, const Endpoint&) {
                if (const auto self = weak.lock()) {
                    self->Receive(data, size);
                }
            },
            [weak](const std::string& problem) {
                if (const auto self = weak.lock()) {
                    Log().Warn(self->mName + ": receiving failed: " + problem);
                    self->CloseEventSocket();
                }
            });
        mEventPeer = provider;
        return mEventSocket->Local();
    } catch (const std::exception& exception) {
        Log().Warn("no way to " + mName + ": " + exception.what());
        return std::nullopt;
    }
}

void ClientService::CloseEventSocket() {
    if (mEventSocket) {
        mEventSocket->Close();
        mEventSocket.reset();
    }
}

void ClientService::AvailabilityChanged(bool available) {
    if (!available) {
        CloseEventSocket();
    }
    if (mAvailable != available) {
        mAvailable = available;
        mNode.AvailabilityChanged();
        NotifyWatchers();
    }
}

void ClientService::OfferLapsed() {
    Log().Warn(mName + " is no longer offered");
}

void ClientService::SubscriptionRefused(std::uint16_t eventgroup) {
    Log().Warn(mName + " refuses the subscription to eventgroup " + std::to_string(eventgroup));
}

void ClientService::NotifyWatchers() {
    for (const auto& watcher : mWatchers) {
        if (watcher->notified == mAvailable || watcher->IsLagging()) {
            continue;
        }
        watcher->notified = mAvailable;
        Deliver(watcher, [watcher, available = mAvailable] { watcher->handler(available); });
    }
}

std::optional<std::uint16_t> ClientService::EventgroupOf(const std::string& event) const {
    if (!mDeployment) {
        return std::nullopt;
    }
    const auto known = mDeployment->events.find(event);
    if (known == mDeployment->events.end()) {
        return std::nullopt;
    }
    return known->second.eventgroup;
}

std::set<std::uint16_t> ClientService::WantedEventgroups() const {
    std::set<std::uint16_t> eventgroups;
    for (const auto& subscriber : mSubscribers) {
        if (const auto eventgroup = EventgroupOf(subscriber->event)) {
            eventgroups.insert(*eventgroup);
        }
    }
    return eventgroups;
}

void ClientService::Receive(const std::uint8_t* data, std::size_t size) {
    DecodeAll(
        data, size,
        [this](const Message& message) {
            if (!Take(message)) {
                mDrops.Dropped("unexpected service, method or version (" +
                                   std::to_string(message.serviceId) + ", " +
                                   std::to_string(message.methodId) + ", type " +
                                   std::to_string(static_cast<unsigned>(message.type)) + ")",
                               Clock::now());
            }
        },
        [this](const std::string& problem) { mDrops.Dropped(problem, Clock::now()); });
}

bool ClientService::Take(const Message& message) {
    if (!mDeployment || message.serviceId != mDeployment->serviceId ||
        message.interfaceVersion != mDeployment->interfaceVersion ||
        message.type != MessageType::kNotification || message.returnCode != ReturnCode::kOk) {
        return false;
    }
    for (const auto& [name, event] : mDeployment->events) {
        if (event.id == message.methodId) {
            HandleEvent(name, message.payload);
            return true;
        }
    }
    return false;
}

void ClientService::HandleEvent(const std::string& event, const Bytes& payload) {
    const auto shared = std::make_shared<const Bytes>(payload);
    for (const auto& subscriber : mSubscribers) {
        if (subscriber->event != event) {
            continue;
        }
        if (subscriber->IsLagging()) {
            mDrops.Dropped("the receiver of " + event + " is too slow", Clock::now());
            continue;
        }
        Deliver(subscriber, [subscriber, shared] { subscriber->handler(*shared); });
    }
}

}  // namespace someip
