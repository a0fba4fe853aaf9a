#include "socket_attempt.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>

namespace zem_connector {

namespace {

host::SocketStatus StatusOf(const boost::system::error_code& error) {
    switch (error.value()) {
        case ECONNREFUSED:
            return host::kSocketRefused;
        case ETIMEDOUT:
            return host::kSocketTimeout;
        case ENETUNREACH:
        case EHOSTUNREACH:
        case ENETDOWN:
        case EHOSTDOWN:
        case EADDRNOTAVAIL:
        case EAFNOSUPPORT:
            return host::kSocketUnreachable;
        default:
            return host::kSocketFailed;
    }
}

bool MakeBlocking(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

}  // namespace

SocketAttempt::SocketAttempt(boost::asio::io_context& context, ConnectionPlan plan, Done done)
    : mContext(context), mPlan(std::move(plan)), mDone(std::move(done)), mTimer(context) {}

void SocketAttempt::Start(std::chrono::milliseconds limit) {
    mTimer.expires_after(limit);
    mTimer.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (self && !error && self->mDone) {
            self->Fail(host::kSocketTimeout, std::string(self->mStep) + " not ended in time");
        }
    });
}

void SocketAttempt::UseAddresses(const NameLookupResult& lookup) {
    if (!mDone) {
        return;
    }
    if (lookup.addresses.empty()) {
        Fail(lookup.status == host::kSocketConnected ? host::kSocketNameNotFound : lookup.status,
             lookup.detail);
        return;
    }
    mStep = "connecting";
    mConnecting = std::make_shared<HappyEyeballs>(
        mContext, lookup.addresses,
        [weak = weak_from_this()](const boost::system::error_code& error, Socket socket) {
            const auto self = weak.lock();
            if (self) {
                self->OnConnected(error, std::move(socket));
            }
        });
    mConnecting->Start();
}

void SocketAttempt::OnConnected(const boost::system::error_code& error, Socket socket) {
    if (error) {
        Fail(StatusOf(error), error.message());
        return;
    }
    if (!mPlan.proxy) {
        OnReached(std::move(socket));
        return;
    }
    mStep = "the proxy's part";
    mProxyHandshake = std::make_shared<ProxyHandshake>(
        std::move(socket), *mPlan.proxy, mPlan.target,
        [weak = weak_from_this()](host::SocketStatus status, const std::string& detail,
                                  Socket reached) {
            const auto self = weak.lock();
            if (!self) {
                return;
            }
            if (status != host::kSocketConnected) {
                self->Fail(status, detail);
                return;
            }
            self->OnReached(std::move(reached));
        });
    mProxyHandshake->Start();
}

void SocketAttempt::OnReached(Socket socket) {
    if (!mPlan.tls) {
        HandOver(std::move(socket));
        return;
    }
    mStep = "the TLS handshake";
    mStream = std::make_unique<TlsStream>(std::move(mPlan.tls), std::move(socket));
    Handshake();
}

void SocketAttempt::Handshake() {
    const TlsStream::Result result = mStream->Handshake();
    switch (result) {
        case TlsStream::Result::kDone: {
            ConnectionResult connected;
            connected.status = host::kSocketConnected;
            connected.stream = std::move(mStream);
            Finish(std::move(connected));
            return;
        }
        case TlsStream::Result::kWantRead:
        case TlsStream::Result::kWantWrite:
            mStream->AsyncWait(
                result, [weak = weak_from_this()](const boost::system::error_code& error) {
                    const auto self = weak.lock();
                    if (self && self->mDone && error != boost::asio::error::operation_aborted) {
                        self->Handshake();
                    }
                });
            return;
        default:
            Fail(mStream->HandshakeStatus(), mStream->Detail());
    }
}

void SocketAttempt::HandOver(Socket socket) {
    boost::system::error_code error;
    posix::UniqueFd descriptor(socket.release(error));
    if (error) {
        Fail(host::kSocketFailed, error.message());
        return;
    }
    if (!MakeBlocking(descriptor.Get())) {
        Fail(host::kSocketFailed, std::generic_category().message(errno));
        return;
    }
    ConnectionResult connected;
    connected.status = host::kSocketConnected;
    connected.descriptor = std::move(descriptor);
    Finish(std::move(connected));
}

void SocketAttempt::Fail(host::SocketStatus status, const std::string& detail) {
    ConnectionResult result;
    result.status = status;
    result.detail = detail;
    Finish(std::move(result));
}

void SocketAttempt::Finish(ConnectionResult result) {
    mTimer.cancel();
    std::exchange(mDone, nullptr)(std::move(result));
}

}  // namespace zem_connector
