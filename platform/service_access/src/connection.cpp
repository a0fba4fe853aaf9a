#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <nlohmann/json.hpp>
#include <service_access/backoff.h>
#include <service_access/callback_thread.h>
#include <service_access/connection.h>
#include <service_access/event_message.h>
#include <service_access/log.h>

#include "unix_socket.h"

namespace service_access {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using UnixProtocol = net::local::stream_protocol;
using ErrorCode = boost::system::error_code;
using std::chrono::milliseconds;

constexpr char kHost[] = "localhost";
constexpr unsigned kHttpVersion11 = 11;
constexpr std::uint32_t kMaxHttpHeader = 8192;
constexpr std::size_t kMaxQueries = 64;
constexpr std::size_t kMaxServices = 256;
constexpr std::size_t kMaxMessagesToSend = 256;
constexpr std::size_t kMaxQueuedCallbacks = 64;
constexpr milliseconds kCallbackQueueRecheck{10};
constexpr milliseconds kCloseTimeLimit{250};

/// Opens a close-on-exec socket in `socket`.
ErrorCode Open(UnixProtocol::socket& socket) {
    try {
        auto fd = MakeUnixSocket();
        ErrorCode error;
        socket.assign(UnixProtocol(), fd.Get(), error);
        if (!error) {
            fd.Release();
        }
        return error;
    } catch (const std::system_error& error) {
        return {error.code().value(), boost::system::generic_category()};
    }
}

/// One connection of the event channel, from connecting to its loss.
struct Channel {
    explicit Channel(net::io_context& io) : stream(io) {}

    websocket::stream<UnixProtocol::socket> stream;
    beast::flat_buffer buffer;
    std::deque<std::string> toSend;
    bool open = false;
    bool announced = false;
    bool sending = false;
};

/// One query on a socket of its own.
struct QueryExchange {
    QueryExchange(net::io_context& io, std::size_t maxBody) : socket(io), deadline(io) {
        parser.body_limit(maxBody);
        parser.header_limit(kMaxHttpHeader);
    }

    std::uint64_t id = 0;
    UnixProtocol::socket socket;
    net::steady_timer deadline;
    beast::flat_buffer buffer{kMaxHttpHeader};
    http::request<http::empty_body> request;
    http::response_parser<http::string_body> parser;
};

/// An observer and whether it may still be called. The flag is written under the connection's
/// mutex and read by the tasks on the callback thread.
struct ObserverEntry {
    ServiceObserver observer;
    std::atomic<bool> active{true};
};

/// A thread that waits in Subscribe.
struct SubscribeWaiter {
    bool done = false;
    std::string service;
    std::string subscription;
};

}  // namespace

class Connection::Impl {
public:
    explicit Impl(ClientConfig config)
        : mConfig(std::move(config)),
          mReconnectTimer(mIo),
          mCloseTimer(mIo),
          mReadTimer(mIo),
          mSteadyTimer(mIo),
          mBackoff(mConfig.reconnectInitial, mConfig.reconnectMax) {}

