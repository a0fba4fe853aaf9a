#include "provision/store_judge.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include <orv/sec/crypto/operation/i_digital_signature.h>
#include <orv/sec/crypto/store/i_crypto_store.h>
#include <pki_support/certificates.h>
#include <pki_support/pki_error.h>

#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/hsm.h"
#include "certificates/library_values.h"
#include "client/tive_generator_if.h"

namespace provision {

using orv::sec::crypto::host::EntryKind;
using orv::sec::crypto::host::StoreAdministration;
using orv::sec::crypto::host::StoreEntry;
using orv::sec::crypto::store::ICryptoStore;
using pki_support::PkiError;
using vintrel::StatusCode;

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr const char* kSignatureAlgorithm = "EMSA1(SHA-256)";

struct Place {
    const char* store;
    const char* id;
    EntryKind kind;
};

constexpr Place kBasePair{vintrel::kTrustStoreIdKoru, vintrel::kKoruCertIdEcuBase,
                          EntryKind::kKeyPair};
constexpr Place kTrustedRoot{vintrel::kTrustStoreIdKoru, vintrel::kKoruCertIdProductRoot,
                             EntryKind::kCertificate};
constexpr Place kClientPair{vintrel::kKeyIdTiv, vintrel::kKeyIdTiv, EntryKind::kKeyPair};
constexpr Place kPendingPair{vintrel::kKeyIdTiv, vintrel::kKeyIdTivCsr, EntryKind::kKeyPair};
// What a pass needs in the store, and what it renews.
constexpr std::array<Place, 3> kRequired{kBasePair, kTrustedRoot, kClientPair};

template <typename Entry>
bool IsAt(const Entry& entry, const Place& place) {
    return entry.store == place.store && entry.id == place.id && entry.kind == place.kind;
}

const StoreEntry* Find(const std::vector<StoreEntry>& entries, const Place& place) {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const StoreEntry& entry) { return IsAt(entry, place); });
    return found == entries.end() ? nullptr : &*found;
}

bool IsRequired(const EntryJudgement& judgement) {
    return std::any_of(kRequired.begin(), kRequired.end(),
                       [&](const Place& place) { return IsAt(judgement, place); });
}

std::int64_t FloorToDays(std::int64_t seconds) {
    const std::int64_t days = seconds / kSecondsPerDay;
    return seconds % kSecondsPerDay < 0 ? days - 1 : days;
}

std::string ReasonFor(StatusCode status, Validity validity) {
    switch (status) {
        case StatusCode::Ok:
            return "it passes every check and is valid for a year";
        case StatusCode::NoCertificate:
            return "no certificate";
        case StatusCode::CommonNameMismatch:
            return "the certificate is not for this unit";
        case StatusCode::KeyMismatch:
            return "the key does not fit the certificate";
        case StatusCode::PathInvalid:
            return "the certificate does not verify up to the trusted root";
        case StatusCode::ExpiresWithinYear:
            break;
    }
    switch (validity) {
        case Validity::kNotYetValid:
            return "not valid yet";
        case Validity::kExpired:
            return "expired";
        case Validity::kValid:
            break;
    }
    return "expires within a year";
}

NextPass NextPassAfter(StatusCode status) {
    switch (status) {
        case StatusCode::Ok:
            return NextPass::kKeepsCertificate;
        case StatusCode::NoCertificate:
        case StatusCode::ExpiresWithinYear:
            return NextPass::kEnrols;
        case StatusCode::CommonNameMismatch:
        case StatusCode::KeyMismatch:
        case StatusCode::PathInvalid:
            break;
    }
    return NextPass::kReplaces;
}

Standing StandingOfUnit(const UnitStatus& status) {
    if (!status.obstacle.empty() || !status.broken.empty() || !status.judgement.has_value()) {
        return Standing::kWrong;
    }
    switch (*status.judgement) {
        case StatusCode::Ok:
            return Standing::kInOrder;
        case StatusCode::NoCertificate:
            return Standing::kMissing;
        case StatusCode::ExpiresWithinYear:
            return status.client->standing;
        case StatusCode::CommonNameMismatch:
        case StatusCode::KeyMismatch:
        case StatusCode::PathInvalid:
            break;
    }
    return Standing::kWrong;
}

}  // namespace

