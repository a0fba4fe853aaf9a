#include "read_file.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <posix/unique_fd.h>

namespace zem_connector {

std::string ReadFile(const std::string& path, std::size_t limit) {
    // Non-blocking, or opening a pipe in the file's place would block.
    const posix::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsValid()) {
        throw std::runtime_error(std::strerror(errno));
    }
    struct stat status {};
    std::string text;
    ssize_t size = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) ? 1 : -1;
    errno = 0;
    text.resize(limit + 1);
    std::size_t used = 0;
    while (size > 0 && used < text.size()) {
        size = read(file.Get(), text.data() + used, text.size() - used);
        if (size < 0 && errno == EINTR) {
            size = 1;
            continue;
        }
        used += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    if (size < 0) {
        throw std::runtime_error(errno == 0 ? "not a regular file" : std::strerror(errno));
    }
    text.resize(used);
    return text;
}

}  // namespace zem_connector
