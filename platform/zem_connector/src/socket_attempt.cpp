#include "socket_attempt.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <boost/asio/post.hpp>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zem_connector {

namespace {

host::SocketStatus StatusOf(int error) {
    switch (error) {
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

/// Makes the socket what the receiver expects; 0, or the error.
int Finalize(int descriptor) {
    const int enabled = 1;
    if (setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &enabled, sizeof(enabled)) != 0) {
        return errno;
    }
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        return errno;
    }
    return 0;
}

}  // namespace

SocketAttempt::SocketAttempt(boost::asio::io_context& context, Done done)
    : mDone(std::move(done)), mSocket(context), mTimer(context) {}

void SocketAttempt::Start(std::chrono::milliseconds limit) {
    mDeadline = Clock::now() + limit;
    StartTimer(mDeadline);
}

void SocketAttempt::UseAddresses(const NameLookupResult& lookup) {
    if (!mDone) {
        return;
    }
    if (lookup.addresses.empty()) {
        mLastDetail = lookup.detail;
        Finish(lookup.status == host::kSocketConnected ? host::kSocketNameNotFound : lookup.status,
               -1);
        return;
    }
    mAddresses = lookup.addresses;
    TryNextAddress();
}

void SocketAttempt::TryNextAddress() {
    if (mNextAddress == mAddresses.size()) {
        Finish(mLastStatus, -1);
        return;
    }
    const auto left = static_cast<Clock::rep>(mAddresses.size() - mNextAddress);
    const auto now = Clock::now();
    StartTimer(now + (mDeadline - now) / left);
    const SocketAddress& address = mAddresses[mNextAddress];
    ++mNextAddress;

    const int descriptor =
        socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    if (descriptor < 0) {
        OnFailed(errno);
        return;
    }
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address.storage), address.length) ==
        0) {
        Succeed(descriptor);
        return;
    }
    if (errno != EINPROGRESS) {
        const int error = errno;
        close(descriptor);
        OnFailed(error);
        return;
    }
    AwaitConnected(descriptor);
}

void SocketAttempt::AwaitConnected(int descriptor) {
    boost::system::error_code error;
    mSocket.assign(descriptor, error);
    if (error) {
        close(descriptor);
        OnFailed(error.value());
        return;
    }
    mSocket.async_wait(
        boost::asio::posix::stream_descriptor::wait_write,
        [weak = weak_from_this(), id = mWaitId](const boost::system::error_code& waitError) {
            const auto self = weak.lock();
            if (self && !waitError && id == self->mWaitId) {
                self->OnWritable();
            }
        });
}

void SocketAttempt::OnWritable() {
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(mSocket.native_handle(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        error = errno;
    }
    if (error != 0) {
        OnFailed(error);
        return;
    }
    Succeed(mSocket.release());
}

void SocketAttempt::OnFailed(int error) {
    mLastStatus = StatusOf(error);
    mLastDetail = std::generic_category().message(error);
    boost::system::error_code ignored;
    mSocket.close(ignored);
    // By way of the queue, so that a long list of addresses that fail at once does not recurse.
    ++mWaitId;
    boost::asio::post(mTimer.get_executor(), [weak = weak_from_this(), id = mWaitId] {
        const auto self = weak.lock();
        if (self && self->mDone && id == self->mWaitId) {
            self->TryNextAddress();
        }
    });
}

void SocketAttempt::OnTimeout() {
    if (mAddresses.empty()) {
        Finish(mLastStatus, -1);
        return;
    }
    OnFailed(ETIMEDOUT);
}

void SocketAttempt::StartTimer(Clock::time_point end) {
    ++mWaitId;
    mTimer.expires_at(end);
    mTimer.async_wait(
        [weak = weak_from_this(), id = mWaitId](const boost::system::error_code& error) {
            const auto self = weak.lock();
            if (self && !error && self->mDone && id == self->mWaitId) {
                self->OnTimeout();
            }
        });
}

void SocketAttempt::Succeed(int descriptor) {
    const int error = Finalize(descriptor);
    if (error != 0) {
        close(descriptor);
        OnFailed(error);
        return;
    }
    Finish(host::kSocketConnected, descriptor);
}

void SocketAttempt::Finish(host::SocketStatus status, int descriptor) {
    ++mWaitId;
    mTimer.cancel();
    const Done done = std::exchange(mDone, nullptr);
    done({status, descriptor}, mLastDetail);
}

}  // namespace zem_connector
