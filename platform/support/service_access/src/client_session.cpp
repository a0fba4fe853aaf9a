#include "client_session.h"

#include <exception>
#include <utility>

#include <boost/beast/core/buffers_to_string.hpp>

#include <service_access/log.h>

namespace service_access {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

constexpr std::size_t kMaxMessageLength = 4096;
constexpr std::uint32_t kMaxHttpHeader = 4096;
constexpr std::size_t kMaxMessagesToSend = 1024;
constexpr std::chrono::seconds kRequestTimeLimit{5};
constexpr std::chrono::seconds kIdleTimeLimit{180};

}  // namespace

ClientSession::ClientSession(Socket socket, SessionOwner& owner)
    : mOwner(owner),
      mDeadline(socket.get_executor()),
      mStream(std::move(socket)),
      mBuffer(kMaxHttpHeader) {
    mParser.header_limit(kMaxHttpHeader);
    mParser.body_limit(kMaxMessageLength);
}

void ClientSession::Start() {
    StartDeadline();
    http::async_read(GetSocket(), mBuffer, mParser,
                     [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                         self->LiftDeadline();
                         error ? self->Drop() : self->Dispatch();
                     });
}

void ClientSession::StartDeadline() {
    mDeadline.expires_after(kRequestTimeLimit);
    mDeadline.async_wait([self = shared_from_this()](const ErrorCode& cancelled) {
        // The wait may have ended just before the deadline was lifted.
        if (!cancelled && self->mDeadline.expiry() <= net::steady_timer::clock_type::now()) {
            self->Drop();
        }
    });
}

void ClientSession::LiftDeadline() {
    mDeadline.expires_at(net::steady_timer::time_point::max());
}

void ClientSession::Dispatch() {
    const auto& request = mParser.get();
    const std::string_view target(request.target().data(), request.target().size());
    if (target == "/events" && websocket::is_upgrade(request)) {
        OpenEvents();
        return;
    }
    if (request.method() != http::verb::get) {
        Respond({static_cast<unsigned>(http::status::method_not_allowed), {}});
        return;
    }
    if (auto answer = mOwner.AnswerRequest(target)) {
        Respond(std::move(*answer));
    } else {
        WaitForEnd();
    }
}

void ClientSession::Respond(InfoAnswer answer) {
    mResponse.result(answer.status);
    mResponse.version(mParser.get().version());
    mResponse.keep_alive(false);
    mResponse.set(http::field::content_type, "application/json");
    mResponse.body() = std::move(answer.body);
    mResponse.prepare_payload();
    StartDeadline();
    http::async_write(GetSocket(), mResponse,
                      [self = shared_from_this()](const ErrorCode&, std::size_t) {
                          self->LiftDeadline();
                          self->Drop();
                      });
}

void ClientSession::WaitForEnd() {
    GetSocket().async_wait(Socket::wait_read,
                           [self = shared_from_this()](const ErrorCode&) { self->Drop(); });
}

void ClientSession::OpenEvents() {
    websocket::stream_base::timeout limits{};
    limits.handshake_timeout = kRequestTimeLimit;
    limits.idle_timeout = kIdleTimeLimit;
    limits.keep_alive_pings = true;
    mStream.set_option(limits);
    mStream.read_message_max(kMaxMessageLength);
    mStream.async_accept(mParser.get(), [self = shared_from_this()](const ErrorCode& error) {
        if (error) {
            self->Drop();
            return;
        }
        self->mListensToEvents = true;
        self->mOwner.EventsOpened(*self);
        self->ReadMessage();
    });
}

void ClientSession::ReadMessage() {
    mStream.async_read(mBuffer, [self = shared_from_this()](const ErrorCode& error, std::size_t) {
        if (error) {
            self->Drop();
            return;
        }
        self->HandleMessage();
        self->ReadMessage();
    });
}

void ClientSession::HandleMessage() {
    const auto text = beast::buffers_to_string(mBuffer.data());
    mBuffer.consume(mBuffer.size());
    try {
        mOwner.MessageReceived(*this, text);
    } catch (const std::exception& error) {
        Log().Warn(std::string("message of a client: ") + error.what());
        Drop();
    }
}

void ClientSession::Send(std::string text) {
    if (!mListensToEvents) {
        return;
    }
    if (mToSend.size() >= kMaxMessagesToSend) {
        Drop();
        return;
    }
    mToSend.push_back(std::move(text));
    if (mToSend.size() == 1) {
        SendNext();
    }
}

void ClientSession::SendNext() {
    mStream.async_write(net::buffer(mToSend.front()),
                        [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                            if (error) {
                                self->Drop();
                                return;
                            }
                            self->mToSend.pop_front();
                            if (!self->mToSend.empty()) {
                                self->SendNext();
                            }
                        });
}

void ClientSession::Drop() {
    if (mEnded) {
        return;
    }
    mEnded = true;
    mListensToEvents = false;
    mSubscriptions.clear();
    ErrorCode ignored;
    GetSocket().close(ignored);
    mOwner.SessionEnded(shared_from_this());
}

}  // namespace service_access
