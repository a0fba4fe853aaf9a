#include "custody/token_custody.h"

#include <algorithm>
#include <set>
#include <utility>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/rand.h>

#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "keys/ec_key.h"
#include "keys/p256_encoding.h"
#include "keys/remote_key.h"

namespace orv::sec::crypto {

using openssl_support::OpenSslPtr;

using common::ByteVector;
using common::CryptoResultCode;
using KeyId = Pkcs11Token::KeyId;

namespace {

constexpr std::uint8_t kBlobVersion = 2;

/// One key of a token.
class TokenSigner final : public RemoteSigner {
public:
    TokenSigner(std::shared_ptr<Pkcs11Token> token, const KeyId& id)
        : mToken(std::move(token)), mId(id) {}

    ByteVector SignDigest(const std::uint8_t* digest, std::size_t size) override {
        return mToken->SignDigest(mId, digest, size);
    }

private:
    const std::shared_ptr<Pkcs11Token> mToken;
    const KeyId mId;
};

host::TokenKeyStorage WithAbsolutePinFile(const std::string& directory,
                                          host::TokenKeyStorage settings) {
    if (settings.pinFile.front() != '/') {
        settings.pinFile = directory + "/" + settings.pinFile;
    }
    return settings;
}

KeyId NewId() {
    KeyId id{};
    if (RAND_bytes(id.data(), static_cast<int>(id.size())) != 1) {
        throw OpenSslError("no random numbers for the id of a key");
    }
    return id;
}

ByteVector ToBlob(const KeyId& id) {
    ByteVector blob{kBlobVersion};
    blob.insert(blob.end(), id.begin(), id.end());
    return blob;
}

KeyId ToId(const ByteVector& blob) {
    KeyId id{};
    if (blob.size() != 1 + id.size() || blob[0] != kBlobVersion) {
        throw CryptoError(CryptoResultCode::kIntegrityError, "is not in a token");
    }
    std::copy(blob.begin() + 1, blob.end(), id.begin());
    return id;
}

ByteVector PrivateScalar(const EVP_PKEY& key) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(&key, OSSL_PKEY_PARAM_PRIV_KEY, &number) != 1) {
        throw OpenSslError("cannot read a private key");
    }
    const OpenSslPtr<BIGNUM, BN_clear_free> owner(number);
    ByteVector scalar(kP256NumberBytes);
    const int size = static_cast<int>(scalar.size());
    if (BN_bn2binpad(number, scalar.data(), size) != size) {
        throw OpenSslError("cannot read a private key");
    }
    return scalar;
}

}  // namespace

TokenCustody::TokenCustody(const std::string& directory, host::TokenKeyStorage settings)
    : mToken(std::make_shared<Pkcs11Token>(WithAbsolutePinFile(directory, std::move(settings)))) {}

TokenCustody::~TokenCustody() {
    mToken->Close();
}

std::string TokenCustody::TraceOfStore() const {
    return "configuration for a token";
}

void TokenCustody::Make() {
    mToken->CheckUsable();
}

void TokenCustody::Load(bool) {
    mToken->CheckUsable();
}

StoredKey TokenCustody::Generate(const std::string&) {
    const KeyId id = NewId();
    ByteVector publicKey = EncodeP256Point(mToken->GenerateKeyPair(id));
    if (publicKey.empty()) {
        Forget(ToBlob(id));
        throw CryptoError(CryptoResultCode::kFailure, "the token made no P-256 key");
    }
    return {std::move(publicKey), ToBlob(id)};
}

StoredKey TokenCustody::Adopt(const std::string&, EVP_PKEY& key) {
    const KeyId id = NewId();
    ByteVector publicKey = EncodePublicKey(key);
    mToken->ImportKeyPair(id, PrivateScalar(key), P256Point(publicKey));
    return {std::move(publicKey), ToBlob(id)};
}

PkeyPtr TokenCustody::Open(const std::string&, const StoredKey& stored) {
    const KeyId id = ToId(stored.blob);
    if (EncodeP256Point(mToken->LoadPoint(id)) != stored.publicKey) {
        throw CryptoError(CryptoResultCode::kIntegrityError, "does not belong to its public key");
    }
    return MakeRemoteKey(stored.publicKey, std::make_shared<TokenSigner>(mToken, id));
}

ByteVector TokenCustody::Rebind(const StoredKey& stored, const std::string& row,
                                const std::string&) {
    Open(row, stored);
    return stored.blob;
}

void TokenCustody::CheckDroppable() {
    mToken->CheckUsable();
}

void TokenCustody::Forget(const ByteVector& blob) {
    try {
        mToken->Destroy(ToId(blob));
    } catch (const CryptoError& error) {
        Log().Warn(std::string("a key pair without a row stays in the token: ") + error.what());
    }
}

void TokenCustody::Sweep(const std::vector<ByteVector>& blobs) {
    // A store without keys may replace a lost one, whose keys may still be needed.
    if (blobs.empty()) {
        return;
    }
    std::set<ByteVector> keys;
    for (const KeyId& id : mToken->List()) {
        keys.insert(ToBlob(id));
    }
    const std::set<ByteVector> wanted(blobs.begin(), blobs.end());
    // Every row has a key, so this is not the database that the token's keys were made for.
    if (!std::includes(keys.begin(), keys.end(), wanted.begin(), wanted.end())) {
        Log().Warn("the token lacks keys of this store, an old or copied one? None is destroyed");
        return;
    }
    for (const ByteVector& key : keys) {
        if (wanted.count(key) == 0) {
            Log().Info("destroying a key pair that an interrupted operation has left in the token");
            Forget(key);
        }
    }
}

}  // namespace orv::sec::crypto
