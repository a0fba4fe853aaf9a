#include "store/database_file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <posix/unique_fd.h>

#include "errors/crypto_log.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

constexpr mode_t kForeignWrite = S_IWGRP | S_IWOTH;

CryptoError Refused(const std::string& path, const std::string& why) {
    return CryptoError(CryptoResultCode::kStorageError, path + ": store refused: " + why);
}

void CheckOwnership(const std::string& path, const struct stat& status) {
    if (status.st_uid != ::geteuid()) {
        throw Refused(path, "owned by user " + std::to_string(status.st_uid) + ", not by user " +
                                std::to_string(::geteuid()));
    }
    if ((status.st_mode & kForeignWrite) != 0) {
        throw Refused(path, "others than its owner may write to it");
    }
}

}  // namespace

std::string DatabasePath(const std::string& directory) {
    return directory + "/store.db";
}

bool HasDatabase(const std::string& directory) {
    struct stat status {};
    const bool isKnown = ::lstat(DatabasePath(directory).c_str(), &status) == 0;
    return isKnown ? status.st_size > 0 : errno != ENOENT;
}

// Ahead of SQLite for the sake of the file's mode. An existing one is not even opened: closing it
// again would drop the locks that this process may hold on it.
void CreateDatabaseFile(const std::string& directory) {
    const std::string path = DatabasePath(directory);
    const posix::UniqueFd file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.IsValid()) {
        Log().Warn(path + ": there was no store, an empty one is made");
        return;
    }
    if (errno != EEXIST) {
        throw SystemError(path, "cannot create");
    }
}

// Who can write to the file, or put another in its place, decides which roots the unit trusts.
void CheckDirectory(const std::string& directory) {
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        throw SystemError(directory, "cannot open");
    }
    CheckOwnership(directory, status);
}

void CheckDatabaseFile(const std::string& directory) {
    const std::string path = DatabasePath(directory);
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            throw CryptoError(CryptoResultCode::kNotFound, path + ": there is no store");
        }
        throw SystemError(path, "cannot open");
    }
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path, "not a regular file");
    }
    CheckOwnership(path, status);
}

CryptoError LostStore(const std::string& directory, const std::string& trace) {
    return CryptoError(CryptoResultCode::kStorageError, DatabasePath(directory) +
                                                            ": the store is lost: its " + trace +
                                                            " is there, the store is not");
}

}  // namespace orv::sec::crypto
