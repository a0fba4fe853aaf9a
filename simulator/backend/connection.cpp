#include "simulator/backend/connection.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

namespace simulator::backend {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Error = beast::error_code;

constexpr std::size_t kMaxHeaderBytes = std::size_t{16} * 1024;
constexpr std::size_t kMaxBodyBytes = std::size_t{256} * 1024;
constexpr std::size_t kMaxBufferBytes = std::size_t{128} * 1024;
constexpr std::size_t kMaxDrainedBytes = std::size_t{1024} * 1024;
constexpr std::chrono::seconds kDrainLimit(2);
constexpr std::size_t kPieceBytes = 16;
constexpr std::chrono::milliseconds kPiecePause(1);
/// HTTP versions as Beast encodes them.
constexpr unsigned kHttp11 = 11;
constexpr const char* kInterimResponse = "HTTP/1.1 100 Continue\r\n\r\n";
constexpr const char* kBrokenStatusLine = "HTTP/1.1 abc\r\n\r\n";

std::string HttpDate(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    std::array<char, 64> text{};
    if (::gmtime_r(&seconds, &utc) == nullptr ||
        std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc) == 0) {
        return {};
    }
    return text.data();
}

std::string Serialize(const Answer& answer, std::chrono::system_clock::time_point now) {
    http::response<http::string_body> response;
    response.version(11);
    response.result(answer.status);
    if (response.result() == http::status::unknown) {
        response.reason("Refused");
    }
    response.set(http::field::date, HttpDate(now));
    response.set(http::field::content_type, answer.mediaType);
    response.set(http::field::connection, "close");
    response.content_length(answer.body.size());
    response.body() = answer.body;
    std::ostringstream text;
    text << response;
    return text.str();
}

std::string RemoteText(const asio::ip::tcp::socket& socket) {
    Error error;
    const auto endpoint = socket.remote_endpoint(error);
    return error ? std::string()
                 : endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
}

/// A media type without its parameters.
std::string WithoutParameters(beast::string_view mediaType) {
    std::string type(mediaType.substr(0, mediaType.find(';')));
    type.erase(type.find_last_not_of(" \t") + 1);
    return type;
}

class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(asio::ip::tcp::socket socket, ConnectionContext& context,
               std::function<void()> onEnd)
        : mContext(context),
          mOnEnd(std::move(onEnd)),
          mStream(std::move(socket)),
          mPieceTimer(mStream.get_executor()) {
        mParser.header_limit(static_cast<std::uint32_t>(kMaxHeaderBytes));
        mParser.body_limit(kMaxBodyBytes);
    }

    void Start() {
        mEntry.time = mContext.service.Now();
        mEntry.remote = RemoteText(mStream.socket());
        mEntry.transactionId = MakeTransactionId();
        mStream.expires_after(mContext.timeLimit);
        http::async_read_header(mStream, mBuffer, mParser,
                                [self = shared_from_this()](const Error& error, std::size_t) {
                                    self->OnHeader(error);
                                });
    }

