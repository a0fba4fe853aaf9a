#include "store/store_database.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <posix/unique_fd.h>

#include "custody/key_storage_file.h"
#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "files/protected_file.h"
#include "keys/ec_key.h"
#include "x509/certificate_parser.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr std::size_t kMaxIdBytes = 128;
constexpr std::chrono::milliseconds kBusyTimeout{5000};
// "ORVS"
constexpr std::int64_t kApplicationId = 0x4F525653;
constexpr mode_t kForeignWrite = S_IWGRP | S_IWOTH;
constexpr const char* kSelectCertificate =
    "SELECT certificates FROM certificate WHERE store = ?1 AND id = ?2";

// The schema's version 1.
constexpr const char* kTables = R"(
    CREATE TABLE store (
        name TEXT NOT NULL PRIMARY KEY CHECK (length(name) BETWEEN 1 AND 128),
        kind INTEGER NOT NULL CHECK (kind IN (1, 2))
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE key_pair (
        store TEXT NOT NULL REFERENCES store (name),
        id TEXT NOT NULL CHECK (length(id) BETWEEN 1 AND 128),
        public_key BLOB NOT NULL CHECK (length(public_key) > 0),
        wrapped_private_key BLOB NOT NULL CHECK (length(wrapped_private_key) > 0),
        certificates BLOB CHECK (length(certificates) BETWEEN 1 AND 262144),
        PRIMARY KEY (store, id)
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE certificate (
        store TEXT NOT NULL REFERENCES store (name),
        id TEXT NOT NULL CHECK (length(id) BETWEEN 1 AND 128),
        certificates BLOB NOT NULL CHECK (length(certificates) BETWEEN 1 AND 262144),
        PRIMARY KEY (store, id)
    ) STRICT, WITHOUT ROWID;
    PRAGMA application_id = 1330796115;
)";

// What leads from each version of the schema to the next one, from the empty file, version 0, on.
constexpr std::array<const char*, 1> kUpgrades{kTables};
constexpr std::int64_t kSchemaVersion = kUpgrades.size();

CryptoError StorageError(const std::string& message) {
    return CryptoError(CryptoResultCode::kStorageError, message);
}

std::string DatabasePath(const std::string& directory) {
    return directory + "/store.db";
}

std::string Describe(const EntryId& entry) {
    return "'" + entry.id + "' in " + entry.store;
}

CryptoError NotFound(const char* what, const EntryId& entry) {
    return CryptoError(CryptoResultCode::kNotFound,
                       std::string("no ") + what + " " + Describe(entry));
}

// Makes the file ahead of SQLite for the sake of its mode. An existing one is not even opened:
// closing it again would drop the locks that this process may hold on it.
void CreateDatabaseFile(const std::string& path) {
    const posix::UniqueFd file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.IsValid()) {
        LogWarn(path + ": there was no store, an empty one is made");
        return;
    }
    if (errno != EEXIST) {
        throw SystemError(path, "cannot create");
    }
}

CryptoError Refused(const std::string& path, const std::string& why) {
    return StorageError(path + ": store refused: " + why);
}

void CheckOwnership(const std::string& path, const struct stat& status) {
    if (status.st_uid != ::geteuid()) {
        throw Refused(path, "owned by user " + std::to_string(status.st_uid) + ", not by user " +
                                std::to_string(::geteuid()));
    }
    if ((status.st_mode & kForeignWrite) != 0) {
        throw Refused(path, "others than its owner may write to it");
    }
}

// Who can write to the file, or put another in its place, decides which roots the unit trusts.
void CheckDirectory(const std::string& directory) {
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        throw SystemError(directory, "cannot open");
    }
    CheckOwnership(directory, status);
}

void CheckDatabaseFile(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            throw CryptoError(CryptoResultCode::kNotFound, path + ": there is no store");
        }
        throw SystemError(path, "cannot open");
    }
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path, "not a regular file");
    }
    CheckOwnership(path, status);
}

CryptoError LostStore(const std::string& directory, const std::string& trace) {
    return StorageError(DatabasePath(directory) + ": the store is lost: its " + trace +
                        " is there, the store is not");
}

// Whether the store's lock is held meanwhile.
bool IsForWriters(StoreDatabase::OpenMode mode) {
    return mode == StoreDatabase::OpenMode::kCreate ||
           mode == StoreDatabase::OpenMode::kCreateUnlessLost;
}

void AppendWithLength(std::string& target, const std::string& field) {
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        target.push_back(static_cast<char>((field.size() >> (shift - 8)) & 0xff));
    }
    target += field;
}

