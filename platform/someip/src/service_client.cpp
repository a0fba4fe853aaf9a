#include "someip/service_client.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <unistd.h>

#include "someip/handler_gate.h"
#include "someip/incident.h"
#include "someip/message.h"
#include "someip/watch_protocol.h"
#include "udp_socket.h"

namespace someip {

namespace {

namespace asio = boost::asio;
using asio::ip::udp;
using Clock = std::chrono::steady_clock;
using Strand = asio::strand<asio::io_context::executor_type>;

constexpr std::size_t kReceiveBuffer = 65536;
/// An answer may be this many requests old.
constexpr unsigned kSessionWindow = 16;
/// Calls that may wait for a handler that is slow. Further values are dropped; a change of
/// availability is put off to the next cycle.
constexpr int kMaxPending = 64;

/// A handler with the strand that puts its calls in a row.
struct Entry {
    explicit Entry(asio::io_context& context) : strand(asio::make_strand(context)) {}

    HandlerGate gate;
    Strand strand;
    std::atomic<int> pending{0};
};

struct AvailabilityEntry : Entry {
    using Entry::Entry;
    ServiceClient::AvailabilityHandler handler;
};

struct EventEntry : Entry {
    using Entry::Entry;
    std::string event;
    ServiceClient::PayloadHandler handler;
    bool awaitsInitial{true};
};

template <typename T>
void Remove(std::vector<std::shared_ptr<T>>& entries, const std::shared_ptr<Entry>& entry) {
    entries.erase(std::remove(entries.begin(), entries.end(), entry), entries.end());
}

/// Hands `call` to the entry's strand; the gate decides there whether it still runs.
void Deliver(const std::shared_ptr<Entry>& entry, std::function<void()> call) {
    entry->pending.fetch_add(1);
    asio::post(entry->strand, [entry, call = std::move(call)] {
        entry->gate.Run(call);
        entry->pending.fetch_sub(1);
    });
}

}  // namespace

/// Everything but the constructor runs on mStrand.
class ServiceClient::Impl : public std::enable_shared_from_this<ServiceClient::Impl> {
public:
    Impl(asio::io_context& context, std::unique_ptr<ServiceLocator> locator, std::string name,
         std::string instance)
        : mContext(context),
          mStrand(asio::make_strand(context)),
          mSocket(mStrand),
          mTimer(mStrand),
          mLocator(std::move(locator)),
          mName(std::move(name)),
          mInstance(std::move(instance)) {}

    asio::io_context& Context() { return mContext; }

    /// Runs `work` on the client's strand and keeps the client alive until then.
    template <typename Work>
    static void Post(const std::shared_ptr<Impl>& client, Work work) {
        asio::post(client->mStrand, [client, work = std::move(work)] { work(*client); });
    }

    void Start() { Tick(); }

    void Close() {
        mClosed = true;
        if (mSocket.is_open()) {
            SendWatch(std::chrono::milliseconds(0));
        }
        CloseSocket();
        mTimer.cancel();
    }

    void Add(const std::shared_ptr<AvailabilityEntry>& entry) {
        mWatchers.push_back(entry);
        if (mAvailable) {
            Deliver(entry, [entry] { entry->handler(true); });
        }
    }

    void Add(const std::shared_ptr<EventEntry>& entry) {
        mSubscribers.push_back(entry);
        if (mSocket.is_open()) {
            SendWatch(mService->ttl);
        }
    }

    void Drop(const std::shared_ptr<Entry>& entry) {
        Remove(mWatchers, entry);
        Remove(mSubscribers, entry);
    }

private:
    void Tick() {
        if (mClosed) {
            return;
        }
        if (mAvailable && Clock::now() - mLastAnswer > mService->ttl) {
            Report(mServiceProblem, mName + " no longer answers");
            SetAvailable(false);
        }
        if (!mAvailable) {
            Locate();
        }
        if (mSocket.is_open()) {
            SendWatch(mService->ttl);
        }
        mTimer.expires_after(mService ? mService->cycle : ServiceDeployment().cycle);
        mTimer.async_wait(
            asio::bind_executor(mStrand, [self = shared_from_this()](const auto& error) {
                if (!error) {
                    self->Tick();
                }
            }));
    }

    void Locate() {
        std::optional<ServiceDeployment> located;
        try {
            located = mLocator->Locate(mName, mInstance);
            if (!located) {
                Report(mLocateProblem, mName + " is not deployed");
            }
        } catch (const std::exception& exception) {
            Report(mLocateProblem, exception.what());
        }
        if (!located) {
            return;
        }
        mLocateProblem.clear();
        if (!mSocket.is_open() || !(mService == located)) {
            mService = std::move(located);
            Open();
        }
    }

