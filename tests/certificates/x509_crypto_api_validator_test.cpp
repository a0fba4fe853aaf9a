#include "certificates/x509_crypto_api_validator.h"

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "certificates/log_text.h"
#include "certificates/scripted_crypto_library.h"
#include "testing/captured_log.h"

namespace vintrel {

namespace {

using std::chrono::seconds;
using std::chrono::system_clock;
using testing::ElementsAre;
using testing_support::CapturedLog;
using testing_support::kNull;
using testing_support::LogText;
using testing_support::Outcome;
using testing_support::ScriptedCryptoLibrary;

constexpr std::int64_t kNow = 1795248900;  // 2026/11/21 08:15:00 UTC
constexpr std::int64_t kYear = std::int64_t{365} * 86400;

system_clock::time_point At(std::int64_t time) {
    return system_clock::time_point(seconds(time));
}

class X509CryptoApiValidatorTest : public testing::Test {
protected:
    X509CryptoApiValidatorTest() {
        mLibrary.Reset();
        mValidator = X509ValidatorIf::CreateX509Validator();
        mLibrary.mCalls.clear();
        mLibrary.mNotBefore = kNow - 10;
        mLibrary.mNotAfter = kNow + 2 * kYear;
    }

    ScriptedCryptoLibrary& mLibrary = ScriptedCryptoLibrary::Get();
    std::shared_ptr<X509ValidatorIf> mValidator;
};

std::string Text(bool passed) {
    return passed ? "true" : "";
}
std::string CheckKey(X509ValidatorIf& validator) {
    return Text(validator.CheckCertificatePublicKey("leaf", "public key of TIV/TIV_TMP"));
}
std::string Verify(X509ValidatorIf& validator) {
    return Text(validator.VerifySignature("leaf", {'c'}, {'s'}, "any"));
}
std::string Validity(X509ValidatorIf& validator) {
    return Text(validator.CheckCertificateValidityTime("leaf", At(kNow)));
}
std::string Name(X509ValidatorIf& validator) {
    return validator.GetCertificateCommonName("leaf");
}
std::string ToDer(X509ValidatorIf& validator) {
    return validator.EncodePemToDer("pem");
}
std::string Path(X509ValidatorIf& validator) {
    return Text(validator.ValidateCertificatePath({"leaf", "ca"}, "root", "name", {}));
}
std::string Split(X509ValidatorIf& validator) {
    std::string joined;
    for (const std::string& certificate : validator.SplitCertificateChain("leaf,ca")) {
        joined += certificate + ";";
    }
    return joined;
}

TEST_F(X509CryptoApiValidatorTest, EveryFailureOfTheLibraryHasItsLineAndPassesNothing) {
    struct Row {
        std::function<std::string(X509ValidatorIf&)> mCall;
        std::string mOperation;
        Outcome mOutcome;
        std::string mLine;
    };
    const Row rows[] = {
        {CheckKey, "makeCertId", {1, 0}, "E StoreTempCertificate: makeCertId failed: 0"},
        {CheckKey, "makeCertId", kNull, "E StoreTempCertificate: makeCertId returned nullptr"},
        {CheckKey, "storeCertificate", {1, 7}, "E StoreTempCertificate: storeCertificate: 7"},
        {CheckKey, "makeKeyId", {0, 3}, "E CheckCertificatePublicKey: makeKeyId failed: 3"},
        {CheckKey, "makeKeyId", kNull, "E CheckCertificatePublicKey: makeKeyId returned null"},
        {CheckKey, "loadPublicKey", {1, 0}, "E CheckCertificatePublicKey: loadPublicKey failed: 0"},
        {CheckKey, "loadPublicKey", kNull,
         "E CheckCertificatePublicKey: The Certificate and the Key do not match!"},
        {Verify, "storeCertificate", {1, 5}, "E StoreTempCertificate: storeCertificate: 5"},
        {Verify, "makeKeyId", {1, 0}, "E VerifySignature: makeKeyId failed: 0"},
        {Verify, "makeKeyId", kNull, "E VerifySignature: makeKeyId returned null"},
        {Verify,
         "createDigitalSignature",
         {1, 0},
         "E VerifySignature: createDigitalSignature failed: 0"},
        {Verify, "createDigitalSignature", kNull,
         "E VerifySignature: createDigitalSignature returned null"},
        {Verify, "verify", {1, 8}, "E VerifySignature: verification failed: 8"},
        {ToDer, "pemToDer", {1, 0}, "E EncodePemToDer: pemToDer failed: 0"},
        {Split,
         "splitCertificatesChain",
         {0, 7},
         "E SplitCertificateChain: splitCertificatesChain failed: 7"},
        {Path,
         "verifyCertificate",
         {1, 8},
         "I ValidateCertificatePath: verifyCertificate failed: 8"},
        {Name,
         "getCertificateIssuerCommonName",
         {1, 0},
         "I GetCertificateCommonName: getCertificateIssuerCommonName failed: 0"},
        {Validity,
         "getCertificateNotBeforeDate",
         {1, 0},
         "I CheckCertificateValidityTime: getCertificateNotBeforeDate failed: 0"},
        {Validity,
         "getCertificateNotAfterDate",
         {0, 7},
         "I CheckCertificateValidityTime: getCertificateNotAfterDate failed: 7"},
    };
    for (const Row& row : rows) {
        mLibrary.Reset();
        mLibrary.Script(row.mOperation, row.mOutcome);
        CapturedLog log;
        EXPECT_EQ(row.mCall(*mValidator), "") << row.mLine;
        std::vector<std::string> lines = LogText(log);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), row.mLine);
        // What fails in the scratch store is told by the operation that needed it, too.
        lines.erase(lines.begin());
        EXPECT_EQ(lines.size(), row.mLine.find("StoreTemp") == 2 ? 1U : 0U) << row.mLine;
    }
}

