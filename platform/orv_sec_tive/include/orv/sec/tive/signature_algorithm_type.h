#pragma once

#include <cstdint>

namespace orv::sec::tive {

/// Selects how a container is signed.
enum class SignatureAlgorithmType : std::uint8_t {
    /// ECDSA with SHA-256 (RFC 5753, RFC 5754).
    kEcdsaSha256 = 1,
};

}  // namespace orv::sec::tive
