#include "someip/field_server.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <future>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/post.hpp>

#include "someip/incident.h"
#include "someip/message.h"
#include "someip/watch_protocol.h"
#include "someip/worker_pool.h"
#include "udp_socket.h"

namespace someip {

namespace {

namespace asio = boost::asio;
using asio::ip::udp;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxClients = 64;
constexpr std::chrono::milliseconds kMaxTtl{60000};
constexpr std::size_t kReceiveBuffer = 65536;

void Check(const boost::system::error_code& error, const char* what) {
    if (error) {
        throw std::system_error(error.value(), std::system_category(), what);
    }
}

}  // namespace

/// The pool has one thread; everything but construction and Run's callers is on it.
class FieldServer::Impl {
public:
    explicit Impl(ServiceDeployment service)
        : mService(std::move(service)), mPool(1), mSocket(mPool.Context()) {
        boost::system::error_code error;
        const auto address = asio::ip::make_address(mService.address, error);
        Check(error, "SOME/IP address");
        const udp::endpoint endpoint(address, mService.port);
        OpenUdp(mSocket, endpoint.protocol(), error);
        Check(error, "SOME/IP socket");
        mSocket.bind(endpoint, error);
        Check(error, "SOME/IP endpoint");
        mService.port = mSocket.local_endpoint().port();
        Receive();
    }

    /// Runs `work` on the server's thread and waits for it.
    template <typename Work>
    auto Run(Work work) {
        std::packaged_task<decltype(work())()> task(std::move(work));
        auto result = task.get_future();
        asio::post(mPool.Context(), std::move(task));
        return result.get();
    }

