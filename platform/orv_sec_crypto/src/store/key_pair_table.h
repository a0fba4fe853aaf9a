#pragma once

#include <optional>
#include <vector>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

#include "custody/key_custody.h"
#include "store/certificate_column.h"
#include "store/entry_id.h"
#include "store/sqlite_connection.h"

namespace orv::sec::crypto {

/// The key pairs, each with an optional certificate chain, and what the custody needs to keep of
/// their private keys. Not thread safe; all failures are `CryptoError`.
class KeyPairTable {
public:
    KeyPairTable(SqliteConnection& connection, KeyCustody& custody);

    bool Has(const EntryId& entry) const;
    /// Makes a key pair; `kAlreadyExists` when there is one.
    void Generate(const EntryId& entry);
    /// Puts a key pair with its chain in the place of what is there.
    void Replace(const EntryId& entry, EVP_PKEY& key, const common::ByteVector& chain);
    void Move(const EntryId& source, const EntryId& destination);
    /// Fails, and keeps the row, when the private key is unavailable and so cannot be deleted.
    void Delete(const EntryId& entry);

    PkeyPtr OpenPrivateKey(const EntryId& entry) const;
    /// Null when there is no such pair.
    PkeyPtr FindPublicKey(const EntryId& entry) const;
    /// The blobs of all private keys.
    std::vector<common::ByteVector> PrivateKeyBlobs() const;

    /// `kIntegrityError` for certificates that do not parse any more.
    common::ByteVector LoadChain(const EntryId& entry) { return mChains.Load(entry); }
    /// Attaches a chain, whose first certificate is `first`; `kKeyMismatch` when that belongs to
    /// another key. The private key must open, so that a pair with a chain is one that can take the
    /// accepted pair's place.
    void StoreChain(const EntryId& entry, const X509& first, const common::ByteVector& chain);

private:
    template <typename Work>
    void ForgetOnFailure(const EntryId& entry, const StoredKey& made, Work work);
    bool CertainlyLacks(const EntryId& entry, const common::ByteVector& blob) const;
    std::optional<StoredKey> Find(const EntryId& entry) const;
    StoredKey Require(const EntryId& entry) const;

    SqliteConnection& mConnection;
    KeyCustody& mCustody;
    CertificateColumn mChains;
};

}  // namespace orv::sec::crypto
