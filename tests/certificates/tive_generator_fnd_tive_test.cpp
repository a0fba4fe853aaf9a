#include "certificates/tive_generator_fnd_tive.h"

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "certificates/log_text.h"
#include "certificates/scripted_crypto_library.h"
#include "testing/captured_log.h"

namespace vintrel {

namespace {

using testing::ElementsAre;
using testing_support::CapturedLog;
using testing_support::kNull;
using testing_support::LogText;
using testing_support::Outcome;
using testing_support::ScriptedCryptoLibrary;

class TiveGeneratorTest : public testing::Test {
protected:
    TiveGeneratorTest() {
        mLibrary.Reset();
        // Gets the one line of the library's initialisation out of the way.
        mGenerator->ConstructContainer({});
        mLibrary.Reset();
    }

    ScriptedCryptoLibrary& mLibrary = ScriptedCryptoLibrary::Get();
    std::shared_ptr<TiveGeneratorIf> mGenerator = TiveGeneratorIf::Create();
};

TEST_F(TiveGeneratorTest, TheContainerIsSignedWithTheBaseKeyAndCarriesNoAuxiliaryData) {
    CapturedLog log;
    EXPECT_EQ(mGenerator->ConstructContainer({'c', 's', 'r'}), "container");
    EXPECT_THAT(
        mLibrary.mCalls,
        ElementsAre("createTrustStoreManager ", "lookupForKORUStore ", "lookupTrustStore TIV",
                    "makeKeyId KORU/ECU_BASE_CERT",
                    "CreateCertificateChainEncoder 1 KORU/ECU_BASE_CERT false", "encode csr||0||"));
    EXPECT_THAT(LogText(log),
                ElementsAre("I TiveGenerator: The TIVE Container was created successfully"));
}

TEST_F(TiveGeneratorTest, EveryFailureHasItsLineAndYieldsNoContainer) {
    struct Row {
        std::string mOperation;
        Outcome mOutcome;
        std::string mText;
    };
    const Row rows[] = {
        {"createTrustStoreManager", {1, 0}, ": createTrustStoreManager failed: 0"},
        {"createTrustStoreManager", kNull, ": createTrustStoreManager returned null"},
        {"lookupForKORUStore", {0, 4}, ": lookupForKORUStore failed: 4"},
        {"lookupForKORUStore", kNull, ": lookupForKORUStore returned null"},
        {"lookupTrustStore", kNull, ": createTrustStore returned null"},
        {"makeKeyId", {1, 200}, ": makeKeyId failed: 200"},
        {"makeKeyId", kNull, ": makeKeyId returned null"},
        {"CreateCertificateChainEncoder", {1, 4}, ": CreateCertificateChainEncoder failed: 4"},
        {"CreateCertificateChainEncoder", kNull, ": CreateCertificateChainEncoder returned null"},
        {"encode", {1, 0}, ": TIVE container generation failed: 0"},
        {"encode", kNull, ": empty TIVE container was returned"},
    };
    for (const Row& row : rows) {
        mLibrary.Reset();
        const int liveStores = mLibrary.mLiveStores;
        mLibrary.Script(row.mOperation, row.mOutcome);
        CapturedLog log;
        EXPECT_EQ(mGenerator->ConstructContainer({1}), "");
        EXPECT_THAT(LogText(log), ElementsAre("E ConstructContainer" + row.mText));
        EXPECT_EQ(mLibrary.mLiveStores, liveStores);
        EXPECT_EQ(mLibrary.Count("createTrustStore"), 0);
    }
}

TEST_F(TiveGeneratorTest, AMissingStoreIsCreatedAndOnlyThatFailureCounts) {
    mLibrary.Script("lookupTrustStore", {1, 4});
    EXPECT_EQ(mGenerator->ConstructContainer({1}), "container");

    mLibrary.Script("createTrustStore", {1, 5});
    CapturedLog log;
    EXPECT_EQ(mGenerator->ConstructContainer({1}), "");
    EXPECT_THAT(LogText(log), ElementsAre("E ConstructContainer: createTrustStore failed: 5"));
}

}  // namespace

}  // namespace vintrel
