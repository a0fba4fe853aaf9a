#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>

#include <sys/stat.h>
#include <sys/wait.h>

#include "custody/key_storage_file.h"
#include "custody/pkcs11_token.h"
#include "faulty_vfs/faulty_vfs.h"
#include "key_hardware/key_hardware.h"
#include "orv_sec_crypto/signing_key_access.h"
#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

using host::KeyStorage;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// A store whose keys are in a TPM's or a token's care.
class KeyStorageTest : public OpenLibraryTest {
protected:
    void SetUp() override {}

    host::AdministrationResult Initialize(const KeyStorage& storage) {
        return StoreAdministration::CreateOrOpen(mDirectory, storage, mAdministration);
    }

    bool Signs(const KeyHandle& key) {
        const auto signature = Signature(key);
        const auto made = signature->sign(ToBytes("content"));
        return made.IsSuccess() && signature->verify(made.GetObject(), ToBytes("content")) ==
                                       CryptoResultCode::kSuccess;
    }

    bool RequestVerifies(const KeyHandle& key) {
        const auto request = mStore->generateCsr("VIN:C003", store::CsrFormat::kPkcs10, key);
        WriteFile("request.der", request.GetObject());
        return request.IsSuccess() && std::system(("openssl req -inform DER -noout -verify -in " +
                                                   Path("request.der") + " 2>" + Path("verdict"))
                                                      .c_str()) == 0;
    }

    /// The library is refused with one line, and nothing was made in the place of what it lacks.
    void ExpectRefusal(const std::string& text) {
        mLog.Clear();
        EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
        EXPECT_THAT(Errors(), ElementsAre(HasSubstr(text)));
        EXPECT_FALSE(StoreAdministration::CreateOrOpen(mDirectory, mAdministration));
        EXPECT_FALSE(std::filesystem::exists(Path("wrapping.key")));
    }

    std::unique_ptr<StoreAdministration> mAdministration;
};

struct Kind {
    const char* name;
    bool needsTpm;
    bool needsToken;
};

std::ostream& operator<<(std::ostream& stream, const Kind& kind) {
    return stream << kind.name;
}

class AnyKeyStorageTest : public KeyStorageTest, public ::testing::WithParamInterface<Kind> {
protected:
    void SetUp() override {
        KeyStorage storage = host::FileKeyStorage{};
        if (GetParam().needsTpm) {
            storage = mTpm.emplace().Storage();
        } else if (GetParam().needsToken) {
            storage = mToken.emplace(Path("pin")).Storage();
        }
        const auto result = Initialize(storage);
        ASSERT_TRUE(result) << result.message;
    }

    std::optional<SoftwareTpm> mTpm;
    std::optional<SoftwareToken> mToken;
};