StoreJudge::StoreJudge(StoreAdministration& administration, TimePoint at) : mAt(at) {
    for (const auto& result : {administration.List(mEntries), administration.ShareWithLibrary()}) {
        if (!result) {
            throw std::runtime_error(result.message);
        }
    }
    vintrel::Hsm hsm([at] { return at; });
    mClientCertApi = orv::tee::ClientCertInitializerAPI::get_instance();
    mValidator = vintrel::X509ValidatorIf::CreateX509Validator();
    mProvider = vintrel::CryptoApiInstance::GetCryptoApiInstance();
    mStores = mProvider->createTrustStoreManager().GetObject();
    mCertificates = mProvider->createCertificateHandler().GetObject();
    if (!mStores || !mCertificates) {
        throw std::runtime_error("the crypto library does not work");
    }
    mVin = hsm.GetKoruVin();
    if (!mVin.empty()) {
        mClientStatus = hsm.CheckTrustStoreTivValidity(mVin);
    }
}

std::vector<EntryJudgement> StoreJudge::JudgeEntries() const {
    std::vector<EntryJudgement> judgements;
    for (const StoreEntry& entry : mEntries) {
        judgements.push_back(Judge(entry));
    }
    for (const Place& place : kRequired) {
        if (Find(mEntries, place) == nullptr) {
            EntryJudgement missing;
            missing.store = place.store;
            missing.id = place.id;
            missing.kind = place.kind;
            missing.standing = Standing::kMissing;
            missing.faults.emplace_back("is not there");
            judgements.push_back(std::move(missing));
        }
    }
    return judgements;
}

UnitStatus StoreJudge::JudgeUnit() const {
    UnitStatus status;
    status.vin = mVin;
    status.judgement = mClientStatus;
    status.obstacle = FindObstacle();
    for (const StoreEntry& entry : mEntries) {
        if (!entry.fault.empty()) {
            status.broken.push_back(Judge(entry));
        }
    }
    const StoreEntry* client = Find(mEntries, kClientPair);
    if (client != nullptr) {
        status.client = Judge(*client);
    }
    const StoreEntry* pending = Find(mEntries, kPendingPair);
    status.isBeingReplaced =
        client == nullptr && pending != nullptr && !pending->certificateChain.empty();
    ForeseeNextPass(status);
    status.standing = StandingOfUnit(status);
    return status;
}

void StoreJudge::ForeseeNextPass(UnitStatus& status) const {
    if (!mClientStatus.has_value()) {
        status.nextPass = NextPass::kEndsEarly;
        status.reason = status.obstacle;
        return;
    }
    status.nextPass = NextPassAfter(*mClientStatus);
    const bool hasFacts = status.client.has_value() && status.client->certificate.has_value();
    status.reason = ReasonFor(*mClientStatus,
                              hasFacts ? status.client->certificate->validity : Validity::kValid);
    const StoreEntry* client = Find(mEntries, kClientPair);
    const bool isStored =
        client != nullptr && !(client->certificateChain.empty() && client->fault.empty());
    if (isStored && !hasFacts) {
        status.reason = "the certificate does not parse";
    }
}

std::string StoreJudge::FindObstacle() const {
    const StoreEntry* base = Find(mEntries, kBasePair);
    if (base == nullptr || (base->certificateChain.empty() && base->fault.empty())) {
        return "no base certificate";
    }
    if (!base->fault.empty()) {
        return "the base certificate does not parse";
    }
    if (mVin.empty()) {
        return "the base certificate names no VIN";
    }
    if (vintrel::TiveGeneratorIf::Create()
            ->ConstructContainer({mVin.begin(), mVin.end()})
            .empty()) {
        return "the base key does not sign";
    }
    if (mClientCertApi->get_root_cert_bundle(vintrel::kTrustStoreIdKoru).empty()) {
        return "no readable trusted root";
    }
    return {};
}

EntryJudgement StoreJudge::Judge(const StoreEntry& entry) const {
    EntryJudgement judgement;
    judgement.store = entry.store;
    judgement.id = entry.id;
    judgement.kind = entry.kind;
    if (!entry.fault.empty()) {
        judgement.faults.push_back("does not parse: " + entry.fault);
    }
    std::vector<std::string> certificates;
    if (!entry.certificateChain.empty()) {
        certificates = mValidator->SplitCertificateChain(entry.certificateChain);
    }
    if (!certificates.empty()) {
        try {
            judgement.certificate = ReadFacts(certificates.front(), entry.certificateChain);
        } catch (const PkiError& error) {
            judgement.faults.push_back(std::string("does not parse: ") + error.what());
        }
    }
    if (entry.kind == EntryKind::kKeyPair) {
        JudgeKeyPair(entry, certificates, judgement);
    }
    judgement.standing =
        StandingOf(judgement, certificates.empty() ? std::string() : certificates.front());
    return judgement;
}

