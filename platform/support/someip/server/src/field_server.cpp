#include <chrono>
#include <exception>
#include <future>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <someip/discovery/provided_service.h>
#include <someip/discovery/sd_transport.h>
#include <someip/log/lasting_problem.h>
#include <someip/network/datagram_socket.h>
#include <someip/network/worker_pool.h>
#include <someip/server/field_server.h>
#include <someip/wire/message.h>

namespace someip {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};

}  // namespace

/// The pool has one thread, on which everything runs but the constructor, the destructor and Run.
class FieldServer::Impl : private ProvidedService::Environment {
public:
    /// Runs `work` on the server's thread and waits for it.
    template <typename Work>
    auto Run(Work work) {
        std::packaged_task<decltype(work())()> task(std::move(work));
        auto result = task.get_future();
        boost::asio::post(mPool.Context(), std::move(task));
        return result.get();
    }

    explicit Impl(Deployment deployment)
        : mDeployment(std::move(deployment)),
          mService(mDeployment.services.at(0)),
          mDrops(std::make_shared<DropLog>("to " + mService.name)),
          mPool(1),
          mTimer(mPool.Context()),
          mRandom(std::random_device()()) {
        try {
            Run([this] {
                OpenTransport();
                OpenSocket();
            });
        } catch (...) {
            Run([this] { Close(); });
            throw;
        }
    }

    ~Impl() override {
        Run([this] { Close(); });
        mPool.Join();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    const Deployment& OwnDeployment() const { return mDeployment; }
    std::uint64_t DroppedMessages() const { return mDrops->Count(); }

    void Offer() {
        mProvided->Offer(Clock::now());
        SetTimer();
    }

    void StopOffer() {
        mProvided->StopOffer();
        SetTimer();
    }

    void SetField(std::uint16_t eventId, Bytes payload) {
        const std::uint16_t eventgroup = EventgroupOf(eventId);
        Bytes& value = mFields[eventId];
        value = std::move(payload);
        for (const Endpoint& receiver : mProvided->Receivers(eventgroup, Clock::now())) {
            Notify(receiver, eventId, value);
        }
    }

    std::size_t SubscriberCount(std::uint16_t eventId) {
        return mProvided->Receivers(EventgroupOf(eventId), Clock::now()).size();
    }

private:
    void Close() {
        mClosed = true;
        if (mProvided) {
            mProvided->StopOffer();
        }
        if (mTransport) {
            mTransport->Close();
        }
        if (mSocket) {
            mSocket->Close();
        }
        mTimer.cancel();
    }

    /// Throws std::out_of_range.
    std::uint16_t EventgroupOf(std::uint16_t eventId) const {
        for (const auto& [name, event] : mService.events) {
            if (event.id == eventId) {
                return event.eventgroup;
            }
        }
        throw std::out_of_range(mService.name + " has no event " + std::to_string(eventId));
    }

    void OpenTransport() {
        mTransport = SdTransport::Open(
            mPool.Context().get_executor(), mDeployment.network, mDrops,
            [this](const ReceivedSdMessage& message) {
                mSendProblem.End();
                mProvided->Handle(message, Clock::now());
                SetTimer();
            },
            [this](const std::string& problem) {
                // Posted: the state machine must not be called back from inside its own call.
                boost::asio::post(mPool.Context(), [this, problem] { TransportFailed(problem); });
            });
    }

    void OpenSocket() {
        DatagramSocket::Settings settings;
        settings.local = {ParseIpv4(mDeployment.network.address).value_or(0), mService.port};
        mSocket = DatagramSocket::Open(
            mPool.Context().get_executor(), settings,
            [this](const std::uint8_t* data, std::size_t size, const Endpoint& sender) {
                Receive(data, size, sender);
            },
            [this](const std::string& problem) { Log().Warn(mService.name + ": " + problem); });
        mProvided.emplace(static_cast<ProvidedService::Environment&>(*this), mService,
                          mDeployment.network.timing, mSocket->Local());
    }

    void TransportFailed(const std::string& problem) {
        if (!mClosed) {
            mSendProblem.Report("SOME/IP network: " + problem);
            mTransport->Close();
            mTransport.reset();
            mRetry = Clock::now() + kRetryInterval;
            SetTimer();
        }
    }

    void Reopen() {
        try {
            OpenTransport();
            mRetry.reset();
        } catch (const std::exception& exception) {
            mSendProblem.Report(std::string("SOME/IP network: ") + exception.what());
            mRetry = Clock::now() + kRetryInterval;
        }
    }

    void SetTimer() {
        const auto next = Earlier(mRetry, mProvided->NextDeadline());
        if (mClosed || next == mTimerEnd) {
            return;
        }
        mTimerEnd = next;
        if (!next) {
            mTimer.cancel();
            return;
        }
        mTimer.expires_at(*next);
        mTimer.async_wait([this](const auto& error) {
            if (!error && !mClosed) {
                Tick();
            }
        });
    }

    void Tick() {
        mTimerEnd.reset();
        const auto now = Clock::now();
        if (IsDue(mRetry, now)) {
            Reopen();
        }
        mProvided->Tick(now);
        SetTimer();
    }

    void Multicast(const std::vector<SdEntry>& entries) override {
        if (mTransport) {
            mTransport->Multicast(entries);
        }
    }

    void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) override {
        if (mTransport) {
            mTransport->Send(peer, entries);
        }
    }

