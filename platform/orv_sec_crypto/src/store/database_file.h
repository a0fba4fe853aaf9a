#pragma once

#include <string>

#include "errors/crypto_error.h"

/// The database file of a store and the directory that it is in, before SQLite opens them. All
/// failures are `CryptoError`.
namespace orv::sec::crypto {

std::string DatabasePath(const std::string& directory);

/// False if there is no file, or an empty one, and so no store was ever made in it.
bool HasDatabase(const std::string& directory);

/// Makes an empty file of mode 0600 unless there is a file already.
void CreateDatabaseFile(const std::string& directory);

/// `kStorageError` unless the effective user owns the directory and nobody else may write to it.
void CheckDirectory(const std::string& directory);

/// The same of the file, which must be a regular one; `kNotFound` when it is missing.
void CheckDatabaseFile(const std::string& directory);

/// The failure of a store that is gone while `trace`, which was made with it, is still there.
CryptoError LostStore(const std::string& directory, const std::string& trace);

}  // namespace orv::sec::crypto
