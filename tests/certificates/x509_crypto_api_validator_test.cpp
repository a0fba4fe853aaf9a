#include "certificates/x509_crypto_api_validator.h"

#include <chrono>
#include <limits>
#include <memory>

#include "certificates/scripted_library_test.h"

namespace vintrel {

namespace {

using std::chrono::system_clock;
using testing::ElementsAre;

constexpr std::int64_t kNow = 1795248900;  // 2026/11/21 08:15:00 UTC
constexpr std::int64_t kYear = std::int64_t{365} * 86400;
constexpr std::int64_t kYear9999 = 253402300799;
constexpr std::int64_t kYear0001 = -62135596800;

system_clock::time_point At(std::int64_t time) {
    return system_clock::time_point(std::chrono::seconds(time));
}

class X509CryptoApiValidatorTest : public testing_support::ScriptedLibraryTest {
protected:
    X509CryptoApiValidatorTest() {
        mValidator = X509ValidatorIf::CreateX509Validator();
        mLibrary.mCalls.clear();
        mLibrary.mNotBefore = kNow - 10;
        mLibrary.mNotAfter = kNow + 2 * kYear;
    }

    std::shared_ptr<X509ValidatorIf> mValidator;
};

TEST_F(X509CryptoApiValidatorTest, EmptyArgumentsNeverReachTheLibrary) {
    CapturedLog log;
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("", ""));
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("", "key"));
    EXPECT_FALSE(mValidator->ValidateCertificatePath({"leaf"}, "", "", {}));
    EXPECT_FALSE(mValidator->ValidateCertificatePath({}, "root", "", {}));
    EXPECT_TRUE(mValidator->ValidateCertificatePath({}, "root", "name", {}));
    EXPECT_THAT(log.Lines(),
                ElementsAre("E CheckCertificatePublicKey: Invalid public key",
                            "E StoreTempCertificate: certificate is empty",
                            "E CheckCertificatePublicKey: StoreTempCertificate failed",
                            "E ValidateCertificatePath: provided root certificate is empty",
                            "E ValidateCertificatePath: provided common name is empty"));
    EXPECT_THAT(mLibrary.mCalls, testing::IsEmpty());
}

TEST_F(X509CryptoApiValidatorTest, ValidMeansNowAndForAYear) {
    const std::string valid = "I The Certificate is currently valid";
    const std::string notYet = "I The Certificate is not valid yet";
    const std::string ends = "I The Certificate expires in less than one year";
    const std::string noText = "E timePointToStringError: gmtime returned nullptr";
    const auto judge = [this](std::int64_t notBefore, std::int64_t notAfter) {
        mLibrary.mNotBefore = notBefore;
        mLibrary.mNotAfter = notAfter;
        CapturedLog log;
        const bool isValid = mValidator->CheckCertificateValidityTime("leaf", At(kNow));
        EXPECT_EQ(isValid, log.Lines().back() == "I The Certificate is currently valid");
        return log.Lines();
    };
    const auto times = [](const std::string& from, const std::string& until) {
        const std::string prefix = "I X509CryptoApiValidator: ";
        return ElementsAre(prefix + "Current system time is 2026/11/21 08:15:00 UTC",
                           prefix + "The TIV Certificate is valid from " + from,
                           prefix + "The TIV Certificate expires at " + until, testing::_);
    };
    EXPECT_EQ(judge(kNow + 1, kNow).back(), notYet);

    EXPECT_EQ(judge(kYear9999, kYear9999).back(), notYet);
    EXPECT_EQ(judge(kYear0001, kYear0001).back(), ends);
    // Neither end is one that the clock reaches.
    const std::vector<std::string> wide = judge(kYear0001, kYear9999);
    EXPECT_EQ(wide.back(), valid);
    EXPECT_THAT(wide, times("1/01/01 00:00:00 UTC", "9999/12/31 23:59:59 UTC"));
    const std::vector<std::string> endless = judge(kNow, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(endless.back(), valid);
    EXPECT_THAT(endless, testing::Contains(noText));
    EXPECT_TRUE(mValidator->CheckCertificateValidityTime("leaf", system_clock::time_point::max()));
}

TEST_F(X509CryptoApiValidatorTest, PartsOfASecondAreCutOffTowardTheEpoch) {
    EXPECT_EQ(timePointToString(At(0) + std::chrono::milliseconds(1999)),
              "1970/01/01 00:00:01 UTC");
    EXPECT_EQ(timePointToString(At(0) - std::chrono::milliseconds(999)), "1970/01/01 00:00:00 UTC");
    EXPECT_EQ(timePointToString(At(-1)), "1969/12/31 23:59:59 UTC");
}

TEST_F(X509CryptoApiValidatorTest, WithANullStoreTheChecksThatNeedItFail) {
    mLibrary.Script("lookupTrustStore", testing_support::kNull);
    mValidator = X509ValidatorIf::CreateX509Validator();
    EXPECT_EQ(mLibrary.Count("createTrustStore"), 0);
    CapturedLog log;
    EXPECT_FALSE(mValidator->CheckCertificatePublicKey("leaf", "public key of TIV/TIV_TMP"));
    EXPECT_FALSE(mValidator->VerifySignature("leaf", {'c'}, {'s'}, "any"));
    EXPECT_EQ(log.Lines().back(), "E VerifySignature: StoreTempCertificate failed");
    EXPECT_TRUE(mValidator->ValidateCertificatePath({"leaf"}, "root", "name", {}));
}

}  // namespace

}  // namespace vintrel
