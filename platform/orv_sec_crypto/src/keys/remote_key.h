#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using openssl_support::PkeyPtr;

/// Signs with one P-256 key that OpenSSL cannot read.
class RemoteSigner {
public:
    RemoteSigner() = default;
    virtual ~RemoteSigner() = default;
    RemoteSigner(const RemoteSigner&) = delete;
    RemoteSigner& operator=(const RemoteSigner&) = delete;

    /// The ECDSA signature over `digest` as both numbers in 32 bytes each. `CryptoError` on
    /// failure. Any thread.
    virtual common::ByteVector SignDigest(const std::uint8_t* digest, std::size_t size) = 0;
};

/// A key that OpenSSL signs with as with any other (requests, signatures, CMS); `signer` performs
/// its private operations. When it fails, the OpenSSL operation fails; the reason is logged, and
/// `SigningError` returns it. `publicKey` is a P-256 key as SubjectPublicKeyInfo in DER.
PkeyPtr MakeRemoteKey(const common::ByteVector& publicKey, std::shared_ptr<RemoteSigner> signer);

/// Why the last OpenSSL signature on this thread has failed: the signer's own error where it was
/// the signer, else as `OpenSslError`.
CryptoError SigningError(const std::string& what);

}  // namespace orv::sec::crypto
