#include "simulator/vehicle/text_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace simulator::vehicle {

namespace {

constexpr mode_t kReadableByAll = 0644;

bool WriteAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(fd, text.data() + written, text.size() - written);
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

}  // namespace

void MakeParentDirectories(const std::string& path) {
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) {
        std::filesystem::create_directories(parent);
    }
}

void WriteFileAtomically(const std::string& path, const std::string& text) {
    MakeParentDirectories(path);
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), temporary);
    }
    bool done = WriteAll(fd, text) && ::fchmod(fd, kReadableByAll) == 0;
    int error = errno;
    done = ::close(fd) == 0 && done;
    if (done && ::rename(temporary.c_str(), path.c_str()) != 0) {
        done = false;
        error = errno;
    }
    if (!done) {
        ::unlink(temporary.c_str());
        throw std::system_error(error, std::generic_category(), path);
    }
}

}  // namespace simulator::vehicle