TEST_F(X509CryptoApiValidatorTest, KeyAndSignatureAreCheckedThroughTheScratchCertificate) {
    CapturedLog log;
    EXPECT_EQ(CheckKey(*mValidator), "true");
    EXPECT_EQ(Verify(*mValidator), "true");
    EXPECT_THAT(
        mLibrary.mCalls,
        ElementsAre("makeCertId TIV/TIV_TMP", "storeCertificate TIV/TIV_TMP leaf",
                    "makeKeyId TIV/TIV_TMP", "loadPublicKey TIV/TIV_TMP", "makeCertId TIV/TIV_TMP",
                    "storeCertificate TIV/TIV_TMP leaf", "makeKeyId TIV/TIV_TMP",
                    "createDigitalSignature 0", "verify s over c by TIV/TIV_TMP"));
    EXPECT_THAT(LogText(log),
                ElementsAre("I CheckCertificatePublicKey: The Certificate and the Key match",
                            "I VerifySignature: verification succeeded"));
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("leaf", "public key of TIV/TIV_TM"));
}

TEST_F(X509CryptoApiValidatorTest, EmptyArgumentsNeverReachTheLibrary) {
    CapturedLog log;
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("", ""));
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("", "key"));
    EXPECT_FALSE(mValidator->ValidateCertificatePath({"leaf"}, "", "", {}));
    EXPECT_FALSE(mValidator->ValidateCertificatePath({}, "root", "", {}));
    EXPECT_TRUE(mValidator->ValidateCertificatePath({}, "root", "name", {}));
    EXPECT_THAT(LogText(log),
                ElementsAre("E CheckCertificatePublicKey: Invalid public key",
                            "E StoreTempCertificate: certificate is empty",
                            "E CheckCertificatePublicKey: StoreTempCertificate failed",
                            "E ValidateCertificatePath: provided root certificate is empty",
                            "E ValidateCertificatePath: provided common name is empty"));
    EXPECT_THAT(mLibrary.mCalls, testing::IsEmpty());
}

TEST_F(X509CryptoApiValidatorTest, EachCertificateIsVerifiedByTheNextAndTheLastByTheRoot) {
    EXPECT_TRUE(mValidator->ValidateCertificatePath({"leaf", "ca", "top"}, "root", "name", {}));
    EXPECT_TRUE(mValidator->ValidateCertificatePath({"single"}, "root", "name", {}));
    mLibrary.Script("verifyCertificate", {1, 8}, 5);
    EXPECT_FALSE(mValidator->ValidateCertificatePath({"one", "two"}, "root", "name", {}));
    EXPECT_THAT(mLibrary.mCalls,
                ElementsAre("verifyCertificate leaf by ca", "verifyCertificate ca by top",
                            "verifyCertificate top by root", "verifyCertificate single by root",
                            "verifyCertificate one by two"));
}

TEST_F(X509CryptoApiValidatorTest, PlainValuesComeBackUnchanged) {
    EXPECT_EQ(Split(*mValidator), "leaf;ca;");
    EXPECT_EQ(Name(*mValidator), "name in leaf");
    EXPECT_EQ(ToDer(*mValidator), "DER of pem");
}

