#pragma once

#include <string>

#include <openssl_support/openssl_ptr.h>

namespace orv::sec::crypto {

/// Why `issuer` does not verify `certificate` by the rules of RFC 5280, section 6.1, that can be
/// judged on the two alone; empty when it does.
///
/// The issuer must be a CA by its basic constraints and its key usage; the names and key
/// identifiers must chain; the signature must verify, with an algorithm of at least 112 bits of
/// security (no MD5, no SHA-1) and keys of no less strength (RSA from 2048 bits); path length and
/// name constraints of the issuer must hold; neither may have a critical extension that is not
/// examined here. Dates are not looked at: when a certificate has to be renewed is the caller's
/// decision.
std::string FindVerificationFault(X509& certificate, X509& issuer);

}  // namespace orv::sec::crypto
