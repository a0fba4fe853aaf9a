#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "orv_sec_crypto/key_storage.h"

namespace orv::sec::crypto {

using openssl_support::PkeyPtr;

/// What the database has of a key pair.
struct StoredKey {
    /// SubjectPublicKeyInfo in DER.
    common::ByteVector publicKey;
    /// Whatever brings the private key back; never one in the clear. The first byte tells its
    /// version, and so what kind of custody it is one of.
    common::ByteVector blob;
};

/// Holds the private keys of a store, or what protects them. The database keeps the blobs that come
/// from here and knows nothing about them.
///
/// Calls are serialised by the caller; the keys that `Open` gives may be used by any thread. Those
/// that are in a token fail once their custody is gone. All failures are `CryptoError`:
/// `kStorageError` where the keys can't be reached, `kIntegrityError` where one of them is not what
/// it should be.
class KeyCustody {
public:
    KeyCustody() = default;
    virtual ~KeyCustody() = default;
    KeyCustody(const KeyCustody&) = delete;
    KeyCustody& operator=(const KeyCustody&) = delete;

    /// What tells, other than the database, that the store was made once; empty when nothing does.
    virtual std::string TraceOfStore() const = 0;

    /// Makes what key pairs need unless it is there. For the holder of the store's lock.
    virtual void Make() = 0;

    /// Whether `Load` needs nothing but the store's own files.
    virtual bool IsLocal() const = 0;
    /// Reaches for what the keys need; if it was never made, that is a failure where the store
    /// `holdsKeys`. Without this call the first operation reaches for it.
    virtual void Load(bool holdsKeys) = 0;
    virtual bool IsLoaded() const = 0;

    /// Makes a P-256 key pair for the row `row`.
    virtual StoredKey Generate(const std::string& row) = 0;
    /// Takes over a P-256 key that was made elsewhere.
    virtual StoredKey Adopt(const std::string& row, EVP_PKEY& key) = 0;

    /// The private key, for signing; it belongs to the public key beside it.
    virtual PkeyPtr Open(const std::string& row, const StoredKey& stored) = 0;

    /// The blob of the same key for another row; the key must open.
    virtual common::ByteVector Rebind(const StoredKey& stored, const std::string& row,
                                      const std::string& newRow) = 0;

    /// Throws where a key pair could not be dropped now because it can't be reached.
    virtual void CheckDroppable() = 0;
    /// Drops a key pair that no row has any more. What can't be dropped now is left to `Sweep`.
    virtual void Forget(const common::ByteVector& blob) = 0;

    /// Drops what crashes have left: everything that is in none of the store's blobs. Nothing if
    /// what one of them refers to is missing: the keys then belong to another state of the store.
    /// For the holder of the store's lock.
    virtual void Sweep(const std::vector<common::ByteVector>& blobs) = 0;
};

/// The custody of the store in `directory`.
std::unique_ptr<KeyCustody> MakeKeyCustody(const std::string& directory,
                                           const host::KeyStorage& storage);

}  // namespace orv::sec::crypto
