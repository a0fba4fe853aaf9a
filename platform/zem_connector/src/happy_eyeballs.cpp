#include "happy_eyeballs.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <boost/asio/post.hpp>
#include <sys/socket.h>

#include <posix/unique_fd.h>

namespace zem_connector {

namespace {

/// The "Connection Attempt Delay" that RFC 8305 recommends.
constexpr std::chrono::milliseconds kAttemptDelay{250};

/// Asio would open it without the flag for `exec`.
boost::system::error_code Open(HappyEyeballs::Socket& socket,
                               const boost::asio::ip::tcp::endpoint& address) {
    boost::system::error_code error;
    posix::UniqueFd descriptor(::socket(address.protocol().family(),
                                        SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK,
                                        address.protocol().protocol()));
    if (!descriptor.IsValid()) {
        return {errno, boost::system::system_category()};
    }
    socket.assign(address.protocol(), descriptor.Get(), error);
    if (error) {
        return error;
    }
    descriptor.Release();
    socket.set_option(boost::asio::ip::tcp::no_delay(true), error);
    return error;
}

}  // namespace

HappyEyeballs::HappyEyeballs(boost::asio::io_context& context, Endpoints addresses, Done done)
    : mContext(context),
      mAddresses(std::move(addresses)),
      mDone(std::move(done)),
      mTimer(context) {}

void HappyEyeballs::TryNext() {
    const std::size_t index = mNext++;
    Socket& socket = mPending.emplace(index, mContext).first->second;
    const auto ended = [weak = weak_from_this(), index](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (self && self->mDone) {
            self->OnEnded(index, error);
        }
    };
    const boost::system::error_code error = Open(socket, mAddresses[index]);
    if (error) {
        // Posted, so that a long list of addresses that fail at once does not recurse.
        boost::asio::post(mContext, [ended, error] { ended(error); });
    } else {
        socket.async_connect(mAddresses[index], ended);
    }
    if (mNext == mAddresses.size()) {
        return;
    }
    mTimer.expires_after(kAttemptDelay);
    mTimer.async_wait(
        [weak = weak_from_this(), next = mNext](const boost::system::error_code& waitError) {
            const auto self = weak.lock();
            if (self && !waitError && self->mDone && self->mNext == next) {
                self->TryNext();
            }
        });
}

void HappyEyeballs::OnEnded(std::size_t index, const boost::system::error_code& error) {
    if (!error) {
        Finish(error, std::move(mPending.at(index)));
        return;
    }
    mPending.erase(index);
    if (mNext < mAddresses.size()) {
        TryNext();
    } else if (mPending.empty()) {
        Finish(error, Socket(mContext));
    }
}

void HappyEyeballs::Finish(const boost::system::error_code& error, Socket socket) {
    mPending.clear();
    mTimer.cancel();
    std::exchange(mDone, nullptr)(error, std::move(socket));
}

}  // namespace zem_connector
