#include "keys/p256_encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using openssl_support::PkeyContextPtr;

using common::ByteVector;

namespace {

constexpr std::string_view kCurve = "prime256v1";
constexpr std::uint8_t kUncompressed = 4;

/// SubjectPublicKeyInfo up to the point: id-ecPublicKey, prime256v1, BIT STRING.
constexpr std::array<std::uint8_t, 26> kPublicKeyStart{
    0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01,
    0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00};
/// PrivateKeyInfo up to the scalar: version, the same algorithm, ECPrivateKey with its version.
constexpr std::array<std::uint8_t, 36> kPrivateKeyStart{
    0x30, 0x81, 0x87, 0x02, 0x01, 0x00, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86,
    0x48, 0xce, 0x3d, 0x02, 0x01, 0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d,
    0x03, 0x01, 0x07, 0x04, 0x6d, 0x30, 0x6b, 0x02, 0x01, 0x01, 0x04, 0x20};
/// Between scalar and point: the optional public key, as BIT STRING.
constexpr std::array<std::uint8_t, 5> kPrivateKeyMiddle{0xa1, 0x44, 0x03, 0x42, 0x00};

using ScalarPtr = openssl_support::OpenSslPtr<BIGNUM, BN_clear_free>;

/// The parts in the form that `EVP_PKEY_fromdata` takes.
class KeyParts {
public:
    explicit KeyParts(const std::uint8_t* point) : mPoint(point) {}
    ~KeyParts() { OPENSSL_cleanse(mScalar.data(), mScalar.size()); }
    KeyParts(const KeyParts&) = delete;
    KeyParts& operator=(const KeyParts&) = delete;

    /// False if OpenSSL has no memory left.
    bool SetScalar(const std::uint8_t* bytes) {
        const ScalarPtr number(BN_bin2bn(bytes, kP256NumberBytes, nullptr));
        mHasScalar = number != nullptr && BN_bn2nativepad(number.get(), mScalar.data(),
                                                          kP256NumberBytes) == kP256NumberBytes;
        return mHasScalar;
    }

    PkeyPtr MakeKey() {
        std::array<char, kCurve.size() + 1> curve{};
        std::copy(kCurve.begin(), kCurve.end(), curve.begin());
        std::array<std::uint8_t, kP256PointBytes> point{};
        std::copy_n(mPoint, kP256PointBytes, point.begin());
        std::array<OSSL_PARAM, 4> params{
            OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, curve.data(), 0),
            OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()),
            mHasScalar
                ? OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_PRIV_KEY, mScalar.data(), mScalar.size())
                : OSSL_PARAM_construct_end(),
            OSSL_PARAM_construct_end()};
        const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
        EVP_PKEY* key = nullptr;
        const int selection = mHasScalar ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY;
        if (context == nullptr || EVP_PKEY_fromdata_init(context.get()) != 1 ||
            EVP_PKEY_fromdata(context.get(), &key, selection, params.data()) != 1) {
            ForgetOpenSslErrors();
            return nullptr;
        }
        return PkeyPtr(key);
    }

private:
    const std::uint8_t* mPoint;
    std::array<std::uint8_t, kP256NumberBytes> mScalar{};
    bool mHasScalar{false};
};

template <std::size_t Size>
bool HasAt(const ByteVector& der, std::size_t position,
           const std::array<std::uint8_t, Size>& expected) {
    return std::equal(expected.begin(), expected.end(),
                      der.begin() + static_cast<std::ptrdiff_t>(position));
}

}  // namespace

PkeyPtr DecodeP256PrivateKey(const ByteVector& der) {
    constexpr std::size_t kScalarAt = kPrivateKeyStart.size();
    constexpr std::size_t kMiddleAt = kScalarAt + kP256NumberBytes;
    constexpr std::size_t kPointAt = kMiddleAt + kPrivateKeyMiddle.size();
    if (der.size() != kPointAt + kP256PointBytes || !HasAt(der, 0, kPrivateKeyStart) ||
        !HasAt(der, kMiddleAt, kPrivateKeyMiddle)) {
        return nullptr;
    }
    KeyParts parts(der.data() + kPointAt);
    return parts.SetScalar(der.data() + kScalarAt) ? parts.MakeKey() : nullptr;
}

PkeyPtr DecodeP256PublicKey(const ByteVector& der) {
    if (der.size() != kPublicKeyStart.size() + kP256PointBytes || !HasAt(der, 0, kPublicKeyStart)) {
        return nullptr;
    }
    return KeyParts(der.data() + kPublicKeyStart.size()).MakeKey();
}

ByteVector EncodeP256PublicKey(const EVP_PKEY& key) {
    std::array<char, 32> group{};
    if (EVP_PKEY_is_a(&key, "EC") != 1 ||
        EVP_PKEY_get_group_name(&key, group.data(), group.size(), nullptr) != 1 ||
        group.data() != kCurve) {
        return {};
    }
    std::array<std::uint8_t, kP256PointBytes> point{};
    std::size_t size = 0;
    if (EVP_PKEY_get_octet_string_param(&key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                        &size) != 1 ||
        size != point.size()) {
        ForgetOpenSslErrors();
        return {};
    }
    return EncodeP256Point({point.begin(), point.end()});
}

ByteVector EncodeP256Point(const ByteVector& point) {
    if (point.size() != kP256PointBytes || point.front() != kUncompressed) {
        return {};
    }
    ByteVector der;
    der.reserve(kPublicKeyStart.size() + point.size());
    der.insert(der.end(), kPublicKeyStart.begin(), kPublicKeyStart.end());
    der.insert(der.end(), point.begin(), point.end());
    return der;
}

ByteVector P256Point(const ByteVector& der) {
    if (der.size() != kPublicKeyStart.size() + kP256PointBytes || !HasAt(der, 0, kPublicKeyStart)) {
        return {};
    }
    return {der.begin() + static_cast<std::ptrdiff_t>(kPublicKeyStart.size()), der.end()};
}

}  // namespace orv::sec::crypto
