#pragma once

#include <string>

namespace posix {

/// The directory that holds the file of this path: "." where the path names none.
inline std::string DirectoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace posix