    /// A connected socket takes datagrams from the configured endpoint only.
    void Open() {
        CloseSocket();
        boost::system::error_code error;
        const auto address = asio::ip::make_address(mService->address, error);
        const udp::endpoint peer(address, mService->port);
        if (!error) {
            OpenUdp(mSocket, peer.protocol(), error);
        }
        if (!error) {
            mSocket.connect(peer, error);
        }
        if (error) {
            CloseSocket();
            Report(mServiceProblem,
                   "no way to " + mName + " at " + mService->address + ": " + error.message());
            return;
        }
        Receive();
    }

    void CloseSocket() {
        boost::system::error_code ignored;
        mSocket.close(ignored);
        ++mGeneration;
    }

    /// One line per problem, however often it is met before it is over.
    static void Report(std::string& last, const std::string& problem) {
        if (problem != last) {
            last = problem;
            LogWarn(problem);
        }
    }

    void SendWatch(std::chrono::milliseconds ttl) {
        WatchRequest watch;
        watch.instanceId = mService->instanceId;
        watch.ttl = ttl;
        for (const auto& [event, eventId] : mService->events) {
            bool subscribed = false;
            bool initial = false;
            for (const auto& subscriber : mSubscribers) {
                if (subscriber->event == event) {
                    subscribed = true;
                    initial = initial || subscriber->awaitsInitial;
                }
            }
            if (subscribed && watch.events.size() < kMaxWatchedEvents) {
                watch.events.push_back({eventId, initial});
            }
        }
        Message request;
        request.serviceId = mService->serviceId;
        request.methodId = kWatchMethod;
        request.clientId = ClientId();
        mSession = mSession == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(mSession + 1);
        request.sessionId = mSession;
        request.interfaceVersion = mService->interfaceVersion;
        request.payload = EncodeWatchRequest(watch);
        boost::system::error_code lost;
        mSocket.send(asio::buffer(Encode(request)), 0, lost);
    }

    void Receive() {
        mSocket.async_receive(
            asio::buffer(mBuffer),
            asio::bind_executor(mStrand, [self = shared_from_this(), generation = mGeneration](
                                             const auto& error, std::size_t size) {
                if (generation == self->mGeneration) {
                    self->Received(error, size);
                }
            }));
    }

    void Received(const boost::system::error_code& error, std::size_t size) {
        if (error && error != asio::error::connection_refused) {
            Report(mServiceProblem, mName + ": receiving failed: " + error.message());
            SetAvailable(false);
            CloseSocket();
            return;
        }
        if (!error) {
            Take(size);
        }
        Receive();
    }

    void Take(std::size_t size) {
        std::string problem;
        const std::optional<Message> message = Decode(mBuffer.data(), size, problem);
        if (!message) {
            LogWarn("message of " + mName + " dropped: " + problem);
            return;
        }
        if (!Handle(*message)) {
            LogWarn("message of " + mName + " dropped: unexpected service, method or version (" +
                    std::to_string(message->serviceId) + ", " + std::to_string(message->methodId) +
                    ", type " + std::to_string(static_cast<unsigned>(message->type)) + ")");
        }
    }

    bool Handle(const Message& message) {
        const bool answer =
            message.type == MessageType::kResponse || message.type == MessageType::kError;
        if (message.serviceId != mService->serviceId) {
            return false;
        }
        if (answer && message.methodId == kWatchMethod) {
            return HandleAnswer(message);
        }
        if (message.interfaceVersion != mService->interfaceVersion ||
            message.type != MessageType::kNotification || message.returnCode != ReturnCode::kOk) {
            return false;
        }
        if (message.methodId == kAvailabilityEvent) {
            return HandleNotice(message);
        }
        for (const auto& [event, eventId] : mService->events) {
            if (eventId == message.methodId) {
                HandleEvent(event, message.payload);
                return true;
            }
        }
        return false;
    }

    bool HandleAnswer(const Message& message) {
        const unsigned age = static_cast<std::uint16_t>(mSession - message.sessionId);
        const bool response = message.type == MessageType::kResponse;
        if (message.clientId != ClientId() || age >= kSessionWindow ||
            (response && message.interfaceVersion != mService->interfaceVersion)) {
            return false;
        }
        const bool offered = response && message.returnCode == ReturnCode::kOk;
        if (offered) {
            mLastAnswer = Clock::now();
            mServiceProblem.clear();
        } else if (message.returnCode != ReturnCode::kNotReady) {
            Report(mServiceProblem, mName + " refuses its client with return code " +
                                        std::to_string(static_cast<unsigned>(message.returnCode)));
        }
        SetAvailable(offered);
        return true;
    }

    bool HandleNotice(const Message& message) {
        const auto notice = DecodeAvailabilityNotice(message.payload);
        if (!notice || notice->instanceId != mService->instanceId) {
            return false;
        }
        if (notice->ttl.count() == 0) {
            SetAvailable(false);
        } else {
            SendWatch(mService->ttl);
        }
        return true;
    }

