#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "secret_memory.h"

namespace orv::sec::crypto {

/// The 256-bit key under which private keys are encrypted at rest with AES-256-GCM (NIST SP
/// 800-38D). Its memory is wiped when it goes.
///
/// A wrapped blob is one version byte, a nonce of 12 bytes that is fresh for each blob, the tag of
/// 16 bytes and the ciphertext. The associated data tells where the blob belongs; a blob that was
/// moved elsewhere does not decrypt.
class WrappingKey {
public:
    static constexpr std::size_t kSize = 32;

    /// Reads the key file. Null when there is none; `CryptoError` with `kStorageError` when it is
    /// no regular file of 32 bytes with mode 0400 that belongs to the effective user, or when it
    /// can't be read.
    static std::unique_ptr<WrappingKey> Load(const std::string& path);

    /// Makes the key file from fresh random bytes, complete and durable under its name at once. A
    /// file that is there already stays as it is. For the holder of the store's lock.
    static void Create(const std::string& path);

    /// Removes what a `Create` that was interrupted has left. For the holder of the store's lock.
    static void RemoveLeftover(const std::string& path);

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
