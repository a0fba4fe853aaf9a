#include "files/store_directory.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <posix/path.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

constexpr const char* kDirectoryVariable = "ORV_CRYPTO_DIR";
constexpr const char* kDefaultDirectory = "/var/lib/orv/crypto";
constexpr mode_t kDirectoryMode = S_IRWXU;
constexpr int kLockAttempts = 50;
constexpr std::chrono::milliseconds kLockPause{20};

int OpenDirectory(const std::string& directory) {
    return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// Never destroyed: the library may be cleaned up by the destructor of a static object.
struct HeldLocks {
    std::mutex mutex;
    std::map<std::string, std::weak_ptr<StoreLock>> byDirectory;
};

HeldLocks& Held() {
    static auto* held = new HeldLocks();
    return *held;
}

}  // namespace

std::string DefaultStoreDirectory() {
    const char* directory = std::getenv(kDirectoryVariable);
    return directory == nullptr || *directory == '\0' ? kDefaultDirectory : directory;
}

void SyncDirectory(const std::string& directory) {
    const posix::UniqueFd descriptor(OpenDirectory(directory));
    if (!descriptor.IsValid() || ::fsync(descriptor.Get()) != 0) {
        throw SystemError(directory, "cannot sync");
    }
}

void CreateDirectories(const std::string& directory) {
    for (auto slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
        const std::string part = directory.substr(0, slash);
        if (::mkdir(part.c_str(), kDirectoryMode) == 0) {
            SyncDirectory(posix::DirectoryOf(part));
        } else if (errno != EEXIST) {
            throw SystemError(part, "cannot create directory");
        }
        if (slash == std::string::npos) {
            return;
        }
    }
}

StoreLock::StoreLock(const std::string& directory) : mDirectory(OpenDirectory(directory)) {
    if (!mDirectory.IsValid()) {
        throw SystemError(directory, "cannot open");
    }
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (::flock(mDirectory.Get(), LOCK_EX | LOCK_NB) == 0) {
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw SystemError(directory, "cannot lock");
        }
        std::this_thread::sleep_for(kLockPause);
    }
    throw CryptoError(CryptoResultCode::kStorageError,
                      directory + ": the store is in use by another process");
}

std::shared_ptr<StoreLock> StoreLock::Acquire(const std::string& directory) {
    HeldLocks& held = Held();
    const std::lock_guard<std::mutex> guard(held.mutex);
    std::weak_ptr<StoreLock>& known = held.byDirectory[directory];
    std::shared_ptr<StoreLock> lock = known.lock();
    if (lock == nullptr) {
        lock.reset(new StoreLock(directory));
        known = lock;
    }
    return lock;
}

}  // namespace orv::sec::crypto
