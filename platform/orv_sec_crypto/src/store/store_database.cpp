#include "store/store_database.h"

#include <utility>

#include "custody/key_storage_file.h"
#include "errors/crypto_error.h"
#include "files/protected_file.h"
#include "keys/ec_key.h"
#include "store/database_file.h"
#include "store/database_schema.h"
#include "x509/certificate_parser.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr const char* kSelectCertificate =
    "SELECT certificates FROM certificate WHERE store = ?1 AND id = ?2";

// Whether the store's lock is held meanwhile.
bool IsForWriters(StoreDatabase::OpenMode mode) {
    return mode == StoreDatabase::OpenMode::kCreate ||
           mode == StoreDatabase::OpenMode::kCreateUnlessLost;
}

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

StoreDatabase::StoreDatabase(const std::string& directory, OpenMode mode)
    : mDirectory(directory),
      mIsCopy(mode == OpenMode::kCopy),
      mCustody(
          MakeKeyCustody(directory, LoadKeyStorage(directory).value_or(host::FileKeyStorage{}))) {
    const bool mayBeLost = mode == OpenMode::kCreateUnlessLost || mIsCopy;
    const std::string trace = mayBeLost ? mCustody->TraceOfStore() : std::string();
    if (!trace.empty() && !FileExists(DatabasePath(mDirectory))) {
        throw LostStore(mDirectory, trace);
    }
    if (IsForWriters(mode)) {
        // First of all: a file of ours would shut out the directory's owner.
        CheckDirectory(mDirectory);
        CreateDatabaseFile(mDirectory);
    }
    CheckDatabaseFile(mDirectory);
    CheckDirectory(mDirectory);
    mConnection = mIsCopy ? ConnectToCopy(mDirectory, trace) : ConnectToDatabase(mDirectory, trace);
    OpenCustody(mode);
}

std::vector<ByteVector> StoreDatabase::PrivateKeyBlobs() const {
    SqliteStatement statement(Connection(), "SELECT wrapped_private_key FROM key_pair");
    std::vector<ByteVector> blobs;
    while (statement.Step()) {
        blobs.push_back(statement.Blob(0));
    }
    return blobs;
}

void StoreDatabase::OpenCustody(OpenMode mode) {
    if (!IsForWriters(mode) && !mCustody->IsLocal()) {
        return;
    }
    const auto blobs = PrivateKeyBlobs();
    mCustody->Load(!blobs.empty());
    if (IsForWriters(mode)) {
        mCustody->Sweep(blobs);
    }
}

void StoreDatabase::Close() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mConnection.reset();
    mCustody.reset();
}

void StoreDatabase::CheckOpen() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    Connection();
}

SqliteConnection& StoreDatabase::Connection() const {
    if (mConnection == nullptr) {
        throw CryptoError(CryptoResultCode::kInvalidState, "the library is not open");
    }
    return *mConnection;
}

bool StoreDatabase::HasCustody() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mCustody != nullptr && mCustody->IsLoaded();
}

void StoreDatabase::MakeCustody() {
    const std::lock_guard<std::mutex> lock(mMutex);
    Connection();
    mCustody->Make();
}

void StoreDatabase::LoadCustody() {
    const std::lock_guard<std::mutex> lock(mMutex);
    const bool holdsKeys = !PrivateKeyBlobs().empty();
    mCustody->Load(holdsKeys);
}

void StoreDatabase::CreateStore(const std::string& name, StoreKind kind) {
    CheckId(name);
    const std::lock_guard<std::mutex> lock(mMutex);
    SqliteStatement(Connection(), "INSERT INTO store (name, kind) VALUES (?1, ?2)")
        .Bind(1, name)
        .Bind(2, static_cast<std::int64_t>(kind))
        .Step();
}

bool StoreDatabase::HasStore(const std::string& name, StoreKind kind) const {
    CheckId(name);
    const std::lock_guard<std::mutex> lock(mMutex);
    return SqliteStatement(Connection(), "SELECT 1 FROM store WHERE name = ?1 AND kind = ?2")
        .Bind(1, name)
        .Bind(2, static_cast<std::int64_t>(kind))
        .Step();
}

bool StoreDatabase::HasRow(const char* sql, const EntryId& entry) const {
    return SqliteStatement(Connection(), sql).Bind(1, entry.store).Bind(2, entry.id).Step();
}

bool StoreDatabase::HasKeyPair(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return HasRow("SELECT 1 FROM key_pair WHERE store = ?1 AND id = ?2", entry);
}