void StoreJudge::JudgeKeyPair(const StoreEntry& entry, const std::vector<std::string>& certificates,
                              EntryJudgement& judgement) const {
    const auto store = FindStore(entry.store);
    const auto handle = store ? store->makeKeyId(entry.id).GetObject() : nullptr;
    const auto signer =
        handle ? mProvider
                     ->createDigitalSignature(
                         {orv::sec::crypto::operation::SignatureAlgorithm::kEcdsaSha256, handle})
                     .GetObject()
               : nullptr;
    const std::vector<std::uint8_t> content(entry.id.begin(), entry.id.end());
    std::vector<std::uint8_t> signature;
    if (signer) {
        signature =
            vintrel::ToPlainVector(signer->sign(vintrel::ToLibraryBytes(content)).GetObject());
    }
    judgement.keyOpens = !signature.empty();
    if (!*judgement.keyOpens) {
        judgement.faults.emplace_back("the private key does not open");
    }
    if (certificates.empty()) {
        return;
    }
    const std::string& certificate = certificates.front();
    judgement.keyFits =
        handle &&
        mValidator->CheckCertificatePublicKey(
            certificate, vintrel::ToPlainString(store->loadPublicKey(handle).GetObject())) &&
        (signature.empty() ||
         mValidator->VerifySignature(certificate, content, signature, kSignatureAlgorithm));
    if (!*judgement.keyFits) {
        judgement.faults.emplace_back("the key does not fit the certificate");
    }
    judgement.pathGood = JudgePath(entry.store, certificates);
    if (judgement.pathGood == false) {
        judgement.faults.emplace_back("the certificate path does not verify");
    }
    if (IsAt(judgement, kClientPair) && mClientStatus == StatusCode::CommonNameMismatch) {
        judgement.faults.push_back("is not for the unit with the VIN " + mVin);
    }
    if (IsAt(judgement, kBasePair) && mVin.empty()) {
        judgement.faults.emplace_back("the common name holds no VIN");
    }
    // The service checks the dates of client certificates only.
    if (entry.store == vintrel::kKeyIdTiv && judgement.certificate &&
        judgement.certificate->validity != Validity::kValid) {
        judgement.faults.emplace_back(judgement.certificate->validity == Validity::kExpired
                                          ? "has expired"
                                          : "is not valid yet");
    }
}

std::optional<bool> StoreJudge::JudgePath(const std::string& store,
                                          std::vector<std::string> certificates) const {
    // The name is only checked for being empty.
    const std::string& name = store;
    if (store == vintrel::kKeyIdTiv) {
        return mValidator->ValidateCertificatePath(
            certificates, mClientCertApi->get_root_cert_bundle(vintrel::kTrustStoreIdKoru), name,
            mAt);
    }
    if (store != vintrel::kTrustStoreIdKoru || certificates.size() < 2) {
        return std::nullopt;
    }
    const std::string last = std::move(certificates.back());
    certificates.pop_back();
    return mValidator->ValidateCertificatePath(certificates, last, name, mAt);
}

CertificateFacts StoreJudge::ReadFacts(const std::string& certificate,
                                       const std::string& pem) const {
    const auto bytes = vintrel::ToLibraryBytes(certificate);
    const auto notBefore = mCertificates->getCertificateNotBeforeDate(bytes);
    const auto notAfter = mCertificates->getCertificateNotAfterDate(bytes);
    if (!notBefore.IsSuccess() || !notAfter.IsSuccess()) {
        throw PkiError("unreadable date");
    }
    const auto parsed = pki_support::ReadCertificates(pem);
    const std::int64_t now =
        std::chrono::floor<std::chrono::seconds>(mAt).time_since_epoch().count();
    CertificateFacts facts{ReadText(*parsed.front())};
    facts.daysLeft = FloorToDays(notAfter.GetObject() - now);
    if (now < notBefore.GetObject()) {
        facts.validity = Validity::kNotYetValid;
    } else if (now > notAfter.GetObject()) {
        facts.validity = Validity::kExpired;
    }
    return facts;
}

Standing StoreJudge::StandingOf(const EntryJudgement& judgement,
                                const std::string& certificate) const {
    if (!judgement.faults.empty()) {
        return Standing::kWrong;
    }
    if (!judgement.certificate.has_value()) {
        return IsRequired(judgement) ? Standing::kMissing : Standing::kInOrder;
    }
    const bool isDue =
        IsAt(judgement, kClientPair) && !mValidator->CheckCertificateValidityTime(certificate, mAt);
    return isDue ? Standing::kDue : Standing::kInOrder;
}

std::shared_ptr<ICryptoStore> StoreJudge::FindStore(const std::string& name) const {
    if (name == vintrel::kTrustStoreIdKoru) {
        return mStores->lookupForKORUStore().GetObject();
    }
    return mStores->lookupTrustStore(name).GetObject();
}

}  // namespace provision
