#include "certificates/hsm.h"

#include <chrono>

#include "certificates/scripted_library_test.h"

namespace vintrel {

namespace {

using std::chrono::hours;
using std::chrono::seconds;
using std::chrono::system_clock;
using testing::ElementsAre;

constexpr hours kYear{365 * 24};
const system_clock::time_point kNow{seconds(1795248900)};  // 2026/11/21 08:15:00 UTC

class HsmTest : public testing_support::ScriptedLibraryTest {
protected:
    HsmTest() {
        mLibrary.mTexts = {{"loadPublicKey", "key"},
                           {"getCertificateIssuerCommonName", "VIN:C003"}};
        SetDates(kNow, kNow + kYear);
    }

    void SetDates(system_clock::time_point notBefore, system_clock::time_point notAfter) {
        const auto count = [](system_clock::time_point time) {
            return std::chrono::duration_cast<seconds>(time.time_since_epoch()).count();
        };
        mLibrary.mNotBefore = count(notBefore);
        mLibrary.mNotAfter = count(notAfter);
    }

    void SetCommonName(const std::string& name) {
        mLibrary.mTexts["getCertificateIssuerCommonName"] = name;
    }

    Hsm mHsm{[] { return kNow; }};
};

TEST_F(HsmTest, NamesMatchByteForByte) {
    for (const std::string name : {"VIN:C003 ", "vin:C003", "VIN:C0030", ":C003", "VIN"}) {
        SetCommonName(name);
        CapturedLog log;
        EXPECT_EQ(mHsm.CheckTrustStoreTivValidity("VIN"), StatusCode::CommonNameMismatch);
        EXPECT_TRUE(mHsm.CheckTivCertificate("received", "VIN"));
        EXPECT_EQ(log.Lines().back(),
                  "I The CN from the Certificate and the CN derived from VIN do not match");
    }
    CapturedLog log;
    EXPECT_TRUE(mHsm.GenerateCsr("").empty());
    EXPECT_THAT(log.Lines(), ElementsAre("E Provided VIN is empty"));
    // No VIN can't be signed as a proof of possession; a received certificate needs no such proof.
    SetCommonName(":C003");
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(""), StatusCode::KeyMismatch);
    EXPECT_FALSE(mHsm.CheckTivCertificate("received", ""));
}

TEST_F(HsmTest, TheVinIsWhatStandsBeforeTheFirstColonOfTheBaseCertificatesName) {
    const auto vin = [this](const std::string& name) {
        SetCommonName(name);
        return mHsm.GetKoruVin();
    };
    CapturedLog log;
    EXPECT_EQ(vin("VIN:XYZ"), "VIN");
    EXPECT_EQ(vin("A:B:C"), "A");
    EXPECT_EQ(vin("VIN"), "");
    EXPECT_EQ(vin(":C003"), "");
    const std::string returning = "I GetKoruVin: Returning VIN: '";
    const std::string failed = "E GetKoruVin: VIN parsing failed from certificate common name: ";
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            returning + "VIN' from certificate common name: 'VIN:XYZ', certificate ID: 'BASE'",
            returning + "A' from certificate common name: 'A:B:C', certificate ID: 'BASE'",
            failed + "'VIN'", failed + "':C003'"));
}

TEST_F(HsmTest, WithoutAClockOfItsOwnTheSystemClockDecides) {
    Hsm hsm;
    const auto now = system_clock::now();
    SetDates(now - hours(1), now + kYear + hours(1));
    EXPECT_EQ(hsm.CheckTrustStoreTivValidity("VIN"), StatusCode::Ok);
    SetDates(now - hours(1), now + kYear - hours(1));
    EXPECT_EQ(hsm.CheckTrustStoreTivValidity("VIN"), StatusCode::ExpiresWithinYear);
}

}  // namespace

}  // namespace vintrel
