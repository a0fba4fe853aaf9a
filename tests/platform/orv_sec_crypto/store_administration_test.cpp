#include <openssl/pem.h>
#include <sys/stat.h>

#include "client_store/client_store.h"
#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

using host::EntryKind;
using host::StoreEntry;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class StoreAdministrationTest : public OpenLibraryTest {
protected:
    void SetUp() override {
        mAdministration = Provision();
        ASSERT_NE(mAdministration, nullptr);
    }

    std::vector<StoreEntry> List() {
        std::vector<StoreEntry> entries;
        EXPECT_TRUE(mAdministration->List(entries));
        return entries;
    }

    mode_t Mode(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    void ExecuteSql(const std::string& sql) { testing_support::ExecuteSql(mDirectory, sql); }

    std::unique_ptr<StoreAdministration> mAdministration;
};

TEST_F(StoreAdministrationTest, CreatesFilesThatOnlyTheOwnerMayRead) {
    const std::string directory = Path("a/b");
    std::unique_ptr<StoreAdministration> administration;
    ASSERT_EQ(StoreAdministration::Open(directory, administration).status,
              AdministrationStatus::kNotFound);
    ASSERT_TRUE(StoreAdministration::CreateOrOpen(directory, administration));

    EXPECT_EQ(Mode(directory), 0700U);
    EXPECT_EQ(Mode(directory + "/wrapping.key"), 0400U);
    EXPECT_EQ(std::filesystem::file_size(directory + "/wrapping.key"), 32U);
    EXPECT_EQ(Mode(directory + "/store.db"), 0600U);
}

TEST_F(StoreAdministrationTest, OpensAgainWithTheSameKeyAndContents) {
    const std::string key = ReadFile("wrapping.key");
    ASSERT_TRUE(mAdministration->StoreCertificate("ROOT", SelfSigned({}).Pem()));
    WriteFile("wrapping.key.new", ToBytes("what an interrupted initialisation leaves"));
    mAdministration = Provision();

    EXPECT_EQ(ReadFile("wrapping.key"), key);
    EXPECT_FALSE(std::filesystem::exists(Path("wrapping.key.new")));
    EXPECT_EQ(List().size(), 1U);
    EXPECT_TRUE(StoreAdministration::Open(mDirectory, mAdministration));
}

TEST_F(StoreAdministrationTest, ListsEverythingButPrivateKeys) {
    const Identity unit = SelfSigned({});
    const Identity root = SelfSigned(CaTraits("Root"));
    ASSERT_TRUE(mAdministration->ImportKeyPair("ECU_BASE_CERT", PrivateKeyPem(unit.key),
                                               unit.Pem() + root.Pem()));
    ASSERT_TRUE(mAdministration->StoreCertificate("PRODUCT_PKI_ROOT_CERT", root.Der()));
    Open();
    GeneratedKey("TIV_CSR");

    const auto entries = List();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].store, "KORU");
    EXPECT_EQ(entries[0].id, "ECU_BASE_CERT");
    EXPECT_EQ(entries[0].kind, EntryKind::kKeyPair);
    EXPECT_EQ(entries[0].certificateChain, unit.Pem() + root.Pem());
    EXPECT_EQ(entries[1].kind, EntryKind::kCertificate);
    EXPECT_EQ(entries[1].certificateChain, root.Pem());
    EXPECT_EQ(entries[2].store, "TIV");
    EXPECT_EQ(entries[2].certificateChain, "");
}

