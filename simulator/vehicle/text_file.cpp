#include "simulator/vehicle/text_file.h"

#include <filesystem>

#include <posix/atomic_file.h>

namespace simulator::vehicle {

void MakeParentDirectories(const std::string& path) {
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) {
        std::filesystem::create_directories(parent);
    }
}

void WriteFileAtomically(const std::string& path, const std::string& text) {
    MakeParentDirectories(path);
    posix::WriteFileAtomically(path, text, {});
}

}  // namespace simulator::vehicle
