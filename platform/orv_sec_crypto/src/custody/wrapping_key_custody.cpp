#include "custody/wrapping_key_custody.h"

#include <utility>

#include "errors/crypto_error.h"
#include "files/protected_file.h"
#include "keys/ec_key.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

WrappingKeyCustody::WrappingKeyCustody(WrappingKeyPlace place) : mPlace(std::move(place)) {}

std::string WrappingKeyCustody::TraceOfStore() const {
    return FileExists(mPlace.path) ? "wrapping key" : "";
}

void WrappingKeyCustody::Make() {
    RemoveProtectedLeftover(mPlace.path);
    if (mKey == nullptr) {
        mKey = WrappingKey::Load(mPlace);
    }
    if (mKey == nullptr) {
        WrappingKey::Create(mPlace);
        mKey = WrappingKey::Load(mPlace);
    }
}

void WrappingKeyCustody::Load(bool holdsKeys) {
    mKey = WrappingKey::Load(mPlace);
    if (mKey == nullptr && holdsKeys) {
        throw CryptoError(
            CryptoResultCode::kStorageError,
            mPlace.path + ": key file is not there, the keys in the store can't be read");
    }
}

const WrappingKey& WrappingKeyCustody::RequireKey() {
    if (mKey == nullptr) {
        mKey = WrappingKey::Load(mPlace);
    }
    if (mKey == nullptr) {
        throw CryptoError(CryptoResultCode::kStorageError, mPlace.path + ": key file is not there");
    }
    return *mKey;
}

ByteVector WrappingKeyCustody::Wrap(const std::string& row, const EVP_PKEY& key) {
    return RequireKey().Wrap(EncodePrivateKey(key), row);
}

StoredKey WrappingKeyCustody::Generate(const std::string& row) {
    return Adopt(row, *GenerateKey());
}

StoredKey WrappingKeyCustody::Adopt(const std::string& row, EVP_PKEY& key) {
    return {EncodePublicKey(key), Wrap(row, key)};
}

PkeyPtr WrappingKeyCustody::Open(const std::string& row, const StoredKey& stored) {
    PkeyPtr key = DecodePrivateKey(RequireKey().Unwrap(stored.blob, row));
    if (EncodePublicKey(*key) != stored.publicKey) {
        throw CryptoError(CryptoResultCode::kIntegrityError, "does not belong to its public key");
    }
    return key;
}

ByteVector WrappingKeyCustody::Rebind(const StoredKey& stored, const std::string& row,
                                      const std::string& newRow) {
    return Wrap(newRow, *Open(row, stored));
}

void WrappingKeyCustody::Forget(const ByteVector&) {
    // The blob held the whole key, and its row is deleted.
}

void WrappingKeyCustody::Sweep(const std::vector<ByteVector>&) {
    // This custody keeps nothing outside the rows.
}

}  // namespace orv::sec::crypto
