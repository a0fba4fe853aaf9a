#pragma once

#include <csignal>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <openssl/ssl.h>
#include <pthread.h>

#include <openssl_support/openssl_ptr.h>

#include "certificate_zoo/certificate_zoo.h"
#include "tcp_listener.h"

namespace zem_connector {

/// A listener whose connections run a script on a thread, one after the other. Its end is that of
/// the connection, too.
class ScriptedPeer {
public:
    using Script = std::function<void(const testing_support::Stream& peer)>;

    explicit ScriptedPeer(Script script, const char* address = "127.0.0.1")
        : mListener(8, address), mScript(std::move(script)), mThread([this] { Run(); }) {}
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;
    ~ScriptedPeer() {
        mListener.Shutdown();
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            shutdown(mConnection, SHUT_RDWR);
        }
        mThread.join();
    }

    unsigned short Port() const { return mListener.Port(); }

private:
    void Run() {
        sigset_t pipe{};
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        for (auto peer = mListener.Accept(); peer.IsOpen(); peer = mListener.Accept()) {
            SetConnection(peer.Get());
            mScript(peer);
            SetConnection(-1);
            peer.Close();
        }
    }

    void SetConnection(int socket) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mConnection = socket;
    }

    std::mutex mMutex;
    int mConnection{-1};
    TcpListener mListener;
    Script mScript;
    std::thread mThread;
};

/// The server's end of a TLS connection.
class TlsServer {
public:
    TlsServer(const testing_support::Stream& peer, const testing_support::Identity& identity,
              int maxVersion = 0)
        : mContext(SSL_CTX_new(TLS_server_method())) {
        // For the versions of old.
        SSL_CTX_set_security_level(mContext.get(), 0);
        SSL_CTX_set_min_proto_version(mContext.get(), TLS1_VERSION);
        SSL_CTX_set_max_proto_version(mContext.get(), maxVersion);
        SSL_CTX_use_certificate(mContext.get(), identity.certificate.get());
        SSL_CTX_use_PrivateKey(mContext.get(), identity.key.get());
        mSsl.reset(SSL_new(mContext.get()));
        SSL_set_fd(mSsl.get(), peer.Get());
        SSL_accept(mSsl.get());
    }

    std::string Read(int limit = 4096) {
        std::string text(static_cast<std::size_t>(limit), '\0');
        const int size = SSL_read(mSsl.get(), text.data(), limit);
        text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return text;
    }
    /// All up to the client's proper end; "cut" if there is none.
    std::string ReadToEnd() {
        std::string text;
        for (std::string part = Read(); !part.empty(); part = Read()) {
            text += part;
        }
        return (SSL_get_shutdown(mSsl.get()) & SSL_RECEIVED_SHUTDOWN) != 0 ? text : "cut";
    }
    bool Write(const std::string& text) {
        return SSL_write(mSsl.get(), text.data(), static_cast<int>(text.size())) > 0;
    }
    void End() { SSL_shutdown(mSsl.get()); }

private:
    openssl_support::OpenSslPtr<SSL_CTX, SSL_CTX_free> mContext;
    openssl_support::OpenSslPtr<SSL, SSL_free> mSsl;
};

}  // namespace zem_connector
