#include <cerrno>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <service_access/bounded_json.h>
#include <service_access/log.h>
#include <service_access/server.h>
#include <service_access/service_names.h>

#include "client_session.h"
#include "info_service.h"
#include "unix_socket.h"

namespace service_access {

namespace {

namespace net = boost::asio;
using SessionPtr = std::shared_ptr<ClientSession>;

constexpr std::size_t kMaxClients = 128;
constexpr std::size_t kMaxSubscriptions = 64;
constexpr std::chrono::milliseconds kAcceptRetry{100};

constexpr unsigned kOk = 200;
constexpr unsigned kLeastStatus = 200;
constexpr unsigned kGreatestStatus = 599;

std::string ServiceMessage(const std::string& name, bool available) {
    return FormatJson({{"type", "service"}, {"name", name}, {"available", available}});
}

std::string ClampMessage(bool on) {
    return FormatJson({{"type", "element"},
                       {"service", kClampControlService},
                       {"element", kClamp15Element},
                       {"value", on}});
}

}  // namespace

class Server::Impl : private SessionOwner {
public:
    explicit Impl(std::string socketPath) : mSocketPath(std::move(socketPath)) {}
    ~Impl() override { Stop(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Start();
    void Stop();

    /// Runs `action` where the state may be touched: on the server's thread if it runs.
    void Run(const std::function<void()>& action) const;

    // By Run only.
    InfoService& Info() { return mInfo; }
    void SetServiceAvailable(const std::string& name, bool available);
    void SetClampState(std::optional<bool> on);
    void SetClampSubscriptionAnswer(SubscriptionAnswer answer) { mSubscriptionAnswer = answer; }
    void Broadcast(const std::string& text);
    std::size_t ClampSubscriptionCount() const;

private:
    SessionOwner& Owner() { return *this; }
    void Listen(posix::UniqueFd listening);
    void ReleaseSockets();
    void RemoveSocketFile() const;
    void WaitForClient();
    void Accept();
    void Adopt(posix::UniqueFd accepted);

    std::optional<InfoAnswer> AnswerRequest(std::string_view target) override {
        return mInfo.Answer(target);
    }
    void EventsOpened(ClientSession& session) override;
    void MessageReceived(ClientSession& session, const std::string& text) override;
    void SessionEnded(const SessionPtr& session) override { mSessions.erase(session); }
    void Subscribe(ClientSession& session, const nlohmann::json& message);
    bool Accepts(const ClientSession& session, const nlohmann::json& message) const;

    const std::string mSocketPath;
    mutable std::mutex mLifecycle;
    std::thread mThread;
    struct stat mSocketFile {};

    // Below: touched by Run only.
    std::unique_ptr<net::io_context> mIo;
    std::unique_ptr<UnixProtocol::acceptor> mAcceptor;
    std::unique_ptr<net::steady_timer> mAcceptRetry;
    std::set<SessionPtr> mSessions;
    InfoService mInfo;
    SubscriptionAnswer mSubscriptionAnswer = SubscriptionAnswer::kAccept;
    std::optional<bool> mClampState;
    std::uint64_t mNextSubscription = 1;
};

void Server::Impl::Start() {
    const std::lock_guard lock(mLifecycle);
    if (mThread.joinable()) {
        return;
    }
    auto listening = ListenAtUnixSocket(mSocketPath);
    const auto abandon = [this] {
        ReleaseSockets();
        unlink(mSocketPath.c_str());
    };
    try {
        Listen(std::move(listening));
    } catch (const boost::system::system_error& error) {
        abandon();
        throw std::system_error(error.code(), mSocketPath);
    } catch (...) {
        abandon();
        throw;
    }
}

void Server::Impl::Listen(posix::UniqueFd listening) {
    if (lstat(mSocketPath.c_str(), &mSocketFile) != 0) {
        throw std::system_error(errno, std::generic_category(), mSocketPath);
    }
    mIo = std::make_unique<net::io_context>(1);
    mAcceptor = std::make_unique<UnixProtocol::acceptor>(*mIo);
    mAcceptor->assign(UnixProtocol(), listening.Get());
    listening.Release();
    mAcceptRetry = std::make_unique<net::steady_timer>(*mIo);
    WaitForClient();
    mThread = std::thread([io = mIo.get()] {
        const auto guard = net::make_work_guard(*io);
        io->run();
    });
}

void Server::Impl::Stop() {
    const std::lock_guard lock(mLifecycle);
    if (!mThread.joinable()) {
        return;
    }
    mIo->stop();
    mThread.join();
    RemoveSocketFile();
    ReleaseSockets();
}

void Server::Impl::ReleaseSockets() {
    mSessions.clear();
    mAcceptRetry.reset();
    mAcceptor.reset();
    mIo.reset();
}

void Server::Impl::RemoveSocketFile() const {
    struct stat now {};
    if (lstat(mSocketPath.c_str(), &now) != 0 || now.st_dev != mSocketFile.st_dev ||
        now.st_ino != mSocketFile.st_ino) {
        return;
    }
    if (unlink(mSocketPath.c_str()) != 0) {
        Log().Warn("socket file " + mSocketPath + " could not be removed");
    }
}

void Server::Impl::Run(const std::function<void()>& action) const {
    const std::lock_guard lock(mLifecycle);
    if (!mThread.joinable()) {
        action();
        return;
    }
    std::packaged_task<void()> task(action);
    auto done = task.get_future();
    net::post(*mIo, [&task] { task(); });
    done.get();
}

void Server::Impl::SetServiceAvailable(const std::string& name, bool available) {
    if (!mInfo.SetAvailable(name, available)) {
        return;
    }
    if (name == kClampControlService) {
        for (const auto& session : mSessions) {
            session->Subscriptions().clear();
        }
    }
    Broadcast(ServiceMessage(name, available));
}

void Server::Impl::SetClampState(std::optional<bool> on) {
    if (on == mClampState) {
        return;
    }
    mClampState = on;
    if (!on) {
        return;
    }
    const auto sessions = mSessions;
    for (const auto& session : sessions) {
        if (!session->Subscriptions().empty()) {
            session->Send(ClampMessage(*on));
        }
    }
}

void Server::Impl::Broadcast(const std::string& text) {
    const auto sessions = mSessions;
    for (const auto& session : sessions) {
        session->Send(text);
    }
}

std::size_t Server::Impl::ClampSubscriptionCount() const {
    std::size_t count = 0;
    for (const auto& session : mSessions) {
        count += session->Subscriptions().size();
    }
    return count;
}

void Server::Impl::WaitForClient() {
    mAcceptor->async_wait(UnixProtocol::acceptor::wait_read, [this](const ErrorCode& error) {
        if (!error) {
            Accept();
        }
    });
}

void Server::Impl::Accept() {
    auto accepted = AcceptUnixSocket(mAcceptor->native_handle());
    if (accepted.Get() < 0 && errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
        Log().Warn("accept failed: " + std::generic_category().message(errno));
        mAcceptRetry->expires_after(kAcceptRetry);
        mAcceptRetry->async_wait([this](const ErrorCode&) { WaitForClient(); });
        return;
    }
    if (accepted.Get() >= 0 && mSessions.size() < kMaxClients) {
        Adopt(std::move(accepted));
    }
    WaitForClient();
}

void Server::Impl::Adopt(posix::UniqueFd accepted) {
    UnixProtocol::socket socket(*mIo);
    ErrorCode error;
    socket.assign(UnixProtocol(), accepted.Get(), error);
    if (error) {
        Log().Warn("a client is turned away: " + error.message());
        return;
    }
    accepted.Release();
    const auto session = std::make_shared<ClientSession>(std::move(socket), Owner());
    mSessions.insert(session);
    session->Start();
}

void Server::Impl::EventsOpened(ClientSession& session) {
    for (const auto& service : mInfo.Available()) {
        session.Send(ServiceMessage(service, true));
    }
}

void Server::Impl::MessageReceived(ClientSession& session, const std::string& text) {
    const auto message = ParseBoundedJson(text);
    const auto type = message.at("type").get<std::string>();
    if (type == "subscribe") {
        Subscribe(session, message);
    } else if (type == "unsubscribe") {
        session.Subscriptions().erase(message.at("subscription").get<std::string>());
    }
}

void Server::Impl::Subscribe(ClientSession& session, const nlohmann::json& message) {
    const auto request = message.at("request").get<std::uint64_t>();
    if (mSubscriptionAnswer == SubscriptionAnswer::kSilent) {
        return;
    }
    if (!Accepts(session, message)) {
        session.Send(FormatJson({{"type", "refused"}, {"request", request}}));
        return;
    }
    const auto id = "clamp15-" + std::to_string(mNextSubscription++);
    session.Subscriptions().insert(id);
    session.Send(FormatJson({{"type", "subscribed"}, {"request", request}, {"subscription", id}}));
    if (mClampState) {
        session.Send(ClampMessage(*mClampState));
    }
}

bool Server::Impl::Accepts(const ClientSession& session, const nlohmann::json& message) const {
    return mSubscriptionAnswer == SubscriptionAnswer::kAccept &&
           mInfo.Available().count(kClampControlService) != 0 &&
           message.at("service") == kClampControlService &&
           message.at("element") == kClamp15Element &&
           session.Subscriptions().size() < kMaxSubscriptions;
}

Server::Server(std::string socketPath) : mImpl(std::make_unique<Impl>(std::move(socketPath))) {}

Server::~Server() = default;

void Server::Start() {
    mImpl->Start();
}

void Server::Stop() {
    mImpl->Stop();
}

void Server::SetServiceAvailable(const std::string& name, bool available) {
    mImpl->Run([&] { mImpl->SetServiceAvailable(name, available); });
}

void Server::SetClampState(std::optional<bool> on) {
    mImpl->Run([&] { mImpl->SetClampState(on); });
}

void Server::SetClampSubscriptionAnswer(SubscriptionAnswer answer) {
    mImpl->Run([&] { mImpl->SetClampSubscriptionAnswer(answer); });
}

void Server::SetImmobilizerVin(std::optional<std::string> vin) {
    mImpl->Run([&] { mImpl->Info().ReportVin(std::move(vin)); });
}

void Server::SetImmobilizerStatus(unsigned status) {
    if (status < kLeastStatus || status > kGreatestStatus) {
        throw std::invalid_argument("no HTTP status: " + std::to_string(status));
    }
    mImpl->Run([&] { mImpl->Info().ReportAnswer({status, {}}); });
}

void Server::SetImmobilizerBody(std::string body) {
    mImpl->Run([&] { mImpl->Info().ReportAnswer({kOk, std::move(body)}); });
}

void Server::SetImmobilizerSilent() {
    mImpl->Run([&] { mImpl->Info().ReportNothing(); });
}

void Server::SendRawEvent(const std::string& text) {
    mImpl->Run([&] { mImpl->Broadcast(text); });
}

std::size_t Server::ClampSubscriptionCount() const {
    std::size_t count = 0;
    mImpl->Run([&] { count = mImpl->ClampSubscriptionCount(); });
    return count;
}

}  // namespace service_access
