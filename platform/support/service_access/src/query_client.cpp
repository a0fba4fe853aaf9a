#include "query_client.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace service_access {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

constexpr char kHost[] = "localhost";
constexpr unsigned kHttpVersion11 = 11;
constexpr std::uint32_t kMaxHttpHeader = 8192;
constexpr std::size_t kMaxQueries = 64;

}  // namespace

struct QueryClient::Exchange {
    Exchange(net::io_context& io, std::uint64_t queryId, std::size_t maxBody)
        : id(queryId), socket(io), deadline(io) {
        parser.body_limit(maxBody);
        parser.header_limit(kMaxHttpHeader);
    }

    const std::uint64_t id;
    UnixProtocol::socket socket;
    net::steady_timer deadline;
    beast::flat_buffer buffer{kMaxHttpHeader};
    http::request<http::empty_body> request;
    http::response_parser<http::string_body> parser;
};

void QueryClient::Query(const std::string& service, const std::string& query, Handler handler) {
    const auto id = Register(std::move(handler));
    const auto exchange = std::make_shared<Exchange>(mIo, id, mConfig.maxMessageBytes);
    exchange->request.version(kHttpVersion11);
    exchange->request.method(http::verb::get);
    exchange->request.target("/services/" + service + "/info?" + query);
    exchange->request.set(http::field::host, kHost);
    exchange->request.set(http::field::connection, "close");
    net::post(mIo, [this, exchange] { Run(exchange); });
}

std::uint64_t QueryClient::Register(Handler handler) {
    const std::lock_guard lock(mMutex);
    if (mClosed) {
        throw std::runtime_error("the connection was stopped");
    }
    if (mHandlers.size() >= kMaxQueries) {
        throw std::runtime_error("too many queries");
    }
    mHandlers.emplace(mNextId, std::move(handler));
    return mNextId++;
}

void QueryClient::Cancel() {
    std::vector<std::uint64_t> ids;
    {
        const std::lock_guard lock(mMutex);
        for (const auto& [id, handler] : mHandlers) {
            ids.push_back(id);
        }
    }
    for (const auto id : ids) {
        Fail(id, "the query was cancelled");
    }
}

void QueryClient::Close() {
    {
        const std::lock_guard lock(mMutex);
        mClosed = true;
    }
    Cancel();
}

void QueryClient::Complete(std::uint64_t id, QueryResult result) {
    const std::lock_guard lock(mMutex);
    const auto found = mHandlers.find(id);
    if (found == mHandlers.end()) {
        return;
    }
    mCallbacks.Post(
        [handler = std::move(found->second), result = std::move(result)] { handler(result); });
    mHandlers.erase(found);
}

void QueryClient::Fail(std::uint64_t id, const std::string& reason) {
    QueryResult result;
    result.failure = reason;
    Complete(id, std::move(result));
}

void QueryClient::Run(const std::shared_ptr<Exchange>& exchange) {
    exchange->deadline.expires_after(mConfig.queryTimeLimit);
    exchange->deadline.async_wait([this, exchange](const ErrorCode& cancelled) {
        if (!cancelled) {
            Fail(exchange->id, "no answer in time");
            ErrorCode ignored;
            exchange->socket.close(ignored);
        }
    });
    if (const auto error = OpenUnixSocket(exchange->socket)) {
        Finish(exchange, error);
        return;
    }
    exchange->socket.async_connect(UnixProtocol::endpoint(mConfig.socketPath),
                                   [this, exchange](const ErrorCode& error) {
                                       error ? Finish(exchange, error) : Send(exchange);
                                   });
}

void QueryClient::Send(const std::shared_ptr<Exchange>& exchange) {
    http::async_write(exchange->socket, exchange->request,
                      [this, exchange](const ErrorCode& error, std::size_t) {
                          error ? Finish(exchange, error) : ReadAnswer(exchange);
                      });
}

void QueryClient::ReadAnswer(const std::shared_ptr<Exchange>& exchange) {
    // The header is read on its own: when header and body come at once, a read of the whole message
    // does not report a body that exceeds the parser's limit.
    http::async_read_header(
        exchange->socket, exchange->buffer, exchange->parser,
        [this, exchange](const ErrorCode& headerError, std::size_t) {
            if (headerError) {
                Finish(exchange, headerError);
                return;
            }
            http::async_read(
                exchange->socket, exchange->buffer, exchange->parser,
                [this, exchange](const ErrorCode& error, std::size_t) { Finish(exchange, error); });
        });
}

void QueryClient::Finish(const std::shared_ptr<Exchange>& exchange, const ErrorCode& error) {
    exchange->deadline.cancel();
    if (error) {
        Fail(exchange->id, error.message());
        return;
    }
    QueryResult result;
    result.status = exchange->parser.get().result_int();
    result.body = std::move(exchange->parser.get().body());
    Complete(exchange->id, std::move(result));
}

}  // namespace service_access