private:
    void OnHeader(const Error& error) {
        if (error && !mParser.got_some()) {
            End();
            return;
        }
        NoteHeader();
        if (error) {
            OnReadError(error);
            return;
        }
        mScenario = mContext.scenarios.Next();
        mEntry.scenario = mScenario.name;
        switch (mScenario.kind) {
            case ScenarioKind::kCloseEarly:
                mEntry.outcome = "closed";
                NoteInJournal();
                Finish();
                return;
            case ScenarioKind::kSilent:
                mEntry.outcome = "silent";
                NoteInJournal();
                mStream.expires_never();
                Drain(SIZE_MAX);
                return;
            case ScenarioKind::kBrokenStatus:
                mEntry.outcome = "broken-status";
                NoteInJournal();
                Send(kBrokenStatusLine, &Connection::Finish);
                return;
            case ScenarioKind::kNoInterim:
                Refuse(http::status::expectation_failed, "refused by the scenario");
                return;
            default:
                JudgeHeader();
        }
    }

    void NoteHeader() {
        const auto& header = mParser.get();
        mEntry.method = std::string(header.method_string());
        mEntry.target = std::string(header.target());
        mEntry.mediaType = std::string(header[http::field::content_type]);
        mEntry.accept = std::string(header[http::field::accept]);
    }

    void NoteInJournal() {
        mEntry.duration = std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - mStart);
        mContext.journal.Write(mEntry);
    }

    void JudgeHeader() {
        const auto& header = mParser.get();
        const auto expectation = header[http::field::expect];
        if (header.count(http::field::host) != 1) {
            Refuse(http::status::bad_request, "the request does not name exactly one host");
        } else if (header.method() != http::verb::put) {
            Refuse(http::status::method_not_allowed, "the method is not PUT");
        } else if (!beast::iequals(WithoutParameters(mEntry.mediaType), kRequestMediaType)) {
            Refuse(http::status::unsupported_media_type, "the media type is not that of a request");
        } else if (!mParser.content_length() && !mParser.chunked()) {
            Refuse(http::status::length_required, "the body has no length");
        } else if (expectation.empty() || header.version() < kHttp11) {
            // An older peer's expectation is to be ignored (RFC 9110, section 10.1.1).
            ReadBody();
        } else if (beast::iequals(expectation, "100-continue")) {
            Send(kInterimResponse, &Connection::OnInterimSent);
        } else {
            Refuse(http::status::expectation_failed, "unknown expectation");
        }
    }

    void OnInterimSent() {
        if (mScenario.kind == ScenarioKind::kCloseAfterInterim) {
            // With unread bytes the peer would receive a reset instead of an end of stream.
            ShutDownSending();
        }
        ReadBody();
    }

    void ReadBody() {
        http::async_read(
            mStream, mBuffer, mParser,
            [self = shared_from_this()](const Error& error, std::size_t) { self->OnBody(error); });
    }

    void OnBody(const Error& error) {
        if (mScenario.kind == ScenarioKind::kCloseAfterInterim) {
            mEntry.outcome = "closed";
            NoteInJournal();
            Finish();
            return;
        }
        if (error) {
            OnReadError(error);
            return;
        }
        Respond(mContext.service.Handle(mParser.get().body(), mScenario, mEntry));
    }

    void OnReadError(const Error& error) {
        if (error == http::error::header_limit) {
            Refuse(http::status::request_header_fields_too_large, "the header is too long");
        } else if (error == http::error::body_limit) {
            Refuse(http::status::payload_too_large, "the body is too long");
        } else if (error == beast::error::timeout || error == http::error::partial_message ||
                   error == http::error::end_of_stream ||
                   error.category() != Error(http::error::bad_method).category()) {
            mEntry.outcome = "aborted";
            mEntry.reason = error.message();
            NoteInJournal();
            Finish();
        } else {
            Refuse(http::status::bad_request, "the request does not parse: " + error.message());
        }
    }

    void Refuse(http::status status, const std::string& reason) {
        Respond(EnrolmentService::Refuse(static_cast<unsigned>(status), reason, mEntry));
    }

    /// Writes the entry to the journal before the response is sent.
    void Respond(const Answer& answer) {
        mEntry.status = answer.status;
        NoteInJournal();
        Send(Serialize(answer, mContext.service.Now()), &Connection::Finish);
    }

    void Send(std::string text, void (Connection::*next)()) {
        mOutput = std::move(text);
        mSent = 0;
        mNext = next;
        SendRest();
    }

    void SendRest() {
        const std::size_t rest = mOutput.size() - mSent;
        const bool isInPieces = mScenario.kind == ScenarioKind::kPieces;
        const std::size_t size = isInPieces ? std::min(rest, kPieceBytes) : rest;
        asio::async_write(mStream, asio::buffer(mOutput.data() + mSent, size),
                          [self = shared_from_this()](const Error& error, std::size_t count) {
                              self->OnSent(error, count);
                          });
    }

    void OnSent(const Error& error, std::size_t count) {
        mSent += count;
        if (error) {
            End();
        } else if (mSent == mOutput.size()) {
            (this->*mNext)();
        } else {
            mPieceTimer.expires_after(kPiecePause);
            mPieceTimer.async_wait([self = shared_from_this()](const Error& timerError) {
                if (!timerError) {
                    self->SendRest();
                }
            });
        }
    }

    void ShutDownSending() {
        // Fails if the peer has closed already.
        Error ignored;
        mStream.socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    }

    /// Closes the connection so that the peer receives all that was sent: closing with unread bytes
    /// would send a reset.
    void Finish() {
        ShutDownSending();
        mStream.expires_after(kDrainLimit);
        Drain(kMaxDrainedBytes);
    }

    void Drain(std::size_t limit) {
        mStream.async_read_some(asio::buffer(mDrained), [self = shared_from_this(), limit](
                                                            const Error& error, std::size_t count) {
            if (error || count >= limit) {
                self->End();
                return;
            }
            self->Drain(limit - count);
        });
    }

    void End() {
        mStream.close();
        mOnEnd();
    }

    ConnectionContext& mContext;
    std::function<void()> mOnEnd;
    beast::tcp_stream mStream;
    asio::steady_timer mPieceTimer;
    beast::flat_buffer mBuffer{kMaxBufferBytes};
    http::request_parser<http::string_body> mParser;
    Scenario mScenario;
    JournalEntry mEntry;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::string mOutput;
    std::size_t mSent = 0;
    void (Connection::*mNext)() = nullptr;
    std::array<char, 4096> mDrained{};
};

}  // namespace

void ServeConnection(asio::ip::tcp::socket socket, ConnectionContext& context,
                     std::function<void()> onEnd) {
    std::make_shared<Connection>(std::move(socket), context, std::move(onEnd))->Start();
}

}  // namespace simulator::backend
