#include "keys/ec_key.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/pem.h>

#include "errors/crypto_error.h"
#include "keys/p256_encoding.h"
#include "keys/remote_key.h"

namespace orv::sec::crypto {

using openssl_support::BioPtr;
using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;
using openssl_support::PkeyContextPtr;
using openssl_support::RequestPtr;

using common::ByteVector;
using common::CryptoResultCode;

namespace {

using DigestContextPtr = OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free>;
using Pkcs8Ptr = OpenSslPtr<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using NamePtr = OpenSslPtr<X509_NAME, X509_NAME_free>;

constexpr const char* kCurve = "prime256v1";
constexpr const char* kEcKeyType = "EC";
constexpr std::size_t kMaxKeyFileBytes = std::size_t{64} * 1024;
constexpr std::size_t kMaxSignatureBytes = 1024;
constexpr std::ptrdiff_t kMaxCommonNameCharacters = 64;

bool IsP256(const EVP_PKEY& key) {
    std::array<char, 64> group{};
    return EVP_PKEY_is_a(&key, kEcKeyType) == 1 &&
           EVP_PKEY_get_group_name(&key, group.data(), group.size(), nullptr) == 1 &&
           std::string_view(group.data()) == kCurve;
}

int RefusePassPhrase(char*, int, int, void*) {
    return -1;
}

PkeyPtr ReadPemOrDerKey(const std::string& contents) {
    if (contents.find("-----BEGIN") != std::string::npos) {
        const BioPtr bio(BIO_new_mem_buf(contents.data(), static_cast<int>(contents.size())));
        if (bio == nullptr) {
            throw OpenSslError("BIO_new_mem_buf");
        }
        return PkeyPtr(PEM_read_bio_PrivateKey(bio.get(), nullptr, RefusePassPhrase, nullptr));
    }
    const auto* position = reinterpret_cast<const unsigned char*>(contents.data());
    const auto* end = position + contents.size();
    PkeyPtr key(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(contents.size())));
    return position == end ? std::move(key) : nullptr;
}

void CheckCommonName(const std::string& commonName) {
    const bool hasControl = std::any_of(commonName.begin(), commonName.end(), [](char letter) {
        return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f;
    });
    if (commonName.empty() || hasControl) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the subject is empty or no text");
    }
    const auto characters = std::count_if(commonName.begin(), commonName.end(), [](char letter) {
        return (static_cast<unsigned char>(letter) & 0xc0) != 0x80;
    });
    if (characters > kMaxCommonNameCharacters) {
        throw CryptoError(CryptoResultCode::kTooLarge, "the subject is too long");
    }
}

DigestContextPtr NewDigestContext() {
    DigestContextPtr context(EVP_MD_CTX_new());
    if (context == nullptr) {
        throw OpenSslError("EVP_MD_CTX_new");
    }
    return context;
}

}  // namespace

PkeyPtr GenerateKey() {
    PkeyPtr key(EVP_EC_gen(kCurve));
    if (key == nullptr) {
        throw OpenSslError("cannot generate a key pair");
    }
    return key;
}

ByteVector EncodePrivateKey(const EVP_PKEY& key) {
    const Pkcs8Ptr info(EVP_PKEY2PKCS8(&key));
    const int size = info == nullptr ? -1 : i2d_PKCS8_PRIV_KEY_INFO(info.get(), nullptr);
    if (size <= 0) {
        throw OpenSslError("cannot encode a private key");
    }
    ByteVector der(static_cast<std::size_t>(size));
    unsigned char* position = der.data();
    i2d_PKCS8_PRIV_KEY_INFO(info.get(), &position);
    return der;
}

PkeyPtr DecodePrivateKey(const ByteVector& der) {
    if (PkeyPtr usual = DecodeP256PrivateKey(der)) {
        return usual;
    }
    const unsigned char* position = der.data();
    const Pkcs8Ptr info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(der.size())));
    PkeyPtr key(info == nullptr ? nullptr : EVP_PKCS82PKEY(info.get()));
    if (key == nullptr) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kIntegrityError, "the stored private key is invalid");
    }
    return key;
}

