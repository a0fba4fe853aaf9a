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

// Whether the store's lock is held meanwhile.
bool IsForWriters(StoreDatabase::OpenMode mode) {
    return mode == StoreDatabase::OpenMode::kCreate ||
           mode == StoreDatabase::OpenMode::kCreateUnlessLost;
}

}  // namespace

StoreDatabase::Contents::Contents(std::unique_ptr<SqliteConnection> opened,
                                  std::unique_ptr<KeyCustody> keyCustody)
    : custody(std::move(keyCustody)),
      connection(std::move(opened)),
      keyPairs(*connection, *custody),
      certificates(*connection) {}

StoreDatabase::StoreDatabase(const std::string& directory, OpenMode mode)
    : mDirectory(directory), mIsCopy(mode == OpenMode::kCopy) {
    auto custody =
        MakeKeyCustody(directory, LoadKeyStorage(directory).value_or(host::FileKeyStorage{}));
    const bool mayBeLost = mode == OpenMode::kCreateUnlessLost || mIsCopy;
    const std::string trace = mayBeLost ? custody->TraceOfStore() : std::string();
    if (!trace.empty() && !FileExists(DatabasePath(mDirectory))) {
        throw LostStore(mDirectory, trace);
    }
    if (IsForWriters(mode)) {
        // Checked first: a file of this user would lock out the directory's owner.
        CheckDirectory(mDirectory);
        CreateDatabaseFile(mDirectory);
    }
    CheckDatabaseFile(mDirectory);
    CheckDirectory(mDirectory);
    mContents = std::make_unique<Contents>(
        mIsCopy ? ConnectToCopy(mDirectory, trace) : ConnectToDatabase(mDirectory, trace),
        std::move(custody));
    OpenCustody(mode);
}

void StoreDatabase::OpenCustody(OpenMode mode) {
    KeyCustody& custody = *mContents->custody;
    if (!IsForWriters(mode) && !custody.IsLocal()) {
        return;
    }
    const auto blobs = mContents->keyPairs.PrivateKeyBlobs();
    custody.Load(!blobs.empty());
    if (IsForWriters(mode)) {
        custody.Sweep(blobs);
    }
}

void StoreDatabase::Close() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mContents.reset();
}

void StoreDatabase::CheckOpen() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    Opened();
}

StoreDatabase::Contents& StoreDatabase::Opened() const {
    if (mContents == nullptr) {
        throw CryptoError(CryptoResultCode::kInvalidState, "the library is not open");
    }
    return *mContents;
}

// A key pair made in a copy would be lost, and one deleted there would still be in the store.
KeyPairTable& StoreDatabase::KeyPairsToChange() const {
    Contents& contents = Opened();
    if (mIsCopy) {
        throw CryptoError(CryptoResultCode::kStorageError,
                          DatabasePath(mDirectory) + ": the store is open for reading only");
    }
    return contents.keyPairs;
}

bool StoreDatabase::HasCustody() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mContents != nullptr && mContents->custody->IsLoaded();
}

void StoreDatabase::MakeCustody() {
    const std::lock_guard<std::mutex> lock(mMutex);
    Opened().custody->Make();
}

void StoreDatabase::LoadCustody() {
    const std::lock_guard<std::mutex> lock(mMutex);
    Contents& contents = Opened();
    contents.custody->Load(!contents.keyPairs.PrivateKeyBlobs().empty());
}

void StoreDatabase::CreateStore(const std::string& name, StoreKind kind) {
    CheckId(name);
    const std::lock_guard<std::mutex> lock(mMutex);
    SqliteStatement(*Opened().connection, "INSERT INTO store (name, kind) VALUES (?1, ?2)")
        .Bind(1, name)
        .Bind(2, static_cast<std::int64_t>(kind))
        .Step();
}

bool StoreDatabase::HasStore(const std::string& name, StoreKind kind) const {
    CheckId(name);
    const std::lock_guard<std::mutex> lock(mMutex);
    return SqliteStatement(*Opened().connection,
                           "SELECT 1 FROM store WHERE name = ?1 AND kind = ?2")
        .Bind(1, name)
        .Bind(2, static_cast<std::int64_t>(kind))
        .Step();
}

bool StoreDatabase::HasKeyPair(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return Opened().keyPairs.Has(entry);
}

void StoreDatabase::GenerateKeyPair(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    KeyPairsToChange().Generate(entry);
}

void StoreDatabase::ReplaceKeyPair(const EntryId& entry, EVP_PKEY& key, const ByteVector& chain) {
    const std::lock_guard<std::mutex> lock(mMutex);
    KeyPairsToChange().Replace(entry, key, chain);
}

void StoreDatabase::MoveKeyPair(const EntryId& source, const EntryId& destination) {
    const std::lock_guard<std::mutex> lock(mMutex);
    KeyPairsToChange().Move(source, destination);
}

void StoreDatabase::DeleteKeyPair(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    KeyPairsToChange().Delete(entry);
}

PkeyPtr StoreDatabase::LoadPrivateKey(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return Opened().keyPairs.OpenPrivateKey(entry);
}

ByteVector StoreDatabase::LoadChain(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return Opened().keyPairs.LoadChain(entry);
}

void StoreDatabase::StoreChain(const EntryId& entry, const ByteVector& chain) {
    const auto certificates = ParseCertificates(chain);
    const std::lock_guard<std::mutex> lock(mMutex);
    KeyPairsToChange().StoreChain(entry, *certificates.front(), chain);
}

ByteVector StoreDatabase::LoadCertificate(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return Opened().certificates.Load(entry);
}

void StoreDatabase::StoreCertificate(const EntryId& entry, const ByteVector& certificates) {
    ParseCertificates(certificates);
    const std::lock_guard<std::mutex> lock(mMutex);
    Opened().certificates.Store(entry, certificates);
}

void StoreDatabase::DeleteCertificate(const EntryId& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    Opened().certificates.Delete(entry);
}

PkeyPtr StoreDatabase::LoadPublicKey(const EntryId& entry) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    Contents& contents = Opened();
    if (PkeyPtr key = contents.keyPairs.FindPublicKey(entry)) {
        return key;
    }
    const auto certificates = ParseCertificates(contents.certificates.Load(entry));
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
    SqliteStatement statement(*Opened().connection,
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
