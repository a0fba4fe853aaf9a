#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>

/// Short secrets sealed by a TPM 2.0 (TCG TPM 2.0 Library): only this TPM unseals them, until its
/// owner hierarchy is cleared. Its owner hierarchy must have no password.
///
/// The TPM is named by a TCTI configuration, "device:/dev/tpmrm0" for instance, and used only
/// during a call. All failures are `CryptoError` with `kStorageError`. The stack below also writes
/// its own lines to standard error (environment variable TSS2_LOG).
namespace orv::sec::crypto {

/// An upper bound of the size of a sealed secret.
inline constexpr std::size_t kMaxSealedBytes = 4096;

/// The sealed form of `secret`, to be kept in a file: one version byte, the name of the storage key
/// above it, and its public and private parts in the TPM's own encoding.
common::ByteVector SealByTpm(const std::string& tcti, const std::uint8_t* secret, std::size_t size);

/// Writes the secret, which must have exactly `size` bytes.
void UnsealByTpm(const std::string& tcti, const common::ByteVector& sealed, std::uint8_t* secret,
                 std::size_t size);

}  // namespace orv::sec::crypto
