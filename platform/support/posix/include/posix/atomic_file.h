#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/types.h>

namespace posix {

/// What happens to an existing file.
enum class ExistingFile : std::uint8_t { kIsReplaced, kIsKept };

/// How a file is written.
struct AtomicFileSettings {
    /// The file's mode, independent of the umask. While it is written, only the owner has access.
    mode_t mode{0644};
    ExistingFile existing{ExistingFile::kIsReplaced};
    /// Path of the temporary file, on the same file system, for a caller that cleans up after
    /// interrupted writes: writing fails with EEXIST while it exists. Empty: the file's path with
    /// seven more characters, a new name each time.
    std::string temporaryPath;
    /// Fail on a file system that doesn't support fsync of directories.
    bool needsDirectorySync{false};
};

/// The failed step and file; `what()` has the path of the file that was to be written.
class FileError : public std::system_error {
public:
    /// The cause is `errno`.
    FileError(const std::string& target, std::string path, std::string step);

    /// The file of the failed step: the one to be written, its temporary file or directory.
    const std::string& Path() const { return mPath; }
    /// "cannot create", "cannot write", "cannot complete" or "cannot sync".
    const std::string& Step() const { return mStep; }

private:
    std::string mPath;
    std::string mStep;
};

/// Writes the file atomically and durably, by renaming a temporary file: readers, also after a
/// crash, see either the old contents or the new ones. Symbolic links are not followed; one at
/// `path` counts as the existing file.
///
/// False only if an existing file was kept. Throws FileError; the old file is then unchanged and no
/// temporary file is left, unless only the last step failed, the sync of the directory. Any thread;
/// one at a time for a path.
bool WriteFileAtomically(const std::string& path, std::string_view contents,
                         const AtomicFileSettings& settings);

}  // namespace posix
