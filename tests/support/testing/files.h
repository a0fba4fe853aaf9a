#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace testing_support {

/// All bytes of a file; none if it can't be read.
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Writes the file in place.
inline void WriteFile(const std::string& path, std::string_view contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

}  // namespace testing_support
