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

/// Signs with one P-256 key that is out of reach.
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

/// A key that OpenSSL can sign with like with any other, for requests, signatures and CMS; its
/// private operations are `signer`'s. A signature that fails there fails in OpenSSL; the reason is
/// in the log, and `SigningError` has it. `publicKey` is a P-256 key as SubjectPublicKeyInfo in
/// DER.
PkeyPtr MakeRemoteKey(const common::ByteVector& publicKey, std::shared_ptr<RemoteSigner> signer);

/// Why a signature that OpenSSL was to make just now, on this thread, has failed: with the signer's
/// own code where it was that, else as `OpenSslError`.
CryptoError SigningError(const std::string& what);

}  // namespace orv::sec::crypto
