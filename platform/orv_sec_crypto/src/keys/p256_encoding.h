#pragma once

#include <cstddef>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

/// The usual encodings of P-256 keys, read and written directly: OpenSSL's general decoders try
/// every format of every provider, which takes about twenty times as long. Whatever is not exactly
/// of the usual form is left to them.
namespace orv::sec::crypto {

using openssl_support::PkeyPtr;

/// Of a private key or one half of a signature, and of an uncompressed point (SEC 1).
inline constexpr std::size_t kP256NumberBytes = 32;
inline constexpr std::size_t kP256PointBytes = 65;

/// From PKCS #8 (RFC 5208, RFC 5915) as `EncodePrivateKey` writes it; null for any other bytes.
PkeyPtr DecodeP256PrivateKey(const common::ByteVector& der);

/// From SubjectPublicKeyInfo (RFC 5480) with the named curve and an uncompressed point; null for
/// any other bytes.
PkeyPtr DecodeP256PublicKey(const common::ByteVector& der);

/// The same of `key`; empty unless that is a P-256 key whose point comes uncompressed.
common::ByteVector EncodeP256PublicKey(const EVP_PKEY& key);

/// The same of an uncompressed point (SEC 1), and back; empty for bytes that are not of this form.
common::ByteVector EncodeP256Point(const common::ByteVector& point);
common::ByteVector P256Point(const common::ByteVector& der);

}  // namespace orv::sec::crypto
