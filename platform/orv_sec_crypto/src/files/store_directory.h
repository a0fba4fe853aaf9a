#pragma once

#include <memory>
#include <string>

#include <posix/unique_fd.h>

namespace orv::sec::crypto {

/// The directory of the unit's store: environment variable ORV_CRYPTO_DIR if it is set and not
/// empty, else "/var/lib/orv/crypto".
std::string DefaultStoreDirectory();

/// Makes the directory and the parents that it lacks, with mode 0700 and durable under their names.
void CreateDirectories(const std::string& directory);

/// Makes durable which files the directory has.
void SyncDirectory(const std::string& directory);

/// The right of one process to write to a store: an advisory lock (flock(2)) on the store's
/// directory, so that it needs no file, leaves none behind and can be had on a full or a read-only
/// disk. The kernel takes it back from a process that dies. All of a process share one lock; who
/// only reads needs none.
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
