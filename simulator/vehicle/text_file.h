#pragma once

#include <string>

namespace simulator::vehicle {

/// Makes the directories above `path`. Throws std::filesystem::filesystem_error.
void MakeParentDirectories(const std::string& path);

/// Replaces the file by way of a temporary file beside it, so that a reader sees the old text or
/// the new one; makes the directories above it. Throws std::system_error; the old file then is as
/// it was.
void WriteFileAtomically(const std::string& path, const std::string& text);

}  // namespace simulator::vehicle
