#pragma once

#include <string>

#include <sys/types.h>

namespace simulator {

/// Replaces the file with this mode by way of a temporary file beside it, durably, so that a reader
/// sees the old text or the new one. Throws std::system_error; the old file then is as it was.
void WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode);

}  // namespace simulator
