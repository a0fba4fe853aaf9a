#include "simulator/support/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace simulator {

namespace {

bool WriteAll(int descriptor, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        written += static_cast<std::size_t>(count);
    }
    return true;
}

bool PutInPlace(const std::string& temporary, const std::string& path, ExistingFile existing) {
    if (existing == ExistingFile::kIsReplaced) {
        return ::rename(temporary.c_str(), path.c_str()) == 0;
    }
    // Neither this nor a link takes the place of a file; not every file system can do both.
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    if (::link(temporary.c_str(), path.c_str()) != 0) {
        return false;
    }
    ::unlink(temporary.c_str());
    return true;
}

// The name of a file is durable once its directory is.
bool SyncDirectoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    // Some file systems have nothing to sync there.
    const bool isDone = ::fsync(descriptor) == 0 || errno == EINVAL;
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return isDone;
}

}  // namespace

void WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode,
                         ExistingFile existing) {
    std::string temporary = path + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    bool isDone =
        ::fchmod(descriptor, mode) == 0 && WriteAll(descriptor, text) && ::fsync(descriptor) == 0;
    int error = errno;
    if (::close(descriptor) != 0 && isDone) {
        isDone = false;
        error = errno;
    }
    if (isDone && !PutInPlace(temporary, path, existing)) {
        isDone = false;
        error = errno;
    }
    if (!isDone) {
        ::unlink(temporary.c_str());
        throw std::system_error(error, std::generic_category(), path);
    }
    if (!SyncDirectoryOf(path)) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

}  // namespace simulator
