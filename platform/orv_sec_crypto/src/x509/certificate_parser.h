#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

namespace orv::sec::crypto {

using openssl_support::X509Ptr;

constexpr std::size_t kMaxCertificates = 16;
constexpr std::size_t kMaxCertificateBytes = std::size_t{256} * 1024;

/// The certificates in `bytes`: PEM (RFC 7468) with nothing but white space around the
/// certificates, or the DER of exactly one. At least one. `CryptoError` with `kTooLarge` above the
/// limits, with `kInvalidFormat` for anything else.
std::vector<X509Ptr> ParseCertificates(const common::ByteVector& bytes);

/// As above, and `kInvalidFormat` when there is more than one.
X509Ptr ParseCertificate(const common::ByteVector& bytes);

common::ByteVector EncodeDer(X509& certificate);
std::string EncodePem(X509& certificate);

/// The one common name in the subject, in UTF-8. `kNotFound` when it is absent or empty,
/// `kInvalidFormat` when there are several or it holds a NUL.
std::string SubjectCommonName(const X509& certificate);

/// Seconds since the epoch.
std::int64_t ToEpochSeconds(const ASN1_TIME& time);

}  // namespace orv::sec::crypto
