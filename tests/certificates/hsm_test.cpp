#include "certificates/hsm.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "certificates/client_cert_initializer_api.h"
#include "certificates/log_text.h"
#include "certificates/x509_validator_if.h"
#include "testing/captured_log.h"

namespace vintrel {

namespace {

using orv::tee::ClientCertInitializerAPI;
using orv::tee::MockTeeError;
using std::chrono::system_clock;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::NiceMock;
using testing::Return;
using testing_support::CapturedLog;
using testing_support::LogText;

using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<std::string>;

class ClientCertApiMock : public ClientCertInitializerAPI {
public:
    MOCK_METHOD(MockTeeError, generate_private_key, (std::string), (override));
    MOCK_METHOD(Bytes, generate_csr, (std::string, std::string), (override));
    MOCK_METHOD(Bytes, generate_signature, (std::string, Bytes, std::string), (override));
    MOCK_METHOD(std::string, get_public_key, (std::string), (override));
    MOCK_METHOD(std::string, get_client_cert, (std::string), (override));
    MOCK_METHOD(MockTeeError, set_client_cert_and_move_key, (std::string, std::string, std::string),
                (override));
    MOCK_METHOD(std::string, get_root_cert_bundle, (std::string), (override));
    MOCK_METHOD(std::string, get_koru_vin, (), (override));
};

class ValidatorMock : public X509ValidatorIf {
public:
    MOCK_METHOD(Chain, SplitCertificateChain, (std::string), (const, override));
    MOCK_METHOD(std::string, EncodePemToDer, (const std::string&), (const, override));
    MOCK_METHOD(bool, ValidateCertificatePath,
                (const Chain&, const std::string&, const std::string&, system_clock::time_point),
                (const, override));
    MOCK_METHOD(bool, CheckCertificatePublicKey, (const std::string&, const std::string&),
                (const, override));
    MOCK_METHOD(std::string, GetCertificateCommonName, (const std::string&), (const, override));
    MOCK_METHOD(bool, CheckCertificateValidityTime, (const std::string&, system_clock::time_point),
                (const, override));
    MOCK_METHOD(bool, VerifySignature,
                (const std::string&, const Bytes&, const Bytes&, const std::string&),
                (const, override));
};

std::shared_ptr<ClientCertApiMock> theApi;
std::shared_ptr<ValidatorMock> theValidator;

constexpr const char* kAlgorithm = "EMSA1(SHA-256)";
const system_clock::time_point kNow{std::chrono::seconds(1795248900)};

/// Answers exactly the right questions with what a sound store would answer; everything else gets
/// the mocks' default, which is a failure.
class HsmTest : public testing::Test {
protected:
    HsmTest() {
        theApi = std::make_shared<NiceMock<ClientCertApiMock>>();
        theValidator = std::make_shared<NiceMock<ValidatorMock>>();
        mHsm = std::make_unique<Hsm>([] { return kNow; });
        ON_CALL(*theApi, get_client_cert("TIV")).WillByDefault(Return("stored"));
        ON_CALL(*theApi, get_client_cert("BASE")).WillByDefault(Return("base"));
        ON_CALL(*theApi, get_public_key("TIV")).WillByDefault(Return("accepted key"));
        ON_CALL(*theApi, get_public_key("TIV_CSR")).WillByDefault(Return("pending key"));
        ON_CALL(*theApi, get_root_cert_bundle("KORU")).WillByDefault(Return("root"));
        ON_CALL(*theApi, generate_signature("TIV", Bytes{'V', 'I', 'N'}, kAlgorithm))
            .WillByDefault(Return(Bytes{'s'}));
        ON_CALL(*theValidator, SplitCertificateChain(_)).WillByDefault(Return(Chain{"leaf", "ca"}));
        SetCommonName("VIN:C003");
        ON_CALL(*theValidator,
                VerifySignature("leaf", Bytes{'V', 'I', 'N'}, Bytes{'s'}, kAlgorithm))
            .WillByDefault(Return(true));
        ON_CALL(*theValidator,
                ValidateCertificatePath(Chain{"leaf", "ca"}, "root", "VIN:C003", kNow))
            .WillByDefault(Return(true));
        ON_CALL(*theValidator, CheckCertificateValidityTime("leaf", kNow))
            .WillByDefault(Return(true));
    }

    ~HsmTest() override {
        mHsm.reset();
        theApi.reset();
        theValidator.reset();
    }

    void SetCommonName(const std::string& name) {
        ON_CALL(*theValidator, GetCertificateCommonName("leaf")).WillByDefault(Return(name));
    }

