#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "simulator/backend/journal.h"
#include "simulator/backend/scenario.h"
#include "simulator/pki/authority.h"
#include "simulator/pki/pki_directory.h"

namespace simulator::backend {

inline constexpr const char* kRequestMediaType = "application/QUBA_CO_KoruVintrelRequest_v1+proto";
inline constexpr const char* kResponseMediaType =
    "application/QUBA_CT_KoruCertificateResponse_v2+proto";
inline constexpr const char* kErrorMediaType = "application/GenericError_v2+proto";

/// The response to a request.
struct Answer {
    unsigned status = 0;
    std::string mediaType;
    std::string body;
};

/// The key-management service without its transport: validates certificate requests and issues
/// chains. One thread at a time.
class EnrolmentService {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    /// `validity` is that of issued certificates, from now on.
    EnrolmentService(pki::Pki pki, std::chrono::hours validity, Clock clock);

    /// Parses and validates a request message, answers as the scenario demands, and records the
    /// result in `entry`. A request is granted only if the container verifies against the factory
    /// root, the CSR in it is signed with its own key, and both have the same VIN. Throws only if
    /// resources are exhausted.
    Answer Handle(const std::string& body, const Scenario& scenario, JournalEntry& entry) const;

    /// An error response, recorded in `entry` under its transaction id.
    static Answer Refuse(unsigned status, const std::string& reason, JournalEntry& entry);

    std::chrono::system_clock::time_point Now() const { return mClock(); }

private:
    struct Request;

    Request Judge(const std::string& body, JournalEntry& entry) const;
    std::string IssueChain(const Request& request, const Scenario& scenario) const;
    pki::Validity ValidityFor(const Scenario& scenario) const;

    pki::Pki mPki;
    std::chrono::hours mValidity;
    Clock mClock;
};

/// A new random id, in hexadecimal digits.
std::string MakeTransactionId();

}  // namespace simulator::backend
