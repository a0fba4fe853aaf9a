#pragma once

#include <list>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <sys/socket.h>

#include "testing/stream.h"

namespace zem_connector {

/// A listening socket on an ephemeral port of the loopback.
class TcpListener {
public:
    using Tcp = boost::asio::ip::tcp;

    explicit TcpListener(int backlog = 8, const char* address = "127.0.0.1")
        : mAcceptor(mContext, {boost::asio::ip::make_address(address), 0}),
          mEndpoint(mAcceptor.local_endpoint()) {
        mAcceptor.listen(backlog);
    }

    /// From here on the port refuses.
    void Close() { mAcceptor.close(); }

    /// Ends an `Accept` on another thread, too.
    void Shutdown() { shutdown(mAcceptor.native_handle(), SHUT_RDWR); }

    /// Fills the queue, so that the kernel drops what comes after: a peer that never answers.
    void StopAnswering() {
        for (int i = 0; i < 4; ++i) {
            Tcp::socket& filler = mFillers.emplace_back(mContext, Tcp::v4());
            filler.non_blocking(true);
            // Asio's own would wait.
            static_cast<void>(connect(filler.native_handle(), mEndpoint.data(),
                                      static_cast<socklen_t>(mEndpoint.size())));
        }
    }

    testing_support::Stream Accept() {
        return testing_support::Stream(accept(mAcceptor.native_handle(), nullptr, nullptr));
    }
    unsigned short Port() const { return mEndpoint.port(); }
    const Tcp::endpoint& Endpoint() const { return mEndpoint; }

private:
    boost::asio::io_context mContext;
    Tcp::acceptor mAcceptor;
    const Tcp::endpoint mEndpoint;
    std::list<Tcp::socket> mFillers;
};

}  // namespace zem_connector