TEST_F(X509CryptoApiValidatorTest, ValidMeansNowAndForAYear) {
    constexpr std::int64_t kYear9999 = 253402300799;
    constexpr std::int64_t kYear0001 = -62135596800;
    struct Row {
        std::int64_t mNotBefore;
        std::int64_t mNotAfter;
        const char* mVerdict;
    };
    const char* const valid = "The Certificate is currently valid";
    const char* const notYet = "The Certificate is not valid yet";
    const char* const ends = "The Certificate expires in less than one year";
    const Row rows[] = {
        {kNow - 10, kNow + kYear, valid},
        {kNow - 10, kNow + kYear + 1, valid},
        {kNow - 10, kNow + kYear - 1, ends},
        {kNow - 10, kNow + kYear - 86400, ends},
        {kNow - 10, kNow - 1, ends},
        {kNow, kNow + kYear, valid},
        {kNow + 1, kNow + 2 * kYear, notYet},
        {kNow + 1, kNow, notYet},
        {kYear0001, kYear9999, valid},
        {kYear9999, kYear9999, notYet},
        {kYear0001, kYear0001, ends},
        {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), valid},
    };
    for (const Row& row : rows) {
        mLibrary.mNotBefore = row.mNotBefore;
        mLibrary.mNotAfter = row.mNotAfter;
        CapturedLog log;
        EXPECT_EQ(Validity(*mValidator), Text(row.mVerdict == valid));
        EXPECT_EQ(LogText(log).back(), std::string("I ") + row.mVerdict)
            << row.mNotBefore << " to " << row.mNotAfter;
    }
    EXPECT_TRUE(mValidator->CheckCertificateValidityTime("leaf", system_clock::time_point::max()));
}

TEST_F(X509CryptoApiValidatorTest, TheJudgementLogsTheTimesItIsMadeOf) {
    CapturedLog log;
    Validity(*mValidator);
    const std::string prefix = "I X509CryptoApiValidator: ";
    EXPECT_THAT(LogText(log),
                ElementsAre(prefix + "Current system time is 2026/11/21 08:15:00 UTC",
                            prefix + "The TIV Certificate is valid from 2026/11/21 08:14:50 UTC",
                            prefix + "The TIV Certificate expires at 2028/11/20 08:15:00 UTC",
                            "I The Certificate is currently valid"));
}

TEST_F(X509CryptoApiValidatorTest, PartsOfASecondAreCutOffTowardTheEpoch) {
    EXPECT_EQ(timePointToString(At(0) + std::chrono::milliseconds(1999)),
              "1970/01/01 00:00:01 UTC");
    EXPECT_EQ(timePointToString(At(0) - std::chrono::milliseconds(999)), "1970/01/01 00:00:00 UTC");
    EXPECT_EQ(timePointToString(At(-1)), "1969/12/31 23:59:59 UTC");
}

TEST_F(X509CryptoApiValidatorTest, ConstructionFailsWithTheTextOfItsStep) {
    const auto error = [this](const std::string& operation, Outcome outcome) -> std::string {
        mLibrary.Script(operation, outcome, mLibrary.Count(operation) + 1);
        try {
            X509CryptoApiValidator validator;
        } catch (const std::runtime_error& exception) {
            return exception.what();
        }
        return "";
    };
    EXPECT_EQ(error("createCertificateHandler", {1, 0}), "createCertificateHandler failed");
    EXPECT_EQ(error("createCertificateHandler", kNull), "createCertificateHandler returned null");
    EXPECT_EQ(error("createTrustStoreManager", {0, 5}), "createTrustStoreManager failed");
    EXPECT_EQ(error("createTrustStoreManager", kNull), "createTrustStoreManager returned null");
    EXPECT_EQ(error("lookupTrustStore", {1, 4}), "");
    mLibrary.Script("lookupTrustStore", {1, 4});
    EXPECT_EQ(error("createTrustStore", {1, 0}), "Failed to create temporary trust store");
}

TEST_F(X509CryptoApiValidatorTest, WithANullStoreTheChecksThatNeedItFail) {
    mLibrary.Script("lookupTrustStore", kNull);
    mValidator = X509ValidatorIf::CreateX509Validator();
    EXPECT_EQ(mLibrary.Count("createTrustStore"), 0);
    CapturedLog log;
    EXPECT_EQ(CheckKey(*mValidator), "");
    EXPECT_EQ(Verify(*mValidator), "");
    EXPECT_EQ(LogText(log).back(), "E VerifySignature: StoreTempCertificate failed");
    EXPECT_EQ(Path(*mValidator), "true");
}

}  // namespace

}  // namespace vintrel
