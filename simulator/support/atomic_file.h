#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace simulator {

/// What becomes of a file that is there already.
enum class ExistingFile : std::uint8_t {
    kIsReplaced,
    /// Writing fails with EEXIST.
    kIsKept,
};

/// Writes the file with this mode by way of a temporary file beside it, durably, so that a reader
/// sees the old text or the new one. Throws std::system_error; the old file then is as it was,
/// unless only the last step failed, which makes the new one's name durable.
void WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode,
                         ExistingFile existing = ExistingFile::kIsReplaced);

}  // namespace simulator
