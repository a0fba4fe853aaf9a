#include "orv_sec_crypto/signing_key_access.h"
#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

class CryptoStoreTest : public OpenLibraryTest {
protected:
    CryptoResultCode Attach(const KeyHandle& key, const std::string& chain) {
        return mStore->storeCertificateForKeyPair(key, ToBytes(chain));
    }

    /// What the openssl program says; it must succeed.
    std::string OpenSsl(const std::string& arguments) {
        const std::string command = "openssl " + arguments + " >" + Path("output") + " 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return ReadFile("output");
    }
};

TEST_F(CryptoStoreTest, StoresAreFoundOnceTheyWereMade) {
    EXPECT_EQ(mManager->lookupTrustStore("OTHER").GetCode(), CryptoResultCode::kNotFound);
    EXPECT_NE(mManager->createTrustStore("OTHER").GetObject(), nullptr);
    EXPECT_NE(mManager->lookupTrustStore("OTHER").GetObject(), nullptr);
    EXPECT_EQ(mManager->createTrustStore("OTHER").GetCode(), CryptoResultCode::kAlreadyExists);
    EXPECT_EQ(mManager->createTrustStore("").GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mManager->createTrustStore("KORU").GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mManager->lookupTrustStore("KORU").GetCode(), CryptoResultCode::kNotFound);
    EXPECT_NE(mManager->lookupForKORUStore().GetObject(), nullptr);
}

TEST_F(CryptoStoreTest, KeyPairLivesFromGenerationToDeletion) {
    const KeyHandle key = Key("TIV_CSR");
    EXPECT_EQ(mStore->checkKeyId(key), static_cast<std::uint8_t>(CryptoResultCode::kNotFound));
    EXPECT_EQ(mStore->deleteKeyPair(key), CryptoResultCode::kNotFound);
    EXPECT_EQ(mStore->generateKeyPair(key, static_cast<store::KeyType>(1)),
              CryptoResultCode::kUnsupported);

    GeneratedKey("TIV_CSR");
    const ByteVector publicKey = mStore->loadPublicKey(key).GetObject();
    EXPECT_EQ(mStore->checkKeyId(key), 0);
    EXPECT_EQ(mStore->generateKeyPair(key, store::KeyType::kEcP256),
              CryptoResultCode::kAlreadyExists);
    EXPECT_EQ(mStore->loadPublicKey(key).GetObject(), publicKey);
    EXPECT_EQ(mStore->loadCertificateForKeyPair(key).GetCode(), CryptoResultCode::kNotFound);

    EXPECT_EQ(mStore->deleteKeyPair(key), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->loadPublicKey(key).GetCode(), CryptoResultCode::kNotFound);
    EXPECT_EQ(mStore->generateCsr("VIN", store::CsrFormat::kPkcs10, key).GetCode(),
              CryptoResultCode::kNotFound);
}

TEST_F(CryptoStoreTest, ContentsOutliveTheLibrary) {
    const ByteVector publicKey = mStore->loadPublicKey(GeneratedKey("TIV")).GetObject();
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_EQ(mStore->loadPublicKey(Key("TIV")).GetObject(), publicKey);
    EXPECT_TRUE(Signature(Key("TIV"))->sign(ToBytes("content")).IsSuccess());
}

TEST_F(CryptoStoreTest, RequestIsAcceptedByTheOpensslTool) {
    const auto request = mStore->generateCsr("VNTREL00000000001:C003", store::CsrFormat::kPkcs10,
                                             GeneratedKey("TIV_CSR"));
    ASSERT_TRUE(request.IsSuccess()) << request.GetMessage();
    WriteFile("request.der", request.GetObject());

    const std::string output =
        OpenSsl("req -inform DER -in " + Path("request.der") + " -noout -verify -subject -text");
    for (const char* const part :
         {"self-signature verify OK", "subject=CN = VNTREL00000000001:C003\n", "ecdsa-with-SHA256",
          "NIST CURVE: P-256"}) {
        EXPECT_THAT(output, ::testing::HasSubstr(part));
    }
}

