#include "read_file.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zem_connector {

std::string ReadFile(const std::string& path, std::size_t limit) {
    // Non-blocking, or a pipe in the file's place would hold us up.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    struct stat status {};
    std::string text;
    ssize_t size = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 1 : -1;
    errno = 0;
    text.resize(limit + 1);
    std::size_t used = 0;
    while (size > 0 && used < text.size()) {
        size = read(descriptor, text.data() + used, text.size() - used);
        if (size < 0 && errno == EINTR) {
            size = 1;
            continue;
        }
        used += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    const int error = errno;
    close(descriptor);
    if (size < 0) {
        throw std::runtime_error(error == 0 ? "not a regular file" : std::strerror(error));
    }
    text.resize(used);
    return text;
}

}  // namespace zem_connector
