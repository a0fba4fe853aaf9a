#include "simulator/backend/enrolment_service.h"

#include <array>
#include <iomanip>
#include <sstream>
#include <utility>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include <pki_support/certificates.h>
#include <pki_support/pki_error.h>
#include <pki_support/vehicle_identity.h>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "simulator/backend/container.h"
#include "simulator/backend/refusal.h"

namespace simulator::backend {

namespace {

using domain::backend::proto::GenericErrorV2;
using domain::backend::proto::QUBACOKoruVintrelRequestV1;
using domain::backend::proto::QUBACTKoruCertificateResponseV2;
using openssl_support::RequestPtr;

constexpr unsigned kOk = 200;
constexpr unsigned kBadRequest = 400;
constexpr unsigned kForbidden = 403;
constexpr unsigned kInternalServerError = 500;
constexpr int kMinSecurityBits = 112;
constexpr const char* kSuffix = "C003";
constexpr const char* kOtherVehicle = "00000000000000000";
/// A unit's clock may be behind.
constexpr std::chrono::minutes kClockTolerance(5);
constexpr std::chrono::hours kDay(24);

RequestPtr ParseCsr(const std::string& der) {
    const auto* begin = reinterpret_cast<const unsigned char*>(der.data());
    const unsigned char* position = begin;
    RequestPtr csr(d2i_X509_REQ(nullptr, &position, static_cast<long>(der.size())));
    ERR_clear_error();
    if (csr == nullptr || position != begin + der.size()) {
        throw Refusal(kBadRequest, "the container does not hold a signing request");
    }
    return csr;
}

std::string ToPem(const X509_REQ& csr) {
    const openssl_support::BioPtr bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr || PEM_write_bio_X509_REQ(bio.get(), &csr) != 1) {
        throw pki_support::PkiError("cannot encode a signing request");
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

void CheckPossession(X509_REQ& csr) {
    EVP_PKEY* key = X509_REQ_get0_pubkey(&csr);
    const bool isProven = key != nullptr && X509_REQ_verify(&csr, key) == 1;
    ERR_clear_error();
    if (!isProven) {
        throw Refusal(kForbidden, "the signing request is not signed by its own key");
    }
    if (EVP_PKEY_get_security_bits(key) < kMinSecurityBits) {
        throw Refusal(kForbidden, "the key of the signing request is too weak");
    }
}

std::string FindVin(const X509& signer) {
    try {
        return pki_support::ParseCommonName(
                   pki_support::CommonName(*X509_get_subject_name(&signer)))
            .vin;
    } catch (const pki_support::PkiError& error) {
        throw Refusal(kForbidden,
                      std::string("the container's signer is no unit: ") + error.what());
    }
}

void CheckSubject(const X509_REQ& csr, const std::string& expected) {
    const X509_NAME* subject = X509_REQ_get_subject_name(&csr);
    if (X509_NAME_entry_count(subject) != 1 || pki_support::CommonName(*subject) != expected) {
        throw Refusal(kForbidden, "the signing request is for '" + pki_support::ToText(*subject) +
                                      "', the container's signer may ask for 'CN=" + expected +
                                      "'");
    }
}

void Note(const QUBACOKoruVintrelRequestV1& message, JournalEntry& entry) {
    entry.activationReason = message.activation_reason();
    entry.operationTypeId = message.operationtypeid();
    entry.diagnosticAddress = message.ecu_capability().diagnostic_address();
    entry.hwVersion = message.ecu_capability().hw_version();
    entry.swVersion = message.ecu_capability().sw_version();
    entry.partNumber = message.ecu_capability().part_number();
    entry.container = message.csr_container();
}

/// A chain to an unknown root with the same names.
pki::Authority MakeUntrustedAuthority(const pki::Validity& validity) {
    return pki::Authority::CreateRoot("Product Root", validity)
        .CreateIssuing("Product CA", validity);
}

std::string MakeBody(const std::string& chain, const Scenario& scenario) {
    if (scenario.kind == ScenarioKind::kEmpty) {
        return {};
    }
    if (scenario.kind == ScenarioKind::kGarbage) {
        // No valid tag and length of a protobuf field.
        return std::string(64, '\xff');
    }
    QUBACTKoruCertificateResponseV2 response;
    response.set_certificate(chain);
    return response.SerializeAsString();
}

}  // namespace

std::string MakeTransactionId() {
    std::array<unsigned char, 8> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw pki_support::PkiError("no random numbers");
    }
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const unsigned char byte : bytes) {
        text << std::setw(2) << static_cast<unsigned>(byte);
    }
    return text.str();
}