TEST_F(CryptoStoreTest, RequestRefusesASubjectThatIsNoCommonName) {
    const KeyHandle key = GeneratedKey("TIV_CSR");
    const auto request = [&](const std::string& subject) {
        return mStore->generateCsr(subject, store::CsrFormat::kPkcs10, key).GetCode();
    };
    EXPECT_EQ(request(std::string(64, 'A')), CryptoResultCode::kSuccess);
    EXPECT_EQ(request(std::string(65, 'A')), CryptoResultCode::kTooLarge);
    EXPECT_EQ(request(""), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(request(std::string("VIN\0", 4)), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(request("VIN\xff"), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->generateCsr("VIN", static_cast<store::CsrFormat>(1), key).GetCode(),
              CryptoResultCode::kUnsupported);
}

TEST_F(CryptoStoreTest, SignatureIsAcceptedByTheOpensslToolAndByVerify) {
    const KeyHandle key = GeneratedKey("TIV");
    const ByteVector content = ToBytes("VNTREL00000000001");
    const auto signature = Signature(key)->sign(content);
    ASSERT_TRUE(signature.IsSuccess()) << signature.GetMessage();
    WriteFile("content", content);
    WriteFile("signature", signature.GetObject());
    WriteFile("key.der", mStore->loadPublicKey(key).GetObject());

    EXPECT_EQ(OpenSsl("dgst -sha256 -keyform DER -verify " + Path("key.der") + " -signature " +
                      Path("signature") + " " + Path("content")),
              "Verified OK\n");
    EXPECT_EQ(Signature(key)->verify(signature.GetObject(), content), CryptoResultCode::kSuccess);
    EXPECT_EQ(Signature(key)->verify(signature.GetObject(), ToBytes("other")),
              CryptoResultCode::kVerificationFailed);
    EXPECT_EQ(Signature(key)->verify(ToBytes("garbage"), content),
              CryptoResultCode::kVerificationFailed);
    EXPECT_EQ(Signature(key)->verify({}, content), CryptoResultCode::kVerificationFailed);
    EXPECT_EQ(Signature(GeneratedKey("TIV_CSR"))->verify(signature.GetObject(), content),
              CryptoResultCode::kVerificationFailed);
}

TEST_F(CryptoStoreTest, ScratchCertificateServesAsPublicKeyOfItsId) {
    const KeyHandle key = GeneratedKey("TIV");
    const KeyHandle scratch = Key("TIV_TMP");
    const ByteVector content = ToBytes("content");
    EXPECT_EQ(
        mProvider->createDigitalSignature({operation::SignatureAlgorithm::kEcdsaSha256, scratch})
            .GetCode(),
        CryptoResultCode::kNotFound);

    const Identity stranger = SelfSigned({});
    ASSERT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), ToBytes(stranger.Pem())),
              CryptoResultCode::kSuccess);
    EXPECT_NE(mStore->loadPublicKey(scratch).GetObject(), mStore->loadPublicKey(key).GetObject());

    const Identity own = CertificateFor(key);
    for (const ByteVector& form : {ToBytes(own.Pem()), ToBytes(own.Der())}) {
        ASSERT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), form), CryptoResultCode::kSuccess);
        EXPECT_EQ(mStore->loadPublicKey(scratch).GetObject(),
                  mStore->loadPublicKey(key).GetObject());
        EXPECT_EQ(mStore->loadCertificate(Cert("TIV_TMP")).GetObject(), form);
    }
    const ByteVector signature = Signature(key)->sign(content).GetObject();
    EXPECT_EQ(Signature(scratch)->verify(signature, content), CryptoResultCode::kSuccess);
    EXPECT_EQ(Signature(scratch)->sign(content).GetCode(), CryptoResultCode::kNotFound);
}

TEST_F(CryptoStoreTest, EqualKeysGiveEqualBytesHoweverTheCertificateEncodesThem) {
    const KeyHandle key = GeneratedKey("TIV");
    const ByteVector expected = mStore->loadPublicKey(key).GetObject();
    const Identity own = CertificateFor(key);
    CertificateTraits compressed;
    compressed.key = own.key;
    ASSERT_EQ(EVP_PKEY_set_utf8_string_param(compressed.key.get(), "point-format", "compressed"),
              1);
    const Identity other = IssuedBy(SelfSigned(CaTraits("CA")), compressed);
    ASSERT_LT(other.Der().size(), own.Der().size());

    ASSERT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), ToBytes(other.Der())),
              CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->loadPublicKey(Key("TIV_TMP")).GetObject(), expected);
}