// Names a row, and binds a wrapped key to it. The lengths keep ("A", "BC") and ("AB", "C") apart.
std::string RowName(const EntryId& entry) {
    std::string data = "orv.sec.crypto key pair 1";
    AppendWithLength(data, entry.store);
    AppendWithLength(data, entry.id);
    return data;
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

void CheckId(const std::string& id) {
    if (id.empty()) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the id is empty");
    }
    if (id.size() > kMaxIdBytes) {
        throw CryptoError(CryptoResultCode::kTooLarge, "the id is too long");
    }
    const bool printable = std::all_of(id.begin(), id.end(),
                                       [](char letter) { return letter >= ' ' && letter <= '~'; });
    if (!printable) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the id is not printable ASCII");
    }
}

StoreDatabase::StoreDatabase(const std::string& directory, OpenMode mode)
    : mDirectory(directory),
      mIsCopy(mode == OpenMode::kCopy),
      mCustody(
          MakeKeyCustody(directory, LoadKeyStorage(directory).value_or(host::FileKeyStorage{}))) {
    const std::string path = DatabasePath(mDirectory);
    const bool mayBeLost = mode == OpenMode::kCreateUnlessLost || mIsCopy;
    const std::string trace = mayBeLost ? mCustody->TraceOfStore() : std::string();
    if (!trace.empty() && !FileExists(path)) {
        throw LostStore(mDirectory, trace);
    }
    if (IsForWriters(mode)) {
        // First of all: a file of ours would shut out the directory's owner.
        CheckDirectory(mDirectory);
        CreateDatabaseFile(path);
    }
    CheckDatabaseFile(path);
    CheckDirectory(mDirectory);
    if (mIsCopy) {
        ConnectToCopy(trace);
    } else {
        ConnectToFile(trace);
    }
    OpenCustody(mode);
}

bool StoreDatabase::HasFile(const std::string& directory) {
    struct stat status {};
    const bool isKnown = ::lstat(DatabasePath(directory).c_str(), &status) == 0;
    return isKnown ? status.st_size > 0 : errno != ENOENT;
}

void StoreDatabase::ConnectToFile(const std::string& trace) {
    mConnection = std::make_unique<SqliteConnection>(DatabasePath(mDirectory), kBusyTimeout);
    Configure();
    // A store that is not for this version to open stays untouched.
    SchemaVersion();
    SetJournalMode();
    UpgradeSchema(trace);
}

void StoreDatabase::ConnectToCopy(const std::string& trace) {
    mConnection = SqliteConnection::CopyToMemory(DatabasePath(mDirectory), kBusyTimeout);
    Configure();
    UpgradeSchema(trace);
}

void StoreDatabase::Configure() {
    mConnection->Execute(
        "PRAGMA foreign_keys = ON;"
        "PRAGMA trusted_schema = OFF;"
        "PRAGMA secure_delete = ON;"
        "PRAGMA temp_store = MEMORY;"
        "PRAGMA synchronous = FULL;");
}

void StoreDatabase::SetJournalMode() {
    const std::string mode = mConnection->QueryText("PRAGMA journal_mode = TRUNCATE");
    if (mode != "truncate") {
        throw StorageError(DatabasePath(mDirectory) + ": journal mode is '" + mode +
                           "', not truncate");
    }
}

std::int64_t StoreDatabase::SchemaVersion() {
    const std::int64_t application = mConnection->QueryInteger("PRAGMA application_id");
    const std::int64_t version = mConnection->QueryInteger("PRAGMA user_version");
    if (application == kApplicationId && version > kSchemaVersion) {
        throw StorageError(DatabasePath(mDirectory) + ": schema version " +
                           std::to_string(version) + " is newer than this program's, which is " +
                           std::to_string(kSchemaVersion));
    }
    const bool isEmpty = application == 0 && version == 0 &&
                         mConnection->QueryInteger("SELECT count(*) FROM sqlite_schema") == 0;
    if (!isEmpty && (application != kApplicationId || version < 1)) {
        throw StorageError(DatabasePath(mDirectory) + ": no secure store: schema version " +
                           std::to_string(version) + " of application " +
                           std::to_string(application));
    }
    return version;
}

void StoreDatabase::UpgradeSchema(const std::string& trace) {
    if (SchemaVersion() == kSchemaVersion) {
        return;
    }
    SqliteTransaction transaction(*mConnection);
    // Another process may have been faster.
    const std::int64_t version = SchemaVersion();
    if (version == 0 && !trace.empty()) {
        throw LostStore(mDirectory, trace);
    }
    for (auto step = static_cast<std::size_t>(version); step < kUpgrades.size(); ++step) {
        mConnection->Execute(kUpgrades[step]);
    }
    mConnection->Execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    transaction.Commit();
    if (version > 0) {
        LogInfo(DatabasePath(mDirectory) + ": upgraded from schema version " +
                std::to_string(version) + " to " + std::to_string(kSchemaVersion));
    }
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
        throw StorageError(DatabasePath(mDirectory) + ": the store is open for reading only");
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