    ~Impl() {
        Run([this] {
            SetOffered(false);
            boost::system::error_code ignored;
            mSocket.close(ignored);
        });
        mPool.Join();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    const ServiceDeployment& Service() const { return mService; }

    void SetOffered(bool offered) {
        if (offered == mOffered) {
            return;
        }
        mOffered = offered;
        const auto ttl = offered ? mService.ttl : std::chrono::milliseconds(0);
        const Bytes notice = EncodeAvailabilityNotice({mService.instanceId, ttl});
        DropExpired();
        for (const auto& client : mClients) {
            Notify(client.first, kAvailabilityEvent, notice);
        }
    }

    void SetField(std::uint16_t eventId, Bytes payload) {
        Bytes& value = mFields[eventId];
        value = std::move(payload);
        DropExpired();
        for (const auto& [endpoint, client] : mClients) {
            if (mOffered && client.events.count(eventId) != 0) {
                Notify(endpoint, eventId, value);
            }
        }
    }

    std::size_t SubscriberCount(std::uint16_t eventId) {
        DropExpired();
        return static_cast<std::size_t>(std::count_if(
            mClients.begin(), mClients.end(),
            [eventId](const auto& client) { return client.second.events.count(eventId) != 0; }));
    }

private:
    struct Client {
        Clock::time_point expiry;
        std::set<std::uint16_t> events;
    };

    void Receive() {
        mSocket.async_receive_from(asio::buffer(mBuffer), mSender,
                                   [this](const auto& error, std::size_t size) {
                                       if (!mSocket.is_open()) {
                                           return;
                                       }
                                       if (!error) {
                                           Take(size);
                                       }
                                       Receive();
                                   });
    }

    void Take(std::size_t size) {
        std::string problem;
        const std::optional<Message> message = Decode(mBuffer.data(), size, problem);
        if (!message || message->serviceId != mService.serviceId ||
            message->type != MessageType::kRequest) {
            LogWarn("message to " + mService.name +
                    " dropped: " + (message ? std::string("no request to this service") : problem));
            return;
        }
        const ReturnCode code = Handle(*message);
        Message answer = *message;
        answer.type = code == ReturnCode::kOk ? MessageType::kResponse : MessageType::kError;
        answer.returnCode = code;
        answer.interfaceVersion = mService.interfaceVersion;
        answer.payload.clear();
        Send(mSender, answer);
        for (const std::uint16_t eventId : std::exchange(mInitial, {})) {
            const auto value = mFields.find(eventId);
            if (value != mFields.end()) {
                Notify(mSender, eventId, value->second);
            }
        }
    }

    ReturnCode Handle(const Message& message) {
        if (message.interfaceVersion != mService.interfaceVersion) {
            return ReturnCode::kWrongInterfaceVersion;
        }
        if (message.methodId != kWatchMethod) {
            return ReturnCode::kUnknownMethod;
        }
        const auto watch = DecodeWatchRequest(message.payload);
        if (!watch) {
            return ReturnCode::kMalformedMessage;
        }
        if (watch->instanceId != mService.instanceId) {
            return ReturnCode::kUnknownService;
        }
        return Watch(*watch);
    }

    ReturnCode Watch(const WatchRequest& watch) {
        if (watch.ttl.count() == 0) {
            mClients.erase(mSender);
            return ReturnCode::kOk;
        }
        DropExpired();
        if (mClients.count(mSender) == 0 && mClients.size() >= kMaxClients) {
            LogWarn("client of " + mService.name + " refused: too many clients");
            return ReturnCode::kNotOk;
        }
        Client& client = mClients[mSender];
        client.expiry = Clock::now() + std::min(watch.ttl, kMaxTtl);
        const std::set<std::uint16_t> before =
            std::exchange(client.events, std::set<std::uint16_t>());
        for (const WatchedEvent& event : watch.events) {
            client.events.insert(event.eventId);
            if (mOffered && (event.initial || before.count(event.eventId) == 0)) {
                mInitial.insert(event.eventId);
            }
        }
        return mOffered ? ReturnCode::kOk : ReturnCode::kNotReady;
    }

    void DropExpired() {
        const auto now = Clock::now();
        for (auto client = mClients.begin(); client != mClients.end();) {
            client = client->second.expiry < now ? mClients.erase(client) : std::next(client);
        }
    }

    void Notify(const udp::endpoint& to, std::uint16_t eventId, const Bytes& payload) {
        Message message;
        message.serviceId = mService.serviceId;
        message.methodId = eventId;
        mSession = mSession == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(mSession + 1);
        message.sessionId = mSession;
        message.interfaceVersion = mService.interfaceVersion;
        message.type = MessageType::kNotification;
        message.payload = payload;
        Send(to, message);
    }

    void Send(const udp::endpoint& to, const Message& message) {
        boost::system::error_code error;
        mSocket.send_to(asio::buffer(Encode(message)), to, 0, error);
        if (error) {
            LogWarn("message of " + mService.name + " lost: " + error.message());
        }
    }

    ServiceDeployment mService;
    WorkerPool mPool;
    udp::socket mSocket;
    udp::endpoint mSender;
    std::array<std::uint8_t, kReceiveBuffer> mBuffer{};
    bool mOffered{false};
    std::map<std::uint16_t, Bytes> mFields;
    std::map<udp::endpoint, Client> mClients;
    /// Fields whose value the answered client is to get behind the answer.
    std::set<std::uint16_t> mInitial;
    std::uint16_t mSession{0};
};

FieldServer::FieldServer(const ServiceDeployment& service)
    : mImpl(std::make_unique<Impl>(service)) {}

FieldServer::~FieldServer() = default;

const ServiceDeployment& FieldServer::Deployment() const {
    return mImpl->Service();
}

void FieldServer::Offer() {
    mImpl->Run([this] { mImpl->SetOffered(true); });
}

void FieldServer::StopOffer() {
    mImpl->Run([this] { mImpl->SetOffered(false); });
}

void FieldServer::SetField(std::uint16_t eventId, std::vector<std::uint8_t> payload) {
    if (payload.size() > kMaxPayload) {
        throw std::length_error("SOME/IP payload of " + std::to_string(payload.size()) +
                                " bytes does not fit into a datagram");
    }
    mImpl->Run([this, eventId, value = std::move(payload)]() mutable {
        mImpl->SetField(eventId, std::move(value));
    });
}

std::size_t FieldServer::SubscriberCount(std::uint16_t eventId) const {
    return mImpl->Run([this, eventId] { return mImpl->SubscriberCount(eventId); });
}

}  // namespace someip
