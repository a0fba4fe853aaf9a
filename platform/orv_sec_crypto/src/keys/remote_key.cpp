#include "keys/remote_key.h"

#include <optional>
#include <utility>

#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include "errors/crypto_log.h"
#include "keys/p256_encoding.h"

namespace orv::sec::crypto {

using openssl_support::OpenSslPtr;

using common::ByteVector;

namespace {

using EcKeyPtr = OpenSslPtr<EC_KEY, EC_KEY_free>;
using EcdsaSignaturePtr = OpenSslPtr<ECDSA_SIG, ECDSA_SIG_free>;
using NumberPtr = OpenSslPtr<BIGNUM, BN_free>;
using SignerHolder = std::shared_ptr<RemoteSigner>;

constexpr int kNumberBytes = kP256NumberBytes;

void FreeSigner(void*, void* holder, CRYPTO_EX_DATA*, int, long, void*) {
    delete static_cast<SignerHolder*>(holder);
}

int CopySigner(CRYPTO_EX_DATA*, const CRYPTO_EX_DATA*, void** holder, int, long, void*) {
    if (*holder != nullptr) {
        *holder = new SignerHolder(*static_cast<SignerHolder*>(*holder));
    }
    return 1;
}

int SignerIndex() {
    static const int index = EC_KEY_get_ex_new_index(0, nullptr, nullptr, CopySigner, FreeSigner);
    return index;
}

EcdsaSignaturePtr ToSignature(const ByteVector& numbers) {
    if (numbers.size() != 2 * kP256NumberBytes) {
        return nullptr;
    }
    EcdsaSignaturePtr signature(ECDSA_SIG_new());
    NumberPtr r(BN_bin2bn(numbers.data(), kNumberBytes, nullptr));
    NumberPtr s(BN_bin2bn(numbers.data() + kNumberBytes, kNumberBytes, nullptr));
    if (signature == nullptr || r == nullptr || s == nullptr ||
        ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) {
        return nullptr;
    }
    // The signature owns both numbers now.
    static_cast<void>(r.release());
    static_cast<void>(s.release());
    return signature;
}

// Why the last signature on this thread has failed, which OpenSSL does not report.
thread_local std::optional<CryptoError> tFailure;

// No exception may pass through OpenSSL.
ECDSA_SIG* SignToNumbers(const unsigned char* digest, int size, const BIGNUM*, const BIGNUM*,
                         EC_KEY* key) {
    tFailure.reset();
    const auto* signer = static_cast<SignerHolder*>(EC_KEY_get_ex_data(key, SignerIndex()));
    if (signer == nullptr || size <= 0) {
        return nullptr;
    }
    try {
        return ToSignature((*signer)->SignDigest(digest, static_cast<std::size_t>(size))).release();
    } catch (const CryptoError& error) {
        tFailure = error;
        Log().Error(error.what());
    } catch (const std::exception& error) {
        Log().Error(error.what());
    }
    return nullptr;
}

int SignToDer(int, const unsigned char* digest, int size, unsigned char* output,
              unsigned int* outputSize, const BIGNUM* kInverse, const BIGNUM* r, EC_KEY* key) {
    const EcdsaSignaturePtr signature(SignToNumbers(digest, size, kInverse, r, key));
    const int length = signature == nullptr ? -1 : i2d_ECDSA_SIG(signature.get(), &output);
    if (length <= 0) {
        return 0;
    }
    *outputSize = static_cast<unsigned int>(length);
    return 1;
}

const EC_KEY_METHOD* RemoteMethod() {
    static const EC_KEY_METHOD* const method = [] {
        EC_KEY_METHOD* made = EC_KEY_METHOD_new(EC_KEY_OpenSSL());
        if (made != nullptr) {
            EC_KEY_METHOD_set_sign(made, SignToDer, nullptr, SignToNumbers);
        }
        return made;
    }();
    return method;
}

}  // namespace

CryptoError SigningError(const std::string& what) {
    const CryptoError general = OpenSslError(what);
    const std::optional<CryptoError> failure = std::exchange(tFailure, std::nullopt);
    return failure ? CryptoError(failure->Code(), what + ": " + failure->what()) : general;
}

PkeyPtr MakeRemoteKey(const ByteVector& publicKey, std::shared_ptr<RemoteSigner> signer) {
    const ByteVector point = P256Point(publicKey);
    EcKeyPtr key(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1));
    if (point.empty() || key == nullptr || RemoteMethod() == nullptr ||
        EC_KEY_oct2key(key.get(), point.data(), point.size(), nullptr) != 1 ||
        EC_KEY_set_method(key.get(), RemoteMethod()) != 1) {
        throw OpenSslError("no key for what is signed elsewhere");
    }
    auto holder = std::make_unique<SignerHolder>(std::move(signer));
    if (EC_KEY_set_ex_data(key.get(), SignerIndex(), holder.get()) != 1) {
        throw OpenSslError("no key for what is signed elsewhere");
    }
    static_cast<void>(holder.release());
    PkeyPtr wrapped(EVP_PKEY_new());
    if (wrapped == nullptr || EVP_PKEY_assign_EC_KEY(wrapped.get(), key.get()) != 1) {
        throw OpenSslError("no key for what is signed elsewhere");
    }
    static_cast<void>(key.release());
    return wrapped;
}

}  // namespace orv::sec::crypto