TEST_F(StoreAdministrationTest, ImportReplacesWhatIsThereAndRefusesWhatDoesNotFit) {
    const Identity first = SelfSigned({});
    const Identity second = SelfSigned({});
    CertificateTraits otherCurve;
    otherCurve.keyType = "P-384";
    const Identity p384 = SelfSigned(otherCurve);
    const auto import = [&](const std::string& key, const std::string& chain) {
        return mAdministration->ImportKeyPair("ECU_BASE_CERT", key, chain).status;
    };
    ASSERT_EQ(import(PrivateKeyPem(first.key), first.Pem()), AdministrationStatus::kOk);
    ASSERT_EQ(import(PrivateKeyPem(second.key), second.Pem()), AdministrationStatus::kOk);

    const auto refused = AdministrationStatus::kInvalidArgument;
    EXPECT_EQ(import(PrivateKeyPem(first.key), second.Pem()), refused);
    EXPECT_EQ(import(PrivateKeyPem(p384.key), p384.Pem()), refused);
    EXPECT_EQ(import("garbage", first.Pem()), refused);
    EXPECT_EQ(import("", first.Pem()), refused);
    EXPECT_EQ(import(PrivateKeyPem(first.key), ""), refused);
    EXPECT_EQ(mAdministration->ImportKeyPair("", PrivateKeyPem(first.key), first.Pem()).status,
              refused);
    ASSERT_EQ(List().size(), 1U);
    EXPECT_EQ(List()[0].certificateChain, second.Pem());
}

TEST_F(StoreAdministrationTest, ImportTakesTheUsualKeyFilesButNoEncryptedOne) {
    const Identity unit = SelfSigned({});
    unsigned char* der = nullptr;
    const int size = i2d_PrivateKey(unit.key.get(), &der);
    const std::string sec1(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    BIO* bio = BIO_new(BIO_s_mem());
    unsigned char phrase[] = "secret";
    PEM_write_bio_PrivateKey(bio, unit.key.get(), EVP_aes_256_cbc(), phrase, 6, nullptr, nullptr);
    char* text = nullptr;
    const long textSize = BIO_get_mem_data(bio, &text);
    const std::string encrypted(text, static_cast<std::size_t>(textSize));
    BIO_free(bio);

    EXPECT_TRUE(mAdministration->ImportKeyPair("K", sec1, unit.Pem()));
    EXPECT_FALSE(mAdministration->ImportKeyPair("K", sec1 + "x", unit.Pem()));
    EXPECT_EQ(mAdministration->ImportKeyPair("K", encrypted, unit.Pem()).status,
              AdministrationStatus::kInvalidArgument);
}

TEST_F(StoreAdministrationTest, RemovesOneEntry) {
    ASSERT_TRUE(mAdministration->StoreCertificate("ROOT", SelfSigned({}).Pem()));
    EXPECT_EQ(mAdministration->Remove("KORU", "ROOT", EntryKind::kKeyPair).status,
              AdministrationStatus::kNotFound);
    EXPECT_TRUE(mAdministration->Remove("KORU", "ROOT", EntryKind::kCertificate));
    EXPECT_EQ(mAdministration->Remove("KORU", "ROOT", EntryKind::kCertificate).status,
              AdministrationStatus::kNotFound);
    EXPECT_TRUE(List().empty());
}

TEST_F(StoreAdministrationTest, WrappingKeyIsRefusedUnlessItIsAsItWasMade) {
    Open();
    GeneratedKey("TIV");
    cleanupCryptoLib();
    const std::string key = ReadFile("wrapping.key");
    const auto openAfter = [&](const std::string& contents, mode_t mode) {
        std::filesystem::remove(Path("wrapping.key"));
        WriteFile("wrapping.key", ToBytes(contents));
        ::chmod(Path("wrapping.key").c_str(), mode);
        return initCryptoLib();
    };

    EXPECT_EQ(openAfter(key, 0440).GetCode(), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors(), ElementsAre(AllOf(HasSubstr(Path("wrapping.key") + ": key file refused"),
                                            HasSubstr("mode is 0440"))));
    EXPECT_EQ(openAfter(key, 0600).GetCode(), CryptoResultCode::kStorageError);
    EXPECT_EQ(openAfter(key + "x", 0400).GetCode(), CryptoResultCode::kStorageError);
    EXPECT_EQ(openAfter(key.substr(1), 0400).GetCode(), CryptoResultCode::kStorageError);
    std::filesystem::rename(Path("wrapping.key"), Path("elsewhere"));
    std::filesystem::create_symlink(Path("elsewhere"), Path("wrapping.key"));
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    std::filesystem::remove(Path("wrapping.key"));
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);

    std::unique_ptr<StoreAdministration> administration;
    EXPECT_EQ(StoreAdministration::CreateOrOpen(mDirectory, administration).status,
              AdministrationStatus::kStoreFailure);
    EXPECT_FALSE(std::filesystem::exists(Path("wrapping.key")));
    EXPECT_TRUE(openAfter(key, 0400).IsSuccess());
}

