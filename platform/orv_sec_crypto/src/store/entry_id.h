#pragma once

#include <string>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

/// What a key pair or certificate is found by.
struct EntryId {
    std::string store;
    std::string id;
};

/// Throws `CryptoError` unless `id` is 1 to 128 bytes of printable ASCII: `kTooLarge` or
/// `kInvalidArgument`.
void CheckId(const std::string& id);

/// For messages: "'id' in store".
std::string Describe(const EntryId& entry);

/// A `kNotFound`: `what` is "key pair", for instance.
CryptoError NotFound(const char* what, const EntryId& entry);

/// Names a row of a table, and binds a wrapped key to it; different entries have different names.
std::string RowName(const EntryId& entry);

}  // namespace orv::sec::crypto