TEST_P(AnyKeyStorageTest, AKeyPairLivesFromGenerationToDeletion) {
    Open();
    GeneratedKey("TIV");
    GeneratedKey("TIV_CSR");
    EXPECT_EQ(mStore->generateKeyPair(Key("TIV"), store::KeyType::kEcP256),
              CryptoResultCode::kAlreadyExists);
    EXPECT_TRUE(RequestVerifies(Key("TIV_CSR"))) << ReadFile("verdict");
    const ByteVector chain = ToBytes(CertificateFor(Key("TIV_CSR")).Pem());
    EXPECT_EQ(mStore->storeCertificateForKeyPair(Key("TIV"), chain),
              CryptoResultCode::kKeyMismatch);
    EXPECT_EQ(mStore->storeCertificateForKeyPair(Key("TIV_CSR"), chain),
              CryptoResultCode::kSuccess);
    const ByteVector publicKey = mStore->loadPublicKey(Key("TIV_CSR")).GetObject();
    EXPECT_EQ(mStore->moveKeyPair(Key("TIV_CSR"), Key("TIV")), CryptoResultCode::kAlreadyExists);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->moveKeyPair(Key("TIV_CSR"), Key("TIV")), CryptoResultCode::kSuccess);

    Reopen();
    EXPECT_EQ(mStore->loadPublicKey(Key("TIV")).GetObject(), publicKey);
    EXPECT_EQ(mStore->loadCertificateForKeyPair(Key("TIV")).GetObject(), chain);
    EXPECT_TRUE(Signs(Key("TIV")));
    EXPECT_TRUE(RequestVerifies(Key("TIV")));
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kNotFound);
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_P(AnyKeyStorageTest, AnImportedKeySignsAndItsNumberIsInNoFile) {
    const Identity first = SelfSigned({});
    const Identity unit = SelfSigned({});
    ASSERT_TRUE(mAdministration->ImportKeyPair("K", PrivateKeyPem(first.key), first.Pem()));
    ASSERT_TRUE(mAdministration->ImportKeyPair("K", PrivateKeyPem(unit.key), unit.Pem()));
    Open();
    const auto koru = mManager->lookupForKORUStore().GetObject();
    const host::PrivateKey held = host::LoadPrivateKey(*koru, *koru->makeKeyId("K").GetObject());
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(EVP_PKEY_eq(held.get(), unit.key.get()), 1);
    EXPECT_TRUE(Signs(koru->makeKeyId("K").GetObject()));

    BIGNUM* number = nullptr;
    ASSERT_EQ(EVP_PKEY_get_bn_param(unit.key.get(), "priv", &number), 1);
    std::string secret(32, '\0');
    BN_bn2binpad(number, reinterpret_cast<unsigned char*>(secret.data()), 32);
    BN_free(number);
    for (const auto& directory : {mDirectory, SoftwareToken::Directory()}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
            if (!entry.is_regular_file()) {
                continue;
            }
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string contents{std::istreambuf_iterator<char>(file), {}};
            EXPECT_EQ(contents.find(secret), std::string::npos) << entry.path();
        }
    }
}

TEST_P(AnyKeyStorageTest, TheStorageIsChosenOnce) {
    const KeyStorage other = host::TpmKeyStorage{"device:/nowhere"};
    EXPECT_EQ(Initialize(other).status, AdministrationStatus::kInvalidArgument);
    EXPECT_TRUE(StoreAdministration::CreateOrOpen(mDirectory, mAdministration));
    Open();
    EXPECT_TRUE(Signs(GeneratedKey("TIV")));
    cleanupCryptoLib();
    std::filesystem::remove(Path("store.db"));
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors(), ElementsAre(HasSubstr("the store is lost")));
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyKeyStorageTest,
                         ::testing::Values(Kind{"File", false, false}, Kind{"Tpm", true, false},
                                           Kind{"Token", false, true}),
                         [](const auto& parameters) { return parameters.param.name; });

TEST_F(KeyStorageTest, OnlyTheTpmThatSealedTheKeyOpensTheStore) {
    SoftwareTpm tpm;
    ASSERT_TRUE(Initialize(tpm.Storage()));
    Open();
    GeneratedKey("TIV");
    cleanupCryptoLib();
    const std::string sealed = ReadFile("wrapping.key.tpm");
    const auto write = [&](const std::string& contents, mode_t mode = 0400) {
        std::filesystem::remove(Path("wrapping.key.tpm"));
        WriteFile("wrapping.key.tpm", ToBytes(contents));
        ::chmod(Path("wrapping.key.tpm").c_str(), mode);
    };
    std::string changed = sealed;
    changed.back() = static_cast<char>(changed.back() ^ 1);

    const std::pair<std::string, const char*> files[] = {
        {"garbage", "holds no sealed key"},
        {sealed.substr(0, sealed.size() - 1), "holds no sealed key"},
        {sealed + "x", "holds no sealed key"},
        {"", "size is 0 bytes"},
        {changed, "sealed key refused"},
    };
    for (const auto& [contents, text] : files) {
        SCOPED_TRACE(text);
        write(contents);
        ExpectRefusal(text);
        EXPECT_EQ(ReadFile("wrapping.key.tpm"), contents);
    }
    write(sealed, 0440);
    ExpectRefusal("mode is 0440");
    std::filesystem::remove(Path("wrapping.key.tpm"));
    ExpectRefusal("key file is not there");
    EXPECT_FALSE(std::filesystem::exists(Path("wrapping.key.tpm")));
    write(sealed);
    tpm.Stop();
    ExpectRefusal("cannot be reached");
    // Nothing but the keys needs the TPM.
    std::vector<host::StoreEntry> entries;
    ASSERT_TRUE(StoreAdministration::Open(mDirectory, mAdministration));
    EXPECT_TRUE(mAdministration->List(entries));
    EXPECT_EQ(entries.size(), 1U);
    tpm.Start();
    Open();
    EXPECT_TRUE(Signs(Key("TIV")));
    cleanupCryptoLib();
    tpm.Replace();
    ExpectRefusal("is another one, or was cleared");
    EXPECT_EQ(ReadFile("wrapping.key.tpm"), sealed);
}

