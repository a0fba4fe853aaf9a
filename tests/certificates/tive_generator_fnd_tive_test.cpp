#include "certificates/tive_generator_fnd_tive.h"

#include <memory>

#include "certificates/scripted_library_test.h"

namespace vintrel {

namespace {

using testing::ElementsAre;

class TiveGeneratorTest : public testing_support::ScriptedLibraryTest {
protected:
    TiveGeneratorTest() {
        // Gets the one line of the library's initialisation out of the way.
        mGenerator->ConstructContainer({});
        mLibrary.Reset();
    }

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
    EXPECT_THAT(log.Lines(),
                ElementsAre("I TiveGenerator: The TIVE Container was created successfully"));
}

}  // namespace

}  // namespace vintrel
