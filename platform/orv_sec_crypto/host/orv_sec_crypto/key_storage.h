#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

/// Where a secure store keeps its private keys; chosen when the store is made.
namespace orv::sec::crypto::host {

/// In the store, encrypted under a wrapping key that lies in a file beside it.
struct FileKeyStorage {};

/// In the store, encrypted under a wrapping key that a TPM 2.0 has sealed.
struct TpmKeyStorage {
    /// The TPM as a TCTI configuration of the TPM2 Software Stack, e.g. "device:/dev/tpmrm0".
    std::string tcti;
};

/// In a token behind a PKCS #11 module. The keys never leave the token.
struct TokenKeyStorage {
    /// Absolute path of the module, a shared library.
    std::string module;
    /// The token's label, or else the number of its slot: exactly one of the two.
    std::string token;
    std::optional<std::uint64_t> slot;
    /// The file with the user's PIN, mode 0400; a relative path counts from the store's directory.
    std::string pinFile;
    /// CKA_LABEL of the keys of this store, which distinguishes them from everything else in the
    /// token. Empty when the storage is chosen: making the store sets it.
    std::string label;
};

using KeyStorage = std::variant<FileKeyStorage, TpmKeyStorage, TokenKeyStorage>;

}  // namespace orv::sec::crypto::host
