#include "tls_stream.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "host_name.h"
#include "read_file.h"

namespace zem_connector {

namespace {

using openssl_support::OpenSslPtr;
using BioPtr = OpenSslPtr<BIO, BIO_free_all>;
using ContextPtr = OpenSslPtr<SSL_CTX, SSL_CTX_free>;
using CertificatePtr = OpenSslPtr<X509, X509_free>;

constexpr std::size_t kMaxAnchorsSize = std::size_t{1024} * 1024;
constexpr int kSecurityLevel = 2;
constexpr int kMaxChainDepth = 10;
/// Of TLS 1.2, the suites with forward secrecy and authenticated encryption (RFC 9325).
constexpr const char* kCipherSuites =
    "ECDHE+AESGCM:ECDHE+CHACHA20:DHE+AESGCM:DHE+CHACHA20:!aNULL:!PSK";

void Require(bool condition, const char* what) {
    if (!condition) {
        ERR_clear_error();
        throw std::runtime_error(what);
    }
}

void AddAnchors(X509_STORE* store, const std::string& path) {
    std::string pem;
    try {
        pem = ReadFile(path, kMaxAnchorsSize);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
    if (pem.size() > kMaxAnchorsSize) {
        throw std::runtime_error(path + ": too long");
    }
    const BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Require(bio != nullptr, "out of memory");
    int count = 0;
    while (const CertificatePtr anchor{PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)}) {
        Require(X509_STORE_add_cert(store, anchor.get()) == 1, "out of memory");
        ++count;
    }
    // A certificate that can't be parsed, even the last one, must not be skipped silently.
    const bool readToTheEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    if (count == 0 || !readToTheEnd) {
        throw std::runtime_error(path + ": certificates in PEM expected");
    }
}

void RequirePeerName(SSL* ssl, const std::string& name) {
    X509_VERIFY_PARAM* const parameters = SSL_get0_param(ssl);
    X509_VERIFY_PARAM_set_hostflags(
        parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    if (IsIpAddress(name)) {
        Require(X509_VERIFY_PARAM_set1_ip_asc(parameters, name.c_str()) == 1,
                "an address that no certificate can hold");
        return;
    }
    Require(X509_VERIFY_PARAM_set1_host(parameters, name.data(), name.size()) == 1,
            "the server's name is unusable");
    // RFC 6066, section 3: names only, no addresses.
    Require(SSL_set_tlsext_host_name(ssl, name.c_str()) == 1, "the server's name is unusable");
}

}  // namespace

SslPtr NewTlsClient(const host::TlsSettings& settings, const std::string& host) {
    const ContextPtr context(SSL_CTX_new(TLS_client_method()));
    Require(context != nullptr, "TLS is not available");
    const int minimum =
        settings.minimumVersion == host::TlsVersion::kTls13 ? TLS1_3_VERSION : TLS1_2_VERSION;
    SSL_CTX_set_security_level(context.get(), kSecurityLevel);
    Require(SSL_CTX_set_min_proto_version(context.get(), minimum) == 1 &&
                SSL_CTX_set_max_proto_version(context.get(), 0) == 1 &&
                SSL_CTX_set_cipher_list(context.get(), kCipherSuites) == 1,
            "TLS can't be set up");
    SSL_CTX_set_options(context.get(), SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_verify_depth(context.get(), kMaxChainDepth);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    // Otherwise one read could last as long as the peer sends empty records.
    SSL_CTX_clear_mode(context.get(), SSL_MODE_AUTO_RETRY);
    AddAnchors(SSL_CTX_get_cert_store(context.get()), settings.trustAnchors);

    SslPtr ssl(SSL_new(context.get()));
    Require(ssl != nullptr, "TLS can't be set up");
    Require(X509_VERIFY_PARAM_set_flags(SSL_get0_param(ssl.get()), X509_V_FLAG_PARTIAL_CHAIN) == 1,
            "TLS can't be set up");
    RequirePeerName(ssl.get(), settings.serverName.empty() ? host : settings.serverName);
    SSL_set_connect_state(ssl.get());
    return ssl;
}

TlsStream::TlsStream(SslPtr ssl, Socket socket) : mSocket(std::move(socket)), mSsl(std::move(ssl)) {
    SSL_set_fd(mSsl.get(), mSocket.native_handle());
}

TlsStream::Result TlsStream::ResultOf(int outcome) {
    const int systemError = errno;
    switch (SSL_get_error(mSsl.get(), outcome)) {
        case SSL_ERROR_NONE:
            return Result::kDone;
        case SSL_ERROR_WANT_READ:
            return Result::kWantRead;
        case SSL_ERROR_WANT_WRITE:
            return Result::kWantWrite;
        case SSL_ERROR_ZERO_RETURN:
            return Result::kEnd;
        default:
            break;
    }
    const unsigned long error = ERR_peek_error();
    const char* const reason = ERR_reason_error_string(error);
    if (ERR_GET_LIB(error) == ERR_LIB_SSL &&
        ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        mDetail = "the connection ended in the middle";
        return Result::kTruncated;
    }
    mDetail = reason != nullptr ? reason : std::generic_category().message(systemError);
    return Result::kFailed;
}

TlsStream::Result TlsStream::Handshake() {
    ERR_clear_error();
    const Result result = ResultOf(SSL_do_handshake(mSsl.get()));
    if (result == Result::kFailed && HandshakeStatus() == host::kSocketCertificateRejected) {
        mDetail = std::string("certificate: ") +
                  X509_verify_cert_error_string(SSL_get_verify_result(mSsl.get()));
    }
    return result;
}

host::SocketStatus TlsStream::HandshakeStatus() const {
    return SSL_get_verify_result(mSsl.get()) == X509_V_OK ? host::kSocketHandshakeFailed
                                                          : host::kSocketCertificateRejected;
}

TlsStream::Result TlsStream::Read(char* buffer, std::size_t& size) {
    ERR_clear_error();
    return ResultOf(SSL_read_ex(mSsl.get(), buffer, size, &size));
}

TlsStream::Result TlsStream::Write(const char* data, std::size_t size) {
    ERR_clear_error();
    std::size_t written = 0;
    return ResultOf(SSL_write_ex(mSsl.get(), data, size, &written));
}

TlsStream::Result TlsStream::EndWriting() {
    ERR_clear_error();
    const int outcome = SSL_shutdown(mSsl.get());
    // 0: sent, but the peer's has not come yet.
    return outcome >= 0 ? Result::kDone : ResultOf(outcome);
}

}  // namespace zem_connector
