#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <posix/atomic_file.h>
#include <posix/path.h>
#include <posix/unique_fd.h>
#include <posix/write_all.h>

namespace posix {

namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

// Neither way follows a link. `path` becomes the name of the file.
UniqueFd CreateTemporary(const std::string& target, std::string& path) {
    if (!path.empty()) {
        return UniqueFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
    }
    path = target + ".XXXXXX";
    return UniqueFd(::mkostemp(path.data(), O_CLOEXEC));
}

/// The temporary file; removed with the object unless it was renamed.
class TemporaryFile {
public:
    TemporaryFile(const std::string& target, std::string path)
        : mTarget(target), mPath(std::move(path)), mFile(CreateTemporary(target, mPath)) {
        if (!mFile.IsValid()) {
            throw FileError(mTarget, mPath, "cannot create");
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!mIsGone) {
            ::unlink(mPath.c_str());
        }
    }

    void Write(std::string_view contents) {
        if (!WriteAll(mFile.Get(), contents)) {
            throw FileError(mTarget, mPath, "cannot write");
        }
    }

    void Complete(mode_t mode) {
        if (::fchmod(mFile.Get(), mode) != 0 || ::fsync(mFile.Get()) != 0 ||
            ::close(mFile.Release()) != 0) {
            throw FileError(mTarget, mPath, "cannot complete");
        }
    }

    bool PutInPlace(ExistingFile existing) {
        if (existing == ExistingFile::kIsReplaced) {
            mIsGone = ::rename(mPath.c_str(), mTarget.c_str()) == 0;
        } else {
            mIsGone = RenameUnlessTaken();
        }
        if (!mIsGone && (existing == ExistingFile::kIsReplaced || errno != EEXIST)) {
            throw FileError(mTarget, mTarget, "cannot create");
        }
        return mIsGone;
    }

private:
    bool RenameUnlessTaken() const {
        if (::renameat2(AT_FDCWD, mPath.c_str(), AT_FDCWD, mTarget.c_str(), RENAME_NOREPLACE) ==
            0) {
            return true;
        }
        // Not every file system supports that; a hard link doesn't replace a file either.
        if ((errno != EINVAL && errno != ENOSYS) || ::link(mPath.c_str(), mTarget.c_str()) != 0) {
            return false;
        }
        ::unlink(mPath.c_str());
        return true;
    }

    const std::string& mTarget;
    std::string mPath;
    UniqueFd mFile;
    bool mIsGone{false};
};

// A rename is durable once the directory is synced.
void SyncDirectoryOf(const std::string& path, bool isNeeded) {
    const std::string directory = DirectoryOf(path);
    const UniqueFd descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: the file system doesn't support it.
    if (!descriptor.IsValid() ||
        (::fsync(descriptor.Get()) != 0 && (isNeeded || errno != EINVAL))) {
        throw FileError(path, directory, "cannot sync");
    }
}

}  // namespace

FileError::FileError(const std::string& target, std::string path, std::string step)
    : std::system_error(errno, std::generic_category(), target),
      mPath(std::move(path)),
      mStep(std::move(step)) {}

bool WriteFileAtomically(const std::string& path, std::string_view contents,
                         const AtomicFileSettings& settings) {
    bool isWritten = false;
    {
        TemporaryFile file(path, settings.temporaryPath);
        file.Write(contents);
        file.Complete(settings.mode);
        isWritten = file.PutInPlace(settings.existing);
    }
    SyncDirectoryOf(path, settings.needsDirectorySync);
    return isWritten;
}

}  // namespace posix
