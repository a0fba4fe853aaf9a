#pragma once

#include <cstdint>

namespace vintrel {

/// How the certificate in the secure store was judged; decides whether it is renewed, and why.
///
/// The values 1 and 3 are reserved: nothing returns them, and a receiver treats them as unknown.
enum class StatusCode : std::uint32_t {
    /// Passes every check and is valid for at least one more year.
    Ok = 0,
    /// The store holds no certificate that can be split into a chain.
    NoCertificate = 2,
    /// The common name is empty, or differs from the one derived from the VIN.
    CommonNameMismatch = 4,
    /// The certificate path does not verify up to the root.
    PathInvalid = 5,
    /// The stored key does not belong to the certificate.
    KeyMismatch = 6,
    /// In order, but not yet valid, ends within 365 days, or its dates cannot be read.
    ExpiresWithinYear = 7,
};

}  // namespace vintrel
