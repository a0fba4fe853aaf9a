#include "simulator/page/session.h"

#include <array>
#include <charconv>
#include <chrono>
#include <deque>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include "simulator/page/assets.h"

namespace simulator::page {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Error = beast::error_code;

constexpr std::size_t kMaxHeaderBytes = std::size_t{8} * 1024;
constexpr std::size_t kMaxBodyBytes = std::size_t{4} * 1024;
constexpr std::size_t kMaxBufferBytes = std::size_t{32} * 1024;
constexpr std::size_t kMaxDrainedBytes = std::size_t{1024} * 1024;
/// A reader that is further behind is disconnected, and begins anew.
constexpr std::size_t kMaxQueuedBytes = std::size_t{32} * 1024 * 1024;
constexpr std::chrono::seconds kRequestLimit(10);
constexpr std::chrono::seconds kDrainLimit(2);
constexpr std::chrono::seconds kSignOfLife(10);

constexpr const char* kTextType = "text/plain; charset=utf-8";
constexpr const char* kJsonType = "application/json";
constexpr const char* kEventsType = "text/event-stream";
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
    "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// What stands behind the token.
struct Route {
    enum class Kind { kAsset, kEvents, kCommands, kNone };
    Kind kind{Kind::kNone};
    const Asset* asset{nullptr};
    Unit* unit{nullptr};
};

Route FindRoute(std::string_view path, const SessionContext& context) {
    constexpr std::string_view kUnits = "units/";
    if (const Asset* asset = FindAsset(path)) {
        return {Route::Kind::kAsset, asset, nullptr};
    }
    if (path.substr(0, kUnits.size()) != kUnits) {
        return {};
    }
    path.remove_prefix(kUnits.size());
    std::size_t number = 0;
    const auto result = std::from_chars(path.data(), path.data() + path.size(), number);
    if (result.ec != std::errc() || number < 1 || number > context.units.size()) {
        return {};
    }
    path.remove_prefix(static_cast<std::size_t>(result.ptr - path.data()));
    Unit* const unit = context.units.at(number - 1).get();
    if (path == "/events") {
        return {Route::Kind::kEvents, nullptr, unit};
    }
    if (path == "/commands") {
        return {Route::Kind::kCommands, nullptr, unit};
    }
    return {};
}

class Session : public std::enable_shared_from_this<Session> {
public:
    Session(asio::ip::tcp::socket socket, SessionContext& context)
        : mContext(context), mStream(std::move(socket)), mSignOfLife(mStream.get_executor()) {
        mParser.header_limit(static_cast<std::uint32_t>(kMaxHeaderBytes));
        mParser.body_limit(kMaxBodyBytes);
        ++mContext.connections;
    }

    ~Session() { --mContext.connections; }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Start() {
        mStream.expires_after(kRequestLimit);
        http::async_read_header(mStream, mBuffer, mParser,
                                [self = shared_from_this()](const Error& error, std::size_t) {
                                    self->OnHeader(error);
                                });
    }

private:
    void OnHeader(const Error& error) {
        if (error) {
            OnReadError(error);
            return;
        }
        const auto& header = mParser.get();
        const auto target = header.target();
        const auto path = mContext.access.PathBehindToken({target.data(), target.size()});
        if (!mContext.access.IsAllowed(header) || !path) {
            Refuse(http::status::forbidden, "This is not the page's address.");
            return;
        }
        mRoute = FindRoute(*path, mContext);
        const bool isCommand = mRoute.kind == Route::Kind::kCommands;
        if (mRoute.kind == Route::Kind::kNone) {
            Refuse(http::status::not_found, "There is nothing here.");
        } else if (header.method() != (isCommand ? http::verb::post : http::verb::get)) {
            Refuse(http::status::method_not_allowed, "Not by this method.");
        } else if (isCommand) {
            ReadCommand();
        } else if (mRoute.kind == Route::Kind::kEvents) {
            StreamEvents();
        } else {
            Respond(http::status::ok, mRoute.asset->mediaType, mRoute.asset->content);
        }
    }

    void OnReadError(const Error& error) {
        if (error == http::error::header_limit || error == http::error::buffer_overflow) {
            Refuse(http::status::request_header_fields_too_large, "The header is too long.");
        } else if (error == http::error::body_limit) {
            Refuse(http::status::payload_too_large, "The body is too long.");
        } else if (error == http::error::end_of_stream || error == http::error::partial_message ||
                   error.category() != Error(http::error::bad_method).category()) {
            mStream.close();
        } else {
            Refuse(http::status::bad_request, "This is no HTTP request.");
        }
    }

    void ReadCommand() {
        // No form of another page can send this type.
        if (!beast::iequals(mParser.get()[http::field::content_type], kJsonType)) {
            Refuse(http::status::unsupported_media_type, "A command is JSON.");
            return;
        }
        http::async_read(
            mStream, mBuffer, mParser,
            [self = shared_from_this()](const Error& error, std::size_t) { self->OnBody(error); });
    }

    void OnBody(const Error& error) {
        if (error) {
            OnReadError(error);
            return;
        }
        try {
            const ControlCommand command = ParseControlCommand(mParser.get().body());
            mRoute.unit->Execute(command, [self = shared_from_this()](const std::string& failure) {
                self->OnExecuted(failure);
            });
        } catch (const CommandError& failure) {
            Refuse(http::status::bad_request, failure.what());
        }
    }

