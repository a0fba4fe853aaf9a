#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <posix/unique_fd.h>

namespace orv::sec::crypto {

/// Which mode a file must have; its owner must be the process's effective user in any case.
enum class FileProtection : std::uint8_t {
    /// Exactly 0400.
    kSecret,
    /// Any that lets only its owner write.
    kOwnersOnlyToWrite,
};

struct FileDemands {
    /// A noun for messages to the operator: "key file".
    const char* what;
    FileProtection protection;
    std::size_t minimumSize;
    std::size_t maximumSize;
};

/// A file beside the store on which the keys depend. It is opened only if it is a regular file, not
/// a symbolic link, and meets the demands.
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

/// Creates a file of mode 0400, atomically and durably. An existing one stays as it is. The caller
/// holds the store's lock.
void CreateProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size);

/// The same, but replaces an existing one.
void ReplaceProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size);

/// Removes the temporary file that an interruption of either has left. The caller holds the store's
/// lock.
void RemoveProtectedLeftover(const std::string& path);

/// False only if there is certainly no file of this name.
bool FileExists(const std::string& path);

}  // namespace orv::sec::crypto
