#include "files/protected_file.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>

#include <posix/atomic_file.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr mode_t kSecretMode = S_IRUSR;
constexpr mode_t kModeBits = 07777;
constexpr mode_t kForeignWrite = S_IWGRP | S_IWOTH;

CryptoError Refused(const std::string& path, const FileDemands& demands, const std::string& why) {
    return CryptoError(CryptoResultCode::kStorageError,
                       path + ": " + demands.what + " refused: " + why);
}

std::string ToOctal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode));
    return text.data();
}

void CheckMode(const std::string& path, const FileDemands& demands, mode_t mode) {
    if (demands.protection == FileProtection::kSecret && mode != kSecretMode) {
        throw Refused(path, demands, "mode is " + ToOctal(mode) + ", not 0400");
    }
    if ((mode & kForeignWrite) != 0) {
        throw Refused(path, demands, "others than its owner may write to it");
    }
}

void CheckSize(const std::string& path, const FileDemands& demands, off_t size) {
    const auto minimum = static_cast<off_t>(demands.minimumSize);
    const auto maximum = static_cast<off_t>(demands.maximumSize);
    if (size >= minimum && size <= maximum) {
        return;
    }
    const std::string range = minimum == maximum
                                  ? std::to_string(minimum)
                                  : std::to_string(minimum) + " to " + std::to_string(maximum);
    throw Refused(path, demands, "size is " + std::to_string(size) + " bytes, not " + range);
}

void Check(const std::string& path, const FileDemands& demands, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path, demands, "not a regular file");
    }
    CheckMode(path, demands, status.st_mode & kModeBits);
    if (status.st_uid != ::geteuid()) {
        throw Refused(path, demands,
                      "owned by user " + std::to_string(status.st_uid) + ", not by user " +
                          std::to_string(::geteuid()));
    }
    CheckSize(path, demands, status.st_size);
}

std::string DescribeVersion(const struct stat& status) {
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
           std::to_string(status.st_ctim.tv_sec) + ":" + std::to_string(status.st_ctim.tv_nsec);
}

std::string TemporaryPath(const std::string& path) {
    return path + ".new";
}

void WriteProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size,
                        posix::ExistingFile existing) {
    posix::AtomicFileSettings settings;
    settings.mode = kSecretMode;
    settings.existing = existing;
    settings.temporaryPath = TemporaryPath(path);
    settings.needsDirectorySync = true;
    try {
        posix::WriteFileAtomically(path, {reinterpret_cast<const char*>(bytes), size}, settings);
    } catch (const posix::FileError& error) {
        errno = error.code().value();
        throw SystemError(error.Path(), error.Step());
    }
}

}  // namespace

ProtectedFile::ProtectedFile(const std::string& path, int descriptor)
    : mPath(path), mDescriptor(descriptor) {}

std::unique_ptr<ProtectedFile> ProtectedFile::Open(const std::string& path,
                                                   const FileDemands& demands) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        if (errno == ENOENT) {
            return nullptr;
        }
        if (errno == ELOOP) {
            throw Refused(path, demands, "it is a symbolic link");
        }
        throw SystemError(path, "cannot open");
    }
    std::unique_ptr<ProtectedFile> file(new ProtectedFile(path, descriptor));
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        throw SystemError(path, "cannot stat");
    }
    Check(path, demands, status);
    file->mSize = static_cast<std::size_t>(status.st_size);
    file->mVersion = DescribeVersion(status);
    return file;
}

void ProtectedFile::Read(std::uint8_t* bytes) const {
    std::size_t done = 0;
    while (done < mSize) {
        const ssize_t count =
            ::pread(mDescriptor.Get(), bytes + done, mSize - done, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw SystemError(mPath, "cannot read");
        }
        if (count == 0) {
            throw CryptoError(CryptoResultCode::kStorageError, mPath + ": ends too early");
        }
        done += static_cast<std::size_t>(count);
    }
}

ByteVector ProtectedFile::Read() const {
    ByteVector bytes(mSize);
    Read(bytes.data());
    return bytes;
}

void RemoveProtectedLeftover(const std::string& path) {
    const std::string temporary = TemporaryPath(path);
    if (::unlink(temporary.c_str()) != 0 && errno != ENOENT) {
        throw SystemError(temporary, "cannot remove");
    }
}

void CreateProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size) {
    WriteProtectedFile(path, bytes, size, posix::ExistingFile::kIsKept);
}

void ReplaceProtectedFile(const std::string& path, const std::uint8_t* bytes, std::size_t size) {
    WriteProtectedFile(path, bytes, size, posix::ExistingFile::kIsReplaced);
}

bool FileExists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

}  // namespace orv::sec::crypto
