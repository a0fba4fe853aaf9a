#pragma once

#include <optional>
#include <string>

#include "orv_sec_crypto/key_storage.h"

/// The file "store.json" in a store's directory, which says where the store keeps its private keys.
/// All failures are `CryptoError`.
namespace orv::sec::crypto {

/// Empty when there is no such file. `kStorageError` when another user owns it, others may write to
/// it, or it is not exactly of its form.
std::optional<host::KeyStorage> LoadKeyStorage(const std::string& directory);

/// Writes the file, durably. The caller holds the store's lock.
void SaveKeyStorage(const std::string& directory, const host::KeyStorage& storage);

/// Throws `kInvalidArgument` unless the choice is complete and within the limits of the file.
void CheckKeyStorage(const host::KeyStorage& storage);

/// Whether both name the same place; the label of a token's keys does not count.
bool SameKeyStorage(const host::KeyStorage& one, const host::KeyStorage& other);

}  // namespace orv::sec::crypto