/// A request that may be granted.
struct EnrolmentService::Request {
    RequestPtr csr;
    std::string commonName;
};

EnrolmentService::EnrolmentService(pki::Pki pki, std::chrono::hours validity, Clock clock)
    : mPki(std::move(pki)), mValidity(validity), mClock(std::move(clock)) {}

Answer EnrolmentService::Refuse(unsigned status, const std::string& reason, JournalEntry& entry) {
    entry.outcome = "refused";
    entry.reason = reason;
    GenericErrorV2 error;
    error.set_error_code(static_cast<std::int32_t>(status));
    error.set_error_description(reason);
    error.set_transaction_id(entry.transactionId);
    return {status, kErrorMediaType, error.SerializeAsString()};
}

Answer EnrolmentService::Handle(const std::string& body, const Scenario& scenario,
                                JournalEntry& entry) const {
    try {
        const Request request = Judge(body, entry);
        if (scenario.kind == ScenarioKind::kRefuse) {
            throw Refusal(static_cast<unsigned>(scenario.parameter), "refused by the scenario");
        }
        entry.issuedChain = IssueChain(request, scenario);
        entry.outcome = "issued";
        const bool hasWrongType = scenario.kind == ScenarioKind::kWrongMediaType;
        return {kOk, hasWrongType ? "application/octet-stream" : kResponseMediaType,
                MakeBody(entry.issuedChain, scenario)};
    } catch (const Refusal& refusal) {
        return Refuse(refusal.Status(), refusal.what(), entry);
    } catch (const pki_support::PkiError& error) {
        return Refuse(kInternalServerError, error.what(), entry);
    }
}

EnrolmentService::Request EnrolmentService::Judge(const std::string& body,
                                                  JournalEntry& entry) const {
    QUBACOKoruVintrelRequestV1 message;
    if (!message.ParseFromString(body)) {
        throw Refusal(kBadRequest, "the body is no certificate request message");
    }
    Note(message, entry);
    const ContainerContent content =
        OpenContainer(message.csr_container(), mPki.factoryRoot.Certificate(), mClock());
    entry.vin = FindVin(*content.signer);
    Request request{ParseCsr(content.payload), entry.vin + ":" + kSuffix};
    entry.csr = ToPem(*request.csr);
    CheckPossession(*request.csr);
    CheckSubject(*request.csr, request.commonName);
    return request;
}

pki::Validity EnrolmentService::ValidityFor(const Scenario& scenario) const {
    const auto now = mClock();
    if (scenario.kind == ScenarioKind::kExpired) {
        return {now - kDay * 2, now - kDay};
    }
    const auto length =
        scenario.kind == ScenarioKind::kExpires ? kDay * scenario.parameter : mValidity;
    return {now - kClockTolerance, now + length};
}

std::string EnrolmentService::IssueChain(const Request& request, const Scenario& scenario) const {
    const pki::PkeyPtr otherKey =
        scenario.kind == ScenarioKind::kOtherKey ? pki::GenerateKey() : nullptr;
    pki::Authority::EndEntity endEntity;
    endEntity.commonName = scenario.kind == ScenarioKind::kWrongName
                               ? std::string(kOtherVehicle) + ":" + kSuffix
                               : request.commonName;
    endEntity.publicKey =
        otherKey != nullptr ? otherKey.get() : X509_REQ_get0_pubkey(request.csr.get());
    endEntity.validity = ValidityFor(scenario);
    endEntity.isTlsClient = true;

    const auto issue = [&endEntity](const pki::Authority& authority) {
        return pki_support::ToPem(*authority.Issue(endEntity)) +
               pki_support::ToPem(authority.Certificate());
    };
    return scenario.kind == ScenarioKind::kUntrustedRoot
               ? issue(MakeUntrustedAuthority(endEntity.validity))
               : issue(mPki.productCa);
}

}  // namespace simulator::backend