// A key pair made in a copy would be lost, and one deleted there would still be in the store.
void StoreDatabase::CheckKeyPairsMayChange() const {
    Connection();
    if (mIsCopy) {
        throw CryptoError(CryptoResultCode::kStorageError,
                          DatabasePath(mDirectory) + ": the store is open for reading only");
    }
}

// A write of which only the last sync failed has taken effect, so its failure alone does not tell.
bool StoreDatabase::CertainlyLacks(const EntryId& entry, const ByteVector& blob) const {
    try {
        const auto stored = FindStoredKey(entry);
        return !stored || stored->blob != blob;
    } catch (const CryptoError&) {
        return false;
    }
}

// A key that got no row is nobody's. Where that can't be told, it stays for the next start to find
// out.
template <typename Work>
void StoreDatabase::ForgetOnFailure(const EntryId& entry, const StoredKey& made, Work work) {
    try {
        work();
    } catch (const CryptoError&) {
        if (CertainlyLacks(entry, made.blob)) {
            mCustody->Forget(made.blob);
        }
        throw;
    }
}

void StoreDatabase::GenerateKeyPair(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    CheckKeyPairsMayChange();
    if (FindStoredKey(entry)) {
        throw CryptoError(CryptoResultCode::kAlreadyExists,
                          "there is a key pair " + Describe(entry));
    }
    const StoredKey made = mCustody->Generate(RowName(entry));
    ForgetOnFailure(entry, made, [&] {
        SqliteStatement(Connection(),
                        "INSERT INTO key_pair (store, id, public_key, wrapped_private_key) "
                        "VALUES (?1, ?2, ?3, ?4)")
            .Bind(1, entry.store)
            .Bind(2, entry.id)
            .Bind(3, made.publicKey)
            .Bind(4, made.blob)
            .Step();
    });
}

