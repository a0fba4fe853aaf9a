#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <string_view>
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
#include <boost/system/system_error.hpp>
#include <nlohmann/json.hpp>
#include <service_access/bounded_json.h>
#include <service_access/log.h>
#include <service_access/service_names.h>
#include <service_access_host/server.h>
#include <sys/stat.h>
#include <unistd.h>

#include "unix_socket.h"

namespace service_access_host {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using service_access::kClamp15Element;
using service_access::kClampControlService;
using service_access::kImmobilizerService;
using UnixProtocol = net::local::stream_protocol;
using ErrorCode = boost::system::error_code;
using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

constexpr std::size_t kMaxClients = 128;
constexpr std::size_t kMaxMessageLength = 4096;
constexpr std::uint32_t kMaxHttpHeader = 4096;
constexpr std::size_t kMaxSubscriptions = 64;
constexpr std::size_t kMaxMessagesToSend = 1024;
constexpr std::size_t kMaxFields = 32;
constexpr std::chrono::seconds kRequestTimeLimit{5};
constexpr std::chrono::seconds kIdleTimeLimit{180};
constexpr std::chrono::milliseconds kAcceptRetry{100};

constexpr unsigned kOk = 200;
constexpr unsigned kLeastStatus = 200;
constexpr unsigned kGreatestStatus = 599;

constexpr unsigned kIdField = 0;
constexpr unsigned kVinField = 5;

struct ReportVin {
    std::optional<std::string> vin;
};
struct ReportStatus {
    unsigned status;
};
struct ReportBody {
    std::string body;
};
struct ReportNothing {};
using ImmobilizerAnswer = std::variant<ReportVin, ReportStatus, ReportBody, ReportNothing>;

std::string Text(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string ServiceMessage(const std::string& name, bool available) {
    return Text({{"type", "service"}, {"name", name}, {"available", available}});
}

std::string ClampMessage(bool on) {
    return Text({{"type", "element"},
                 {"service", kClampControlService},
                 {"element", kClamp15Element},
                 {"value", on}});
}

/// The comma-separated numbers of the query's "fields", or nothing if they are malformed.
std::optional<std::set<unsigned>> Fields(std::string_view query) {
    constexpr std::string_view kKey = "fields=";
    const auto begin = query.find(kKey);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    auto list = query.substr(begin + kKey.size());
    list = list.substr(0, list.find('&'));
    std::set<unsigned> fields;
    while (true) {
        unsigned field = 0;
        const auto* const end = list.data() + list.size();
        const auto [stop, error] = std::from_chars(list.data(), end, field);
        if (error != std::errc() || fields.size() >= kMaxFields) {
            return std::nullopt;
        }
        fields.insert(field);
        if (stop == end) {
            return fields;
        }
        if (*stop != ',') {
            return std::nullopt;
        }
        list.remove_prefix(static_cast<std::size_t>(stop - list.data()) + 1);
    }
}

/// One accepted connection: a request, or the event channel that one was upgraded to.
struct Client {
    explicit Client(UnixProtocol::socket socket)
        : deadline(socket.get_executor()), stream(std::move(socket)) {
        parser.header_limit(kMaxHttpHeader);
        parser.body_limit(kMaxMessageLength);
    }

    UnixProtocol::socket& Socket() { return stream.next_layer(); }

    net::steady_timer deadline;
    websocket::stream<UnixProtocol::socket> stream;
    beast::flat_buffer buffer{kMaxHttpHeader};
    http::request_parser<http::string_body> parser;
    Response response;
    std::deque<std::string> toSend;
    std::set<std::string> subscriptions;
    bool listensToEvents = false;
};

using ClientPtr = std::shared_ptr<Client>;

void LiftDeadline(Client& client) {
    client.deadline.expires_at(net::steady_timer::time_point::max());
}

}  // namespace

class Server::Impl {
public:
    explicit Impl(std::string socketPath) : mSocketPath(std::move(socketPath)) {}
    ~Impl() { Stop(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Start();
    void Stop();

    /// Runs `action` where the state may be touched: on the server's thread if it runs.
    void Run(const std::function<void()>& action) const;

    void SetServiceAvailable(const std::string& name, bool available);
    void SetClampState(std::optional<bool> on);
    void SendRawEvent(const std::string& text);
    std::size_t ClampSubscriptionCount() const;

    ImmobilizerAnswer mImmobilizerAnswer = ReportVin{};
    SubscriptionAnswer mSubscriptionAnswer = SubscriptionAnswer::kAccept;

private:
    void Listen(service_access::UniqueFd listening);
    void ReleaseSockets();
    void WaitForClient();
    void Accept();
    void StartDeadline(const ClientPtr& client);
    void ReadRequest(const ClientPtr& client);
    void Dispatch(const ClientPtr& client);
    void Respond(const ClientPtr& client, unsigned status, std::string body);
    void Respond(const ClientPtr& client, http::status status) {
        Respond(client, static_cast<unsigned>(status), {});
    }
    void WaitForEnd(const ClientPtr& client);
    void AnswerInfo(const ClientPtr& client, std::string_view path, std::string_view query);
    void AnswerImmobilizer(const ClientPtr& client, const std::set<unsigned>& fields);
    void OpenEvents(const ClientPtr& client);
    void ReadMessage(const ClientPtr& client);
    void HandleMessage(const ClientPtr& client, const std::string& text);
    void HandleSubscribe(const ClientPtr& client, const nlohmann::json& message);
    void Broadcast(const std::string& text);
    void Send(const ClientPtr& client, std::string text);
    void SendNext(const ClientPtr& client);
    void Drop(const ClientPtr& client);
    void RemoveSocketFile() const;

    const std::string mSocketPath;
    mutable std::mutex mLifecycle;
    std::thread mThread;
    struct stat mSocketFile {};

    // Below: touched by Run only.
    std::unique_ptr<net::io_context> mIo;
    std::unique_ptr<UnixProtocol::acceptor> mAcceptor;
    std::unique_ptr<net::steady_timer> mAcceptRetry;
    std::set<ClientPtr> mClients;
    std::set<std::string> mKnownServices{kClampControlService, kImmobilizerService};
    std::set<std::string> mAvailable;
    std::optional<bool> mClampState;
    std::uint64_t mNextSubscription = 1;
};

void Server::Impl::Start() {
    const std::lock_guard lock(mLifecycle);
    if (mThread.joinable()) {
        return;
    }
    auto listening = service_access::ListenAtUnixSocket(mSocketPath);
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

void Server::Impl::Listen(service_access::UniqueFd listening) {
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
    mClients.clear();
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
        service_access::LogWarning("socket file " + mSocketPath + " could not be removed");
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
    mKnownServices.insert(name);
    const bool changed = available ? mAvailable.insert(name).second : mAvailable.erase(name) != 0;
    if (!changed) {
        return;
    }
    if (name == kClampControlService) {
        for (const auto& client : mClients) {
            client->subscriptions.clear();
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
    const auto clients = mClients;
    for (const auto& client : clients) {
        if (!client->subscriptions.empty()) {
            Send(client, ClampMessage(*on));
        }
    }
}

void Server::Impl::SendRawEvent(const std::string& text) {
    Broadcast(text);
}

std::size_t Server::Impl::ClampSubscriptionCount() const {
    std::size_t count = 0;
    for (const auto& client : mClients) {
        count += client->subscriptions.size();
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
    auto accepted = service_access::AcceptUnixSocket(mAcceptor->native_handle());
    if (accepted.Get() < 0 && errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
        service_access::LogWarning("accept failed: " + std::generic_category().message(errno));
        mAcceptRetry->expires_after(kAcceptRetry);
        mAcceptRetry->async_wait([this](const ErrorCode&) { WaitForClient(); });
        return;
    }
    if (accepted.Get() >= 0 && mClients.size() < kMaxClients) {
        UnixProtocol::socket socket(*mIo);
        ErrorCode error;
        socket.assign(UnixProtocol(), accepted.Get(), error);
        if (error) {
            service_access::LogWarning("a client is turned away: " + error.message());
        } else {
            accepted.Release();
            const auto client = std::make_shared<Client>(std::move(socket));
            mClients.insert(client);
            ReadRequest(client);
        }
    }
    WaitForClient();
}

void Server::Impl::StartDeadline(const ClientPtr& client) {
    client->deadline.expires_after(kRequestTimeLimit);
    client->deadline.async_wait([this, client](const ErrorCode& cancelled) {
        // The wait may have ended just before the deadline was lifted.
        if (!cancelled && client->deadline.expiry() <= net::steady_timer::clock_type::now()) {
            Drop(client);
        }
    });
}

void Server::Impl::ReadRequest(const ClientPtr& client) {
    StartDeadline(client);
    http::async_read(client->Socket(), client->buffer, client->parser,
                     [this, client](const ErrorCode& error, std::size_t) {
                         LiftDeadline(*client);
                         error ? Drop(client) : Dispatch(client);
                     });
}

void Server::Impl::Dispatch(const ClientPtr& client) {
    const auto& request = client->parser.get();
    const std::string_view target(request.target().data(), request.target().size());
    if (target == "/events" && websocket::is_upgrade(request)) {
        OpenEvents(client);
        return;
    }
    if (request.method() != http::verb::get) {
        Respond(client, http::status::method_not_allowed);
        return;
    }
    const auto mark = std::min(target.find('?'), target.size());
    AnswerInfo(client, target.substr(0, mark), target.substr(mark));
}

void Server::Impl::AnswerInfo(const ClientPtr& client, std::string_view path,
                              std::string_view query) {
    constexpr std::string_view kPrefix = "/services/";
    constexpr std::string_view kSuffix = "/info";
    if (path.size() <= kPrefix.size() + kSuffix.size() ||
        path.substr(0, kPrefix.size()) != kPrefix ||
        path.substr(path.size() - kSuffix.size()) != kSuffix) {
        Respond(client, http::status::not_found);
        return;
    }
    const std::string name(
        path.substr(kPrefix.size(), path.size() - kPrefix.size() - kSuffix.size()));
    if (mKnownServices.count(name) == 0) {
        Respond(client, http::status::not_found);
        return;
    }
    if (mAvailable.count(name) == 0) {
        Respond(client, http::status::service_unavailable);
        return;
    }
    const auto fields = Fields(query);
    if (!fields) {
        Respond(client, http::status::bad_request);
        return;
    }
    if (name == kImmobilizerService) {
        AnswerImmobilizer(client, *fields);
        return;
    }
    Respond(client, kOk, Text({{"items", nlohmann::json::array()}}));
}

void Server::Impl::AnswerImmobilizer(const ClientPtr& client, const std::set<unsigned>& fields) {
    if (const auto* const status = std::get_if<ReportStatus>(&mImmobilizerAnswer)) {
        Respond(client, status->status, {});
        return;
    }
    if (const auto* const body = std::get_if<ReportBody>(&mImmobilizerAnswer)) {
        Respond(client, kOk, body->body);
        return;
    }
    if (std::holds_alternative<ReportNothing>(mImmobilizerAnswer)) {
        WaitForEnd(client);
        return;
    }
    auto item = nlohmann::json::object();
    if (fields.count(kIdField) != 0) {
        item["id"] = kImmobilizerService;
    }
    const auto& vin = std::get<ReportVin>(mImmobilizerAnswer).vin;
    if (fields.count(kVinField) != 0 && vin) {
        item["vehicleIdentificationNumber"] = *vin;
    }
    Respond(client, kOk, Text({{"items", nlohmann::json::array({item})}}));
}

void Server::Impl::Respond(const ClientPtr& client, unsigned status, std::string body) {
    client->response.result(status);
    client->response.version(client->parser.get().version());
    client->response.keep_alive(false);
    client->response.set(http::field::content_type, "application/json");
    client->response.body() = std::move(body);
    client->response.prepare_payload();
    StartDeadline(client);
    http::async_write(client->Socket(), client->response,
                      [this, client](const ErrorCode&, std::size_t) {
                          LiftDeadline(*client);
                          Drop(client);
                      });
}

void Server::Impl::WaitForEnd(const ClientPtr& client) {
    client->Socket().async_wait(UnixProtocol::socket::wait_read,
                                [this, client](const ErrorCode&) { Drop(client); });
}

void Server::Impl::OpenEvents(const ClientPtr& client) {
    websocket::stream_base::timeout limits{};
    limits.handshake_timeout = kRequestTimeLimit;
    limits.idle_timeout = kIdleTimeLimit;
    limits.keep_alive_pings = true;
    client->stream.set_option(limits);
    client->stream.read_message_max(kMaxMessageLength);
    client->stream.async_accept(client->parser.get(), [this, client](const ErrorCode& error) {
        if (error) {
            Drop(client);
            return;
        }
        client->listensToEvents = true;
        for (const auto& service : mAvailable) {
            Send(client, ServiceMessage(service, true));
        }
        ReadMessage(client);
    });
}

void Server::Impl::ReadMessage(const ClientPtr& client) {
    client->stream.async_read(client->buffer, [this, client](const ErrorCode& error, std::size_t) {
        if (error) {
            Drop(client);
            return;
        }
        const auto text = beast::buffers_to_string(client->buffer.data());
        client->buffer.consume(client->buffer.size());
        HandleMessage(client, text);
        ReadMessage(client);
    });
}

void Server::Impl::HandleMessage(const ClientPtr& client, const std::string& text) {
    try {
        const auto message = service_access::ParseBoundedJson(text);
        const auto type = message.at("type").get<std::string>();
        if (type == "subscribe") {
            HandleSubscribe(client, message);
        } else if (type == "unsubscribe") {
            client->subscriptions.erase(message.at("subscription").get<std::string>());
        }
    } catch (const std::exception& error) {
        service_access::LogWarning(std::string("message of a client: ") + error.what());
        Drop(client);
    }
}

void Server::Impl::HandleSubscribe(const ClientPtr& client, const nlohmann::json& message) {
    const auto request = message.at("request").get<std::uint64_t>();
    if (mSubscriptionAnswer == SubscriptionAnswer::kSilent) {
        return;
    }
    if (mSubscriptionAnswer == SubscriptionAnswer::kRefuse ||
        mAvailable.count(kClampControlService) == 0 ||
        message.at("service") != kClampControlService || message.at("element") != kClamp15Element ||
        client->subscriptions.size() >= kMaxSubscriptions) {
        Send(client, Text({{"type", "refused"}, {"request", request}}));
        return;
    }
    const auto id = "clamp15-" + std::to_string(mNextSubscription++);
    client->subscriptions.insert(id);
    Send(client, Text({{"type", "subscribed"}, {"request", request}, {"subscription", id}}));
    if (mClampState) {
        Send(client, ClampMessage(*mClampState));
    }
}

void Server::Impl::Broadcast(const std::string& text) {
    const auto clients = mClients;
    for (const auto& client : clients) {
        if (client->listensToEvents) {
            Send(client, text);
        }
    }
}

void Server::Impl::Send(const ClientPtr& client, std::string text) {
    if (client->toSend.size() >= kMaxMessagesToSend) {
        Drop(client);
        return;
    }
    client->toSend.push_back(std::move(text));
    if (client->toSend.size() == 1) {
        SendNext(client);
    }
}

void Server::Impl::SendNext(const ClientPtr& client) {
    client->stream.async_write(net::buffer(client->toSend.front()),
                               [this, client](const ErrorCode& error, std::size_t) {
                                   if (error) {
                                       Drop(client);
                                       return;
                                   }
                                   client->toSend.pop_front();
                                   if (!client->toSend.empty()) {
                                       SendNext(client);
                                   }
                               });
}

void Server::Impl::Drop(const ClientPtr& client) {
    client->listensToEvents = false;
    client->subscriptions.clear();
    ErrorCode ignored;
    client->Socket().close(ignored);
    mClients.erase(client);
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
    mImpl->Run([&] { mImpl->mSubscriptionAnswer = answer; });
}

void Server::SetImmobilizerVin(std::optional<std::string> vin) {
    mImpl->Run([&] { mImpl->mImmobilizerAnswer = ReportVin{std::move(vin)}; });
}

void Server::SetImmobilizerStatus(unsigned status) {
    if (status < kLeastStatus || status > kGreatestStatus) {
        throw std::invalid_argument("no HTTP status: " + std::to_string(status));
    }
    mImpl->Run([&] { mImpl->mImmobilizerAnswer = ReportStatus{status}; });
}

void Server::SetImmobilizerBody(std::string body) {
    mImpl->Run([&] { mImpl->mImmobilizerAnswer = ReportBody{std::move(body)}; });
}

void Server::SetImmobilizerSilent() {
    mImpl->Run([&] { mImpl->mImmobilizerAnswer = ReportNothing{}; });
}

void Server::SendRawEvent(const std::string& text) {
    mImpl->Run([&] { mImpl->SendRawEvent(text); });
}

std::size_t Server::ClampSubscriptionCount() const {
    std::size_t count = 0;
    mImpl->Run([&] { count = mImpl->ClampSubscriptionCount(); });
    return count;
}

}  // namespace service_access_host
