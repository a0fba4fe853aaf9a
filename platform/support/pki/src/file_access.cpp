#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <pki_support/file_access.h>
#include <pki_support/pki_error.h>
#include <posix/unique_fd.h>

namespace pki_support {

namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;
constexpr std::size_t kBufferBytes = 4096;

[[noreturn]] void Fail(const std::string& path, int error) {
    throw PkiError(path + ": " + std::generic_category().message(error));
}

}  // namespace

SecretText::SecretText(std::string secret) : text(std::move(secret)) {}

SecretText::~SecretText() {
    OPENSSL_cleanse(text.data(), text.size());
}

std::string ReadFile(const std::string& path) {
    const posix::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsValid()) {
        Fail(path, errno);
    }
    SecretText contents;
    // A text that outgrew its memory would leave a copy behind.
    contents.text.reserve(kMaxFileBytes);
    SecretText buffer(std::string(kBufferBytes, '\0'));
    for (;;) {
        const ssize_t count = ::read(file.Get(), buffer.text.data(), buffer.text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Fail(path, errno);
        }
        if (count == 0) {
            break;
        }
        if (contents.text.size() + static_cast<std::size_t>(count) > kMaxFileBytes) {
            Fail(path, EFBIG);
        }
        contents.text.append(buffer.text.data(), static_cast<std::size_t>(count));
    }
    return std::move(contents.text);
}

void WriteFile(const std::string& path, const std::string& text, mode_t mode,
               posix::ExistingFile existing) {
    posix::AtomicFileSettings settings;
    settings.mode = mode;
    settings.existing = existing;
    try {
        if (!posix::WriteFileAtomically(path, text, settings)) {
            Fail(path, EEXIST);
        }
    } catch (const std::system_error& error) {
        Fail(path, error.code().value());
    }
}

}  // namespace pki_support
