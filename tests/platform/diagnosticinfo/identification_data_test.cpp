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

IdentificationData SampleRecords() {
    DT_identificationData_struct first;
    first.identifier = 0x01020304;
    first.diagnosticAddress = 0xC003;
    first.swVersion = Bytes("020.009.000");
    first.hwVersion = Bytes("001.002.003");
    first.partNumber = Bytes("VN035000A01");
    DT_identificationData_struct second;
    second.hwVersion = Bytes("");
    return {first, DT_identificationData_struct(), second};
}

TEST(IdentificationDataOnTheWire, HasTheDocumentedLayout) {
    DT_identificationData_struct record;
    record.identifier = 7;
    record.diagnosticAddress = 0x00C3;
    record.swVersion = Bytes("A");
    record.hwVersion = Bytes("");
    record.partNumber = Bytes("BC");
    EXPECT_EQ(diagnosticinfo_host::SerializeIdentificationData({record}),
              Hex("00000023 0000001F  2000 00000007  1001 00C3  7002 00000001 41  7003 00000000"
                  " 7004 00000002 4243"));
}

TEST(IdentificationDataOnTheWire, ComesBackAsItWasSent) {
    const auto payload = diagnosticinfo_host::SerializeIdentificationData(SampleRecords());
    const auto records = DiagnosticInfo::identificationData::Deserialize(payload);
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].identifier, 0x01020304U);
    EXPECT_EQ(records[0].diagnosticAddress, 0xC003);
    EXPECT_EQ(records[0].partNumber, Bytes("VN035000A01"));
    EXPECT_FALSE(records[1].identifier || records[1].swVersion || records[1].partNumber);
    EXPECT_EQ(records[2].hwVersion, Bytes(""));
    EXPECT_FALSE(records[2].swVersion);
}

TEST(IdentificationDataOnTheWire, NoPrefixOfAValueIsAValue) {
    auto payload = diagnosticinfo_host::SerializeIdentificationData(SampleRecords());
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

struct BrokenPayload {
    const char* hex;
    const char* error;
};

class BrokenIdentificationData : public testing::TestWithParam<BrokenPayload> {};

TEST_P(BrokenIdentificationData, NamesTheBrokenRule) {
    EXPECT_THAT([this] { Read(GetParam().hex); },
                testing::ThrowsMessage<DeserializeError>(GetParam().error));
}

INSTANTIATE_TEST_SUITE_P(
    Table, BrokenIdentificationData,
    testing::Values(BrokenPayload{"", kReadBeyond}, BrokenPayload{"000000", kReadBeyond},
                    BrokenPayload{"00000001", kBadEnd}, BrokenPayload{"FFFFFFFF", kBadEnd},
                    BrokenPayload{"00000002 0000", kReadBeyond},
                    BrokenPayload{"00000004 00000001", kBadEnd},
                    // the record reaches beyond the array, but not beyond the data
                    BrokenPayload{"00000006 00000006 2000 00000001", kTooSmall},
                    // a value that the record's length cuts off
                    BrokenPayload{"00000007 00000003 1001 0001", kTooSmall},
                    BrokenPayload{"0000000B 00000006 7002 00000001 41", kTooSmall},
                    BrokenPayload{"00000005 00000001 10", kReadBeyond},
                    BrokenPayload{"00000008 00000004 2000 0001", kReadBeyond},
                    BrokenPayload{"0000000A 00000006 7002 00000001", kReadBeyond},
                    BrokenPayload{"0000000A 00000006 7ABC 00000001", kSeekBeyond},
                    BrokenPayload{"00000008 00000004 3ABC 0001", kSeekBeyond},
                    BrokenPayload{"00000008 00000004 1000 0001", "Invalid source tag wire type"},
                    BrokenPayload{"0000000A 00000006 7000 00000000",
                                  "Invalid source tag wire type"},
                    BrokenPayload{"00000008 00000004 1002 0001", "Invalid source tag wire type"}));

}  // namespace
