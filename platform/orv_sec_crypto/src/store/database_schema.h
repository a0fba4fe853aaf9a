#pragma once

#include <memory>
#include <string>

#include "store/sqlite_connection.h"

/// Connections to a store's database, with the tables of this program's version in it.
///
/// A database of a newer version, or of another application, is refused with `kStorageError` and
/// stays as it is. So is an empty one where `trace` is not empty: it is a lost store (`LostStore`).
namespace orv::sec::crypto {

/// The file itself; an older version is upgraded in place, an empty file gets its tables.
std::unique_ptr<SqliteConnection> ConnectToDatabase(const std::string& directory,
                                                    const std::string& trace);

/// A copy in memory, which alone is upgraded.
std::unique_ptr<SqliteConnection> ConnectToCopy(const std::string& directory,
                                                const std::string& trace);

}  // namespace orv::sec::crypto
