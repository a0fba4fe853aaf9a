#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>

/// Reading and writing of keys and certificates. Failures are `PkiError`. Any thread may call it;
/// no object is shared between calls.
namespace pki_support {

using openssl_support::PkeyPtr;
using openssl_support::X509Ptr;

/// All certificates in a PEM text (RFC 7468), in their order; blocks of other kinds and text
/// around the blocks are passed over. At least one, at most 16.
std::vector<X509Ptr> ReadCertificates(const std::string& pem);

/// The first private key in a PEM text; it must not be encrypted.
PkeyPtr ReadPrivateKey(const std::string& pem);

std::string ToPem(X509& certificate);
std::string ToPem(const std::vector<X509Ptr>& certificates);
/// PKCS #8 (RFC 5208), unencrypted.
std::string ToPem(EVP_PKEY& privateKey);

/// A SubjectPublicKeyInfo (RFC 5280) in DER as PEM.
std::string PublicKeyToPem(const std::string& der);

/// The one common name in a subject, in UTF-8; empty when there is none, or not exactly one, or
/// when it holds a NUL.
std::string CommonName(const X509_NAME& name);

/// A name as in RFC 2253; control characters and what is not ASCII are escaped.
std::string ToText(const X509_NAME& name);

/// "2026-11-21T08:00:00Z"
std::string ToText(const ASN1_TIME& time);
std::string ToText(std::chrono::system_clock::time_point time);

/// SHA-256 over the DER form, in lower-case hexadecimal digits.
std::string Fingerprint(const X509& certificate);

bool HasPublicKey(const X509& certificate, const EVP_PKEY& key);

/// Whether it is a CA by its basic constraints and its key usage (RFC 5280).
bool IsCa(X509& certificate);

/// Why the certificates are no chain, each issued by the next one; empty when they are one.
/// Dates are not looked at.
std::string FindChainFault(const std::vector<X509Ptr>& chain);

}  // namespace pki_support