TEST_F(StoreAdministrationTest, WhatBelongsToAnotherUserIsRefusedAndLeftAsItIs) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const std::string foreign = Path("foreign");
    ASSERT_TRUE(std::filesystem::create_directory(foreign));
    ASSERT_EQ(::chown(foreign.c_str(), 12345, 12345), 0);
    std::unique_ptr<StoreAdministration> administration;
    EXPECT_EQ(StoreAdministration::CreateOrOpen(foreign, administration).status,
              AdministrationStatus::kStoreFailure);
    EXPECT_TRUE(std::filesystem::is_empty(foreign));

    ASSERT_EQ(::chown(Path("wrapping.key").c_str(), 12345, 12345), 0);
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
}

TEST_F(StoreAdministrationTest, KeysDecryptOnlyAtTheirPlaceAndWithTheirWrappingKey) {
    Open();
    GeneratedKey("A");
    GeneratedKey("B");
    GeneratedKey("C");
    const auto codeOfUse = [&](const char* id) {
        return mStore->generateCsr("VIN", store::CsrFormat::kPkcs10, Key(id)).GetCode();
    };
    ASSERT_EQ(codeOfUse("A"), CryptoResultCode::kSuccess);

    // Whole rows change places, so that public and private keys still belong together.
    ExecuteSql(
        "UPDATE key_pair SET id = 'X' WHERE id = 'A';"
        "UPDATE key_pair SET id = 'A' WHERE id = 'B';"
        "UPDATE key_pair SET id = 'B' WHERE id = 'X';");
    EXPECT_EQ(codeOfUse("NONE"), CryptoResultCode::kNotFound);
    EXPECT_THAT(Errors(), IsEmpty());
    EXPECT_EQ(codeOfUse("A"), CryptoResultCode::kIntegrityError);
    EXPECT_THAT(Errors(), ElementsAre(HasSubstr("private key 'A' in TIV: does not decrypt")));
    EXPECT_EQ(codeOfUse("B"), CryptoResultCode::kIntegrityError);
    // Found here, it does not cost the pair whose place this one is to take.
    EXPECT_EQ(mStore->storeCertificateForKeyPair(Key("A"), ToBytes(CertificateFor(Key("A")).Pem())),
              CryptoResultCode::kIntegrityError);
    EXPECT_EQ(mStore->moveKeyPair(Key("A"), Key("D")), CryptoResultCode::kIntegrityError);
    EXPECT_EQ(mStore->checkKeyId(Key("A")), 0);

    ExecuteSql(
        "UPDATE key_pair SET public_key = (SELECT public_key FROM key_pair WHERE id = 'A') "
        "WHERE id = 'C'");
    EXPECT_EQ(codeOfUse("C"), CryptoResultCode::kIntegrityError);
    ExecuteSql("UPDATE key_pair SET wrapped_private_key = x'01'");
    EXPECT_EQ(codeOfUse("C"), CryptoResultCode::kIntegrityError);
}

TEST_F(StoreAdministrationTest, StoreOfAnotherVersionOrProgramIsRefusedUntouched) {
    for (const char* change :
         {"PRAGMA user_version = 2", "PRAGMA user_version = 0", "PRAGMA application_id = 7"}) {
        SCOPED_TRACE(change);
        std::filesystem::remove(Path("store.db"));
        mAdministration = Provision();
        ExecuteSql(change);
        const std::string file = ReadFile("store.db");
        EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
        EXPECT_FALSE(StoreAdministration::CreateOrOpen(mDirectory, mAdministration));
        EXPECT_EQ(ReadFile("store.db"), file);
    }
    EXPECT_THAT(Errors().front(), HasSubstr("store.db: schema version 2 is newer"));
}

