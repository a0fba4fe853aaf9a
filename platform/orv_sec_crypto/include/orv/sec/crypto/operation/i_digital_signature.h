#pragma once

#include <cstdint>
#include <memory>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/common/i_key_id.h>

namespace orv::sec::crypto::operation {

/// Selects a signature scheme.
enum class SignatureAlgorithm : std::uint8_t {
    /// ECDSA with SHA-256 (FIPS 186-4), known as "EMSA1(SHA-256)", too.
    kEcdsaSha256 = 0,
};

/// What `ICryptoServiceProvider::createDigitalSignature` needs to know.
struct DigitalSignatureParams {
    SignatureAlgorithm algorithm = SignatureAlgorithm::kEcdsaSha256;
    /// The handle, from any store, of a key pair or, for `verify` only, of an id with a
    /// certificate under it.
    std::shared_ptr<const common::IKeyID> keyId;
};

/// One key bound to one signature scheme. Any thread may call it.
class IDigitalSignature {
public:
    virtual ~IDigitalSignature() = default;

    /// The signature over `content`. Fails with `kNotFound` when the key is not there, or is only
    /// a public one.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector> sign(
        const common::ByteVector& content) = 0;

    /// `kSuccess` when `signature` is one of the key over `content`, `kVerificationFailed` when it
    /// is not.
    virtual common::CryptoResultCode verify(const common::ByteVector& signature,
                                            const common::ByteVector& content) = 0;
};

}  // namespace orv::sec::crypto::operation