void StoreDatabase::ReplaceKeyPair(const EntryId& entry, EVP_PKEY& key, const ByteVector& chain) {
    const std::lock_guard<std::mutex> lock(mMutex);
    CheckKeyPairsMayChange();
    const auto replaced = FindStoredKey(entry);
    const StoredKey adopted = mCustody->Adopt(RowName(entry), key);
    ForgetOnFailure(entry, adopted, [&] {
        SqliteStatement(Connection(),
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
        mCustody->Forget(replaced->blob);
    }
}

void StoreDatabase::MoveKeyPair(const EntryId& source, const EntryId& destination) {
    const std::lock_guard<std::mutex> lock(mMutex);
    CheckKeyPairsMayChange();
    SqliteTransaction transaction(Connection());
    const StoredKey stored = RequireStoredKey(source);
    const ByteVector blob = NamingTheKey(
        source, [&] { return mCustody->Rebind(stored, RowName(source), RowName(destination)); });
    if (source.store == destination.store && source.id == destination.id) {
        throw CryptoError(CryptoResultCode::kAlreadyExists, "source and destination are the same");
    }
    SqliteStatement(Connection(),
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

void StoreDatabase::DeleteRow(const char* sql, const EntryId& entry) {
    SqliteStatement(Connection(), sql).Bind(1, entry.store).Bind(2, entry.id).Step();
    if (Connection().Changes() == 0) {
        throw NotFound("entry", entry);
    }
}

void StoreDatabase::DeleteKeyPair(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    CheckKeyPairsMayChange();
    const StoredKey stored = RequireStoredKey(entry);
    NamingTheKey(entry, [&] { mCustody->CheckDroppable(); });
    DeleteRow("DELETE FROM key_pair WHERE store = ?1 AND id = ?2", entry);
    mCustody->Forget(stored.blob);
}

void StoreDatabase::DeleteCertificate(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    DeleteRow("DELETE FROM certificate WHERE store = ?1 AND id = ?2", entry);
}

std::optional<StoredKey> StoreDatabase::FindStoredKey(const EntryId& entry) const {
    SqliteStatement statement(Connection(),
                              "SELECT public_key, wrapped_private_key FROM key_pair "
                              "WHERE store = ?1 AND id = ?2");
    if (!statement.Bind(1, entry.store).Bind(2, entry.id).Step()) {
        return std::nullopt;
    }
    return StoredKey{statement.Blob(0), statement.Blob(1)};
}

StoredKey StoreDatabase::RequireStoredKey(const EntryId& entry) const {
    auto stored = FindStoredKey(entry);
    if (!stored) {
        throw NotFound("key pair", entry);
    }
    return std::move(*stored);
}

PkeyPtr StoreDatabase::OpenPrivateKey(const EntryId& entry) const {
    const StoredKey stored = RequireStoredKey(entry);
    return NamingTheKey(entry, [&] { return mCustody->Open(RowName(entry), stored); });
}

PkeyPtr StoreDatabase::LoadPrivateKey(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return OpenPrivateKey(entry);
}

void StoreDatabase::CheckCertificates(const EntryId& entry, const ByteVector& certificates) const {
    ByteVector& checked = mChecked[RowName(entry)];
    if (checked == certificates) {
        return;
    }
    try {
        ParseCertificates(certificates);
    } catch (const CryptoError& error) {
        throw CryptoError(CryptoResultCode::kIntegrityError,
                          "stored certificates " + Describe(entry) + ": " + error.what());
    }
    checked = certificates;
}

ByteVector StoreDatabase::LoadCertificates(const char* sql, const EntryId& entry) const {
    SqliteStatement statement(Connection(), sql);
    if (!statement.Bind(1, entry.store).Bind(2, entry.id).Step() || statement.IsNull(0)) {
        throw NotFound("certificate", entry);
    }
    ByteVector certificates = statement.Blob(0);
    CheckCertificates(entry, certificates);
    return certificates;
}

ByteVector StoreDatabase::LoadChain(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return LoadCertificates("SELECT certificates FROM key_pair WHERE store = ?1 AND id = ?2",
                            entry);
}

ByteVector StoreDatabase::LoadCertificate(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return LoadCertificates(kSelectCertificate, entry);
}

void StoreDatabase::StoreChain(const EntryId& entry, const ByteVector& chain) {
    const auto certificates = ParseCertificates(chain);
    const EVP_PKEY* certified = X509_get0_pubkey(certificates.front().get());
    const std::lock_guard<std::mutex> lock(mMutex);
    CheckKeyPairsMayChange();
    SqliteTransaction transaction(Connection());
    const PkeyPtr key = OpenPrivateKey(entry);
    if (certified == nullptr || !SameKey(*certified, *key)) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kKeyMismatch,
                          "the first certificate is not one of the key pair " + Describe(entry));
    }
    SqliteStatement(Connection(),
                    "UPDATE key_pair SET certificates = ?3 WHERE store = ?1 AND id = ?2")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Bind(3, chain)
        .Step();
    transaction.Commit();
}

bool StoreDatabase::HoldsCertificate(const EntryId& entry, const ByteVector& certificates) const {
    SqliteStatement statement(Connection(), kSelectCertificate);
    return statement.Bind(1, entry.store).Bind(2, entry.id).Step() &&
           statement.Blob(0) == certificates;
}

void StoreDatabase::StoreCertificate(const EntryId& entry, const ByteVector& certificates) {
    ParseCertificates(certificates);
    const std::lock_guard<std::mutex> lock(mMutex);
    // Each judgement puts the same certificate into the scratch slot; it must wear no flash.
    if (HoldsCertificate(entry, certificates)) {
        return;
    }
    SqliteStatement(Connection(),
                    "INSERT INTO certificate (store, id, certificates) VALUES (?1, ?2, ?3) "
                    "ON CONFLICT (store, id) DO UPDATE SET certificates = excluded.certificates")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Bind(3, certificates)
        .Step();
}

PkeyPtr StoreDatabase::LoadPublicKey(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    SqliteStatement keyPair(Connection(),
                            "SELECT public_key FROM key_pair WHERE store = ?1 AND id = ?2");
    if (keyPair.Bind(1, entry.store).Bind(2, entry.id).Step()) {
        return DecodePublicKey(keyPair.Blob(0));
    }
    const auto certificates = ParseCertificates(LoadCertificates(kSelectCertificate, entry));
    PkeyPtr key(X509_get_pubkey(certificates.front().get()));
    if (key == nullptr) {
        ForgetOpenSslErrors();
        throw CryptoError(CryptoResultCode::kInvalidFormat,
                          "the public key of certificate " + Describe(entry) + " is invalid");
    }
    return key;
}

std::vector<ListedEntry> StoreDatabase::List() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    SqliteStatement statement(Connection(),
                              "SELECT store, id, 1 AS is_key, certificates, public_key "
                              "FROM key_pair "
                              "UNION ALL SELECT store, id, 0, certificates, NULL FROM certificate "
                              "ORDER BY 1, 3 DESC, 2");
    std::vector<ListedEntry> entries;
    while (statement.Step()) {
        entries.push_back({{statement.Text(0), statement.Text(1)},
                           statement.Integer(2) != 0,
                           statement.Blob(3),
                           statement.Blob(4)});
    }
    return entries;
}

}  // namespace orv::sec::crypto
