#include "simulator/vehicle/text_file.h"

#include <filesystem>

#include <sys/types.h>

#include "simulator/support/atomic_file.h"

namespace simulator::vehicle {

namespace {

constexpr mode_t kReadableByAll = 0644;

}  // namespace

void MakeParentDirectories(const std::string& path) {
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) {
        std::filesystem::create_directories(parent);
    }
}

void WriteFileAtomically(const std::string& path, const std::string& text) {
    MakeParentDirectories(path);
    simulator::WriteFileAtomically(path, text, kReadableByAll);
}

}  // namespace simulator::vehicle
