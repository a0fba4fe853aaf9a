#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/types.h>

namespace posix {

/// What becomes of a file that is there already.
enum class ExistingFile : std::uint8_t { kIsReplaced, kIsKept };

/// How a file is written.
struct AtomicFileSettings {
    /// Its mode, whatever the umask. Until the contents are complete, only the owner has access.
    mode_t mode{0644};
    ExistingFile existing{ExistingFile::kIsReplaced};
    /// Path of the temporary file, on the same file system, for a caller that removes what an
    /// interrupted write has left: writing fails with EEXIST while it is there. Empty: the file's
    /// own path and seven characters more, a new name each time.
    std::string temporaryPath;
    /// Writing also fails on a file system that cannot sync directories.
    bool needsDirectorySync{false};
};

/// What went wrong with which file, as a `std::system_error` that names the file to be written.
class FileError : public std::system_error {
public:
    /// Takes the cause from `errno`.
    FileError(const std::string& target, std::string path, std::string step);

    /// The file that the step failed on: the one to be written, its temporary file or directory.
    const std::string& Path() const { return mPath; }
    /// "cannot create", "cannot write", "cannot complete" or "cannot sync".
    const std::string& Step() const { return mStep; }

private:
    std::string mPath;
    std::string mStep;
};

/// Writes the file by way of a temporary file beside it, durably, so that a reader, or whoever
/// comes after a crash, sees the old contents or the new ones. No symbolic link is followed; one
/// that has the file's name is itself what is there already.
///
/// False only if there was a file that is kept. Throws FileError; the old file then is as it was
/// and no temporary file is left, unless only the last step failed, which makes the new name
/// durable. Any thread; one at a time for a path.
bool WriteFileAtomically(const std::string& path, std::string_view contents,
                         const AtomicFileSettings& settings);

}  // namespace posix
