#pragma once

#include <string>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

/// Work with the one kind of key that the library has: P-256, with ECDSA over SHA-256 (FIPS 186-4).
/// All failures are `CryptoError`.
namespace orv::sec::crypto {

using openssl_support::PkeyPtr;

PkeyPtr GenerateKey();

/// PKCS #8 (RFC 5208) DER, unencrypted.
common::ByteVector EncodePrivateKey(const EVP_PKEY& key);
PkeyPtr DecodePrivateKey(const common::ByteVector& der);

/// SubjectPublicKeyInfo (RFC 5280) DER. For curves always the named curve and the uncompressed
/// point, so that equal keys give equal bytes wherever they come from.
common::ByteVector EncodePublicKey(EVP_PKEY& key);
PkeyPtr DecodePublicKey(const common::ByteVector& der);

/// The key in an operator's file: unencrypted PKCS #8 or SEC 1, PEM or DER. `kInvalidFormat` when
/// it is none, `kKeyMismatch` when it is not a valid P-256 key.
PkeyPtr ParseKeyFile(const std::string& contents);

bool SameKey(const EVP_PKEY& one, const EVP_PKEY& other);

/// A PKCS #10 request (RFC 2986) in DER with `commonName` as its whole subject.
common::ByteVector MakeSigningRequest(EVP_PKEY& key, const std::string& commonName);

/// A signature as ECDSA-Sig-Value (RFC 3279) in DER.
common::ByteVector Sign(EVP_PKEY& key, const common::ByteVector& content);
bool Verify(EVP_PKEY& key, const common::ByteVector& signature, const common::ByteVector& content);

}  // namespace orv::sec::crypto
