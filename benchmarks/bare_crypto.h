#pragma once

#include <array>
#include <string>
#include <vector>

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "openssl_support/openssl_ptr.h"

/// The bare OpenSSL calls in what the service does with keys and certificates. All throw
/// std::runtime_error.
namespace bare_pass {

using openssl_support::OpenSslPtr;
using Key = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using Certificate = OpenSslPtr<X509, X509_free>;
using Chain = std::vector<Certificate>;
using Bytes = std::vector<unsigned char>;
using WrappingKey = std::array<unsigned char, 32>;

void Require(bool good);

Key NewKey();
WrappingKey NewWrappingKey();

/// A certificate of ten years. Without an issuer it is signed by itself. Who issues others is a CA.
enum class Role { kUnit, kCa };
Certificate Issue(const std::string& commonName, Role role, EVP_PKEY* key, X509* issuer,
                  EVP_PKEY* issuerKey);
std::string ToPem(X509* certificate);
Certificate FromPem(const std::string& pem);
/// The two certificates of a chain.
Chain ParseChain(const std::string& pem);

/// PKCS #8 (RFC 5958).
Bytes EncodeKey(EVP_PKEY* key);
Key DecodeKey(const Bytes& der);

/// Nonce, tag and ciphertext of a key, bound to the id by AES-256-GCM.
std::string Wrap(const WrappingKey& wrappingKey, const std::string& id, const Bytes& plain);
Bytes Unwrap(const WrappingKey& wrappingKey, const std::string& id, const std::string& wrapped);

Bytes Sign(EVP_PKEY* key, const std::string& content);
void Verify(EVP_PKEY* key, const Bytes& signature, const std::string& content);

/// PKCS #10 (RFC 2986), in DER.
Bytes MakeRequest(EVP_PKEY* key, const std::string& commonName);
/// CMS signed data (RFC 5652) with the payload and the signer's chain, in PEM.
std::string MakeContainer(EVP_PKEY* signer, const Chain& signerChain, const Bytes& payload);

}  // namespace bare_pass