ByteVector EncodePublicKey(EVP_PKEY& key) {
    if (ByteVector usual = EncodeP256PublicKey(key); !usual.empty()) {
        return usual;
    }
    if (EVP_PKEY_is_a(&key, kEcKeyType) == 1 &&
        (EVP_PKEY_set_utf8_string_param(&key, OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                        OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_UNCOMPRESSED) != 1 ||
         EVP_PKEY_set_utf8_string_param(&key, OSSL_PKEY_PARAM_EC_ENCODING,
                                        OSSL_PKEY_EC_ENCODING_GROUP) != 1)) {
        throw OpenSslError("cannot set the form of a public key");
    }
    unsigned char* der = nullptr;
    const int size = i2d_PUBKEY(&key, &der);
    const OpenSslMemoryPtr owner(der);
    if (size <= 0) {
        throw OpenSslError("cannot encode a public key");
    }
    return ByteVector(der, der + size);
}

PkeyPtr DecodePublicKey(const ByteVector& der) {
    if (PkeyPtr usual = DecodeP256PublicKey(der)) {
        return usual;
    }
    const unsigned char* position = der.data();
    PkeyPtr key(d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())));
    if (key == nullptr) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kIntegrityError, "the stored public key is invalid");
    }
    return key;
}

PkeyPtr ParseKeyFile(const std::string& contents) {
    if (contents.size() > kMaxKeyFileBytes) {
        throw CryptoError(CryptoResultCode::kTooLarge, "the private key is too long");
    }
    PkeyPtr key = ReadPemOrDerKey(contents);
    ForgetOpenSslErrors();
    if (key == nullptr) {
        throw CryptoError(CryptoResultCode::kInvalidFormat,
                          "not an unencrypted private key in PKCS #8 or SEC 1 format");
    }
    const PkeyContextPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    if (!IsP256(*key) || context == nullptr || EVP_PKEY_check(context.get()) != 1) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kKeyMismatch, "not a valid P-256 private key");
    }
    return key;
}

bool SameKey(const EVP_PKEY& one, const EVP_PKEY& other) {
    const bool same = EVP_PKEY_eq(&one, &other) == 1;
    ForgetOpenSslErrors();
    return same;
}

ByteVector MakeSigningRequest(EVP_PKEY& key, const std::string& commonName) {
    CheckCommonName(commonName);
    const NamePtr subject(X509_NAME_new());
    const RequestPtr request(X509_REQ_new());
    if (subject == nullptr || request == nullptr) {
        throw OpenSslError("cannot make a request");
    }
    if (X509_NAME_add_entry_by_NID(subject.get(), NID_commonName, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(commonName.data()),
                                   static_cast<int>(commonName.size()), -1, 0) != 1) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the subject is no UTF-8 text");
    }
    if (X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) != 1 ||
        X509_REQ_set_subject_name(request.get(), subject.get()) != 1 ||
        X509_REQ_set_pubkey(request.get(), &key) != 1 ||
        X509_REQ_sign(request.get(), &key, EVP_sha256()) <= 0) {
        throw SigningError("cannot sign a request");
    }
    unsigned char* der = nullptr;
    const int size = i2d_X509_REQ(request.get(), &der);
    const OpenSslMemoryPtr owner(der);
    if (size <= 0) {
        throw OpenSslError("cannot encode a request");
    }
    return ByteVector(der, der + size);
}

ByteVector Sign(EVP_PKEY& key, const ByteVector& content) {
    const DigestContextPtr context = NewDigestContext();
    std::size_t size = 0;
    if (EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, &key) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &size, content.data(), content.size()) != 1) {
        throw OpenSslError("cannot sign");
    }
    ByteVector signature(size);
    if (EVP_DigestSign(context.get(), signature.data(), &size, content.data(), content.size()) !=
        1) {
        throw SigningError("cannot sign");
    }
    signature.resize(size);
    return signature;
}

bool Verify(EVP_PKEY& key, const ByteVector& signature, const ByteVector& content) {
    if (EVP_PKEY_is_a(&key, kEcKeyType) != 1) {
        throw CryptoError(CryptoResultCode::kKeyMismatch, "not a key for ECDSA");
    }
    if (signature.size() > kMaxSignatureBytes) {
        throw CryptoError(CryptoResultCode::kTooLarge, "the signature is too long");
    }
    const DigestContextPtr context = NewDigestContext();
    if (EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, &key) != 1) {
        throw OpenSslError("cannot verify");
    }
    const bool verified = EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                                           content.data(), content.size()) == 1;
    ForgetOpenSslErrors();
    return verified;
}

}  // namespace orv::sec::crypto
