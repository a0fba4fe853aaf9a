#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "custody/key_custody.h"
#include "store/certificate_table.h"
#include "store/entry_id.h"
#include "store/key_pair_table.h"
#include "store/sqlite_connection.h"

namespace orv::sec::crypto {

inline constexpr const char* kKoruStoreName = "KORU";

/// Numbers as they stand in the database.
enum class StoreKind : std::uint8_t { kTrustStore = 1, kKoruStore = 2 };

struct ListedEntry {
    EntryId entry;
    bool isKeyPair;
    /// As stored; empty for a key pair without a chain.
    common::ByteVector certificates;
    /// As stored; empty for a certificate.
    common::ByteVector publicKey;
};

/// The secure store of the unit: one SQLite file, and the custody of its private keys, which
/// "store.json" beside it selects.
///
/// Every operation is one transaction, durable when the operation returns. The journal is a
/// rollback journal in TRUNCATE mode: with synchronous=FULL it is synced after its truncation, so
/// that a commit outlasts a loss of power, and between transactions neither the journal nor, with
/// secure_delete, the file holds anything that was deleted. A write-ahead log would keep old pages
/// until the next checkpoint, and the speed that it buys does not matter here.
///
/// Any thread may call any operation. All throw `CryptoError`, once closed with `kInvalidState`.
class StoreDatabase {
public:
    enum class OpenMode : std::uint8_t {
        /// There must be a store already. A TPM or token is not contacted before a key is needed.
        kExisting,
        /// An empty store is made where the directory has none. For the holder of the store's lock,
        /// as the next one.
        kCreate,
        /// As above, but fails where the custody has evidence of a store that was lost: an empty
        /// one in its place would hide the loss.
        kCreateUnlessLost,
        /// A copy in memory of an existing store at this moment. The files stay as they are and
        /// need not be writable. Changes are lost with the copy, so it takes certificates and
        /// stores, but no change of a key pair: `kStorageError`, before any key is touched.
        kCopy,
    };

    StoreDatabase(const std::string& directory, OpenMode mode);

    void Close();

    /// Throws `kInvalidState` when the store is closed.
    void CheckOpen() const;
    bool IsCopy() const { return mIsCopy; }

    /// False when what key pairs need was never created.
    bool HasCustody() const;
    /// Creates it unless it exists. The caller holds the store's lock.
    void MakeCustody();
    /// Loads it, as opening the store for writing does.
    void LoadCustody();

    void CreateStore(const std::string& name, StoreKind kind);
    bool HasStore(const std::string& name, StoreKind kind) const;

    bool HasKeyPair(const EntryId& entry) const;
    /// Makes a key pair; `kAlreadyExists` when there is one.
    void GenerateKeyPair(const EntryId& entry);
    /// Puts a key pair with its chain in the place of what is there.
    void ReplaceKeyPair(const EntryId& entry, EVP_PKEY& key, const common::ByteVector& chain);
    void MoveKeyPair(const EntryId& source, const EntryId& destination);
    /// Fails, and keeps the row, when the private key is unavailable and so cannot be deleted.
    void DeleteKeyPair(const EntryId& entry);
    PkeyPtr LoadPrivateKey(const EntryId& entry) const;

    /// `kIntegrityError` for certificates that do not parse any more, here and below.
    common::ByteVector LoadChain(const EntryId& entry) const;
    /// Attaches a chain that belongs to the key pair; `kKeyMismatch` when it does not. The private
    /// key must open, so that a pair with a chain is one that can take the accepted pair's place.
    void StoreChain(const EntryId& entry, const common::ByteVector& chain);

    common::ByteVector LoadCertificate(const EntryId& entry) const;
    /// Writes nothing when these bytes are there already.
    void StoreCertificate(const EntryId& entry, const common::ByteVector& certificates);
    void DeleteCertificate(const EntryId& entry);

    /// The public key of the key pair or else of the certificate of this id.
    PkeyPtr LoadPublicKey(const EntryId& entry) const;

    /// Ordered by store, key pairs before certificates, id.
    std::vector<ListedEntry> List() const;

private:
    // What an open store has.
    struct Contents {
        Contents(std::unique_ptr<SqliteConnection> opened, std::unique_ptr<KeyCustody> keyCustody);

        const std::unique_ptr<KeyCustody> custody;
        const std::unique_ptr<SqliteConnection> connection;
        KeyPairTable keyPairs;
        CertificateTable certificates;
    };

    void OpenCustody(OpenMode mode);
    Contents& Opened() const;
    KeyPairTable& KeyPairsToChange() const;

    const std::string mDirectory;
    const bool mIsCopy;
    mutable std::mutex mMutex;
    // Null once the store is closed.
    std::unique_ptr<Contents> mContents;
};

}  // namespace orv::sec::crypto