TEST_F(StoreAdministrationTest, CertificatesThatNoLongerParseAreNoEmptyStore) {
    ASSERT_TRUE(mAdministration->StoreCertificate("ROOT", SelfSigned({}).Pem()));
    Open();
    GeneratedKey("TIV");
    const auto koru = mManager->lookupForKORUStore().GetObject();
    const CertHandle root = koru->makeCertId("ROOT").GetObject();
    ASSERT_TRUE(koru->loadCertificate(root).IsSuccess());
    ExecuteSql(
        "UPDATE key_pair SET certificates = x'30';"
        "UPDATE certificate SET certificates = substr(certificates, 2)");

    EXPECT_EQ(mStore->loadCertificateForKeyPair(Key("TIV")).GetCode(),
              CryptoResultCode::kIntegrityError);
    EXPECT_EQ(koru->loadCertificate(root).GetCode(), CryptoResultCode::kIntegrityError);
    EXPECT_THAT(Errors(), ElementsAre(HasSubstr("stored certificates 'TIV' in TIV"),
                                      HasSubstr("stored certificates 'ROOT' in KORU")));
}

TEST_F(StoreAdministrationTest, ReadingTellsOneMomentAndLeavesTheStoreAsItIs) {
    Open();
    GeneratedKey("TIV");
    cleanupCryptoLib();
    std::unique_ptr<StoreAdministration> reading;
    ASSERT_TRUE(StoreAdministration::OpenForReading(mDirectory, reading));
    ASSERT_TRUE(mAdministration->StoreCertificate("ROOT", SelfSigned({}).Pem()));
    const std::string file = ReadFile("store.db");
    ASSERT_TRUE(reading->ShareWithLibrary());
    ASSERT_NO_FATAL_FAILURE(Open());

    std::vector<StoreEntry> entries;
    EXPECT_TRUE(reading->List(entries));
    EXPECT_EQ(entries.size(), 1U);
    EXPECT_TRUE(Signature(Key("TIV"))->sign(ToBytes("content")).IsSuccess());
    EXPECT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), ToBytes(SelfSigned({}).Pem())),
              CryptoResultCode::kSuccess);
    EXPECT_TRUE(mStore->loadPublicKey(Key("TIV_TMP")).IsSuccess());
    for (const CryptoResultCode change :
         {mStore->generateKeyPair(Key("TIV_CSR"), store::KeyType::kEcP256),
          mStore->moveKeyPair(Key("TIV"), Key("OTHER")), mStore->deleteKeyPair(Key("TIV"))}) {
        EXPECT_EQ(change, CryptoResultCode::kStorageError);
    }
    EXPECT_EQ(reading->ShareWithLibrary().status, AdministrationStatus::kStoreFailure);
    EXPECT_EQ(ReadFile("store.db"), file);
}

TEST_F(StoreAdministrationTest, PrivateKeysLieInTheFilesEncrypted) {
    const Identity unit = SelfSigned({});
    ASSERT_TRUE(mAdministration->ImportKeyPair("K", PrivateKeyPem(unit.key), unit.Pem()));
    BIGNUM* number = nullptr;
    ASSERT_EQ(EVP_PKEY_get_bn_param(unit.key.get(), "priv", &number), 1);
    std::string secret(32, '\0');
    BN_bn2binpad(number, reinterpret_cast<unsigned char*>(secret.data()), 32);
    BN_free(number);

    for (const auto& entry : std::filesystem::directory_iterator(mDirectory)) {
        const std::string contents = ReadFile(entry.path().filename());
        EXPECT_EQ(contents.find(secret), std::string::npos) << entry.path();
    }
}

}  // namespace

}  // namespace orv::sec::crypto::test