TEST_F(KeyStorageTest, ConfigurationThatIsNotOfItsFormIsRefused) {
    Provision();
    const std::string token = R"("keys": "pkcs11", "module": "/m", "pinFile": "p", "label": "l")";
    const std::pair<std::string, const char*> files[] = {
        {"", "size is 0 bytes"},
        {"{", "parse error"},
        {"[]", "no JSON object"},
        {R"({"keys": "file"})", "keys must be"},
        {R"({"keys": "tpm"})", "tcti must be a string"},
        {R"({"keys": "tpm", "tcti": ""})", "tcti must have"},
        {R"({"keys": "tpm", "tcti": "x", "key": 1})", "unknown member 'key'"},
        {"{" + token + "}", "either token or slot"},
        {"{" + token + R"(, "token": "t", "slot": 1})", "either token or slot"},
        {"{" + token + R"(, "slot": -1})", "slot must be a number"},
        {R"({"keys": "pkcs11", "module": "m", "pinFile": "p", "label": "l", "slot": 1})",
         "absolute path"},
    };
    for (const auto& [contents, text] : files) {
        SCOPED_TRACE(contents);
        WriteFile("store.json", ToBytes(contents));
        mLog.Clear();
        EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
        EXPECT_THAT(Errors(),
                    ElementsAre(AllOf(HasSubstr("configuration refused"), HasSubstr(text))));
    }
    ::chmod(Path("store.json").c_str(), 0666);
    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors().back(), HasSubstr("others than its owner may write"));
    std::filesystem::remove(Path("store.json"));
    EXPECT_TRUE(initCryptoLib().IsSuccess());
}

/// A store whose keys are in a token, with the token seen beside it.
class TokenStorageTest : public KeyStorageTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(Initialize(mToken.Storage()));
        mWatched.emplace(std::get<host::TokenKeyStorage>(*LoadKeyStorage(mDirectory)));
        Open();
        GeneratedKey("TIV");
    }

    CryptoResultCode CodeOfUse() { return Signature(Key("TIV"))->sign(ToBytes("x")).GetCode(); }

    const SoftwareToken mToken{Path("pin")};
    std::optional<Pkcs11Token> mWatched;
};

TEST_F(TokenStorageTest, HoldsTheKeysThatTheStoreHasAndNoOthers) {
    ASSERT_EQ(mWatched->List().size(), 1U);
    // What a kill between the token's work and the database's leaves: a key pair without a row.
    cleanupCryptoLib();
    const ByteVector before = ToBytes(ReadFile("store.db"));
    Open();
    GeneratedKey("TIV_CSR");
    EXPECT_EQ(mWatched->List().size(), 2U);
    cleanupCryptoLib();
    WriteFile("store.db", before);
    Open();
    EXPECT_EQ(mWatched->List().size(), 1U);
    EXPECT_TRUE(Signs(Key("TIV")));

    ASSERT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kSuccess);
    EXPECT_THAT(mWatched->List(), IsEmpty());
    const Identity unit = SelfSigned({});
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(mAdministration->ImportKeyPair("K", PrivateKeyPem(unit.key), unit.Pem()));
        EXPECT_EQ(mWatched->List().size(), 1U);
    }
    // A new store may stand where a lost one was: its keys stay.
    const auto kept = mWatched->List();
    cleanupCryptoLib();
    std::filesystem::remove(Path("store.db"));
    EXPECT_TRUE(StoreAdministration::CreateOrOpen(mDirectory, mAdministration));
    Open();
    GeneratedKey("TIV");
    Reopen();
    EXPECT_TRUE(Signs(Key("TIV")));
    EXPECT_EQ(mWatched->List(), kept);
}

