#include "certificates/crypto_api_instance.h"

#include <cstdlib>
#include <future>
#include <iostream>
#include <stdexcept>

#include "certificates/client_cert_initializer_api.h"
#include "certificates/scripted_library_test.h"
#include "logging/qel_logging.h"

namespace vintrel {

namespace {

using orv::tee::ClientCertInitializerAPI;

class CryptoApiInstanceDeathTest : public testing_support::ScriptedLibraryTest {
protected:
    CryptoApiInstanceDeathTest() {
        // Each of these processes starts afresh, with nothing of the library initialised.
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

TEST_F(CryptoApiInstanceDeathTest, TheLibraryIsCleanedUpOnceAtExitAfterTheStoresButBeforeTheLog) {
    EXPECT_EXIT(
        {
            qel_logging::QELLogging::InitLogging("VT", qel_logging::EQELLogLevel::kError);
            mLibrary.mTrace = true;
            mLibrary.Script("cleanupCryptoLib", {1, 5});
            const bool same = ClientCertInitializerAPI::get_instance() ==
                              ClientCertInitializerAPI::get_instance();
            std::cerr << (same ? "same;" : "other;") << mLibrary.mLiveStores << " held;";
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "^init;same;2 held;cleanup with 0 stores held;[^;]*Failed to cleanup Crypto Library "
        "API[^;]*$");
}

TEST_F(CryptoApiInstanceDeathTest, AFailedInitialisationIsTriedAgain) {
    EXPECT_EXIT(
        {
            mLibrary.mTrace = true;
            mLibrary.Script("initCryptoLib", {1, 5}, 1);
            mLibrary.Script("lookupForKORUStore", {1, 4}, 1);
            for (int attempt = 0; attempt < 3; ++attempt) {
                try {
                    ClientCertInitializerAPI::get_instance();
                    std::cerr << "made;";
                } catch (const std::runtime_error& error) {
                    std::cerr << error.what() << ";";
                }
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "^init;Failed to initialize Crypto Library API;init;KORUStore not found;made;"
        "cleanup with 0 stores held;$");
}

TEST_F(CryptoApiInstanceDeathTest, SeveralThreadsAtOnceGetOneInitialisation) {
    EXPECT_EXIT(
        {
            mLibrary.mTrace = true;
            std::promise<void> start;
            const std::shared_future<void> started(start.get_future());
            std::vector<std::future<void>> threads(8);
            for (auto& thread : threads) {
                thread = std::async(std::launch::async, [started] {
                    started.wait();
                    if (!CryptoApiInstance::GetCryptoApiInstance()) {
                        std::abort();
                    }
                });
            }
            start.set_value();
            for (auto& thread : threads) {
                thread.get();
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^init;cleanup with 0 stores held;$");
}

}  // namespace

}  // namespace vintrel
