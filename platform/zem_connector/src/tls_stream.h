#pragma once

#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <openssl/ssl.h>
#include <openssl_support/openssl_ptr.h>
#include <zem_connector_host/operation_settings.h>
#include <zem_connector_host/socket_status.h>

namespace zem_connector {

using SslPtr = openssl_support::OpenSslPtr<SSL, SSL_free>;

/// A client's end of a protected connection, not connected yet. `host` is what `SocketConnect` was
/// given. Throws std::runtime_error with the cause if the settings can't be used.
SslPtr NewTlsClient(const host::TlsSettings& settings, const std::string& host);

/// A client's end of a protected connection over a socket.
///
/// Asio has a stream of its own for this, but that one can't end one direction and go on reading.
/// No operation blocks. One that wants to wait is to be repeated, with the same arguments, once
/// `AsyncWait` has called back; reading and writing may both wait at the same time.
class TlsStream {
public:
    using Socket = boost::asio::ip::tcp::socket;

    enum class Result {
        kDone,
        kWantRead,
        kWantWrite,
        /// The peer has ended the stream in the proper way.
        kEnd,
        /// The connection ended, but the peer has not ended the stream: anybody may have cut it.
        kTruncated,
        /// `Detail` has the cause.
        kFailed,
    };

    /// The socket must be connected and non-blocking.
    TlsStream(SslPtr ssl, Socket socket);

    Result Handshake();
    /// Why the handshake failed, as a result for the client.
    host::SocketStatus HandshakeStatus() const;

    /// On `kDone`, `size` becomes the number of bytes read. At most one record is taken.
    Result Read(char* buffer, std::size_t& size);
    /// On `kDone`, all was taken. At most 16 KiB, so that it fits one record.
    Result Write(const char* data, std::size_t size);
    /// Tells the peer that no more comes. Reading may go on.
    Result EndWriting();

    /// Calls back once, when what `result` wants is there, or the socket has failed.
    template <typename Handler>
    void AsyncWait(Result result, Handler handler) {
        mSocket.async_wait(result == Result::kWantRead ? Socket::wait_read : Socket::wait_write,
                           std::move(handler));
    }

    const std::string& Detail() const { return mDetail; }
    /// "TLSv1.3", for one; once the handshake is done.
    std::string Version() const { return SSL_get_version(mSsl.get()); }

private:
    Result ResultOf(int outcome);

    Socket mSocket;
    SslPtr mSsl;
    std::string mDetail;
};

}  // namespace zem_connector
