#include "proxy_handshake.h"

#include <array>
#include <utility>

#include <boost/asio/write.hpp>

namespace zem_connector {

namespace {

constexpr std::size_t kChunkSize = 1024;

}  // namespace

ProxyHandshake::ProxyHandshake(Socket socket, const host::ProxySettings& proxy, ProxyTarget target,
                               Done done)
    : mSocket(std::move(socket)),
      mType(proxy.type),
      mCredentials{proxy.user, proxy.password},
      mTarget(std::move(target)),
      mDone(std::move(done)) {}

void ProxyHandshake::Start() {
    boost::system::error_code ignored;
    mSocket.non_blocking(true, ignored);
    if (mType == host::ProxyType::kHttp) {
        Ask(HttpConnectRequest(mTarget, mCredentials), ParseHttpConnectAnswer,
            &ProxyHandshake::Succeed);
        return;
    }
    const bool hasCredentials = !mCredentials.user.empty();
    const auto parser = [hasCredentials](std::string_view bytes) {
        return ParseSocks5Method(bytes, hasCredentials);
    };
    Ask(Socks5Greeting(hasCredentials), parser, &ProxyHandshake::OnSocksMethod);
}

void ProxyHandshake::Ask(std::string request, Parser parser, Step next) {
    mRequest = std::move(request);
    mReceived.clear();
    mParser = std::move(parser);
    mNext = next;
    boost::asio::async_write(
        mSocket, boost::asio::buffer(mRequest),
        [weak = weak_from_this()](const boost::system::error_code& error, std::size_t /*size*/) {
            const auto self = weak.lock();
            if (!self) {
                return;
            }
            if (error) {
                self->Fail(host::kSocketProxyFailed, error.message());
                return;
            }
            self->AwaitAnswer();
        });
}

void ProxyHandshake::AwaitAnswer() {
    mSocket.async_wait(Socket::wait_read,
                       [weak = weak_from_this()](const boost::system::error_code& error) {
                           const auto self = weak.lock();
                           if (self && !error) {
                               self->ReadAnswer();
                           }
                       });
}

void ProxyHandshake::ReadAnswer() {
    // Peeks first: the bytes behind the answer are the peer's, for the socket's next reader.
    std::array<char, kChunkSize> chunk{};
    boost::system::error_code error;
    const std::size_t size =
        mSocket.receive(boost::asio::buffer(chunk), Socket::message_peek, error);
    if (error == boost::asio::error::would_block) {
        AwaitAnswer();
        return;
    }
    if (error) {
        Fail(host::kSocketProxyFailed, error.message());
        return;
    }
    const std::size_t before = mReceived.size();
    mReceived.append(chunk.data(), size);
    const ProxyAnswer answer = mParser(mReceived);
    const bool complete = answer.state == ProxyAnswer::State::kAccepted;
    mSocket.receive(boost::asio::buffer(chunk, complete ? answer.size - before : size), 0, error);
    if (error) {
        Fail(host::kSocketProxyFailed, error.message());
        return;
    }
    Judge(answer);
}

void ProxyHandshake::Judge(const ProxyAnswer& answer) {
    switch (answer.state) {
        case ProxyAnswer::State::kIncomplete:
            AwaitAnswer();
            break;
        case ProxyAnswer::State::kAccepted:
            (this->*mNext)(answer);
            break;
        case ProxyAnswer::State::kRefused:
            Fail(mNext == &ProxyHandshake::Succeed && mType == host::ProxyType::kSocks5
                     ? StatusOfSocks5Reply(answer.code)
                     : host::kSocketProxyFailed,
                 "the proxy refused with " + std::to_string(answer.code));
            break;
        case ProxyAnswer::State::kMalformed:
            Fail(host::kSocketProxyFailed, "the proxy's answer makes no sense");
            break;
    }
}

void ProxyHandshake::OnSocksMethod(const ProxyAnswer& answer) {
    if (answer.code != kSocks5UserPassword) {
        ConnectBySocks(answer);
        return;
    }
    Ask(Socks5Credentials(mCredentials), ParseSocks5CredentialsAnswer,
        &ProxyHandshake::ConnectBySocks);
}

void ProxyHandshake::ConnectBySocks(const ProxyAnswer& /*answer*/) {
    Ask(Socks5ConnectRequest(mTarget), ParseSocks5ConnectAnswer, &ProxyHandshake::Succeed);
}

void ProxyHandshake::Succeed(const ProxyAnswer& /*answer*/) {
    std::exchange(mDone, nullptr)(host::kSocketConnected, {}, std::move(mSocket));
}

void ProxyHandshake::Fail(host::SocketStatus status, const std::string& detail) {
    std::exchange(mDone, nullptr)(status, detail, std::move(mSocket));
}

}  // namespace zem_connector
