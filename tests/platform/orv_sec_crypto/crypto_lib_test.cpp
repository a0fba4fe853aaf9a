#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

using CryptoLibTest = StoreDirectoryTest;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(CryptoLibTest, IsOpenOnceAtATime) {
    EXPECT_EQ(cleanupCryptoLib(), CryptoResultCode::kInvalidState);
    ASSERT_TRUE(initCryptoLib().IsSuccess());
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kInvalidState);
    EXPECT_EQ(cleanupCryptoLib(), CryptoResultCode::kSuccess);
    EXPECT_TRUE(initCryptoLib().IsSuccess());
}

TEST_F(CryptoLibTest, ObjectsThatOutliveItAreOfNoUseButHarmless) {
    Provision();
    const auto provider = initCryptoLib().GetObject();
    const auto manager = provider->createTrustStoreManager().GetObject();
    const auto handler = provider->createCertificateHandler().GetObject();
    const auto store = manager->createTrustStore("TIV").GetObject();
    const KeyHandle key = store->makeKeyId("TIV").GetObject();
    ASSERT_EQ(store->generateKeyPair(key, store::KeyType::kEcP256), CryptoResultCode::kSuccess);
    const auto signature =
        provider->createDigitalSignature({operation::SignatureAlgorithm::kEcdsaSha256, key})
            .GetObject();

    ASSERT_EQ(cleanupCryptoLib(), CryptoResultCode::kSuccess);
    const auto invalid = CryptoResultCode::kInvalidState;
    EXPECT_EQ(provider->createTrustStoreManager().GetCode(), invalid);
    EXPECT_EQ(manager->lookupTrustStore("TIV").GetCode(), invalid);
    EXPECT_EQ(store->makeKeyId("TIV").GetCode(), invalid);
    EXPECT_EQ(store->deleteKeyPair(key), invalid);
    EXPECT_EQ(signature->sign(ToBytes("content")).GetCode(), invalid);
    EXPECT_EQ(handler->splitCertificatesChain(ToBytes("x")).GetCode(), invalid);
}

// To be constructed before OpenSSL registers its own cleanup at exit, and so destroyed after it.
struct AtExit {
    ~AtExit() {
        if (OPENSSL_init_crypto(0, nullptr) != 0) {
            ::_exit(2);
        }
        const bool closed = cleanupCryptoLib() == CryptoResultCode::kSuccess;
        store.reset();
        provider.reset();
        if (!closed) {
            ::_exit(1);
        }
    }
    std::shared_ptr<ICryptoServiceProvider> provider;
    std::shared_ptr<store::ITrustStore> store;
};

TEST_F(CryptoLibTest, CleanupFromAStaticDestructorIsSafe) {
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            static AtExit atExit;
            Provision();
            atExit.provider = initCryptoLib().GetObject();
            atExit.store = atExit.provider->createTrustStoreManager()
                               .GetObject()
                               ->createTrustStore("TIV")
                               .GetObject();
            const KeyHandle key = atExit.store->makeKeyId("TIV").GetObject();
            atExit.store->generateKeyPair(key, store::KeyType::kEcP256);
            std::filesystem::remove_all(mDirectory);
            std::exit(atExit.store->checkKeyId(key));
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(CryptoLibTest, UnprovisionedUnitHasNoKeyManagementStoreAndMakesNoKeys) {
    const auto provider = initCryptoLib().GetObject();
    ASSERT_NE(provider, nullptr);
    EXPECT_TRUE(
        mLog.Contains("W " + Path("store.db") + ": there was no store, an empty one is made"));
    const auto manager = provider->createTrustStoreManager().GetObject();
    EXPECT_EQ(manager->lookupForKORUStore().GetCode(), CryptoResultCode::kNotFound);
    const auto store = manager->createTrustStore("TIV").GetObject();
    ASSERT_NE(store, nullptr);
    const KeyHandle key = store->makeKeyId("TIV").GetObject();
    EXPECT_EQ(store->generateKeyPair(key, store::KeyType::kEcP256),
              CryptoResultCode::kStorageError);

    Provision();
    EXPECT_EQ(store->generateKeyPair(key, store::KeyType::kEcP256), CryptoResultCode::kSuccess);
    EXPECT_TRUE(manager->lookupForKORUStore().IsSuccess());
}

TEST_F(CryptoLibTest, StoreThatCannotBeReadIsToldFromOneThatIsNotThere) {
    std::ofstream(Path("store.db")) << std::string(4096, 'x');
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kIntegrityError);
    EXPECT_THAT(Errors(), ElementsAre(AllOf(HasSubstr("store cannot be opened"),
                                            HasSubstr(Path("store.db") + ":"))));

    std::filesystem::remove(Path("store.db"));
    std::filesystem::create_directory(Path("store.db"));
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);

    ::setenv("ORV_CRYPTO_DIR", Path("nowhere").c_str(), 1);
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors().back(), HasSubstr("No such file"));
}

TEST_F(CryptoLibTest, LostStoreIsNotReplacedByAnEmptyOne) {
    Provision();
    std::filesystem::remove(Path("store.db"));
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_FALSE(std::filesystem::exists(Path("store.db")));
    WriteFile("store.db", {});
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_EQ(ReadFile("store.db"), "");
    EXPECT_THAT(Errors(), ::testing::Each(HasSubstr("store.db: the store is lost")));

    Provision();
    EXPECT_TRUE(initCryptoLib().IsSuccess());
}

}  // namespace

}  // namespace orv::sec::crypto::test
