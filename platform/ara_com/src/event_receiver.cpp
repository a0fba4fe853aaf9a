#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include <ara/com/internal/proxy/event_receiver.h>
#include <someip/client/service_client.h>
#include <someip/log/incident.h>

namespace ara::com::internal::proxy {

using ac::com::cpp_binding::Event_cache_update_policy;

/// Owned by the subscription, too, so that a sample on its way finds it.
class EventReceiver::Impl : public std::enable_shared_from_this<EventReceiver::Impl> {
public:
    Impl(std::shared_ptr<someip::ServiceClient> client, std::string event, Decoder decoder)
        : mClient(std::move(client)), mEvent(std::move(event)), mDecoder(std::move(decoder)) {}

    void SetReceiveHandler(std::function<void()> handler) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHandler = std::move(handler);
    }

    void Subscribe(Event_cache_update_policy policy, std::size_t cacheSize) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mRegistration) {
            return;
        }
        mPolicy = policy;
        mCacheSize = std::max<std::size_t>(cacheSize, 1);
        mRegistration = mClient->SubscribeEvent(
            mEvent, [weak = weak_from_this()](const std::vector<std::uint8_t>& payload) {
                if (const auto self = weak.lock()) {
                    self->Receive(payload);
                }
            });
    }

    void Unsubscribe() {
        std::shared_ptr<someip::ServiceClient::Registration> registration;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            registration = mRegistration;
        }
        if (!registration) {
            return;
        }
        // Waits for a running handler, which may need the mutex.
        registration->Close();
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mRegistration == registration) {
            mRegistration.reset();
        }
        const std::unique_lock<std::shared_mutex> storeLock(mStoreMutex);
        mStore.clear();
    }

    bool Update() {
        const std::lock_guard<std::mutex> lock(mMutex);
        const std::shared_lock<std::shared_mutex> storeLock(mStoreMutex);
        std::vector<Sample> fresh;
        for (const auto& [number, sample] : mStore) {
            if (number > mLastTaken) {
                fresh.push_back(sample);
                mLastTaken = number;
            }
        }
        if (fresh.empty()) {
            return false;
        }
        if (mPolicy == Event_cache_update_policy::kNewestN) {
            mCache.clear();
        }
        mCache.insert(mCache.end(), fresh.begin(), fresh.end());
        if (mCache.size() > mCacheSize) {
            mCache.erase(mCache.begin(), mCache.end() - static_cast<std::ptrdiff_t>(mCacheSize));
        }
        return true;
    }

    std::vector<Sample> GetCachedSamples() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mCache;
    }

    void Cleanup() {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mPolicy == Event_cache_update_policy::kNewestN) {
            mCache.clear();
        }
    }

private:
    void Receive(const std::vector<std::uint8_t>& payload) {
        Sample sample;
        try {
            sample = mDecoder(payload);
        } catch (const std::exception& exception) {
            someip::LogIncident("Event_deserialize_exception", mClient->Name(), mEvent,
                                exception.what());
            return;
        }
        std::function<void()> handler;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            Store(std::move(sample));
            handler = mHandler;
        }
        if (handler) {
            handler();
        }
    }

    /// Keeps the newest samples that no Update has taken yet.
    void Store(Sample sample) {
        const std::unique_lock<std::shared_mutex> storeLock(mStoreMutex);
        mStore.emplace_back(++mLastStored, std::move(sample));
        while (mStore.size() > mCacheSize || mStore.front().first <= mLastTaken) {
            mStore.pop_front();
        }
    }

    const std::shared_ptr<someip::ServiceClient> mClient;
    const std::string mEvent;
    const Decoder mDecoder;

    mutable std::mutex mMutex;
    std::function<void()> mHandler;
    std::shared_ptr<someip::ServiceClient::Registration> mRegistration;
    Event_cache_update_policy mPolicy{Event_cache_update_policy::kNewestN};
    std::size_t mCacheSize{1};
    std::uint64_t mLastTaken{0};
    std::vector<Sample> mCache;

    std::shared_mutex mStoreMutex;
    std::uint64_t mLastStored{0};
    std::deque<std::pair<std::uint64_t, Sample>> mStore;
};

EventReceiver::EventReceiver(const ServiceHandle& handle, std::string event, Decoder decoder)
    : mImpl(std::make_shared<Impl>(handle.Client(), std::move(event), std::move(decoder))) {}

EventReceiver::~EventReceiver() {
    mImpl->Unsubscribe();
}

void EventReceiver::SetReceiveHandler(std::function<void()> handler) {
    mImpl->SetReceiveHandler(std::move(handler));
}

void EventReceiver::Subscribe(Event_cache_update_policy policy, std::size_t cacheSize) {
    mImpl->Subscribe(policy, cacheSize);
}

void EventReceiver::Unsubscribe() {
    mImpl->Unsubscribe();
}

bool EventReceiver::Update() {
    return mImpl->Update();
}

std::vector<EventReceiver::Sample> EventReceiver::GetCachedSamples() const {
    return mImpl->GetCachedSamples();
}

void EventReceiver::Cleanup() {
    mImpl->Cleanup();
}

}  // namespace ara::com::internal::proxy
