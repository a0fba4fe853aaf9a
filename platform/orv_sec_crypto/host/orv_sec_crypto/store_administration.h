#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orv_sec_crypto/key_storage.h"

namespace orv::sec::crypto {
class StoreDatabase;
}

/// Administration of the secure store: what a factory or a workshop does to a unit's store. It
/// exists on the host platform only; nothing of the system may use it.
///
/// Certificates are taken as PEM (RFC 7468, one or more certificates and nothing but white space
/// around them) or as the DER of one certificate, at most 16 certificates and 256 KiB. Ids and
/// store names are 1 to 128 bytes of printable ASCII.
///
/// One object may be used by one thread at a time. Each operation is one transaction. The store may
/// be read while other processes have it open. One process at a time writes: while the service
/// runs, or another administrator is at work, an operation that writes waits a second and then
/// fails with kStoreFailure. A process that opens a store leaves no core dumps from then on
/// (docs/store-operation.md).
namespace orv::sec::crypto::host {

enum class AdministrationStatus : uint8_t {
    kOk = 0,
    /// The caller's input was refused; nothing has changed.
    kInvalidArgument = 1,
    /// No such store directory or entry, or the key-management store was never created.
    kNotFound = 2,
    /// The store, or its wrapping key, could not be read or written, or was refused.
    kStoreFailure = 3,
};

struct AdministrationResult {
    AdministrationStatus status = AdministrationStatus::kOk;
    /// One line for the operator, without a line end; empty on success.
    std::string message;

    explicit operator bool() const { return status == AdministrationStatus::kOk; }
};

enum class EntryKind : uint8_t { kKeyPair, kCertificate };

/// One entry of the store. Private keys never leave the store.
struct StoreEntry {
    /// "KORU" or the name of a trust store.
    std::string store;
    std::string id;
    EntryKind kind = EntryKind::kCertificate;
    /// PEM, first certificate first; empty for a key pair that has no certificate yet.
    std::string certificateChain;
    /// SubjectPublicKeyInfo (RFC 5280) in DER; empty for a certificate.
    std::string publicKey;
    /// Why what is stored does not parse any more, in one line; empty for an entry in order. What
    /// does not parse is empty above; an unreadable public key leaves both empty.
    std::string fault;
};

class StoreAdministration {
public:
    /// The directory that the library uses: environment variable ORV_CRYPTO_DIR if it is set and
    /// not empty, else "/var/lib/orv/crypto".
    static std::string DefaultDirectory();

    /// Opens the store in `directory` and creates what is missing: the directory with its parents
    /// (mode 0700), "store.db" (mode 0600), "wrapping.key" (32 random bytes, mode 0400) or what
    /// "store.json" asks for in its place, and in the database the key-management store. An
    /// existing wrapping key is never replaced, and none is created beside a store that already
    /// holds keys, or beside a sealed one. Where "store.json" names a token and its store is lost,
    /// the new one leaves the keys of that one alone. `administration` is set only on success.
    static AdministrationResult CreateOrOpen(const std::string& directory,
                                             std::unique_ptr<StoreAdministration>& administration);

    /// As above, for a store whose private keys are kept elsewhere than in "wrapping.key":
    /// `keyStorage` is tried and then written to "store.json" (mode 0400). Where the store was made
    /// already, it must be kept there (else kInvalidArgument).
    static AdministrationResult CreateOrOpen(const std::string& directory,
                                             const KeyStorage& keyStorage,
                                             std::unique_ptr<StoreAdministration>& administration);

    /// Opens an existing store; kNotFound if there is no "store.db". It makes neither that file nor
    /// the directory, the wrapping key or the key-management store, but gives an empty "store.db"
    /// its tables.
    static AdministrationResult Open(const std::string& directory,
                                     std::unique_ptr<StoreAdministration>& administration);

    /// Reads an existing store once: all that this object reports is what the store held at that
    /// moment. It takes no lock, leaves the store's files as they are and makes none; a store that
    /// was upgraded since is refused, an older one is upgraded in memory only. What the service
    /// would not open is refused, too. So is, with kStoreFailure, each operation that would change
    /// a key pair; what the others change is lost with the object.
    static AdministrationResult OpenForReading(
        const std::string& directory, std::unique_ptr<StoreAdministration>& administration);

    /// For an object from `OpenForReading`: makes the next `initCryptoLib` of this process open
    /// what this object has read, so that the classes of the system judge it beside the service and
    /// without touching the store. The library then takes certificates, and keeps them for itself,
    /// but gives `kStorageError` for what would change a key pair. kNotFound if the key-management
    /// store was never created; kStoreFailure while the library is open, for an object of another
    /// origin, and when TPM or token are unavailable, as the service would not open the store then.
    /// `cleanupCryptoLib` ends the use of this object, too.
    AdministrationResult ShareWithLibrary();

    ~StoreAdministration();
    StoreAdministration(const StoreAdministration&) = delete;
    StoreAdministration& operator=(const StoreAdministration&) = delete;

    /// Puts a key pair with its certificate chain under `keyId` into the key-management store and
    /// replaces, in one step, what was there. `privateKey` is an unencrypted P-256 key, PKCS#8 or
    /// SEC 1, PEM or DER; it must belong to the first certificate. The caller wipes its copy.
    AdministrationResult ImportKeyPair(const std::string& keyId, const std::string& privateKey,
                                       const std::string& certificateChain);

    /// Puts a certificate, or a bundle of root certificates, under `certId` into the
    /// key-management store and replaces what was there.
    AdministrationResult StoreCertificate(const std::string& certId,
                                          const std::string& certificates);

    /// All entries of all stores, ordered by store, kind and id. One that does not parse any more
    /// is listed with its fault.
    AdministrationResult List(std::vector<StoreEntry>& entries) const;

    /// Removes one entry of the store named `store`; kNotFound if it is not there.
    AdministrationResult Remove(const std::string& store, const std::string& id, EntryKind kind);

private:
    StoreAdministration(std::string directory, std::shared_ptr<StoreDatabase> database);

    const std::string mDirectory;
    std::shared_ptr<StoreDatabase> mDatabase;
};

}  // namespace orv::sec::crypto::host
