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

/// What goes back to the peer.
struct Answer {
    unsigned status = 0;
    std::string mediaType;
    std::string body;
};

/// The key-management service without its link: judges certificate requests and issues chains. One
/// thread at a time.
class EnrolmentService {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    EnrolmentService(pki::Pki pki, std::chrono::hours validity, Clock clock);

    /// Reads a request message, judges it, and answers as the scenario wants; what it finds goes
    /// into `entry`. It grants a request only if the container verifies against the factory root,
    /// the signing request in it is signed by its own key, and both name the same VIN. Throws only
    /// for lack of resources.
    Answer Handle(const std::string& body, const Scenario& scenario, JournalEntry& entry) const;

    /// An error answer, noted in `entry` under its transaction id.
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