    ~Impl() { Stop(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Start();
    void Stop();
    void AddObserver(const std::string& service, ServiceObserver observer);
    void RemoveObservers();
    void Query(const std::string& service, const std::string& query, QueryHandler handler);
    void CancelQueries();
    void WaitForCallback() const { mCallbacks.WaitForRunningTask(); }
    std::string Subscribe(const std::string& service, const std::string& element);
    void Unsubscribe(const std::string& subscription);
    void StopCallbacks();

private:
    using Observers = std::vector<std::shared_ptr<ObserverEntry>>;

    // On the thread of the sockets.
    void Connect();
    void Handshake(const std::shared_ptr<Channel>& channel);
    void ChannelOpened(const std::shared_ptr<Channel>& channel);
    void WaitUntilSteady(const std::shared_ptr<Channel>& channel);
    void ChannelFailed(const std::shared_ptr<Channel>& channel, const ErrorCode& error);
    void Read(const std::shared_ptr<Channel>& channel);
    void ReadWhenCallbacksKeepUp(const std::shared_ptr<Channel>& channel);
    void HandleMessage(const std::string& text);
    void Handle(const ServiceState& message);
    void Handle(const ElementChange& message);
    void Handle(const SubscriptionAccepted& message);
    void Handle(const SubscriptionRefused& message);
    void Handle(const UnknownMessage& message);
    void Send(std::string text);
    void SendNext(const std::shared_ptr<Channel>& channel);
    void BeginClose();
    void CloseChannel(const std::shared_ptr<Channel>& channel);
    void RunQuery(const std::shared_ptr<QueryExchange>& exchange);
    void ReadAnswer(const std::shared_ptr<QueryExchange>& exchange);

    // On any thread.
    void CompleteQuery(std::uint64_t id, QueryResult result);
    void ForgetConnection();

    // Under mMutex.
    void Notify(const std::string& service,
                const std::function<void(const ServiceObserver&)>& notification);
    void NotifyError(const std::string& text);
    void PostTo(const std::shared_ptr<ObserverEntry>& entry,
                const std::function<void(const ServiceObserver&)>& notification);
    void Release(SubscribeWaiter& waiter);
    void ReleaseWaiters();

    const ClientConfig mConfig;
    CallbackThread mCallbacks;

    std::mutex mMutex;
    std::condition_variable mSubscribeDone;
    bool mStopped = false;
    bool mConnected = false;
    std::uint64_t mNextId = 1;
    std::map<std::string, Observers> mObservers;
    std::set<std::string> mAvailable;
    std::map<std::uint64_t, QueryHandler> mQueries;
    std::map<std::uint64_t, std::shared_ptr<SubscribeWaiter>> mWaiters;

    std::mutex mJoinMutex;
    std::thread mIoThread;

    // Below: on the thread of the sockets only.
    net::io_context mIo;
    net::steady_timer mReconnectTimer;
    net::steady_timer mCloseTimer;
    net::steady_timer mReadTimer;
    net::steady_timer mSteadyTimer;
    Backoff mBackoff;
    std::shared_ptr<Channel> mChannel;
    bool mClosing = false;
    bool mOutageLogged = false;
    /// Whether the channel, or the last one, has yet to last for some time.
    bool mUnsteady = false;
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
    net::post(mIo, [this] { Connect(); });
}

void Connection::Impl::StopCallbacks() {
    {
        const std::lock_guard lock(mMutex);
        mStopped = true;
        ReleaseWaiters();
    }
    RemoveObservers();
    CancelQueries();
    mCallbacks.Stop();
}

void Connection::Impl::Stop() {
    StopCallbacks();
    const std::lock_guard join(mJoinMutex);
    if (mIoThread.joinable()) {
        net::post(mIo, [this] { BeginClose(); });
        mIoThread.join();
    }
}

void Connection::Impl::AddObserver(const std::string& service, ServiceObserver observer) {
    const std::lock_guard lock(mMutex);
    if (mStopped) {
        return;
    }
    auto entry = std::make_shared<ObserverEntry>();
    entry->observer = std::move(observer);
    mObservers[service].push_back(entry);
    if (mAvailable.count(service) != 0) {
        PostTo(entry, [](const ServiceObserver& each) {
            if (each.available) {
                each.available();
            }
        });
    }
}

void Connection::Impl::RemoveObservers() {
    std::map<std::string, Observers> removed;
    {
        const std::lock_guard lock(mMutex);
        removed.swap(mObservers);
        for (const auto& [service, observers] : removed) {
            for (const auto& entry : observers) {
                entry->active = false;
            }
        }
    }
    mCallbacks.WaitForRunningTask();
}

void Connection::Impl::Query(const std::string& service, const std::string& query,
                             QueryHandler handler) {
    Start();
    auto exchange = std::make_shared<QueryExchange>(mIo, mConfig.maxMessageBytes);
    {
        const std::lock_guard lock(mMutex);
        if (mStopped) {
            throw std::runtime_error("the connection was stopped");
        }
        if (mQueries.size() >= kMaxQueries) {
            throw std::runtime_error("too many queries");
        }
        exchange->id = mNextId++;
        mQueries.emplace(exchange->id, std::move(handler));
    }
    exchange->request.version(kHttpVersion11);
    exchange->request.method(http::verb::get);
    exchange->request.target("/services/" + service + "/info?" + query);
    exchange->request.set(http::field::host, kHost);
    exchange->request.set(http::field::connection, "close");
    net::post(mIo, [this, exchange] { RunQuery(exchange); });
}

void Connection::Impl::CancelQueries() {
    std::vector<std::uint64_t> ids;
    {
        const std::lock_guard lock(mMutex);
        for (const auto& [id, handler] : mQueries) {
            ids.push_back(id);
        }
    }
    QueryResult result;
    result.failure = "the query was cancelled";
    for (const auto id : ids) {
        CompleteQuery(id, result);
    }
}

std::string Connection::Impl::Subscribe(const std::string& service, const std::string& element) {
    std::unique_lock lock(mMutex);
    if (mStopped || !mConnected) {
        return {};
    }
    const auto request = mNextId++;
    const auto waiter = std::make_shared<SubscribeWaiter>();
    waiter->service = service;
    mWaiters.emplace(request, waiter);
    net::post(mIo, [this, request, service, element] {
        Send(nlohmann::json{
            {"type", "subscribe"}, {"request", request}, {"service", service}, {"element", element}}
                 .dump());
    });
    mSubscribeDone.wait_for(lock, mConfig.subscribeTimeLimit, [&waiter] { return waiter->done; });
    mWaiters.erase(request);
    return waiter->subscription;
}

void Connection::Impl::Unsubscribe(const std::string& subscription) {
    net::post(mIo, [this, subscription] {
        Send(nlohmann::json{{"type", "unsubscribe"}, {"subscription", subscription}}.dump());
    });
}

void Connection::Impl::Connect() {
    if (mClosing) {
        return;
    }
    const auto channel = std::make_shared<Channel>(mIo);
    mChannel = channel;
    if (const auto openError = Open(channel->stream.next_layer())) {
        ChannelFailed(channel, openError);
        return;
    }
    channel->stream.next_layer().async_connect(
        UnixProtocol::endpoint(mConfig.socketPath), [this, channel](const ErrorCode& error) {
            error ? ChannelFailed(channel, error) : Handshake(channel);
        });
}

void Connection::Impl::Handshake(const std::shared_ptr<Channel>& channel) {
    websocket::stream_base::timeout limits{};
    limits.handshake_timeout = mConfig.connectTimeLimit;
    limits.idle_timeout = 2 * mConfig.pingInterval;
    limits.keep_alive_pings = true;
    channel->stream.set_option(limits);
    channel->stream.read_message_max(mConfig.maxMessageBytes);
    channel->stream.async_handshake(kHost, "/events", [this, channel](const ErrorCode& error) {
        error ? ChannelFailed(channel, error) : ChannelOpened(channel);
    });
}

void Connection::Impl::ChannelOpened(const std::shared_ptr<Channel>& channel) {
    if (mClosing) {
        return;
    }
    channel->announced = !mUnsteady;
    if (channel->announced) {
        LogInfo("connected to " + mConfig.socketPath);
    }
    channel->open = true;
    {
        const std::lock_guard lock(mMutex);
        mConnected = true;
    }
    WaitUntilSteady(channel);
    Read(channel);
}

/// A server that accepts and hangs up at once is neither called at the shortest interval for ever
/// nor logged at each attempt: only a channel that has lasted counts as a success.
void Connection::Impl::WaitUntilSteady(const std::shared_ptr<Channel>& channel) {
    mUnsteady = true;
    mSteadyTimer.expires_after(mBackoff.Upcoming());
    mSteadyTimer.async_wait([this, channel](const ErrorCode& cancelled) {
        if (cancelled || channel != mChannel || mClosing) {
            return;
        }
        if (!channel->announced) {
            LogInfo("connected to " + mConfig.socketPath);
        }
        mUnsteady = false;
        mOutageLogged = false;
        mBackoff.Reset();
    });
}

void Connection::Impl::ChannelFailed(const std::shared_ptr<Channel>& channel,
                                     const ErrorCode& error) {
    if (channel != mChannel) {
        return;
    }
    mChannel.reset();
    mSteadyTimer.cancel();
    ErrorCode ignored;
    channel->stream.next_layer().close(ignored);
    if (mClosing) {
        return;
    }
    if (!mOutageLogged) {
        LogWarning("no connection to " + mConfig.socketPath + ": " + error.message());
        mOutageLogged = true;
    }
    if (error == websocket::condition::protocol_violation ||
        error == websocket::error::message_too_big || error == websocket::error::buffer_overflow) {
        const std::lock_guard lock(mMutex);
        NotifyError("message of the server: " + error.message());
    }
    ForgetConnection();
    mReconnectTimer.expires_after(mBackoff.Next());
    mReconnectTimer.async_wait([this](const ErrorCode& cancelled) {
        if (!cancelled) {
            Connect();
        }
    });
}

void Connection::Impl::ForgetConnection() {
    const std::lock_guard lock(mMutex);
    mConnected = false;
    ReleaseWaiters();
    std::set<std::string> gone;
    gone.swap(mAvailable);
    for (const auto& service : gone) {
        Notify(service, [](const ServiceObserver& each) {
            if (each.unavailable) {
                each.unavailable();
            }
        });
    }
}

void Connection::Impl::Read(const std::shared_ptr<Channel>& channel) {
    channel->stream.async_read(
        channel->buffer, [this, channel](const ErrorCode& error, std::size_t) {
            if (error) {
                ChannelFailed(channel, error);
                return;
            }
            const auto text = beast::buffers_to_string(channel->buffer.data());
            channel->buffer.consume(channel->buffer.size());
            HandleMessage(text);
            ReadWhenCallbacksKeepUp(channel);
        });
}

void Connection::Impl::ReadWhenCallbacksKeepUp(const std::shared_ptr<Channel>& channel) {
    if (mCallbacks.QueueLength() < kMaxQueuedCallbacks) {
        Read(channel);
        return;
    }
    mReadTimer.expires_after(kCallbackQueueRecheck);
    mReadTimer.async_wait([this, channel](const ErrorCode& cancelled) {
        if (!cancelled && channel == mChannel) {
            ReadWhenCallbacksKeepUp(channel);
        }
    });
}

void Connection::Impl::HandleMessage(const std::string& text) {
    try {
        std::visit([this](const auto& message) { Handle(message); }, ParseEventMessage(text));
    } catch (const std::exception& error) {
        const std::lock_guard lock(mMutex);
        NotifyError(std::string("message of the server: ") + error.what());
    }
}

void Connection::Impl::Handle(const ServiceState& message) {
    const std::lock_guard lock(mMutex);
    if (message.available) {
        if (mAvailable.size() >= kMaxServices) {
            NotifyError("the server reports too many services");
            return;
        }
        if (mAvailable.insert(message.name).second) {
            Notify(message.name, [](const ServiceObserver& each) {
                if (each.available) {
                    each.available();
                }
            });
        }
        return;
    }
    if (mAvailable.erase(message.name) != 0) {
        Notify(message.name, [](const ServiceObserver& each) {
            if (each.unavailable) {
                each.unavailable();
            }
        });
    }
}

void Connection::Impl::Handle(const ElementChange& message) {
    const std::lock_guard lock(mMutex);
    Notify(message.service,
           [element = message.element, value = message.value](const ServiceObserver& each) {
               if (each.elementChanged) {
                   each.elementChanged(element, value);
               }
           });
}

void Connection::Impl::Handle(const SubscriptionAccepted& message) {
    std::unique_lock lock(mMutex);
    const auto found = mWaiters.find(message.request);
    if (found == mWaiters.end()) {
        // Nobody waits for it any more, so nobody could ever end it.
        lock.unlock();
        Unsubscribe(message.subscription);
        return;
    }
    found->second->subscription = message.subscription;
    Release(*found->second);
    Notify(found->second->service, [](const ServiceObserver& each) {
        if (each.subscribed) {
            each.subscribed();
        }
    });
    mWaiters.erase(found);
}

void Connection::Impl::Handle(const SubscriptionRefused& message) {
    const std::lock_guard lock(mMutex);
    const auto found = mWaiters.find(message.request);
    if (found == mWaiters.end()) {
        return;
    }
    Release(*found->second);
    mWaiters.erase(found);
}

void Connection::Impl::Handle(const UnknownMessage&) {}

void Connection::Impl::Send(std::string text) {
    if (!mChannel || !mChannel->open || mClosing || mChannel->toSend.size() >= kMaxMessagesToSend) {
        return;
    }
    mChannel->toSend.push_back(std::move(text));
    if (!mChannel->sending) {
        SendNext(mChannel);
    }
}

void Connection::Impl::SendNext(const std::shared_ptr<Channel>& channel) {
    if (channel->toSend.empty()) {
        channel->sending = false;
        if (mClosing) {
            CloseChannel(channel);
        }
        return;
    }
    channel->sending = true;
    channel->stream.async_write(net::buffer(channel->toSend.front()),
                                [this, channel](const ErrorCode& error, std::size_t) {
                                    if (error) {
                                        return;
                                    }
                                    channel->toSend.pop_front();
                                    SendNext(channel);
                                });
}

void Connection::Impl::BeginClose() {
    mClosing = true;
    mReconnectTimer.cancel();
    mReadTimer.cancel();
    mSteadyTimer.cancel();
    if (!mChannel || !mChannel->open) {
        mIo.stop();
        return;
    }
    mCloseTimer.expires_after(kCloseTimeLimit);
    mCloseTimer.async_wait([this](const ErrorCode&) { mIo.stop(); });
    if (!mChannel->sending) {
        CloseChannel(mChannel);
    }
}

void Connection::Impl::CloseChannel(const std::shared_ptr<Channel>& channel) {
    channel->stream.async_close(websocket::close_code::normal,
                                [this, channel](const ErrorCode&) { mIo.stop(); });
}

void Connection::Impl::RunQuery(const std::shared_ptr<QueryExchange>& exchange) {
    exchange->deadline.expires_after(mConfig.queryTimeLimit);
    exchange->deadline.async_wait([this, exchange](const ErrorCode& cancelled) {
        if (cancelled) {
            return;
        }
        QueryResult result;
        result.failure = "no answer in time";
        CompleteQuery(exchange->id, std::move(result));
        ErrorCode ignored;
        exchange->socket.close(ignored);
    });
    const auto fail = [this, exchange](const std::string& reason) {
        exchange->deadline.cancel();
        QueryResult result;
        result.failure = reason;
        CompleteQuery(exchange->id, std::move(result));
    };
    if (const auto openError = Open(exchange->socket)) {
        return fail(openError.message());
    }
    exchange->socket.async_connect(
        UnixProtocol::endpoint(mConfig.socketPath),
        [this, exchange, fail](const ErrorCode& connectError) {
            if (connectError) {
                return fail(connectError.message());
            }
            http::async_write(exchange->socket, exchange->request,
                              [this, exchange, fail](const ErrorCode& error, std::size_t) {
                                  error ? fail(error.message()) : ReadAnswer(exchange);
                              });
        });
}

void Connection::Impl::ReadAnswer(const std::shared_ptr<QueryExchange>& exchange) {
    const auto finish = [this, exchange](const ErrorCode& error) {
        exchange->deadline.cancel();
        QueryResult result;
        if (error) {
            result.failure = error.message();
        } else {
            result.status = exchange->parser.get().result_int();
            result.body = std::move(exchange->parser.get().body());
        }
        CompleteQuery(exchange->id, std::move(result));
    };
    // The header on its own first: when both come at once, a read of the whole message loses the
    // parser's objection to the length of the body.
    http::async_read_header(
        exchange->socket, exchange->buffer, exchange->parser,
        [exchange, finish](const ErrorCode& headerError, std::size_t) {
            if (headerError) {
                return finish(headerError);
            }
            http::async_read(exchange->socket, exchange->buffer, exchange->parser,
                             [finish](const ErrorCode& error, std::size_t) { finish(error); });
        });
}

void Connection::Impl::CompleteQuery(std::uint64_t id, QueryResult result) {
    const std::lock_guard lock(mMutex);
    const auto found = mQueries.find(id);
    if (found == mQueries.end()) {
        return;
    }
    mCallbacks.Post(
        [handler = std::move(found->second), result = std::move(result)] { handler(result); });
    mQueries.erase(found);
}

void Connection::Impl::Notify(const std::string& service,
                              const std::function<void(const ServiceObserver&)>& notification) {
    const auto found = mObservers.find(service);
    if (found == mObservers.end()) {
        return;
    }
    for (const auto& entry : found->second) {
        PostTo(entry, notification);
    }
}

void Connection::Impl::NotifyError(const std::string& text) {
    LogWarning(text);
    for (const auto& [service, observers] : mObservers) {
        Notify(service, [text](const ServiceObserver& each) {
            if (each.error) {
                each.error(std::runtime_error(text));
            }
        });
    }
}

void Connection::Impl::PostTo(const std::shared_ptr<ObserverEntry>& entry,
                              const std::function<void(const ServiceObserver&)>& notification) {
    mCallbacks.Post([entry, notification] {
        if (entry->active) {
            notification(entry->observer);
        }
    });
}

void Connection::Impl::Release(SubscribeWaiter& waiter) {
    waiter.done = true;
    mSubscribeDone.notify_all();
}

void Connection::Impl::ReleaseWaiters() {
    for (const auto& [request, waiter] : mWaiters) {
        Release(*waiter);
    }
    mWaiters.clear();
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
    mImpl->AddObserver(service, std::move(observer));
}

void Connection::RemoveObservers() {
    mImpl->RemoveObservers();
}

void Connection::Query(const std::string& service, const std::string& query, QueryHandler handler) {
    mImpl->Query(service, query, std::move(handler));
}

void Connection::WaitForCallback() const {
    mImpl->WaitForCallback();
}

void Connection::CancelQueries() {
    mImpl->CancelQueries();
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
