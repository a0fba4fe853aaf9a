#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>

namespace orv::sec::crypto::operation {

/// Selects what `pemToDer` takes.
enum class PemFormat : std::uint8_t {
    /// One X.509 certificate (RFC 7468, label "CERTIFICATE").
    kCertificate = 0,
};

/// Looks inside X.509 certificates (RFC 5280). It has no state and touches no store; any thread
/// may call it. Input is limited in size (`kTooLarge`); what does not parse is `kInvalidFormat`.
class ICertificateHandler {
public:
    virtual ~ICertificateHandler() = default;

    /// `kSuccess` when `issuer`, a certificate or a bundle of them, verifies `certificate`;
    /// `kVerificationFailed` when it does not. This is one step of a path (RFC 5280, section 6):
    /// the signature, the names, the strength of key and signature, whether the issuer is a CA, and
    /// of its constraints a path length of 0 and the name constraints on `certificate`. What a CA
    /// imposes on certificates further down takes the whole path and is not seen here, and dates
    /// are not looked at.
    virtual common::CryptoResultCode verifyCertificate(const common::ByteVector& certificate,
                                                       const common::ByteVector& issuer) = 0;

    /// The certificates of a chain, one an element, in the order of the chain.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, std::vector<common::ByteVector>>
    splitCertificatesChain(const common::ByteVector& bytes) = 0;

    /// The DER form of what `format` selects. `kUnsupported` for another selector.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector> pemToDer(
        const common::ByteVector& bytes, const PemFormat& format) = 0;

    /// The common name by which the certificate identifies its unit: the one of its subject, in
    /// spite of the operation's name. `kNotFound` when it has none.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, std::string>
    getCertificateIssuerCommonName(const common::ByteVector& bytes) = 0;

    /// The first moment of validity, in seconds since 1970-01-01 00:00:00 UTC; may be negative.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, std::int64_t>
    getCertificateNotBeforeDate(const common::ByteVector& bytes) = 0;

    /// The last moment of validity, in seconds since 1970-01-01 00:00:00 UTC.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, std::int64_t>
    getCertificateNotAfterDate(const common::ByteVector& bytes) = 0;
};

}  // namespace orv::sec::crypto::operation
