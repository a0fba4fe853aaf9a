#include "diagnosticinfo_host/identification_data.h"

#include <orv/services/diagnosticinfo/diagnostic_info.h>
#include <someip/wire/deserializer.h>
#include <someip/wire/serializer.h>

namespace orv::services::diagnosticinfo {

namespace {

using datatypes::DT_identificationData_struct;
using someip::Deserializer;
using someip::RecordMember;
using someip::WireType;

constexpr RecordMember kIdentifier{0, WireType::kBase32};
constexpr RecordMember kDiagnosticAddress{1, WireType::kBase16};
constexpr RecordMember kSwVersion{2, WireType::kLength32};
constexpr RecordMember kHwVersion{3, WireType::kLength32};
constexpr RecordMember kPartNumber{4, WireType::kLength32};

const std::vector<RecordMember>& Model() {
    static const std::vector<RecordMember> model{kIdentifier, kDiagnosticAddress, kSwVersion,
                                                 kHwVersion, kPartNumber};
    return model;
}

eb::com::optional<std::vector<std::uint8_t>> ReadByteArray(Deserializer& in,
                                                           const RecordMember& member,
                                                           std::size_t recordEnd) {
    const auto wireType = in.FindMember(member, Model(), recordEnd);
    if (!wireType) {
        return std::nullopt;
    }
    return in.ReadByteArray(*wireType);
}

DT_identificationData_struct ReadRecord(Deserializer& in) {
    const std::size_t end = in.BeginRecord();
    DT_identificationData_struct record;
    if (in.FindMember(kIdentifier, Model(), end)) {
        record.identifier = in.ReadU32();
    }
    if (in.FindMember(kDiagnosticAddress, Model(), end)) {
        record.diagnosticAddress = in.ReadU16();
    }
    record.swVersion = ReadByteArray(in, kSwVersion, end);
    record.hwVersion = ReadByteArray(in, kHwVersion, end);
    record.partNumber = ReadByteArray(in, kPartNumber, end);
    in.FinishAt(end);
    return record;
}

void WriteRecord(someip::Serializer& out, const DT_identificationData_struct& record) {
    const std::size_t begin = out.BeginLength();
    if (record.identifier) {
        out.WriteTag(kIdentifier.wireType, kIdentifier.dataId);
        out.WriteU32(*record.identifier);
    }
    if (record.diagnosticAddress) {
        out.WriteTag(kDiagnosticAddress.wireType, kDiagnosticAddress.dataId);
        out.WriteU16(*record.diagnosticAddress);
    }
    if (record.swVersion) {
        out.WriteByteArrayMember(kSwVersion.dataId, *record.swVersion);
    }
    if (record.hwVersion) {
        out.WriteByteArrayMember(kHwVersion.dataId, *record.hwVersion);
    }
    if (record.partNumber) {
        out.WriteByteArrayMember(kPartNumber.dataId, *record.partNumber);
    }
    out.EndLength(begin);
}

}  // namespace

DiagnosticInfo::identificationData::value_type DiagnosticInfo::identificationData::Deserialize(
    const std::vector<std::uint8_t>& payload) {
    Deserializer in(payload.data(), payload.size());
    const std::size_t end = in.BeginArray();
    value_type records;
    while (in.Position() < end) {
        records.push_back(ReadRecord(in));
    }
    in.FinishAt(end);
    return records;
}

}  // namespace orv::services::diagnosticinfo

namespace diagnosticinfo_host {

std::vector<std::uint8_t> SerializeIdentificationData(const IdentificationData& records) {
    someip::Serializer out;
    const std::size_t begin = out.BeginLength();
    for (const auto& record : records) {
        orv::services::diagnosticinfo::WriteRecord(out, record);
    }
    out.EndLength(begin);
    return out.Take();
}

}  // namespace diagnosticinfo_host
