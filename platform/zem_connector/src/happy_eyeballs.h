#pragma once

#include <functional>
#include <map>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "name_lookup.h"

namespace zem_connector {

/// Connects to the first of a host's addresses that answers: Happy Eyeballs (RFC 8305, section 5).
///
/// The next attempt starts when the previous one has failed, or after 250 ms, in parallel to all
/// that are pending. There is no time limit; releasing the last reference cancels all attempts.
/// Runs on the thread of the context.
class HappyEyeballs : public std::enable_shared_from_this<HappyEyeballs> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    /// Called once, with a connected, non-blocking, close-on-exec socket that has TCP_NODELAY set,
    /// or with the error of the address that failed last.
    using Done = std::function<void(const boost::system::error_code&, Socket)>;

    /// There must be at least one address.
    HappyEyeballs(boost::asio::io_context& context, Endpoints addresses, Done done);

    void Start() { TryNext(); }

private:
    void TryNext();
    void OnEnded(std::size_t index, const boost::system::error_code& error);
    void Finish(const boost::system::error_code& error, Socket socket);

    boost::asio::io_context& mContext;
    Endpoints mAddresses;
    Done mDone;
    boost::asio::steady_timer mTimer;
    /// By the index of the address.
    std::map<std::size_t, Socket> mPending;
    std::size_t mNext{0};
};

}  // namespace zem_connector
