#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/tive/auxiliary_data.h>
#include <orv/sec/tive/tive_result_code.h>

namespace orv::sec::tive::processors {

/// Puts a payload, the auxiliary data stapled to it and the signer's certificate chain into one
/// signed container.
class IAuxiliaryDataStapledEncoder {
public:
    virtual ~IAuxiliaryDataStapledEncoder() = default;

    /// The finished container as one text. An empty payload is allowed. Any thread may call it; it
    /// blocks for the time of a signature. Failures: `kKeyNotFound`, `kCertificateNotFound`,
    /// `kSigningFailed`, `kEncodingFailed`, `kTooLarge`.
    virtual crypto::common::ErrorOrObjectResult<TIVEResultCode, std::string> encode(
        const std::vector<std::uint8_t>& payload, const AuxiliaryData& auxiliaryData) = 0;
};

}  // namespace orv::sec::tive::processors
