#include "orv_sec_crypto/store_administration.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "certificate_parser.h"
#include "crypto_error.h"
#include "ec_key.h"
#include "store_database.h"

namespace orv::sec::crypto::host {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr const char* kDirectoryVariable = "ORV_CRYPTO_DIR";
constexpr const char* kDefaultDirectory = "/var/lib/orv/crypto";
constexpr mode_t kDirectoryMode = S_IRWXU;

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

void CreateDirectories(const std::string& directory) {
    for (auto slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
        const std::string part = directory.substr(0, slash);
        if (::mkdir(part.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
            throw CryptoError(
                CryptoResultCode::kStorageError,
                part + ": cannot create directory: " + std::generic_category().message(errno));
        }
        if (slash == std::string::npos) {
            return;
        }
    }
}

void CheckDirectoryName(const std::string& directory) {
    if (directory.empty()) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the directory's name is empty");
    }
}

void EnsureKoruStore(StoreDatabase& database) {
    if (database.HasStore(kKoruStoreName, StoreKind::kKoruStore)) {
        return;
    }
    try {
        database.CreateStore(kKoruStoreName, StoreKind::kKoruStore);
    } catch (const CryptoError& error) {
        // Another administrator was faster.
        if (error.Code() != CryptoResultCode::kAlreadyExists) {
            throw;
        }
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

std::string ToPem(const ListedEntry& entry) {
    std::string pem;
    if (entry.certificates.empty()) {
        return pem;
    }
    for (const X509Ptr& certificate : ParseCertificates(entry.certificates)) {
        pem += EncodePem(*certificate);
    }
    return pem;
}

}  // namespace

std::string StoreAdministration::DefaultDirectory() {
    const char* directory = std::getenv(kDirectoryVariable);
    return directory == nullptr || *directory == '\0' ? kDefaultDirectory : directory;
}

StoreAdministration::StoreAdministration(std::unique_ptr<StoreDatabase> database)
    : mDatabase(std::move(database)) {}

StoreAdministration::~StoreAdministration() = default;

AdministrationResult StoreAdministration::CreateOrOpen(
    const std::string& directory, std::unique_ptr<StoreAdministration>& administration) {
    return Run([&] {
        CheckDirectoryName(directory);
        CreateDirectories(directory);
        auto database =
            std::make_unique<StoreDatabase>(directory, StoreDatabase::OpenMode::kCreate);
        if (!database->HasWrappingKey()) {
            database->CreateWrappingKey();
        }
        EnsureKoruStore(*database);
        administration.reset(new StoreAdministration(std::move(database)));
    });
}

AdministrationResult StoreAdministration::Open(
    const std::string& directory, std::unique_ptr<StoreAdministration>& administration) {
    return Run([&] {
        CheckDirectoryName(directory);
        administration.reset(new StoreAdministration(
            std::make_unique<StoreDatabase>(directory, StoreDatabase::OpenMode::kExisting)));
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
        mDatabase->ReplaceKeyPair({kKoruStoreName, keyId}, *key, chain);
    });
}

AdministrationResult StoreAdministration::StoreCertificate(const std::string& certId,
                                                           const std::string& certificates) {
    return Run([&] {
        RequireKoruStore(*mDatabase);
        CheckId(certId);
        mDatabase->StoreCertificate({kKoruStoreName, certId}, ToBytes(certificates));
    });
}

AdministrationResult StoreAdministration::List(std::vector<StoreEntry>& entries) const {
    return Run([&] {
        std::vector<StoreEntry> listed;
        for (const ListedEntry& entry : mDatabase->List()) {
            listed.push_back({entry.entry.store, entry.entry.id,
                              entry.isKeyPair ? EntryKind::kKeyPair : EntryKind::kCertificate,
                              ToPem(entry)});
        }
        entries = std::move(listed);
    });
}

AdministrationResult StoreAdministration::Remove(const std::string& store, const std::string& id,
                                                 EntryKind kind) {
    return Run([&] {
        if (kind == EntryKind::kKeyPair) {
            mDatabase->DeleteKeyPair({store, id});
            return;
        }
        mDatabase->DeleteCertificate({store, id});
    });
}

}  // namespace orv::sec::crypto::host
