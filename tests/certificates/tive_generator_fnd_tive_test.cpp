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
using testing_support::LogText;
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

}  // namespace

}  // namespace vintrel
