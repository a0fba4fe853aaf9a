#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orv/sec/crypto/i_crypto_service_provider.h>
#include <orv/sec/crypto/operation/i_certificate_handler.h>
#include <orv/sec/crypto/operation/i_trust_store_manager.h>

#include "certificates/client_cert_initializer_api.h"
#include "certificates/x509_validator_if.h"
#include "client/status_code.h"
#include "orv_sec_crypto/store_administration.h"
#include "provision/store_report.h"

namespace provision {

using TimePoint = std::chrono::system_clock::time_point;

/// How an entry or the unit stands. The values are exit statuses; of several the greatest counts.
enum class Standing : std::uint8_t {
    kInOrder = 0,
    /// The client certificate is valid, but ends within 365 days.
    kDue = 3,
    /// Something that the service needs is not in the store.
    kMissing = 4,
    /// Something in the store does not parse, open, fit or verify, or a client certificate is not
    /// valid at the moment.
    kWrong = 5,
};

enum class Validity : std::uint8_t { kValid, kNotYetValid, kExpired };

/// The fields of a certificate, and its validity at the moment that is judged.
struct CertificateFacts : CertificateText {
    Validity validity = Validity::kValid;
    /// Whole days until `notAfter`, rounded down; negative afterwards.
    std::int64_t daysLeft = 0;
};

/// What was found out about one entry. What does not apply to it has no value.
struct EntryJudgement {
    std::string store;
    std::string id;
    orv::sec::crypto::host::EntryKind kind{};
    Standing standing = Standing::kInOrder;
    /// Whether the private key opens, belongs to its public key and signs.
    std::optional<bool> keyOpens;
    /// Whether the key pair is that of its certificate.
    std::optional<bool> keyFits;
    /// Whether each certificate is verified by the next one: in the client store up to the trusted
    /// root, in the key-management store, which holds no root for its own, up to the last one.
    std::optional<bool> pathGood;
    /// Of the first certificate.
    std::optional<CertificateFacts> certificate;
    /// What is wrong or missing, each in a few words.
    std::vector<std::string> faults;
};

enum class NextPass : std::uint8_t {
    kKeepsCertificate,
    kEnrols,
    /// Deletes the certificate, then enrols.
    kReplaces,
    /// The VIN is unavailable, so the pass ends before any judgement.
    kEndsEarly,
};

struct UnitStatus {
    Standing standing = Standing::kInOrder;
    /// From the base certificate; may be empty.
    std::string vin;
    /// The accepted key pair.
    std::optional<EntryJudgement> client;
    /// The service's own; there is none without a VIN.
    std::optional<vintrel::StatusCode> judgement;
    NextPass nextPass = NextPass::kKeepsCertificate;
    /// Why the next pass does so.
    std::string reason;
    /// What would keep a pass from enrolling; empty if nothing in the store does.
    std::string obstacle;
    /// The store was read between the removal of the accepted key pair and the promotion of the
    /// pending one: a pass of the service is running, or was interrupted.
    bool isBeingReplaced = false;
    /// The entries that do not parse.
    std::vector<EntryJudgement> broken;
};

/// Judges a store as the service does, with the service's own classes on a copy of the store.
///
/// One object in a process, on one thread: those classes and the library are the process's own.
class StoreJudge {
public:
    /// Takes a store that was opened for reading and lends it to the library; it has to outlive
    /// this object. `at` is the moment that is judged. Throws `std::runtime_error`.
    StoreJudge(orv::sec::crypto::host::StoreAdministration& administration, TimePoint at);

    /// All entries in the order of the store, then what is missing.
    std::vector<EntryJudgement> JudgeEntries() const;

    UnitStatus JudgeUnit() const;

private:
    using StoreEntry = orv::sec::crypto::host::StoreEntry;

    EntryJudgement Judge(const StoreEntry& entry) const;
    void JudgeKeyPair(const StoreEntry& entry, const std::vector<std::string>& certificates,
                      EntryJudgement& judgement) const;
    std::optional<bool> JudgePath(const std::string& store,
                                  std::vector<std::string> certificates) const;
    CertificateFacts ReadFacts(const std::string& certificate, const std::string& pem) const;
    Standing StandingOf(const EntryJudgement& judgement, const std::string& certificate) const;
    std::shared_ptr<orv::sec::crypto::store::ICryptoStore> FindStore(const std::string& name) const;
    std::string FindObstacle() const;
    void ForeseeNextPass(UnitStatus& status) const;

    TimePoint mAt;
    std::vector<StoreEntry> mEntries;
    std::shared_ptr<orv::tee::ClientCertInitializerAPI> mClientCertApi;
    std::shared_ptr<vintrel::X509ValidatorIf> mValidator;
    std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider> mProvider;
    std::shared_ptr<orv::sec::crypto::operation::ITrustStoreManager> mStores;
    std::shared_ptr<orv::sec::crypto::operation::ICertificateHandler> mCertificates;
    std::string mVin;
    std::optional<vintrel::StatusCode> mClientStatus;
};

}  // namespace provision
