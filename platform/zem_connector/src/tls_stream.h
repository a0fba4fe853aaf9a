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

/// The TLS client for a connection that is to be made. `host` is the argument of `SocketConnect`.
/// Throws std::runtime_error with the cause if the settings are unusable.
SslPtr NewTlsClient(const host::TlsSettings& settings, const std::string& host);

/// A TLS client over a socket.
///
/// Unlike Asio's TLS stream it supports half-close: it can end its own direction and continue to
/// read. No operation blocks. One that returns `kWantRead` or `kWantWrite` is to be repeated with
/// the same arguments after `AsyncWait` has called back; a read and a write may wait at the same
/// time. One thread at a time.
class TlsStream {
public:
    using Socket = boost::asio::ip::tcp::socket;

    enum class Result {
        kDone,
        kWantRead,
        kWantWrite,
        /// The peer has ended the stream with close_notify.
        kEnd,
        /// The connection ended without close_notify: possibly a truncation attack.
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
    /// On `kDone`, all was written. At most 16 KiB, so that it fits one record.
    Result Write(const char* data, std::size_t size);
    /// Sends close_notify. Reading may continue.
    Result EndWriting();

    /// Calls back once, when the socket is ready for what `result` wants, or has failed.
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
