#include "simulator/backend/journal.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <nlohmann/json.hpp>

#include <pki_support/certificates.h>
#include <posix/write_all.h>

namespace simulator::backend {

namespace {

constexpr mode_t kMode = 0644;
constexpr double kMicrosecondsPerMillisecond = 1000.0;

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

std::string ToJsonLine(const JournalEntry& entry) {
    using Json = nlohmann::ordered_json;
    const Json activationReason =
        entry.activationReason ? Json(*entry.activationReason) : Json(nullptr);
    const Json json{
        {"time", pki_support::ToText(entry.time)},
        {"duration_ms", static_cast<double>(entry.duration.count()) / kMicrosecondsPerMillisecond},
        {"remote", entry.remote},
        {"method", entry.method},
        {"target", entry.target},
        {"media_type", entry.mediaType},
        {"accept", entry.accept},
        {"status", entry.status},
        {"outcome", entry.outcome},
        {"reason", entry.reason},
        {"transaction_id", entry.transactionId},
        {"activation_reason", activationReason},
        {"operationTypeId", entry.operationTypeId},
        {"diagnostic_address", entry.diagnosticAddress},
        {"hw_version", entry.hwVersion},
        {"sw_version", entry.swVersion},
        {"part_number", entry.partNumber},
        {"vin", entry.vin},
        {"container", entry.container},
        {"csr", entry.csr},
        {"issued_chain", entry.issuedChain},
        {"scenario", entry.scenario},
    };
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Journal::Journal(const std::string& path) {
    if (path.empty()) {
        return;
    }
    mFile = posix::UniqueFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kMode));
    if (!mFile.IsValid()) {
        Fail(path);
    }
}

void Journal::Write(const JournalEntry& entry) {
    if (!mFile.IsValid()) {
        return;
    }
    if (!posix::WriteAll(mFile.Get(), ToJsonLine(entry))) {
        Fail("the journal cannot be written");
    }
}

}  // namespace simulator::backend