    void OnExecuted(const std::string& failure) {
        if (failure.empty()) {
            Respond(http::status::no_content, kTextType, {});
        } else {
            Refuse(http::status::conflict, failure);
        }
    }

    void Refuse(http::status status, std::string_view reason) {
        Respond(status, kTextType, reason);
    }

    template <typename Body>
    static void SetHeader(http::response<Body>& response, std::string_view mediaType) {
        response.version(11);
        response.set(http::field::content_type,
                     beast::string_view(mediaType.data(), mediaType.size()));
        response.set(http::field::connection, "close");
        response.set(http::field::cache_control, "no-store");
        response.set("Content-Security-Policy", kPolicy);
        response.set("Cross-Origin-Opener-Policy", "same-origin");
        response.set("Cross-Origin-Resource-Policy", "same-origin");
        response.set("Referrer-Policy", "no-referrer");
        response.set("X-Content-Type-Options", "nosniff");
    }

    void Respond(http::status status, std::string_view mediaType, std::string_view body) {
        mStream.expires_after(kRequestLimit);
        mResponse.result(status);
        SetHeader(mResponse, mediaType);
        mResponse.body() = std::string(body);
        mResponse.prepare_payload();
        http::async_write(mStream, mResponse,
                          [self = shared_from_this()](const Error& error, std::size_t) {
                              if (!error) {
                                  self->Finish();
                              }
                          });
    }

    /// Ends the connection so that the peer gets all that was sent: a close with bytes unread
    /// would reset it.
    void Finish() {
        Error ignored;
        mStream.socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
        mStream.expires_after(kDrainLimit);
        Drain(kMaxDrainedBytes);
    }

    void Drain(std::size_t limit) {
        mStream.async_read_some(asio::buffer(mDrained), [self = shared_from_this(), limit](
                                                            const Error& error, std::size_t count) {
            if (!error && count < limit) {
                self->Drain(limit - count);
            }
        });
    }

    void StreamEvents() {
        mStream.expires_never();
        http::response<http::empty_body> response;
        SetHeader(response, kEventsType);
        std::ostringstream text;
        text << response;
        Queue(std::make_shared<const std::string>(text.str()));
        // Called only while the pending read keeps this session: `Leave` ends both.
        mWatcher =
            mRoute.unit->Watch([this](const Unit::Message& message) { QueueEvent(message); });
        QueueEvent(std::make_shared<const std::string>(
            nlohmann::json{{"units", Overview(mContext)}}.dump()));
        if (!mStream.socket().is_open()) {
            Leave();
            return;
        }
        WaitForLeave();
        ShowLife();
    }

    void QueueEvent(const Unit::Message& message) {
        static const auto kBegin = std::make_shared<const std::string>("data: ");
        static const auto kEnd = std::make_shared<const std::string>("\n\n");
        Queue(kBegin);
        Queue(message);
        Queue(kEnd);
    }

    void Queue(Unit::Message text) {
        mQueuedBytes += text->size();
        mQueue.push_back(std::move(text));
        if (mQueuedBytes > kMaxQueuedBytes) {
            Leave();
        } else if (mQueue.size() == 1) {
            SendNext();
        }
    }

    void SendNext() {
        asio::async_write(
            mStream, asio::buffer(*mQueue.front()),
            [self = shared_from_this()](const Error& error, std::size_t) { self->OnSent(error); });
    }

    void OnSent(const Error& error) {
        if (error) {
            Leave();
            return;
        }
        mQueuedBytes -= mQueue.front()->size();
        mQueue.pop_front();
        if (!mQueue.empty()) {
            SendNext();
        }
    }

    /// Nothing more is expected from the reader but the end.
    void WaitForLeave() {
        mStream.async_read_some(asio::buffer(mDrained),
                                [self = shared_from_this()](const Error& error, std::size_t) {
                                    if (error) {
                                        self->Leave();
                                    } else {
                                        self->WaitForLeave();
                                    }
                                });
    }

    /// Lets the page see that the server is alive.
    void ShowLife() {
        mSignOfLife.expires_after(kSignOfLife);
        mSignOfLife.async_wait([self = shared_from_this()](const Error& error) {
            if (!error && self->mWatcher != 0) {
                self->Queue(std::make_shared<const std::string>(": \n\n"));
                self->ShowLife();
            }
        });
    }

    void Leave() {
        if (mWatcher != 0) {
            mRoute.unit->Unwatch(std::exchange(mWatcher, 0));
        }
        mSignOfLife.cancel();
        mStream.close();
    }

    SessionContext& mContext;
    beast::tcp_stream mStream;
    asio::steady_timer mSignOfLife;
    beast::flat_buffer mBuffer{kMaxBufferBytes};
    http::request_parser<http::string_body> mParser;
    http::response<http::string_body> mResponse;
    Route mRoute;
    Unit::WatcherId mWatcher{0};
    std::deque<Unit::Message> mQueue;
    std::size_t mQueuedBytes{0};
    std::array<char, 4096> mDrained{};
};

}  // namespace

nlohmann::json Overview(const SessionContext& context) {
    nlohmann::json units = nlohmann::json::array();
    for (const auto& unit : context.units) {
        units.push_back(unit->Overview());
    }
    return units;
}

void ServeSession(asio::ip::tcp::socket socket, SessionContext& context) {
    std::make_shared<Session>(std::move(socket), context)->Start();
}

}  // namespace simulator::page
