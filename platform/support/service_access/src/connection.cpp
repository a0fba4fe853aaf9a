#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <variant>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <nlohmann/json.hpp>

#include <service_access/bounded_json.h>
#include <service_access/callback_thread.h>
#include <service_access/connection.h>
#include <service_access/event_message.h>

#include "event_channel.h"
#include "query_client.h"
#include "service_directory.h"

namespace service_access {

namespace {

namespace net = boost::asio;

constexpr std::size_t kMaxQueuedCallbacks = 64;

/// A thread that waits in Subscribe.
struct SubscribeWaiter {
    bool done = false;
    std::string service;
    std::string subscription;
};

}  // namespace

class Connection::Impl : private EventChannelListener {
public:
    explicit Impl(ClientConfig config)
        : mConfig(std::move(config)),
          mDirectory(mCallbacks),
          mQueries(mIo, mConfig, mCallbacks),
          mChannel(mIo, mConfig, *this) {}

    ~Impl() override { Stop(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Start();
    void Stop();
    void StopCallbacks();
    std::string Subscribe(const std::string& service, const std::string& element);
    void Unsubscribe(const std::string& subscription);

    CallbackThread& Callbacks() { return mCallbacks; }
    ServiceDirectory& Directory() { return mDirectory; }
    QueryClient& Queries() { return mQueries; }

private:
    // On the thread of the sockets.
    void ChannelOpened() override;
    void MessageReceived(const std::string& text) override;
    void MessageUnreadable(const std::string& reason) override;
    void ChannelLost() override;
    bool MayRead() const override { return mCallbacks.QueueLength() < kMaxQueuedCallbacks; }

    void Handle(const ServiceState& message);
    void Handle(const ElementChange& message);
    void Handle(const SubscriptionAccepted& message);
    void Handle(const SubscriptionRefused& message);
    void Handle(const UnknownMessage& message);
    void Send(const nlohmann::json& message);

    /// Ends the wait for the answer to `request`, and returns the service that it was about, or
    /// nothing if nobody waits for it.
    std::optional<std::string> EndWait(std::uint64_t request, const std::string& subscription);
    /// Ends all waits. Under mMutex.
    void ReleaseWaiters();

    const ClientConfig mConfig;
    CallbackThread mCallbacks;
    ServiceDirectory mDirectory;

    std::mutex mMutex;
    std::condition_variable mSubscribeDone;
    bool mStopped = false;
    bool mConnected = false;
    std::uint64_t mNextRequest = 1;
    std::map<std::uint64_t, std::shared_ptr<SubscribeWaiter>> mWaiters;

    std::mutex mJoinMutex;
    std::thread mIoThread;
    net::io_context mIo;
    QueryClient mQueries;
    EventChannel mChannel;
};

void Connection::Impl::Start() {
    const std::lock_guard join(mJoinMutex);
    {
        const std::lock_guard lock(mMutex);
        if (mStopped || mIoThread.joinable()) {
            return;
        }
    }
    mIoThread = std::thread([this] {
        const auto guard = net::make_work_guard(mIo);
        mIo.run();
    });
    net::post(mIo, [this] { mChannel.Open(); });
}

void Connection::Impl::StopCallbacks() {
    {
        const std::lock_guard lock(mMutex);
        mStopped = true;
        ReleaseWaiters();
    }
    mDirectory.RemoveObservers();
    mQueries.Close();
    mCallbacks.Stop();
}

void Connection::Impl::Stop() {
    StopCallbacks();
    const std::lock_guard join(mJoinMutex);
    if (mIoThread.joinable()) {
        net::post(mIo, [this] { mChannel.Close([this] { mIo.stop(); }); });
        mIoThread.join();
    }
}

std::string Connection::Impl::Subscribe(const std::string& service, const std::string& element) {
    std::unique_lock lock(mMutex);
    if (mStopped || !mConnected) {
        return {};
    }
    const auto request = mNextRequest++;
    const auto waiter = std::make_shared<SubscribeWaiter>();
    waiter->service = service;
    mWaiters.emplace(request, waiter);
    Send({{"type", "subscribe"}, {"request", request}, {"service", service}, {"element", element}});
    mSubscribeDone.wait_for(lock, mConfig.subscribeTimeLimit, [&waiter] { return waiter->done; });
    mWaiters.erase(request);
    return waiter->subscription;
}

void Connection::Impl::Unsubscribe(const std::string& subscription) {
    Send({{"type", "unsubscribe"}, {"subscription", subscription}});
}

void Connection::Impl::Send(const nlohmann::json& message) {
    net::post(mIo, [this, text = FormatJson(message)] { mChannel.Send(text); });
}

void Connection::Impl::ChannelOpened() {
    const std::lock_guard lock(mMutex);
    mConnected = true;
}

void Connection::Impl::ChannelLost() {
    {
        const std::lock_guard lock(mMutex);
        mConnected = false;
        ReleaseWaiters();
    }
    mDirectory.SetNoneAvailable();
}

void Connection::Impl::MessageReceived(const std::string& text) {
    try {
        std::visit([this](const auto& message) { Handle(message); }, ParseEventMessage(text));
    } catch (const std::exception& error) {
        MessageUnreadable(error.what());
    }
}

void Connection::Impl::MessageUnreadable(const std::string& reason) {
    mDirectory.Error("message of the server: " + reason);
}

void Connection::Impl::Handle(const ServiceState& message) {
    mDirectory.SetAvailable(message.name, message.available);
}

void Connection::Impl::Handle(const ElementChange& message) {
    mDirectory.ElementChanged(message.service, message.element, message.value);
}

void Connection::Impl::Handle(const SubscriptionAccepted& message) {
    const auto service = EndWait(message.request, message.subscription);
    if (!service) {
        // Its caller has given up and will not learn the id, so the subscription is ended here.
        Unsubscribe(message.subscription);
        return;
    }
    mDirectory.Subscribed(*service);
}

void Connection::Impl::Handle(const SubscriptionRefused& message) {
    EndWait(message.request, {});
}

void Connection::Impl::Handle(const UnknownMessage&) {}

std::optional<std::string> Connection::Impl::EndWait(std::uint64_t request,
                                                     const std::string& subscription) {
    const std::lock_guard lock(mMutex);
    const auto found = mWaiters.find(request);
    if (found == mWaiters.end()) {
        return std::nullopt;
    }
    const auto waiter = found->second;
    mWaiters.erase(found);
    waiter->subscription = subscription;
    waiter->done = true;
    mSubscribeDone.notify_all();
    return waiter->service;
}

void Connection::Impl::ReleaseWaiters() {
    for (const auto& [request, waiter] : mWaiters) {
        waiter->done = true;
    }
    mWaiters.clear();
    mSubscribeDone.notify_all();
}

Connection::Connection(ClientConfig config) : mImpl(std::make_unique<Impl>(std::move(config))) {}

Connection::~Connection() = default;

void Connection::Start() {
    mImpl->Start();
}

void Connection::Stop() {
    mImpl->Stop();
}

void Connection::AddObserver(const std::string& service, ServiceObserver observer) {
    mImpl->Directory().AddObserver(service, std::move(observer));
}

void Connection::RemoveObservers() {
    mImpl->Directory().RemoveObservers();
}

void Connection::Query(const std::string& service, const std::string& query, QueryHandler handler) {
    mImpl->Start();
    mImpl->Queries().Query(service, query, std::move(handler));
}

void Connection::WaitForCallback() const {
    mImpl->Callbacks().WaitForRunningTask();
}

void Connection::CancelQueries() {
    mImpl->Queries().Cancel();
}

std::string Connection::Subscribe(const std::string& service, const std::string& element) {
    return mImpl->Subscribe(service, element);
}

void Connection::Unsubscribe(const std::string& subscription) {
    mImpl->Unsubscribe(subscription);
}

void Connection::StopCallbacks() {
    mImpl->StopCallbacks();
}

}  // namespace service_access
