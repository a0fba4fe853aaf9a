#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "custody/secret_memory.h"

namespace orv::sec::crypto {

/// Where a wrapping key lies.
struct WrappingKeyPlace {
    std::string path;
    /// The TPM that sealed what is in the file, as a TCTI configuration ("device:/dev/tpmrm0");
    /// empty where the key itself is in the file.
    std::string tcti;
};

/// The 256-bit key under which private keys are encrypted at rest with AES-256-GCM (NIST SP
/// 800-38D). Its memory is wiped when it goes.
///
/// A wrapped blob is one version byte, a nonce of 12 bytes that is fresh for each blob, the tag of
/// 16 bytes and the ciphertext. The associated data tells where the blob belongs; a blob that was
/// moved elsewhere does not decrypt.
class WrappingKey {
public:
    static constexpr std::size_t kSize = 32;

    /// Reads the key file, and has the TPM unseal what is in it where there is one. Null when there
    /// is no file; `CryptoError` with `kStorageError` when it is no regular file of mode 0400 that
    /// belongs to the effective user and has the size of a key, when it can't be read, or when the
    /// TPM can't be reached or did not seal it.
    static std::unique_ptr<WrappingKey> Load(const WrappingKeyPlace& place);

    /// Makes the key file from fresh random bytes, complete and durable under its name at once. A
    /// file that is there already stays as it is. For the holder of the store's lock.
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
