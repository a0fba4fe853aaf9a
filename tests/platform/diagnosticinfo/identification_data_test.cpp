#include "diagnosticinfo_host/identification_data.h"

#include <gmock/gmock.h>

#include <someip/wire/deserializer.h>

#include "platform/support/someip/hex.h"

namespace {

using diagnosticinfo_host::IdentificationData;
using orv::services::diagnosticinfo::DiagnosticInfo;
using orv::services::diagnosticinfo::datatypes::DT_identificationData_struct;
using someip::DeserializeError;

constexpr const char* kTooSmall =
    "Violation of [PRS_SOMEIP_00900]: Record length given by sender is too small. This is possibly "
    "due to a mismatch between the data models of sender and receiver.";
constexpr const char* kReadBeyond = "Read beyond the end of the data buffer";
constexpr const char* kSeekBeyond = "Seek beyond the end of the data buffer";
constexpr const char* kBadEnd = "Deserialization calculated invalid end position.";

std::vector<std::uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

IdentificationData Read(const std::string& hex) {
    return DiagnosticInfo::identificationData::Deserialize(Hex(hex));
}

/// Array with one record of these members.
std::string OneRecord(const std::string& members) {
    const std::size_t size = Hex(members).size();
    char head[32];
    std::snprintf(head, sizeof(head), "%08zX %08zX ", size + 4, size);
    return head + members;
}

TEST(IdentificationDataOnTheWire, HasTheDocumentedLayoutAndComesBackOnlyAsAWhole) {
    DT_identificationData_struct record;
    record.identifier = 7;
    record.diagnosticAddress = 0x00C3;
    record.swVersion = Bytes("A");
    record.hwVersion = Bytes("");
    record.partNumber = Bytes("BC");
    auto payload = diagnosticinfo_host::SerializeIdentificationData({record, {}});
    EXPECT_EQ(payload,
              Hex("00000027 0000001F  2000 00000007  1001 00C3  7002 00000001 41  7003 00000000"
                  " 7004 00000002 4243 00000000"));
    const auto records = DiagnosticInfo::identificationData::Deserialize(payload);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].identifier, 7U);
    EXPECT_EQ(records[0].diagnosticAddress, 0x00C3);
    EXPECT_EQ(records[0].swVersion, Bytes("A"));
    EXPECT_EQ(records[0].hwVersion, Bytes(""));
    EXPECT_EQ(records[0].partNumber, Bytes("BC"));
    EXPECT_FALSE(records[1].identifier || records[1].swVersion || records[1].hwVersion);
    while (!payload.empty()) {
        payload.pop_back();
        EXPECT_THROW(DiagnosticInfo::identificationData::Deserialize(payload), DeserializeError)
            << payload.size();
    }
}

TEST(IdentificationDataOnTheWire, UnknownMembersOfEveryWireTypeArePassedOver) {
    for (const char* unknown :
         {"0ABC 11", "1ABC 1111", "2ABC 11111111", "3ABC 1111111111111111", "4ABC 00000001 11",
          "5ABC 02 1111", "6ABC 0003 111111", "7ABC 00000000", "FABC 00000001 11"}) {
        const auto records =
            Read(OneRecord(std::string("1001 0001 ") + unknown + " 7003 00000001 48"));
        ASSERT_EQ(records.size(), 1U) << unknown;
        EXPECT_EQ(records[0].diagnosticAddress, 1) << unknown;
        EXPECT_FALSE(records[0].swVersion) << unknown;
        EXPECT_EQ(records[0].hwVersion, Bytes("H")) << unknown;
    }
}

TEST(IdentificationDataOnTheWire, MembersOutOfOrderAreAbsentUntilTheirTurn) {
    // The part number comes first, so that the four members before it are taken as absent; what
    // stands behind it has had its turn.
    const auto records = Read(OneRecord("7004 00000001 50 7002 00000001 53"));
    ASSERT_EQ(records.size(), 1U);
    EXPECT_FALSE(records[0].swVersion);
    EXPECT_EQ(records[0].partNumber, Bytes("P"));

    const auto skipping = Read(OneRecord("7003 00000001 48 7004 00000001 50"));
    EXPECT_FALSE(skipping[0].identifier || skipping[0].diagnosticAddress || skipping[0].swVersion);
    EXPECT_EQ(skipping[0].hwVersion, Bytes("H"));
    EXPECT_EQ(skipping[0].partNumber, Bytes("P"));
}

TEST(IdentificationDataOnTheWire, LengthFieldsOfAnySizeAndTheReservedBitAreAccepted) {
    for (const char* member : {"4002 00000002 4142", "5002 02 4142", "6002 0002 4142",
                               "7002 00000002 4142", "F002 00000002 4142"}) {
        EXPECT_EQ(Read(OneRecord(member))[0].swVersion, Bytes("AB")) << member;
    }
}

TEST(IdentificationDataOnTheWire, RecordsMayEndInMembersOfANewerSender) {
    const auto records = Read(
        "0000001C 0000000D 7004 00000001 50 7FFF 00000000 00000007 1001 00C3"
        " 5123 00");
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].partNumber, Bytes("P"));
    EXPECT_EQ(records[1].diagnosticAddress, 0xC3);
}

TEST(IdentificationDataOnTheWire, ABrokenPayloadNamesTheBrokenRule) {
    const std::pair<const char*, const char*> payloads[] = {
        {"", kReadBeyond},
        {"000000", kReadBeyond},
        {"00000001", kBadEnd},
        {"FFFFFFFF", kBadEnd},
        {"00000002 0000", kReadBeyond},
        {"00000004 00000001", kBadEnd},
        // the record reaches beyond the array, but not beyond the data
        {"00000006 00000006 2000 00000001", kTooSmall},
        // a value that the record's length cuts off
        {"00000007 00000003 1001 0001", kTooSmall},
        {"0000000B 00000006 7002 00000001 41", kTooSmall},
        {"00000005 00000001 10", kReadBeyond},
        {"00000008 00000004 2000 0001", kReadBeyond},
        {"0000000A 00000006 7002 00000001", kReadBeyond},
        {"0000000A 00000006 7ABC 00000001", kSeekBeyond},
        {"00000008 00000004 3ABC 0001", kSeekBeyond},
        {"00000008 00000004 1000 0001", "Invalid source tag wire type"},
        {"0000000A 00000006 7000 00000000", "Invalid source tag wire type"},
        {"00000008 00000004 1002 0001", "Invalid source tag wire type"}};
    for (const auto& [hex, error] : payloads) {
        const std::string payload = hex;
        EXPECT_THAT([&] { Read(payload); }, testing::ThrowsMessage<DeserializeError>(error))
            << payload;
    }
}

}  // namespace
