#pragma once

#include <memory>
#include <string>

#include <posix/unique_fd.h>

namespace orv::sec::crypto {

/// The directory of the unit's store: environment variable ORV_CRYPTO_DIR if it is set and not
/// empty, else "/var/lib/orv/crypto".
std::string DefaultStoreDirectory();

/// Creates the directory and its missing parents, durably and with mode 0700.
void CreateDirectories(const std::string& directory);

/// Makes the directory's entries durable (fsync(2)).
void SyncDirectory(const std::string& directory);

/// The right of one process to write to a store: an advisory lock (flock(2)) on the store's
/// directory, so that it needs no file, leaves none behind and works on a full or read-only disk.
/// The kernel releases it when the process dies. All users in a process share one lock; reading
/// needs none.
class StoreLock {
public:
    /// Waits a second for another process that holds the lock, then gives up: `CryptoError` with
    /// `kStorageError`. Any thread.
    static std::shared_ptr<StoreLock> Acquire(const std::string& directory);

private:
    explicit StoreLock(const std::string& directory);

    posix::UniqueFd mDirectory;
};

}  // namespace orv::sec::crypto
