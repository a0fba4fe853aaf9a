#include "orv_sec_crypto/store_administration.h"

#include <array>
#include <utility>

#include <openssl/rand.h>

#include "custody/key_custody.h"
#include "custody/key_storage_file.h"
#include "custody/secret_memory.h"
#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "files/protected_file.h"
#include "files/store_directory.h"
#include "keys/ec_key.h"
#include "library/library_contents.h"
#include "store/database_file.h"
#include "store/store_database.h"
#include "x509/certificate_parser.h"

namespace orv::sec::crypto::host {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr const char* kHexDigits = "0123456789abcdef";

AdministrationStatus ToStatus(CryptoResultCode code) {
    switch (code) {
        case CryptoResultCode::kInvalidArgument:
        case CryptoResultCode::kInvalidFormat:
        case CryptoResultCode::kKeyMismatch:
        case CryptoResultCode::kTooLarge:
            return AdministrationStatus::kInvalidArgument;
        case CryptoResultCode::kNotFound:
            return AdministrationStatus::kNotFound;
        default:
            return AdministrationStatus::kStoreFailure;
    }
}

template <typename Work>
AdministrationResult Run(Work work) {
    try {
        work();
        return {};
    } catch (const CryptoError& error) {
        return {ToStatus(error.Code()), error.what()};
    }
}

void CheckDirectoryName(const std::string& directory) {
    if (directory.empty()) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the directory's name is empty");
    }
}

void EnsureKoruStore(StoreDatabase& database) {
    if (!database.HasStore(kKoruStoreName, StoreKind::kKoruStore)) {
        database.CreateStore(kKoruStoreName, StoreKind::kKoruStore);
    }
}

void RequireKoruStore(const StoreDatabase& database) {
    if (!database.HasStore(kKoruStoreName, StoreKind::kKoruStore)) {
        throw CryptoError(CryptoResultCode::kNotFound,
                          "the store was never initialised: run 'init' first");
    }
}

ByteVector ToBytes(const std::string& text) {
    return ByteVector(text.begin(), text.end());
}

std::string ToPem(const ByteVector& certificates) {
    std::string pem;
    for (const X509Ptr& certificate : ParseCertificates(certificates)) {
        pem += EncodePem(*certificate);
    }
    return pem;
}

StoreEntry Describe(const ListedEntry& listed) {
    StoreEntry entry;
    entry.store = listed.entry.store;
    entry.id = listed.entry.id;
    entry.kind = listed.isKeyPair ? EntryKind::kKeyPair : EntryKind::kCertificate;
    try {
        if (listed.isKeyPair) {
            DecodePublicKey(listed.publicKey);
            entry.publicKey.assign(listed.publicKey.begin(), listed.publicKey.end());
        }
        if (!listed.certificates.empty()) {
            entry.certificateChain = ToPem(listed.certificates);
        }
    } catch (const CryptoError& error) {
        entry.fault = error.what();
    }
    return entry;
}

// The label of this store's keys, in a token that others may use as well.
std::string NewKeyLabel() {
    std::array<unsigned char, 8> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
        throw OpenSslError("no random numbers for a label");
    }
    std::string label = "orv.sec.crypto ";
    for (const unsigned char byte : random) {
        label += kHexDigits[byte >> 4U];
        label += kHexDigits[byte & 0xfU];
    }
    return label;
}

// A new store beside the configuration of a lost one gets a new label, so that it never destroys
// the lost store's keys in the token, which may still be needed.
void PartFromLostStore(const std::string& directory) {
    auto storage = LoadKeyStorage(directory);
    auto* token = storage ? std::get_if<TokenKeyStorage>(&*storage) : nullptr;
    if (token == nullptr || HasDatabase(directory)) {
        return;
    }
    Log().Warn(directory + ": the store is lost; its keys stay in the token, with the label '" +
               token->label + "'");
    token->label = NewKeyLabel();
    SaveKeyStorage(directory, *storage);
}

// Left by an interrupted choice of a TPM, or by a lost configuration.
void CheckNoSealedKeyAlone(const std::string& directory) {
    const std::string keyPath = directory + "/wrapping.key";
    if (FileExists(keyPath + ".tpm") && !FileExists(keyPath) && !LoadKeyStorage(directory)) {
        throw CryptoError(CryptoResultCode::kInvalidArgument,
                          keyPath +
                              ".tpm: is there without a store.json; choose the TPM that has "
                              "sealed it, or remove it");
    }
}

// The storage is created, or contacted, before the choice is saved, so that a choice that fails
// leaves nothing that prevents the next one.
void ChooseKeyStorage(const std::string& directory, KeyStorage storage) {
    CheckKeyStorage(storage);
    const KeyStorage present = LoadKeyStorage(directory).value_or(FileKeyStorage{});
    if (SameKeyStorage(present, storage)) {
        return;
    }
    // A store without its wrapping key does not open.
    const bool isMade = !std::holds_alternative<FileKeyStorage>(present) ||
                        StoreDatabase(directory, StoreDatabase::OpenMode::kCreate).HasCustody();
    if (isMade) {
        throw CryptoError(CryptoResultCode::kInvalidArgument,
                          directory + ": the store keeps its keys elsewhere already");
    }
    if (auto* token = std::get_if<TokenKeyStorage>(&storage)) {
        token->label = NewKeyLabel();
    }
    MakeKeyCustody(directory, storage)->Make();
    SaveKeyStorage(directory, storage);
}

}  // namespace

