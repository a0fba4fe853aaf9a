#include "store/key_pair_table.h"

#include <utility>

#include "errors/crypto_error.h"
#include "keys/ec_key.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

// Says in the message of a failure which key it was.
template <typename Work>
auto NamingTheKey(const EntryId& entry, Work work) {
    try {
        return work();
    } catch (const CryptoError& error) {
        throw CryptoError(error.Code(), "private key " + Describe(entry) + ": " + error.what());
    }
}

}  // namespace

KeyPairTable::KeyPairTable(SqliteConnection& connection, KeyCustody& custody)
    : mConnection(connection),
      mCustody(custody),
      mChains(connection, "SELECT certificates FROM key_pair WHERE store = ?1 AND id = ?2") {}

bool KeyPairTable::Has(const EntryId& entry) const {
    return SqliteStatement(mConnection, "SELECT 1 FROM key_pair WHERE store = ?1 AND id = ?2")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Step();
}

// A write of which only the last sync failed has taken effect, so the failure alone proves nothing.
bool KeyPairTable::CertainlyLacks(const EntryId& entry, const ByteVector& blob) const {
    try {
        const auto stored = Find(entry);
        return !stored || stored->blob != blob;
    } catch (const CryptoError&) {
        return false;
    }
}

// A key without a row is deleted. Where it is unknown whether there is a row, the next start
// decides.
template <typename Work>
void KeyPairTable::ForgetOnFailure(const EntryId& entry, const StoredKey& made, Work work) {
    try {
        work();
    } catch (const CryptoError&) {
        if (CertainlyLacks(entry, made.blob)) {
            mCustody.Forget(made.blob);
        }
        throw;
    }
}

void KeyPairTable::Generate(const EntryId& entry) {
    if (Find(entry)) {
        throw CryptoError(CryptoResultCode::kAlreadyExists,
                          "there is a key pair " + Describe(entry));
    }
    const StoredKey made = mCustody.Generate(RowName(entry));
    ForgetOnFailure(entry, made, [&] {
        SqliteStatement(mConnection,
                        "INSERT INTO key_pair (store, id, public_key, wrapped_private_key) "
                        "VALUES (?1, ?2, ?3, ?4)")
            .Bind(1, entry.store)
            .Bind(2, entry.id)
            .Bind(3, made.publicKey)
            .Bind(4, made.blob)
            .Step();
    });
}

void KeyPairTable::Replace(const EntryId& entry, EVP_PKEY& key, const ByteVector& chain) {
    const auto replaced = Find(entry);
    const StoredKey adopted = mCustody.Adopt(RowName(entry), key);
    ForgetOnFailure(entry, adopted, [&] {
        SqliteStatement(mConnection,
                        "INSERT INTO key_pair (store, id, public_key, wrapped_private_key, "
                        "certificates) VALUES (?1, ?2, ?3, ?4, ?5) "
                        "ON CONFLICT (store, id) DO UPDATE SET public_key = excluded.public_key, "
                        "wrapped_private_key = excluded.wrapped_private_key, "
                        "certificates = excluded.certificates")
            .Bind(1, entry.store)
            .Bind(2, entry.id)
            .Bind(3, adopted.publicKey)
            .Bind(4, adopted.blob)
            .Bind(5, chain)
            .Step();
    });
    if (replaced) {
        mCustody.Forget(replaced->blob);
    }
}

void KeyPairTable::Move(const EntryId& source, const EntryId& destination) {
    SqliteTransaction transaction(mConnection);
    const StoredKey stored = Require(source);
    const ByteVector blob = NamingTheKey(
        source, [&] { return mCustody.Rebind(stored, RowName(source), RowName(destination)); });
    if (source.store == destination.store && source.id == destination.id) {
        throw CryptoError(CryptoResultCode::kAlreadyExists, "source and destination are the same");
    }
    SqliteStatement(mConnection,
                    "UPDATE key_pair SET store = ?3, id = ?4, wrapped_private_key = ?5 "
                    "WHERE store = ?1 AND id = ?2")
        .Bind(1, source.store)
        .Bind(2, source.id)
        .Bind(3, destination.store)
        .Bind(4, destination.id)
        .Bind(5, blob)
        .Step();
    transaction.Commit();
}

void KeyPairTable::Delete(const EntryId& entry) {
    const StoredKey stored = Require(entry);
    NamingTheKey(entry, [&] { mCustody.CheckDroppable(); });
    SqliteStatement(mConnection, "DELETE FROM key_pair WHERE store = ?1 AND id = ?2")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Step();
    if (mConnection.Changes() == 0) {
        throw NotFound("entry", entry);
    }
    mCustody.Forget(stored.blob);
}

std::optional<StoredKey> KeyPairTable::Find(const EntryId& entry) const {
    SqliteStatement statement(mConnection,
                              "SELECT public_key, wrapped_private_key FROM key_pair "
                              "WHERE store = ?1 AND id = ?2");
    if (!statement.Bind(1, entry.store).Bind(2, entry.id).Step()) {
        return std::nullopt;
    }
    return StoredKey{statement.Blob(0), statement.Blob(1)};
}

StoredKey KeyPairTable::Require(const EntryId& entry) const {
    auto stored = Find(entry);
    if (!stored) {
        throw NotFound("key pair", entry);
    }
    return std::move(*stored);
}

PkeyPtr KeyPairTable::OpenPrivateKey(const EntryId& entry) const {
    const StoredKey stored = Require(entry);
    return NamingTheKey(entry, [&] { return mCustody.Open(RowName(entry), stored); });
}

PkeyPtr KeyPairTable::FindPublicKey(const EntryId& entry) const {
    SqliteStatement statement(mConnection,
                              "SELECT public_key FROM key_pair WHERE store = ?1 AND id = ?2");
    if (!statement.Bind(1, entry.store).Bind(2, entry.id).Step()) {
        return nullptr;
    }
    return DecodePublicKey(statement.Blob(0));
}

std::vector<ByteVector> KeyPairTable::PrivateKeyBlobs() const {
    SqliteStatement statement(mConnection, "SELECT wrapped_private_key FROM key_pair");
    std::vector<ByteVector> blobs;
    while (statement.Step()) {
        blobs.push_back(statement.Blob(0));
    }
    return blobs;
}

void KeyPairTable::StoreChain(const EntryId& entry, const X509& first, const ByteVector& chain) {
    const EVP_PKEY* certified = X509_get0_pubkey(&first);
    SqliteTransaction transaction(mConnection);
    const PkeyPtr key = OpenPrivateKey(entry);
    if (certified == nullptr || !SameKey(*certified, *key)) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kKeyMismatch,
                          "the first certificate is not one of the key pair " + Describe(entry));
    }
    SqliteStatement(mConnection,
                    "UPDATE key_pair SET certificates = ?3 WHERE store = ?1 AND id = ?2")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Bind(3, chain)
        .Step();
    transaction.Commit();
}

}  // namespace orv::sec::crypto