    void AcceptKey(const std::string& publicKey) {
        ON_CALL(*theValidator, CheckCertificatePublicKey("leaf", publicKey))
            .WillByDefault(Return(true));
    }

    std::unique_ptr<Hsm> mHsm;
};

TEST_F(HsmTest, ASoundStoredCertificateIsOk) {
    AcceptKey("accepted key");
    CapturedLog log;
    EXPECT_EQ(mHsm->CheckTrustStoreTivValidity("VIN"), StatusCode::Ok);
    EXPECT_THAT(
        LogText(log),
        ElementsAre("I CN derived from the VIN: VIN:C003", "I CN from the Certificate: VIN:C003",
                    "I The CN from the Certificate and the CN derived from VIN match",
                    "D CheckTrustStoreTivValidity: Signature verification passed"));
}

TEST_F(HsmTest, TheFirstFaultOfAStoredCertificateGivesTheStatus) {
    // All faults at once, then one after the other is mended, in the order of the checks.
    ON_CALL(*theValidator, SplitCertificateChain(_)).WillByDefault(Return(Chain{}));
    SetCommonName("");
    ON_CALL(*theValidator, VerifySignature(_, _, _, _)).WillByDefault(Return(false));
    ON_CALL(*theValidator, ValidateCertificatePath(_, _, _, _)).WillByDefault(Return(false));
    ON_CALL(*theValidator, CheckCertificateValidityTime(_, _)).WillByDefault(Return(false));
    const auto judge = [this] { return mHsm->CheckTrustStoreTivValidity("VIN"); };

    EXPECT_EQ(judge(), StatusCode::NoCertificate);
    ON_CALL(*theValidator, SplitCertificateChain("stored"))
        .WillByDefault(Return(Chain{"leaf", "ca"}));
    EXPECT_EQ(judge(), StatusCode::CommonNameMismatch);
    SetCommonName("VIN:C004");
    EXPECT_EQ(judge(), StatusCode::CommonNameMismatch);
    SetCommonName("VIN:C003");
    AcceptKey("pending key");
    EXPECT_EQ(judge(), StatusCode::KeyMismatch);
    AcceptKey("accepted key");
    CapturedLog log;
    EXPECT_EQ(judge(), StatusCode::KeyMismatch);
    EXPECT_EQ(LogText(log).back(), "E CheckTrustStoreTivValidity: Signature verification failed");
    ON_CALL(*theValidator, VerifySignature(_, _, _, _)).WillByDefault(Return(true));
    EXPECT_EQ(judge(), StatusCode::PathInvalid);
    ON_CALL(*theValidator, ValidateCertificatePath(_, _, _, _)).WillByDefault(Return(true));
    EXPECT_EQ(judge(), StatusCode::ExpiresWithinYear);
}

TEST_F(HsmTest, AnEmptyVinMatchesNoOrdinaryCertificate) {
    EXPECT_EQ(mHsm->CheckTrustStoreTivValidity(""), StatusCode::CommonNameMismatch);
    EXPECT_TRUE(mHsm->CheckTivCertificate("received", ""));
}

TEST_F(HsmTest, AReceivedChainMustPassEveryCheckButTheDates) {
    EXPECT_CALL(*theValidator, CheckCertificateValidityTime(_, _)).Times(0);
    EXPECT_CALL(*theValidator, SplitCertificateChain("received"))
        .WillOnce(Return(Chain{}))
        .WillRepeatedly(Return(Chain{"leaf", "ca"}));
    const auto failed = [this] { return mHsm->CheckTivCertificate("received", "VIN"); };

    EXPECT_TRUE(failed());
    SetCommonName("");
    EXPECT_TRUE(failed());
    SetCommonName("VIN:C003 ");
    CapturedLog log;
    EXPECT_TRUE(failed());
    EXPECT_EQ(LogText(log).back(),
              "I The CN from the Certificate and the CN derived from VIN do not match");
    SetCommonName("VIN:C003");
    AcceptKey("accepted key");
    EXPECT_TRUE(failed());
    AcceptKey("pending key");
    EXPECT_FALSE(failed());
    ON_CALL(*theValidator, ValidateCertificatePath(_, _, _, _)).WillByDefault(Return(false));
    EXPECT_TRUE(failed());
}

TEST_F(HsmTest, GenerateCsrTouchesThePendingKeyOnly) {
    CapturedLog log;
    EXPECT_THAT(mHsm->GenerateCsr(""), IsEmpty());
    EXPECT_CALL(*theApi, generate_private_key("TIV_CSR"))
        .WillOnce(Return(MockTeeError::kFailure))
        .WillRepeatedly(Return(MockTeeError::kSuccess));
    EXPECT_CALL(*theApi, generate_csr("VIN:C003", "TIV_CSR"))
        .WillOnce(Return(Bytes{}))
        .WillOnce(Return(Bytes{1, 2}));
    EXPECT_THAT(mHsm->GenerateCsr("VIN"), IsEmpty());
    EXPECT_THAT(mHsm->GenerateCsr("VIN"), IsEmpty());
    EXPECT_EQ(mHsm->GenerateCsr("VIN"), (Bytes{1, 2}));
    EXPECT_THAT(LogText(log),
                ElementsAre("E Provided VIN is empty", "E Failed to generate the Keys!",
                            "I The Keys were generated successfully", "E Generated CSR was empty!",
                            "I The Keys were generated successfully",
                            "I The CSR was generated successfully"));
}

TEST_F(HsmTest, TheVinIsWhatStandsBeforeTheFirstColonOfTheBaseCertificatesName) {
    struct Row {
        std::string mName;
        std::string mVin;
        std::string mLine;
    };
    const std::string failed = "E GetKoruVin: VIN parsing failed from certificate common name: ";
    const Row rows[] = {
        {"VIN:XYZ", "VIN",
         "I GetKoruVin: Returning VIN: 'VIN' from certificate common name: 'VIN:XYZ', certificate "
         "ID: 'BASE'"},
        {"A:B:C", "A",
         "I GetKoruVin: Returning VIN: 'A' from certificate common name: 'A:B:C', certificate ID: "
         "'BASE'"},
        {"VIN", "", failed + "'VIN'"},
        {":C003", "", failed + "':C003'"},
        {"", "", "E GetKoruVin: Can't get a certificate common name"},
    };
    for (const Row& row : rows) {
        SetCommonName(row.mName);
        CapturedLog log;
        EXPECT_EQ(mHsm->GetKoruVin(), row.mVin);
        EXPECT_THAT(LogText(log), ElementsAre(row.mLine));
    }
    EXPECT_CALL(*theValidator, SplitCertificateChain("base")).WillOnce(Return(Chain{}));
    CapturedLog log;
    EXPECT_EQ(mHsm->GetKoruVin(), "");
    EXPECT_THAT(LogText(log), ElementsAre("E GetKoruVin: Certificate parsing failed"));
}

TEST_F(HsmTest, StoringAndDeletingReportFailureAsTrue) {
    EXPECT_CALL(*theApi, set_client_cert_and_move_key("chain", "TIV_CSR", "TIV"))
        .WillOnce(Return(MockTeeError::kSuccess))
        .WillOnce(Return(MockTeeError::kInvalidCall));
    EXPECT_FALSE(mHsm->StoreTivCertificateToTrustStore("chain"));
    EXPECT_TRUE(mHsm->StoreTivCertificateToTrustStore("chain"));
    EXPECT_CALL(*theApi, set_client_cert_and_move_key("", "", "TIV"))
        .WillOnce(Return(MockTeeError::kSuccess))
        .WillOnce(Return(MockTeeError::kFailure));
    EXPECT_FALSE(mHsm->DeleteTivCertificateFromTrustStore());
    EXPECT_TRUE(mHsm->DeleteTivCertificateFromTrustStore());
}

TEST_F(HsmTest, WithoutAClockOfItsOwnTheSystemClockDecides) {
    AcceptKey("accepted key");
    system_clock::time_point atPath;
    system_clock::time_point atValidity;
    EXPECT_CALL(*theValidator, ValidateCertificatePath(_, _, _, _))
        .WillOnce(testing::DoAll(testing::SaveArg<3>(&atPath), Return(true)));
    EXPECT_CALL(*theValidator, CheckCertificateValidityTime("leaf", _))
        .WillOnce(testing::DoAll(testing::SaveArg<1>(&atValidity), Return(true)));
    const auto before = system_clock::now();
    EXPECT_EQ(Hsm().CheckTrustStoreTivValidity("VIN"), StatusCode::Ok);
    EXPECT_LE(before, atPath);
    EXPECT_LE(atPath, system_clock::now());
    EXPECT_EQ(atPath, atValidity);
}

}  // namespace

// Take the places of the real ones.
std::shared_ptr<X509ValidatorIf> X509ValidatorIf::CreateX509Validator() {
    return theValidator;
}

}  // namespace vintrel

namespace orv::tee {

std::shared_ptr<ClientCertInitializerAPI> ClientCertInitializerAPI::get_instance() {
    return vintrel::theApi;
}

}  // namespace orv::tee