TEST_F(TokenStorageTest, AnOlderStoreTakesNoKeyFromTheNewerOne) {
    cleanupCryptoLib();
    const ByteVector older = ToBytes(ReadFile("store.db"));
    Open();
    ASSERT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kSuccess);
    GeneratedKey("TIV");
    cleanupCryptoLib();
    const ByteVector newer = ToBytes(ReadFile("store.db"));
    WriteFile("store.db", older);
    Open();
    EXPECT_EQ(CodeOfUse(), CryptoResultCode::kIntegrityError);
    cleanupCryptoLib();
    WriteFile("store.db", newer);
    Open();
    EXPECT_TRUE(Signs(Key("TIV")));
}

TEST_F(TokenStorageTest, AFailingDiskTakesNoKeyFromARow) {
    store_faults::Install();
    ASSERT_TRUE(StoreAdministration::Open(mDirectory, mAdministration));
    const Identity unit = SelfSigned({});
    const auto import = [&] {
        return mAdministration->ImportKeyPair("K", PrivateKeyPem(unit.key), unit.Pem()).status ==
               AdministrationStatus::kOk;
    };
    ASSERT_TRUE(import());
    const std::function<bool()> operations[] = {import, [&] {
                                                    return mStore->generateKeyPair(
                                                               Key("X"), store::KeyType::kEcP256) ==
                                                           CryptoResultCode::kSuccess;
                                                }};
    for (const auto& operation : operations) {
        int call = 0;
        for (bool isDone = false; !isDone;) {
            SCOPED_TRACE(++call);
            ASSERT_LT(call, 100);
            Reopen();
            mStore->deleteKeyPair(Key("X"));
            store_faults::Arm({store_faults::Fault::kError, call, 0});
            isDone = operation();
            store_faults::Disarm();
            Reopen();
            const auto base = mManager->lookupForKORUStore().GetObject()->makeKeyId("K");
            EXPECT_TRUE(Signs(base.GetObject()));
            const bool hasRow = mStore->checkKeyId(Key("X")) == 0;
            EXPECT_TRUE(!hasRow || Signs(Key("X")));
            EXPECT_EQ(mWatched->List().size(), hasRow ? 3U : 2U);
        }
        EXPECT_GT(call, 3);
    }
}

TEST_F(TokenStorageTest, AKeyThatIsNotWhatItShouldBeIsAnIntegrityError) {
    const auto ids = mWatched->List();
    GeneratedKey("OTHER");
    mWatched->Destroy(ids.front());
    EXPECT_EQ(CodeOfUse(), CryptoResultCode::kIntegrityError);
    EXPECT_THAT(Errors(), ElementsAre(AllOf(HasSubstr("private key 'TIV' in TIV: token 'unit"),
                                            HasSubstr("the key is not there"))));
    EXPECT_TRUE(Signs(Key("OTHER")));
    mWatched->GenerateKeyPair(ids.front());
    EXPECT_EQ(CodeOfUse(), CryptoResultCode::kIntegrityError);
    EXPECT_THAT(Errors().back(), HasSubstr("does not belong to its public key"));
    EXPECT_EQ(mStore->moveKeyPair(Key("TIV"), Key("TIV_2")), CryptoResultCode::kIntegrityError);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kSuccess);
    EXPECT_EQ(mWatched->List().size(), 1U);
}