std::string StoreAdministration::DefaultDirectory() {
    return DefaultStoreDirectory();
}

StoreAdministration::StoreAdministration(std::string directory,
                                         std::shared_ptr<StoreDatabase> database)
    : mDirectory(std::move(directory)), mDatabase(std::move(database)) {}

StoreAdministration::~StoreAdministration() = default;

AdministrationResult StoreAdministration::CreateOrOpen(
    const std::string& directory, std::unique_ptr<StoreAdministration>& administration) {
    return Run([&] {
        CheckDirectoryName(directory);
        KeepOutOfCoreDumps();
        CreateDirectories(directory);
        const auto lock = StoreLock::Acquire(directory);
        CheckNoSealedKeyAlone(directory);
        PartFromLostStore(directory);
        auto database =
            std::make_unique<StoreDatabase>(directory, StoreDatabase::OpenMode::kCreate);
        database->MakeCustody();
        EnsureKoruStore(*database);
        administration.reset(new StoreAdministration(directory, std::move(database)));
    });
}

AdministrationResult StoreAdministration::CreateOrOpen(
    const std::string& directory, const KeyStorage& keyStorage,
    std::unique_ptr<StoreAdministration>& administration) {
    const AdministrationResult chosen = Run([&] {
        CheckDirectoryName(directory);
        KeepOutOfCoreDumps();
        CreateDirectories(directory);
        const auto lock = StoreLock::Acquire(directory);
        ChooseKeyStorage(directory, keyStorage);
    });
    return chosen ? CreateOrOpen(directory, administration) : chosen;
}

AdministrationResult StoreAdministration::Open(
    const std::string& directory, std::unique_ptr<StoreAdministration>& administration) {
    return Run([&] {
        CheckDirectoryName(directory);
        KeepOutOfCoreDumps();
        administration.reset(new StoreAdministration(
            directory,
            std::make_unique<StoreDatabase>(directory, StoreDatabase::OpenMode::kExisting)));
    });
}

AdministrationResult StoreAdministration::OpenForReading(
    const std::string& directory, std::unique_ptr<StoreAdministration>& administration) {
    return Run([&] {
        CheckDirectoryName(directory);
        KeepOutOfCoreDumps();
        administration.reset(new StoreAdministration(
            directory, std::make_shared<StoreDatabase>(directory, StoreDatabase::OpenMode::kCopy)));
    });
}

AdministrationResult StoreAdministration::ShareWithLibrary() {
    return Run([&] {
        if (!mDatabase->IsCopy()) {
            throw CryptoError(CryptoResultCode::kInvalidState,
                              "the store was not opened for reading only");
        }
        RequireKoruStore(*mDatabase);
        mDatabase->LoadCustody();
        ProvideLibraryContents(mDatabase);
    });
}

AdministrationResult StoreAdministration::ImportKeyPair(const std::string& keyId,
                                                        const std::string& privateKey,
                                                        const std::string& certificateChain) {
    return Run([&] {
        RequireKoruStore(*mDatabase);
        CheckId(keyId);
        const PkeyPtr key = ParseKeyFile(privateKey);
        const ByteVector chain = ToBytes(certificateChain);
        const auto certificates = ParseCertificates(chain);
        const EVP_PKEY* certified = X509_get0_pubkey(certificates.front().get());
        if (certified == nullptr || !SameKey(*certified, *key)) {
            throw CryptoError(CryptoResultCode::kKeyMismatch,
                              "the private key does not belong to the first certificate");
        }
        const auto lock = StoreLock::Acquire(mDirectory);
        mDatabase->ReplaceKeyPair({kKoruStoreName, keyId}, *key, chain);
    });
}

AdministrationResult StoreAdministration::StoreCertificate(const std::string& certId,
                                                           const std::string& certificates) {
    return Run([&] {
        RequireKoruStore(*mDatabase);
        CheckId(certId);
        const auto lock = StoreLock::Acquire(mDirectory);
        mDatabase->StoreCertificate({kKoruStoreName, certId}, ToBytes(certificates));
    });
}

AdministrationResult StoreAdministration::List(std::vector<StoreEntry>& entries) const {
    return Run([&] {
        std::vector<StoreEntry> listed;
        for (const ListedEntry& entry : mDatabase->List()) {
            listed.push_back(Describe(entry));
        }
        entries = std::move(listed);
    });
}

AdministrationResult StoreAdministration::Remove(const std::string& store, const std::string& id,
                                                 EntryKind kind) {
    return Run([&] {
        const auto lock = StoreLock::Acquire(mDirectory);
        if (kind == EntryKind::kKeyPair) {
            mDatabase->DeleteKeyPair({store, id});
            return;
        }
        mDatabase->DeleteCertificate({store, id});
    });
}

}  // namespace orv::sec::crypto::host
