#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

#include "orv_sec_crypto/key_storage.h"

namespace orv::sec::crypto {

using openssl_support::PkeyPtr;

/// What the database stores of a key pair.
struct StoredKey {
    /// SubjectPublicKeyInfo in DER.
    common::ByteVector publicKey;
    /// What the custody restores the private key from; never a plain key. The first byte is a
    /// version that is different for each kind of custody.
    common::ByteVector blob;
};

/// Holds the private keys of a store, or what protects them. The database keeps the blobs that come
/// from here and knows nothing about them.
///
/// Calls are serialised by the caller; the keys that `Open` gives may be used by any thread. Those
/// that are in a token fail once their custody is destroyed. All failures are `CryptoError`:
/// `kStorageError` when the keys are unavailable, `kIntegrityError` when one of them does not match
/// its record.
class KeyCustody {
public:
    KeyCustody() = default;
    virtual ~KeyCustody() = default;
    KeyCustody(const KeyCustody&) = delete;
    KeyCustody& operator=(const KeyCustody&) = delete;

    /// Evidence outside the database that the store was made once, as a noun for a message; empty
    /// when there is none.
    virtual std::string TraceOfStore() const = 0;

    /// Creates what key pairs need unless it exists. The caller holds the store's lock.
    virtual void Make() = 0;

    /// Whether `Load` needs nothing but the store's own files.
    virtual bool IsLocal() const = 0;
    /// Loads what the keys need, or connects to it; that it was never created is a failure only
    /// where the store `holdsKeys`. Without this call the first operation does so.
    virtual void Load(bool holdsKeys) = 0;
    virtual bool IsLoaded() const = 0;

    /// Makes a P-256 key pair for the row `row`.
    virtual StoredKey Generate(const std::string& row) = 0;
    /// Imports a P-256 key that was made elsewhere.
    virtual StoredKey Adopt(const std::string& row, EVP_PKEY& key) = 0;

    /// The private key, for signing; it belongs to the public key beside it.
    virtual PkeyPtr Open(const std::string& row, const StoredKey& stored) = 0;

    /// The blob of the same key for another row; the key must open.
    virtual common::ByteVector Rebind(const StoredKey& stored, const std::string& row,
                                      const std::string& newRow) = 0;

    /// Throws when no key pair could be deleted now because the keys are unavailable.
    virtual void CheckDroppable() = 0;
    /// Deletes a key pair that no row refers to any more. What cannot be deleted now is left to
    /// `Sweep`.
    virtual void Forget(const common::ByteVector& blob) = 0;

    /// Deletes what crashes have left: every key that none of the store's blobs refers to. Deletes
    /// nothing if a key that one of them refers to is missing: the keys then belong to another
    /// state of the store. The caller holds the store's lock.
    virtual void Sweep(const std::vector<common::ByteVector>& blobs) = 0;
};

/// The custody of the store in `directory`.
std::unique_ptr<KeyCustody> MakeKeyCustody(const std::string& directory,
                                           const host::KeyStorage& storage);

}  // namespace orv::sec::crypto