    void HandleEvent(const std::string& event, const Bytes& payload) {
        if (!mAvailable) {
            return;
        }
        const auto shared = std::make_shared<const Bytes>(payload);
        for (const auto& subscriber : mSubscribers) {
            if (subscriber->event != event) {
                continue;
            }
            if (subscriber->pending.load() >= kMaxPending) {
                LogWarn("value of " + mName + "." + event + " dropped: the receiver is too slow");
                continue;
            }
            subscriber->awaitsInitial = false;
            Deliver(subscriber, [subscriber, shared] { subscriber->handler(*shared); });
        }
    }

    void SetAvailable(bool available) {
        const bool lagging =
            std::any_of(mWatchers.begin(), mWatchers.end(),
                        [](const auto& watcher) { return watcher->pending.load() >= kMaxPending; });
        if (available == mAvailable || lagging) {
            return;
        }
        mAvailable = available;
        for (const auto& subscriber : mSubscribers) {
            subscriber->awaitsInitial = true;
        }
        for (const auto& watcher : mWatchers) {
            Deliver(watcher, [watcher, available] { watcher->handler(available); });
        }
    }

    static std::uint16_t ClientId() { return static_cast<std::uint16_t>(::getpid() & 0xFFFF); }

    asio::io_context& mContext;
    Strand mStrand;
    udp::socket mSocket;
    asio::steady_timer mTimer;
    std::unique_ptr<ServiceLocator> mLocator;
    const std::string mName;
    const std::string mInstance;
    std::optional<ServiceDeployment> mService;
    std::vector<std::shared_ptr<AvailabilityEntry>> mWatchers;
    std::vector<std::shared_ptr<EventEntry>> mSubscribers;
    std::array<std::uint8_t, kReceiveBuffer> mBuffer{};
    /// Counts the sockets, so that what an earlier one has yet to say is not heard.
    unsigned mGeneration{0};
    bool mAvailable{false};
    bool mClosed{false};
    Clock::time_point mLastAnswer;
    std::uint16_t mSession{0};
    /// What keeps the service from being located; over when it is located.
    std::string mLocateProblem;
    /// What is wrong with the located service; over when it answers.
    std::string mServiceProblem;
};

class ServiceClient::RegistrationImpl : public Registration {
public:
    RegistrationImpl(std::shared_ptr<WorkerPool> pool, std::shared_ptr<Impl> client,
                     std::shared_ptr<Entry> entry)
        : mPool(std::move(pool)), mClient(std::move(client)), mEntry(std::move(entry)) {}

    ~RegistrationImpl() override { End(); }
    RegistrationImpl(const RegistrationImpl&) = delete;
    RegistrationImpl& operator=(const RegistrationImpl&) = delete;

    void Close() override { End(); }

private:
    void End() {
        mEntry->gate.Close();
        if (!mDropped.exchange(true)) {
            Impl::Post(mClient, [entry = mEntry](Impl& client) { client.Drop(entry); });
        }
    }

    /// Outlives the strands of the other two.
    std::shared_ptr<WorkerPool> mPool;
    std::shared_ptr<Impl> mClient;
    std::shared_ptr<Entry> mEntry;
    std::atomic<bool> mDropped{false};
};

ServiceClient::ServiceClient(std::shared_ptr<WorkerPool> pool,
                             std::unique_ptr<ServiceLocator> locator, std::string name,
                             std::string instance)
    : mName(name),
      mPool(std::move(pool)),
      mImpl(std::make_shared<Impl>(mPool->Context(), std::move(locator), std::move(name),
                                   std::move(instance))) {
    Impl::Post(mImpl, [](Impl& client) { client.Start(); });
}

ServiceClient::~ServiceClient() {
    try {
        Impl::Post(mImpl, [](Impl& client) { client.Close(); });
    } catch (const std::exception&) {
        // Only for want of memory; a client that can't be closed must not outlive its pool.
        std::terminate();
    }
}

std::shared_ptr<ServiceClient::Registration> ServiceClient::WatchAvailability(
    AvailabilityHandler handler) {
    auto entry = std::make_shared<AvailabilityEntry>(mImpl->Context());
    entry->handler = std::move(handler);
    Impl::Post(mImpl, [entry](Impl& client) { client.Add(entry); });
    return std::make_shared<RegistrationImpl>(mPool, mImpl, entry);
}

std::shared_ptr<ServiceClient::Registration> ServiceClient::SubscribeEvent(const std::string& event,
                                                                           PayloadHandler handler) {
    auto entry = std::make_shared<EventEntry>(mImpl->Context());
    entry->event = event;
    entry->handler = std::move(handler);
    Impl::Post(mImpl, [entry](Impl& client) { client.Add(entry); });
    return std::make_shared<RegistrationImpl>(mPool, mImpl, entry);
}

}  // namespace someip
