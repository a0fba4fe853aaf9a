#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <posix/unique_fd.h>

namespace orv::sec::crypto {

/// Which mode a file must have, beyond that it belongs to the process's effective user.
enum class FileProtection : std::uint8_t {
    /// Exactly 0400.
    kSecret,
    /// None that lets others than its owner write.
    kOwnersOnlyToWrite,
};

struct FileDemands {
    /// What it is, for the operator: "key file".
    const char* what;
    FileProtection protection;
    std::size_t minimumSize;
    std::size_t maximumSize;
};

/// A file beside the store that decides about keys. It is opened only if it is a regular file, no
/// symbolic link, and meets what is demanded of it.
class ProtectedFile {
public:
    /// Null when there is no such file; `CryptoError` with `kStorageError` when it is refused or
    /// cannot be opened.
    static std::unique_ptr<ProtectedFile> Open(const std::string& path, const FileDemands& demands);

    /// Changes whenever the file was written or replaced.
    const std::string& Version() const { return mVersion; }

    /// Reads all of it; `bytes` is of the size that was demanded.
    void Read(std::uint8_t* bytes) const;
    common::ByteVector Read() const;

private:
    ProtectedFile(const std::string& path, int descriptor);

    const std::string mPath;
    const posix::UniqueFd mDescriptor;
    std::size_t mSize = 0;
    std::string mVersion;
};

/// Makes a file of mode 0400, complete and durable under its name at once. One that is there
/// already stays as it is. For the holder of the store's lock.
void CreateProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size);

/// The same, but in the place of one that is there.
void ReplaceProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size);

/// Removes what one of both that was interrupted has left. For the holder of the store's lock.
void RemoveProtectedLeftover(const std::string& path);

/// False only if it is certain that there is nothing under this name.
bool FileExists(const std::string& path);

}  // namespace orv::sec::crypto
