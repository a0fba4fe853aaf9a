#include "wrapping_key.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include "crypto_error.h"
#include "file_descriptor.h"
#include "openssl_ptr.h"
#include "store_directory.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr std::uint8_t kBlobVersion = 1;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kNonceOffset = 1;
constexpr std::size_t kTagOffset = kNonceOffset + kNonceSize;
constexpr std::size_t kCiphertextOffset = kTagOffset + kTagSize;
// A PKCS #8 P-256 key has some 140 bytes.
constexpr std::size_t kMaxPlainSize = std::size_t{64} * 1024;
constexpr mode_t kKeyFileMode = S_IRUSR;
constexpr mode_t kModeBits = 07777;

CryptoError SystemError(const std::string& path, const std::string& what) {
    return CryptoError(CryptoResultCode::kStorageError,
                       path + ": " + what + ": " + std::generic_category().message(errno));
}

CryptoError Refused(const std::string& path, const std::string& why) {
    return CryptoError(CryptoResultCode::kStorageError, path + ": key file refused: " + why);
}

std::string ToOctal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode));
    return text.data();
}

void CheckKeyFile(const std::string& path, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path, "not a regular file");
    }
    if ((status.st_mode & kModeBits) != kKeyFileMode) {
        throw Refused(path, "mode is " + ToOctal(status.st_mode & kModeBits) + ", not 0400");
    }
    if (status.st_uid != ::geteuid()) {
        throw Refused(path, "owned by user " + std::to_string(status.st_uid) + ", not by user " +
                                std::to_string(::geteuid()));
    }
    if (status.st_size != static_cast<off_t>(WrappingKey::kSize)) {
        throw Refused(path, "size is " + std::to_string(status.st_size) + " bytes, not 32");
    }
}

template <typename Operation>
void TransferAll(std::size_t size, const std::string& path, Operation operation) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = operation(done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw SystemError(path, "cannot read or write");
        }
        if (count == 0) {
            throw CryptoError(CryptoResultCode::kStorageError, path + ": ends too early");
        }
        done += static_cast<std::size_t>(count);
    }
}

std::string TemporaryPath(const std::string& path) {
    return path + ".new";
}

CipherContextPtr NewCipherContext() {
    CipherContextPtr context(EVP_CIPHER_CTX_new());
    if (context == nullptr) {
        throw OpenSslError("EVP_CIPHER_CTX_new");
    }
    return context;
}

const unsigned char* AsBytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::unique_ptr<WrappingKey> WrappingKey::Load(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsValid()) {
        if (errno == ENOENT) {
            return nullptr;
        }
        if (errno == ELOOP) {
            throw Refused(path, "it is a symbolic link");
        }
        throw SystemError(path, "cannot open");
    }
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) {
        throw SystemError(path, "cannot stat");
    }
    CheckKeyFile(path, status);

    std::unique_ptr<WrappingKey> key(new WrappingKey());
    TransferAll(kSize, path, [&](std::size_t done) {
        return ::read(file.Get(), key->mKey.Data() + done, kSize - done);
    });
    return key;
}

void WrappingKey::RemoveLeftover(const std::string& path) {
    const std::string temporary = TemporaryPath(path);
    if (::unlink(temporary.c_str()) != 0 && errno != ENOENT) {
        throw SystemError(temporary, "cannot remove");
    }
}

void WrappingKey::Create(const std::string& path) {
    const std::string temporary = TemporaryPath(path);
    const FileDescriptor file(
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kKeyFileMode));
    if (!file.IsValid()) {
        throw SystemError(temporary, "cannot create");
    }
    WrappingKey key;
    try {
        if (RAND_priv_bytes(key.mKey.Data(), static_cast<int>(kSize)) != 1) {
            throw OpenSslError("no random numbers for the wrapping key");
        }
        TransferAll(kSize, temporary, [&](std::size_t done) {
            return ::write(file.Get(), key.mKey.Data() + done, kSize - done);
        });
        // The mode was subject to the umask.
        if (::fchmod(file.Get(), kKeyFileMode) != 0 || ::fsync(file.Get()) != 0) {
            throw SystemError(temporary, "cannot complete");
        }
        // Unlike a rename, a link never takes the place of a key.
        if (::link(temporary.c_str(), path.c_str()) != 0 && errno != EEXIST) {
            throw SystemError(path, "cannot create");
        }
    } catch (const CryptoError&) {
        ::unlink(temporary.c_str());
        throw;
    }
    RemoveLeftover(path);
    SyncDirectory(path.substr(0, path.rfind('/')));
}

ByteVector WrappingKey::Wrap(const ByteVector& plain, const std::string& associatedData) const {
    if (plain.size() > kMaxPlainSize || associatedData.size() > kMaxPlainSize) {
        throw CryptoError(CryptoResultCode::kTooLarge, "key is too long to be wrapped");
    }
    ByteVector blob(kCiphertextOffset + plain.size());
    blob[0] = kBlobVersion;
    auto* nonce = blob.data() + kNonceOffset;
    if (RAND_bytes(nonce, static_cast<int>(kNonceSize)) != 1) {
        throw OpenSslError("no random numbers for a nonce");
    }
    const CipherContextPtr context = NewCipherContext();
    int size = 0;
    int finalSize = 0;
    auto* ciphertext = blob.data() + kCiphertextOffset;
    if (EVP_EncryptInit_ex2(context.get(), EVP_aes_256_gcm(), mKey.Data(), nonce, nullptr) != 1 ||
        EVP_EncryptUpdate(context.get(), nullptr, &size, AsBytes(associatedData),
                          static_cast<int>(associatedData.size())) != 1 ||
        EVP_EncryptUpdate(context.get(), ciphertext, &size, plain.data(),
                          static_cast<int>(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(context.get(), ciphertext + size, &finalSize) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(kTagSize),
                            blob.data() + kTagOffset) != 1) {
        throw OpenSslError("cannot encrypt a private key");
    }
    return blob;
}

ByteVector WrappingKey::Unwrap(const ByteVector& blob, const std::string& associatedData) const {
    if (blob.size() <= kCiphertextOffset || blob.size() > kCiphertextOffset + kMaxPlainSize ||
        blob[0] != kBlobVersion) {
        throw CryptoError(CryptoResultCode::kIntegrityError, "is no wrapped key");
    }
    std::array<unsigned char, kTagSize> tag{};
    std::copy_n(blob.data() + kTagOffset, kTagSize, tag.data());
    const CipherContextPtr context = NewCipherContext();
    ByteVector plain(blob.size() - kCiphertextOffset);
    int size = 0;
    int finalSize = 0;
    if (EVP_DecryptInit_ex2(context.get(), EVP_aes_256_gcm(), mKey.Data(),
                            blob.data() + kNonceOffset, nullptr) != 1 ||
        EVP_DecryptUpdate(context.get(), nullptr, &size, AsBytes(associatedData),
                          static_cast<int>(associatedData.size())) != 1 ||
        EVP_DecryptUpdate(context.get(), plain.data(), &size, blob.data() + kCiphertextOffset,
                          static_cast<int>(plain.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(kTagSize),
                            tag.data()) != 1) {
        throw OpenSslError("cannot decrypt a private key");
    }
    if (EVP_DecryptFinal_ex(context.get(), plain.data() + size, &finalSize) != 1) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kIntegrityError, "does not decrypt");
    }
    return plain;
}

}  // namespace orv::sec::crypto