TEST_F(CryptoStoreTest, ChainIsAttachedOnlyIfItBelongsToTheKey) {
    const KeyHandle key = GeneratedKey("TIV");
    const Identity own = CertificateFor(key);
    const Identity stranger = SelfSigned({});

    EXPECT_EQ(Attach(Key("NONE"), own.Pem()), CryptoResultCode::kNotFound);
    EXPECT_EQ(Attach(key, own.Pem() + stranger.Pem()), CryptoResultCode::kSuccess);
    EXPECT_EQ(Attach(key, stranger.Pem() + own.Pem()), CryptoResultCode::kKeyMismatch);
    EXPECT_EQ(Attach(key, "garbage"), CryptoResultCode::kInvalidFormat);
    EXPECT_EQ(Attach(key, own.Pem() + "garbage"), CryptoResultCode::kInvalidFormat);
    EXPECT_EQ(Attach(key, ""), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(ToText(mStore->loadCertificateForKeyPair(key).GetObject()),
              own.Pem() + stranger.Pem());
}

TEST_F(CryptoStoreTest, MoveTakesTheChainAlongAndOverwritesNothing) {
    const KeyHandle pending = GeneratedKey("TIV_CSR");
    const KeyHandle accepted = GeneratedKey("TIV");
    const std::string chain = CertificateFor(pending).Pem();
    const ByteVector publicKey = mStore->loadPublicKey(pending).GetObject();
    ASSERT_EQ(Attach(pending, chain), CryptoResultCode::kSuccess);

    EXPECT_EQ(mStore->moveKeyPair(Key("NONE"), Key("NEW")), CryptoResultCode::kNotFound);
    EXPECT_EQ(mStore->moveKeyPair(pending, accepted), CryptoResultCode::kAlreadyExists);
    EXPECT_EQ(mStore->moveKeyPair(pending, pending), CryptoResultCode::kAlreadyExists);
    EXPECT_NE(mStore->loadPublicKey(accepted).GetObject(), publicKey);

    ASSERT_EQ(mStore->deleteKeyPair(accepted), CryptoResultCode::kSuccess);
    ASSERT_EQ(mStore->moveKeyPair(pending, accepted), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->checkKeyId(pending), 4);
    EXPECT_EQ(mStore->loadPublicKey(accepted).GetObject(), publicKey);
    EXPECT_EQ(ToText(mStore->loadCertificateForKeyPair(accepted).GetObject()), chain);
    const ByteVector signature = Signature(accepted)->sign(ToBytes("content")).GetObject();
    EXPECT_EQ(Signature(accepted)->verify(signature, ToBytes("content")),
              CryptoResultCode::kSuccess);
}

TEST_F(CryptoStoreTest, HandlesAreCheckedAndServeTheirOwnStoreOnly) {
    const auto other = mManager->createTrustStore("OTHER").GetObject();
    const KeyHandle foreign = other->makeKeyId("TIV").GetObject();

    EXPECT_EQ(mStore->generateKeyPair(foreign, store::KeyType::kEcP256),
              CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->deleteKeyPair(nullptr), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->checkKeyId(nullptr), 3);
    EXPECT_EQ(mStore->loadCertificate(nullptr).GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mProvider->createDigitalSignature({}).GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->makeKeyId("").GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->makeKeyId("a\n").GetCode(), CryptoResultCode::kInvalidArgument);
    EXPECT_EQ(mStore->makeCertId(std::string(129, 'a')).GetCode(), CryptoResultCode::kTooLarge);
    GeneratedKey("TIV");
    EXPECT_EQ(other->checkKeyId(foreign), 4);
}

TEST_F(CryptoStoreTest, KeyManagementStoreIsReadOnlyAndItsKeySigns) {
    const Identity unit = SelfSigned({});
    ASSERT_TRUE(Provision()->ImportKeyPair("ECU_BASE_CERT", PrivateKeyPem(unit.key), unit.Pem()));
    const auto koru = mManager->lookupForKORUStore().GetObject();
    const KeyHandle key = koru->makeKeyId("ECU_BASE_CERT").GetObject();
    const ByteVector content = ToBytes("content");

    EXPECT_EQ(ToText(koru->loadCertificateForKeyPair(key).GetObject()), unit.Pem());
    EXPECT_EQ(koru->deleteKeyPair(key), CryptoResultCode::kAccessDenied);
    EXPECT_EQ(koru->storeCertificateForKeyPair(key, ToBytes(unit.Pem())),
              CryptoResultCode::kAccessDenied);
    EXPECT_EQ(koru->moveKeyPair(key, koru->makeKeyId("X").GetObject()),
              CryptoResultCode::kAccessDenied);
    EXPECT_EQ(Signature(key)->verify(Signature(key)->sign(content).GetObject(), content),
              CryptoResultCode::kSuccess);

    const auto privateKey = host::LoadPrivateKey(*koru, *key);
    ASSERT_NE(privateKey, nullptr);
    EXPECT_EQ(EVP_PKEY_eq(privateKey.get(), unit.key.get()), 1);
    EXPECT_EQ(host::LoadPrivateKey(*mStore, *key), nullptr);
    EXPECT_EQ(host::LoadPrivateKey(*mStore, *Key("NONE")), nullptr);
}

}  // namespace

}  // namespace orv::sec::crypto::test
