#pragma once

#include <cstdint>

namespace orv::sec::tive {

/// The result of a call of the container library. One byte; callers must treat a value that is not
/// listed here as a failure.
enum class TIVEResultCode : std::uint8_t {
    kSuccess = 0,
    /// A failure without a closer description.
    kFailure = 1,
    /// A null store or handle, or an argument that the library does not take.
    kInvalidArgument = 2,
    /// A signature algorithm that the library does not know.
    kUnsupportedAlgorithm = 3,
    /// The signing key is not in the store.
    kKeyNotFound = 4,
    /// There is no certificate chain for the signing key, or it does not parse.
    kCertificateNotFound = 5,
    /// The crypto library refused to sign.
    kSigningFailed = 6,
    /// The container could not be encoded.
    kEncodingFailed = 7,
    /// The payload or the auxiliary data are longer than the library takes.
    kTooLarge = 8,
};

}  // namespace orv::sec::tive
