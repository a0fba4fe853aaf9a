#pragma once

#include <string>

namespace simulator::vehicle {

/// Creates the parent directories of `path`. Throws std::filesystem::filesystem_error.
void MakeParentDirectories(const std::string& path);

/// Replaces the file atomically (mode 0644); creates its parent directories. Throws
/// std::system_error; the old file is then unchanged.
void WriteFileAtomically(const std::string& path, const std::string& text);

}  // namespace simulator::vehicle