    std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                            std::chrono::milliseconds max) override {
        std::uniform_int_distribution<std::chrono::milliseconds::rep> distribution(min.count(),
                                                                                   max.count());
        return std::chrono::milliseconds(distribution(mRandom));
    }

    void EntryRejected(const std::string& reason) override {
        mDrops->Dropped(reason, Clock::now());
    }

    void Subscribed(const Endpoint& receiver, std::uint16_t eventgroup) override {
        for (const auto& [name, event] : mService.events) {
            const auto value = mFields.find(event.id);
            if (event.eventgroup == eventgroup && value != mFields.end()) {
                Notify(receiver, event.id, value->second);
            }
        }
    }

    void Receive(const std::uint8_t* data, std::size_t size, const Endpoint& sender) {
        DecodeAll(
            data, size, [&](const Message& message) { Answer(message, sender); },
            [&](const std::string& problem) {
                mDrops->Dropped(problem + ", from " + ToText(sender), Clock::now());
            });
    }

    void Answer(const Message& request, const Endpoint& sender) {
        if (request.serviceId != mService.serviceId || request.type != MessageType::kRequest) {
            mDrops->Dropped("no request to this service, from " + ToText(sender), Clock::now());
            return;
        }
        Message answer = request;
        answer.type = MessageType::kError;
        answer.returnCode = request.interfaceVersion == mService.interfaceVersion
                                ? ReturnCode::kUnknownMethod
                                : ReturnCode::kWrongInterfaceVersion;
        answer.interfaceVersion = mService.interfaceVersion;
        answer.payload.clear();
        SendMessage(sender, answer);
    }

    void Notify(const Endpoint& receiver, std::uint16_t eventId, const Bytes& payload) {
        Message message;
        message.serviceId = mService.serviceId;
        message.methodId = eventId;
        mSession = mSession == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(mSession + 1);
        message.sessionId = mSession;
        message.interfaceVersion = mService.interfaceVersion;
        message.type = MessageType::kNotification;
        message.payload = payload;
        SendMessage(receiver, message);
    }

    void SendMessage(const Endpoint& to, const Message& message) {
        if (const auto problem = mSocket->SendTo(to, Encode(message))) {
            mDrops->Dropped("to " + ToText(to) + ", not sent: " + *problem, Clock::now());
        }
    }

    const Deployment mDeployment;
    const ServiceDeployment mService;
    std::shared_ptr<DropLog> mDrops;
    WorkerPool mPool;
    boost::asio::steady_timer mTimer;
    std::optional<TimePoint> mTimerEnd;
    std::mt19937 mRandom;
    std::shared_ptr<SdTransport> mTransport;
    std::shared_ptr<DatagramSocket> mSocket;
    std::optional<ProvidedService> mProvided;
    std::optional<TimePoint> mRetry;
    LastingProblem mSendProblem;
    std::map<std::uint16_t, Bytes> mFields;
    std::uint16_t mSession{0};
    bool mClosed{false};
};

FieldServer::FieldServer(Deployment deployment)
    : mImpl(std::make_unique<Impl>(std::move(deployment))) {}

FieldServer::~FieldServer() = default;

const Deployment& FieldServer::OwnDeployment() const {
    return mImpl->OwnDeployment();
}

void FieldServer::Offer() {
    mImpl->Run([this] { mImpl->Offer(); });
}

void FieldServer::StopOffer() {
    mImpl->Run([this] { mImpl->StopOffer(); });
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

std::uint64_t FieldServer::DroppedMessages() const {
    return mImpl->DroppedMessages();
}

}  // namespace someip
