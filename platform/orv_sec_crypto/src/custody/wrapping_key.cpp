#include "custody/wrapping_key.h"

#include <algorithm>
#include <array>

#include <openssl/rand.h>

#include <openssl_support/openssl_ptr.h>

#include "custody/tpm_sealing.h"
#include "errors/crypto_error.h"
#include "files/protected_file.h"

namespace orv::sec::crypto {

using openssl_support::OpenSslPtr;

using common::ByteVector;
using common::CryptoResultCode;

namespace {

using CipherContextPtr = OpenSslPtr<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

constexpr std::uint8_t kBlobVersion = 1;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kNonceOffset = 1;
constexpr std::size_t kTagOffset = kNonceOffset + kNonceSize;
constexpr std::size_t kCiphertextOffset = kTagOffset + kTagSize;
// A PKCS #8 P-256 key has some 140 bytes.
constexpr std::size_t kMaxPlainSize = std::size_t{64} * 1024;

FileDemands Demands(const WrappingKeyPlace& place) {
    if (place.tcti.empty()) {
        return {"key file", FileProtection::kSecret, WrappingKey::kSize, WrappingKey::kSize};
    }
    return {"key file", FileProtection::kSecret, 1, kMaxSealedBytes};
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

std::unique_ptr<WrappingKey> WrappingKey::Load(const WrappingKeyPlace& place) {
    const auto file = ProtectedFile::Open(place.path, Demands(place));
    if (file == nullptr) {
        return nullptr;
    }
    std::unique_ptr<WrappingKey> key(new WrappingKey());
    if (place.tcti.empty()) {
        file->Read(key->mKey.Data());
        return key;
    }
    try {
        UnsealByTpm(place.tcti, file->Read(), key->mKey.Data(), kSize);
    } catch (const CryptoError& error) {
        throw CryptoError(error.Code(), place.path + ": " + error.what());
    }
    return key;
}

void WrappingKey::Create(const WrappingKeyPlace& place) {
    WrappingKey key;
    if (RAND_priv_bytes(key.mKey.Data(), static_cast<int>(kSize)) != 1) {
        throw OpenSslError("no random numbers for the wrapping key");
    }
    if (place.tcti.empty()) {
        CreateProtectedFile(place.path, key.mKey.Data(), kSize);
        return;
    }
    const ByteVector sealed = SealByTpm(place.tcti, key.mKey.Data(), kSize);
    CreateProtectedFile(place.path, sealed.data(), sealed.size());
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
