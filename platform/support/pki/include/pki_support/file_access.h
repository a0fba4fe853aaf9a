#pragma once

#include <string>

#include <sys/types.h>

#include <posix/atomic_file.h>

namespace pki_support {

constexpr mode_t kPublicMode = 0644;
constexpr mode_t kSecretMode = 0600;

/// A text that may hold a private key; it is wiped when the object goes.
struct SecretText {
    SecretText() = default;
    explicit SecretText(std::string secret);
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;
    ~SecretText();

    std::string text;
};

/// The contents of a file of at most 1 MiB, of which no other copy stays in memory. `PkiError` on
/// failure.
std::string ReadFile(const std::string& path);

/// Writes the file with this mode by way of a temporary file beside it, so that a reader sees the
/// old contents or the new ones. `PkiError` on failure; the old file then is as it was.
void WriteFile(const std::string& path, const std::string& text, mode_t mode,
               posix::ExistingFile existing = posix::ExistingFile::kIsReplaced);

}  // namespace pki_support
