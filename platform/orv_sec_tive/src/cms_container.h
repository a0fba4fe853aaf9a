#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/tive/auxiliary_data.h>

namespace orv::sec::tive {

using openssl_support::X509Ptr;

/// A container: CMS SignedData (RFC 5652) with the payload attached byte for byte, one ECDSA
/// signature with SHA-256 (RFC 5753, RFC 5754) over signed attributes, signing time among them,
/// and the certificates of `chain`, the signer's first. In PEM (RFC 7468), label "CMS".
///
/// Auxiliary data travel as a signed attribute under the OID `kAuxiliaryDataOid`:
/// SEQUENCE { type UTF8String, version INTEGER, data OCTET STRING, description UTF8String }.
///
/// Throws `TiveError`.
std::string MakeCmsContainer(const std::vector<std::uint8_t>& payload,
                             const AuxiliaryData& auxiliaryData, EVP_PKEY& key,
                             const std::vector<X509Ptr>& chain);

/// Below the arc of UUIDs (ITU-T X.667), which needs no registration.
constexpr const char* kAuxiliaryDataOid = "2.25.106826358219730466423587016219460152937";

}  // namespace orv::sec::tive
