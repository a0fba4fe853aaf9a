// The value of the field identificationData: an array of records with tagged members.

#include "diagnosticinfo_host/identification_data.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include <someip/wire/deserializer.h>

#include "fuzz/check.h"

namespace {

using diagnosticinfo_host::IdentificationData;
using fuzz::Check;
using Bytes = std::vector<std::uint8_t>;

/// All rules that a payload can break here; the others are those of another deployment.
constexpr std::array<std::string_view, 6> kRules{
    "Read beyond the end of the data buffer",
    "Seek beyond the end of the data buffer",
    "Deserialization calculated invalid end position.",
    "Deserialization detected std::size_t overflow.",
    "Invalid source tag wire type",
    "Violation of [PRS_SOMEIP_00900]: Record length given by sender is too small. This is possibly "
    "due to a mismatch between the data models of sender and receiver.",
};

bool IsSame(const IdentificationData& left, const IdentificationData& right) {
    return std::equal(
        left.begin(), left.end(), right.begin(), right.end(), [](const auto& a, const auto& b) {
            return a.identifier == b.identifier && a.diagnosticAddress == b.diagnosticAddress &&
                   a.swVersion == b.swVersion && a.hwVersion == b.hwVersion &&
                   a.partNumber == b.partNumber;
        });
}

std::size_t TextSize(const IdentificationData& records) {
    std::size_t size = 0;
    for (const auto& record : records) {
        for (const auto* member : {&record.swVersion, &record.hwVersion, &record.partNumber}) {
            size += *member ? (*member)->size() : 0;
        }
    }
    return size;
}

/// Nothing for a payload that breaks a rule.
std::optional<IdentificationData> Read(const Bytes& payload) {
    using orv::services::diagnosticinfo::DiagnosticInfo;
    try {
        return DiagnosticInfo::identificationData::Deserialize(payload);
    } catch (const someip::DeserializeError& error) {
        Check(std::find(kRules.begin(), kRules.end(), error.what()) != kRules.end(),
              "a failure names its rule");
        return std::nullopt;
    }
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const auto records = Read(Bytes(input.begin(), input.end()));
    if (!records) {
        return;
    }
    Check(records->size() * 4 <= input.size(), "each record has its length field");
    Check(TextSize(*records) <= input.size(), "texts are no longer than the payload");
    const auto again = Read(diagnosticinfo_host::SerializeIdentificationData(*records));
    Check(again && IsSame(*again, *records), "a value survives being written and read");
    Bytes longer(input.begin(), input.end());
    longer.push_back(0);
    const auto same = Read(longer);
    Check(same && IsSame(*same, *records), "what stands behind the array changes nothing");
}
