#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "custody/secret_memory.h"

namespace orv::sec::crypto {

/// The place of a wrapping key.
struct WrappingKeyPlace {
    std::string path;
    /// The TPM that sealed what is in the file, as a TCTI configuration ("device:/dev/tpmrm0");
    /// empty where the key itself is in the file.
    std::string tcti;
};

/// The 256-bit key under which private keys are encrypted at rest with AES-256-GCM (NIST SP
/// 800-38D). Its memory is wiped at its destruction.
///
/// A wrapped blob is one version byte, a nonce of 12 bytes that is fresh for each blob, the tag of
/// 16 bytes and the ciphertext. The associated data names the row of the blob; a blob that was
/// moved to another row does not decrypt.
class WrappingKey {
public:
    static constexpr std::size_t kSize = 32;

    /// Reads the key file and, where the place names a TPM, has it unseal the contents. Null when
    /// there is no file; `CryptoError` with `kStorageError` when it is no regular file of mode 0400
    /// that belongs to the effective user and has the size of a key, when it can't be read, or when
    /// the TPM is unavailable or did not seal it.
    static std::unique_ptr<WrappingKey> Load(const WrappingKeyPlace& place);

    /// Creates the key file from fresh random bytes, atomically and durably. An existing file stays
    /// as it is. The caller holds the store's lock.
    static void Create(const WrappingKeyPlace& place);

    common::ByteVector Wrap(const common::ByteVector& plain,
                            const std::string& associatedData) const;

    /// `CryptoError` with `kIntegrityError` when the blob does not decrypt.
    common::ByteVector Unwrap(const common::ByteVector& blob,
                              const std::string& associatedData) const;

private:
    WrappingKey() = default;

    SecretMemory mKey{kSize};
};

}  // namespace orv::sec::crypto