TEST_F(TokenStorageTest, AWrongPinIsTriedOnce) {
    // A login holds for all sessions of a process.
    mWatched->Close();
    mAdministration.reset();
    cleanupCryptoLib();
    mToken.WritePin("1234");
    ExpectRefusal("login refused: CKR_PIN_INCORRECT");
    ExpectRefusal("is not tried again until");
    EXPECT_EQ(mLog.Count("1234"), 0U);
    mToken.WritePin(std::string(SoftwareToken::kPin) + "\n");
    Open();
    EXPECT_TRUE(Signs(Key("TIV")));
}

TEST_F(TokenStorageTest, ATokenThatCannotBeReachedIsToldFromOneThatCan) {
    cleanupCryptoLib();
    const KeyStorage good = *LoadKeyStorage(mDirectory);
    const auto refusedWith = [&](const std::function<void(host::TokenKeyStorage&)>& change,
                                 const char* text) {
        SCOPED_TRACE(text);
        auto token = std::get<host::TokenKeyStorage>(good);
        change(token);
        std::filesystem::remove(Path("store.json"));
        SaveKeyStorage(mDirectory, token);
        ExpectRefusal(text);
    };
    refusedWith([](auto& token) { token.module = "/nowhere.so"; }, "cannot be loaded");
    refusedWith([](auto& token) { token.module = "/lib/x86_64-linux-gnu/libm.so.6"; },
                "is no PKCS #11 module");
    refusedWith([](auto& token) { token.token = "other"; }, "there is none of this label");
    refusedWith([](auto& token) { token.token.clear(), token.slot = 1U << 30; },
                "CKR_SLOT_ID_INVALID");
    refusedWith([](auto& token) { token.pinFile = "nowhere"; }, "PIN file is not there");
    mToken.WritePin(SoftwareToken::kPin, 0440);
    refusedWith([](auto&) {}, "mode is 0440");
    mToken.WritePin(SoftwareToken::kPin);
    Open();
    EXPECT_TRUE(Signs(Key("TIV")));
}

TEST_F(TokenStorageTest, ATokenThatGoesAwayEndsInAnErrorAndIsTakenUpAgain) {
    const host::PrivateKey held = host::LoadPrivateKey(*mStore, *Key("TIV"));
    const std::string tokens = SoftwareToken::Directory();
    const std::string away = tokens + ".away";
    std::filesystem::rename(tokens, away);
    EXPECT_NE(CodeOfUse(), CryptoResultCode::kSuccess);
    EXPECT_NE(mStore->generateKeyPair(Key("X"), store::KeyType::kEcP256),
              CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors(), ::testing::Each(HasSubstr("token 'unit")));
    std::filesystem::rename(away, tokens);
    // SoftHSM finds it again only so. All sessions of the process are gone afterwards.
    CK_FUNCTION_LIST& functions = Pkcs11Module::Load(mToken.Storage().module).Functions();
    CK_C_INITIALIZE_ARGS arguments{};
    arguments.flags = CKF_OS_LOCKING_OK;
    functions.C_Finalize(nullptr);
    ASSERT_EQ(functions.C_Initialize(&arguments), CKR_OK);
    EXPECT_TRUE(Signs(Key("TIV")));
    EXPECT_TRUE(Signs(GeneratedKey("X")));

    // Sessions are no child's.
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(CodeOfUse() == CryptoResultCode::kStorageError ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(Signs(Key("TIV")));

    // A key that outlives the library is of no use, but harmless.
    cleanupCryptoLib();
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    unsigned char signature[128];
    std::size_t size = sizeof(signature);
    ASSERT_EQ(EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, held.get()), 1);
    EXPECT_NE(EVP_DigestSign(context, signature, &size, signature, 1), 1);
    EVP_MD_CTX_free(context);
}

}  // namespace

}  // namespace orv::sec::crypto::test
